#!/usr/bin/env python3
"""Starts the agent on one disk after another, inside a device view: boots.py BUILD AGENT IMAGES-FILE RESULTS-FILE. A line of each file is an
image and what came of it; an empty list of texts is well."""
import glob
import json
import os
import re
import sys

from device import COOKIE, FLAG, JOURNAL, KEPT, KEPT_CONF, MARKER, NEW, RECORDINGS, RESERVE, VERSION, Device, Gone, put, read
from hour import Journal
from promises import NOTICES, all_keys, entries, expected_notice, whole_lines

STARTED, POLLED = "vq_ipca_init return", "Value of SD:"
PATIENCE = 60  # real seconds for a start
ENOUGH = 3  # disks that broke a rule, after which no more are started on
LINE = re.compile(rb"[0-9]{14}_[0-9]+_[^\n]*\n")


class Boot:
    """One start, and the start after it."""

    def __init__(self, device, files, firmware):
        self._device, self._files, self._firmware = device, files, firmware
        self.broken, self.journal = [], b""

    def run(self):
        device = self._device
        device.camera("PATCH", "/config", {"fwver": self._firmware})
        device.camera("POST", "/session/expire")
        put(self._files)
        self._begin_journal()
        try:
            told = self._start()
            wanted = expected_notice(self._files, self._firmware)
            self._check(told == wanted, f"a start tells an upgrade's outcome once, and the true one: {told} instead of {wanted}")
            self._check_files()
            self._check_write()
            self._check_recording()
            self.journal = read(JOURNAL)
            device.end_agent()
            told = self._start()
            self._check(not told, f"an upgrade's notice is sent at most once: {told} at the next start too")
        except (RuntimeError, Gone) as error:
            self.broken.append(f"the agent comes up: {error}; its log ends in\n{device.log_text()[-1500:]}")
        device.end_agent()
        return self.broken

    def _begin_journal(self):
        """Of this start, so that the power can be cut in it again."""
        if os.path.exists(JOURNAL):
            os.truncate(JOURNAL, 0)
        journal = Journal()
        for path in self._files:
            journal.hold(path)
        journal.mark(left={path: text.decode("latin-1") for path, text in self._files.items()}, firmware=self._firmware)
        journal.close()

    def _check(self, holds, text):
        if not holds:
            self.broken.append(text)

    def _start(self):
        """The notices that are sent until it polls."""
        before = len(self._device.alarms())
        with open(RESERVE, "w"):
            pass
        self._device.start_agent()
        self._device.pass_until(lambda: STARTED in self._device.log_text() and POLLED in self._device.log_text(), "logs in, ends its start checks and polls", PATIENCE)
        return [status for status in self._device.alarms()[before:] if status in NOTICES]

    def _conf(self):
        return dict(entries(read(KEPT_CONF) or b"") or {})

    def _check_files(self):
        before, now = dict(entries(self._files[KEPT_CONF]) or {}), self._conf()
        self._check(set(now) == all_keys(), f"no entry of the configuration is lost: {sorted(set(now) ^ all_keys())} at the start")
        changed = sorted(key for key in before if now.get(key) != before[key] and key != "SESSION_KEY")
        self._check(not changed, f"a start changes no entry: {changed}")
        known = self._device.camera("GET", "/state")["sessions"]
        self._check(now.get("SESSION_KEY") in known, "the configuration holds a key that the camera knows")
        cookie = re.fullmatch(rb" Set-Cookie: Session=([0-9]+)\n", read(COOKIE) or b"")
        self._check(bool(cookie) and cookie[1].decode() in known, f"the cookie's file is whole after a login: {read(COOKIE)!r}")
        self._check(read(VERSION) == self._firmware.encode(), f"the firmware version's file is that of the login: {read(VERSION)!r}")
        self._check(read(MARKER) is None, "the marker is gone when its upgrade was settled")

    def _check_write(self):
        before = self._conf()
        value = "77" if before.get("BATTERY_LOW") != "77" else "78"
        self._device.let_time_pass()
        journal = Journal()
        journal.mark(begin=1, key="BATTERY_LOW", value=value)
        journal.close()
        self._device.write("pd_setting", value)
        self._device.hold_time()
        self._check(self._conf() == {**before, "BATTERY_LOW": value}, "a parameter can be written, and changes no other entry")
        self._check(read(KEPT_CONF + NEW) is None, "what a power cut left beside the configuration is cleared away by the next write")

    def _check_recording(self):
        before = whole_lines(read(RECORDINGS) or b"")
        self._device.let_time_pass()
        started = self._device.call("start_recording_video", 0)
        flag = read(FLAG)
        stopped = self._device.call("stop_recording_video")
        self._device.hold_time()
        self._check(started == 0 and stopped == 0, f"a recording can be started and stopped: {started}, {stopped}")
        self._check(flag == b"" and read(FLAG) is None, "the flag is there while a recording runs")
        log = read(RECORDINGS) or b""
        self._check(log.startswith(before), "the recording log loses no line that was written: the next recording has changed them")
        self._check(bool(LINE.fullmatch(log[len(before):])), f"the recording log holds whole lines: the next recording's is {log[len(before):]!r}")


def tidy():
    """The card must not fill up with what the camera records."""
    for path in glob.glob("/tmp/fuse_d/DCIM/100MEDIA/*"):
        os.remove(path)


def main():
    build, agent, images, results = sys.argv[1:]
    device, failures = Device(build, agent), 0
    try:
        with open(images) as source, open(results, "w", buffering=1) as result:
            for number, line in enumerate(source):
                image = json.loads(line)
                files = {path: text.encode("latin-1") for path, text in image["files"].items()}
                address = f"hostIP={device.address}\n".encode()
                files[KEPT_CONF] = re.sub(rb"hostIP=[^\n]*\n", address, files.get(KEPT_CONF, b""))
                boot = Boot(device, files, image["firmware"])
                broken = boot.run()
                row = {"number": image["number"], "broken": broken}
                if image.get("again"):
                    row["journal"] = boot.journal.decode("latin-1")
                result.write(json.dumps(row) + "\n")
                failures += bool(broken)
                if failures == ENOUGH:
                    break
                if number % 100 == 0:
                    tidy()
    finally:
        device.end_agent()
        device.stop()


if __name__ == "__main__":
    main()

