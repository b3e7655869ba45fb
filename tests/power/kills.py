#!/usr/bin/env python3
"""Ends the agent again and again at seeded instants under load, inside a device view, and starts it on the disk it left:
kills.py BUILD AGENT SEED KILLS SECONDS RESULTS-FILE. A line of the file is a kill; SECONDS ends the row earlier, 0 does not."""
import glob
import json
import os
import random
import re
import sys
import threading
import time

from device import ALARMS, COOKIE, JOURNAL, KEPT, KEPT_CONF, MARKER, NEW, RECORDINGS, RESERVE, STATE, VERSION, Device, Gone, read
from disk import records
from hour import PARAMETERS
from promises import NOTICES, Truth, entries, expected_notice, judge, whole_lines

STARTED = "vq_ipca_init return"
WITHIN = 0.7          # of all kills are within a call on a file
CALLS = (1, 45)       # after a start within which those are
UPGRADE_CALLS = (15, 40)
LOAD_SECONDS = 0.15   # real, after which a kill that has not come is made
UPGRADES, UPGRADE_SECONDS = 0.2, 0.5  # of all rounds; real
ALONE = 0.6           # of them without any other load
LINE = re.compile(rb"[0-9]{14}_[0-9]+_[^\n]*\n")
PATIENCE = 60         # real seconds for a start
LONG_LOG = 20000      # bytes of the recording log that begin a new one


class Round:
    """One start under load, ended somewhere, and what is left then."""

    def __init__(self, device, truth, chance, firmware):
        self._device, self._truth, self._chance, self._firmware = device, truth, chance, firmware
        self._lock = threading.Lock()
        self._over = False
        self.broken = []
        self.where, self.rebooted, self.upgraded_to = "at an instant", False, None
        self.told, self.started = [], False
        self.stopped = 0  # recordings whose stop was answered

    def run(self):
        chance, device = self._chance, self._device
        within, upgrade = chance.random() < WITHIN, chance.random() < UPGRADES
        how = chance.choice(["within"] * 8 + ["before", "after"])
        order = f"{chance.randint(*UPGRADE_CALLS if upgrade else CALLS)} {how} {chance.randint(0, 1000)}" if within else None
        longest = UPGRADE_SECONDS if upgrade else LOAD_SECONDS
        pause = longest if within else chance.uniform(0, longest)
        due = expected_notice(self._files(), self._firmware)
        with open(RESERVE, "w"):
            pass
        device.start_agent(order)
        began = time.monotonic()
        # A kill at an instant may hit the start, too.
        self._pass(lambda: device.logs(STARTED)() or (not within and time.monotonic() - began > pause), PATIENCE)
        self.started = STARTED in device.log_text()
        if self.started:
            self._load(pause if within else pause - (time.monotonic() - began), upgrade)
        elif device.agent_runs() and within:
            self.broken.append(f"the agent comes up: it has not ended its start checks after {PATIENCE} s")
        self._end()
        self._judge(due)

    def _files(self):
        return {path: text for path in KEPT for text in [read(path)] if text is not None}

    def _pass(self, condition, seconds):
        end = time.monotonic() + seconds
        while self._device.agent_runs() and not condition() and time.monotonic() < end:
            self._device.let_time_pass()
            time.sleep(0.001)

    # --- The load

    def _load(self, seconds, upgrade):
        chance, threads = self._chance, []
        if not upgrade or chance.random() > ALONE:
            threads = [threading.Thread(target=self._writes, args=(random.Random(chance.random()), number)) for number in range(2)]
            threads.append(threading.Thread(target=self._recordings))
        if upgrade:
            self._order_upgrade("success" if chance.random() < 0.6 else "fail_upgrade")
        elif chance.random() < 0.3:
            self._device.camera("POST", "/session/expire")
        for thread in threads:
            thread.start()
        self._pass(lambda: False, seconds)
        self._over = True
        self._device.end_agent()
        for thread in threads:
            thread.join()

    def _until_gone(self, act):
        while not self._over:
            try:
                act()
            except (Gone, ValueError):
                return

    def _writes(self, chance, first):
        """Each of the two threads has parameters of its own, so that what was answered last is what must be there."""
        names = list(PARAMETERS)[first::2]

        def act():
            name = chance.choice(names)
            value = str(chance.randint(0, 1) if name.endswith("armed") else chance.randint(1, 99))
            key = PARAMETERS[name]
            with self._lock:
                self._truth.conf[key] = self._truth.conf[key] | {value}
            self._device.write(name, value)
            with self._lock:
                self._truth.conf[key] = {value}
        self._until_gone(act)

    def _recordings(self):
        def act():
            self._device.call("start_recording_video", 0)
            if self._device.call("stop_recording_video") == 0:
                self.stopped += 1
        self._until_gone(act)

    def _order_upgrade(self, outcome):
        state = self._device.camera("GET", "/state")
        next_version = f"1.0.{int(self._firmware.split('.')[-1]) % 90 + 1}"
        self.upgraded_to = next_version if outcome == "success" else self._firmware
        self._device.camera("PATCH", "/config", {"upgrade": {"steps": 2, "step_ms": 6000, "outcome": outcome}})
        self._device.camera("PATCH", "/status", {"NewFirmwareVersion": next_version, "NewFirmwareEvent": "1"})
        self._truth.order, self._truth.told = [state["config"]["fwver"], self.upgraded_to], []
        threading.Thread(target=self._until_gone, args=(self._send_order,), daemon=True).start()

    def _send_order(self):
        self._device.write("doOTA", "1")
        raise Gone("once is enough")

    # --- What is left

    def _end(self):
        self._device.hold_time()
        self._device.end_agent()
        with open(STATE + "calls") as file:
            self.rebooted = '"tool":"qmx_reboot"' in file.read()
        for record in records(read(JOURNAL) or b""):
            if record.kind == "killed":
                self.where = f"{record.fields[0]} {record.fields[1]}"
        self.told = [status for status in self._device.alarms() if status in NOTICES]

    def _judge(self, due):
        truth, files = self._truth, self._files()
        self._judge_notices(due, files)
        self._learn_of_logins()
        before, log = truth.log, files.get(RECORDINGS, b"")
        truth.now, truth.recording = {RECORDINGS: log}, None
        self.broken += judge(files, truth)
        added = log[len(before):]
        lines = whole_lines(added)
        # In the order of the disk: what a kill has left of a line is cut off by the next start's first recording.
        if log.startswith(before) and not all(LINE.fullmatch(line + b"\n") for line in lines.split(b"\n")[:-1]):
            self.broken.append(f"the recording log holds whole lines: {added!r}")
        if lines.count(b"\n") < self.stopped:
            self.broken.append(f"the recording log loses no line that was written: {lines!r} after {self.stopped} stops")
        truth.log = whole_lines(log)
        found = dict(entries(files.get(KEPT_CONF, b"")) or {})
        for key, value in found.items():
            truth.conf[key] = {value}
        truth.keys = {found.get("SESSION_KEY", "")}
        truth.cookies, truth.versions = {files.get(COOKIE)}, {files.get(VERSION)}

    def _learn_of_logins(self):
        """What the camera has answered may be in the files now."""
        truth = self._truth
        truth.keys.add("")
        for request in self._device.camera("GET", "/requests?endpoint=CameraLogin"):
            for key in re.findall(r"Session=([0-9]+)", request["reply"]):
                truth.keys.add(key)
                truth.cookies.add(f" Set-Cookie: Session={key}\n".encode())
            truth.versions |= {version.encode() for version in re.findall(r"<FWVER>([^<]*)<", request["reply"])}

    def _judge_notices(self, due, files):
        """`due` is what this start had to tell."""
        truth = self._truth
        outcomes = [status for status in self.told if status != 18]
        if self.started and outcomes != due:
            self.broken.append(f"a start tells an upgrade's outcome once, and the true one: {outcomes} instead of {due}")
        if not self.started and outcomes not in ([], due):
            self.broken.append(f"an upgrade's notice is sent at most once: {self.told}")
        if self.told.count(18) > 1:
            self.broken.append(f"an upgrade's notice is sent at most once: {self.told}")
        if outcomes and MARKER not in files and self.upgraded_to is None:
            truth.order, truth.told = None, []
        elif outcomes and self.upgraded_to is None:
            truth.told = truth.told + outcomes
        elif 18 in self.told:
            truth.told = [18]
        self.twice = bool(outcomes) and MARKER in files and not self.started
        if MARKER not in files and self.upgraded_to is not None and 18 not in self.told:
            truth.order = None  # it came to nothing before its marker was made


def firmware_after(done, firmware, device):
    """What the camera runs after it was switched off and on with the device."""
    return device.camera("GET", "/state")["config"]["fwver"] if done.upgraded_to else firmware


def tidy(device):
    """Between two kills: the camera restarts with the device, and what piles up is taken away."""
    device.camera("POST", "/restart")
    device.camera("DELETE", "/requests")
    for path in (JOURNAL, ALARMS, STATE + "calls"):
        if os.path.exists(path):
            os.truncate(path, 0)
    for path in glob.glob("/tmp/fuse_d/DCIM/100MEDIA/*"):
        os.remove(path)


def known_at_first(device):
    truth = Truth()
    truth.conf = {key: {value} for key, value in entries(read(KEPT_CONF))}
    truth.keys, truth.cookies, truth.versions = {""}, {None}, {None}
    return truth


def main():
    build, agent, seed, kills, seconds, results = sys.argv[1:]
    device, began = Device(build, agent), time.monotonic()
    open(STATE + "calls", "a").close()
    firmware, truth = "1.0.3", known_at_first(device)
    try:
        with open(results, "w", buffering=1) as result:
            for number in range(int(kills)):
                if float(seconds) and time.monotonic() - began > float(seconds):
                    break
                chance = random.Random(f"{seed} {number}")
                done = Round(device, truth, chance, firmware)
                done.run()
                firmware = firmware_after(done, firmware, device)
                row = {"number": number, "where": done.where, "rebooted": done.rebooted, "started": done.started, "told": done.told,
                       "twice": done.twice, "stops": done.stopped, "broken": done.broken}
                if done.broken:
                    row["files"] = {path: text.decode("latin-1") for path in [*KEPT, *[path + NEW for path in KEPT]]
                                    for text in [read(path)] if text is not None}
                    row["log"] = device.log_text()[-2000:]
                result.write(json.dumps(row) + "\n")
                tidy(device)
                if len(truth.log) > LONG_LOG:
                    os.truncate(RECORDINGS, 0)
                    truth.log = b""
                if done.broken:
                    break
    finally:
        device.end_agent()
        device.stop()


if __name__ == "__main__":
    main()
