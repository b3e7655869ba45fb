#!/usr/bin/env python3
"""An hour of the device by a script, inside a device view: hour.py BUILD AGENT JOURNAL-FILE. The journal tells what was done to
the files, and in between, as marks, what was asked for and what was answered."""
import json
import os
import shutil
import sys
import threading
import time

from device import JOURNAL, KEPT, KEPT_CONF, RESERVE, Device, read

HOUR = 3600
QUIET = 0.05  # real seconds without a call, while time is held, after which none is under way
PARAMETERS = {"pd_armed": "BATTERY_ARMED", "csd_armed": "NIMB_ARMED", "sdcard_armed": "SDCARD_ARMED", "pd_setting": "BATTERY_LOW",
              "csd_setting": "NIMB_LOW", "sdcard_setting": "SDCARD_LOW"}


class Journal:
    """Adds marks, and whole files as they are at a moment."""

    def __init__(self):
        self._file = os.open(JOURNAL, os.O_WRONLY | os.O_CREAT | os.O_APPEND, 0o666)

    def close(self):
        os.close(self._file)

    def mark(self, **what):
        text = json.dumps(what).encode()
        os.write(self._file, b"mark\t%d\n%s\n" % (len(text), text))

    def hold(self, path):
        text, found = read(path), os.stat(path)
        os.write(self._file, b"hold\t%s\t%d\t%d\n%s\n" % (path.encode(), (found.st_dev << 32) + found.st_ino, len(text), text))


class Script:
    def __init__(self, device, journal, say):
        self._device, self._journal, self._say = device, journal, say
        self._number, self._lock = 0, threading.Lock()
        self._version = 3

    # --- Steps

    def start(self):
        with open(RESERVE, "w"):
            pass
        self._journal.mark(start=True)
        self._device.start_agent()
        self._device.pass_until(self._device.logs("vq_ipca_init return"), "the start checks end")
        self.quiet()

    def cut(self):
        self._device.end_agent()
        self._journal.mark(recording=None)

    def quiet(self):
        """Whatever was begun has been done: what the files hold now must not be lost any more."""
        self._device.hold_time()
        size, since = -1, time.monotonic()
        while time.monotonic() - since < QUIET:
            now = os.path.getsize(JOURNAL)
            if now != size:
                size, since = now, time.monotonic()
            time.sleep(0.005)
        held = {path: read(path) for path in KEPT}
        self._journal.mark(quiet={path: text.decode("latin-1") for path, text in held.items() if text is not None})

    def wait(self, seconds):
        clock = self._device.clock
        if not clock.wait_until(clock.now() + seconds):
            raise RuntimeError("time does not pass")

    def _acknowledged(self, begin, act):
        with self._lock:
            self._number += 1
            number = self._number
        self._journal.mark(begin=number, **begin)
        self._device.let_time_pass()
        result = act()
        self._journal.mark(end=number, result=result, **begin)
        return result

    def write(self, name, value):
        self._acknowledged({"key": PARAMETERS[name], "value": value}, lambda: self._device.write(name, value))

    def record(self, seconds):
        """Of a recording that is cut the flag comes and goes."""
        self._journal.mark(recording=None)
        self._device.let_time_pass()
        if self._device.call("start_recording_video", seconds) == 0:
            self._journal.mark(recording=True)
            self.wait(50)
            self._journal.mark(recording=None)

    def stop(self):
        self._journal.mark(recording=None)
        self._device.let_time_pass()
        result = self._device.call("stop_recording_video")
        if result == 0:
            self._journal.mark(recording=False)

    def expire(self):
        self._device.camera("POST", "/session/expire")

    def upgrade(self, outcome):
        """Ordered, followed, and after the reboot settled. The camera ends the agent in between."""
        self._version += outcome == "success"
        old = self._device.camera("GET", "/state")["config"]["fwver"]
        new = f"1.0.{self._version}" if outcome == "success" else old
        with open(RESERVE, "w"):
            pass
        self._device.camera("PATCH", "/config", {"upgrade": {"steps": 4, "step_ms": 6000, "outcome": outcome}})
        self._device.camera("PATCH", "/status", {"NewFirmwareVersion": f"1.0.{self._version}", "NewFirmwareEvent": "1"})
        self._journal.mark(upgrade=old, to=new)
        self._device.write("doOTA", "1")
        self._device.pass_until(lambda: not self._device.agent_runs(), "the upgrade's reboot")
        self._journal.mark(fwver=new, recording=None)
        self._device.end_agent()
        self.start()

    def at_once(self, *steps):
        threads = [threading.Thread(target=step) for step in steps]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()

    # --- The hour

    def run(self):
        self.start()
        for number in range(6):
            for name in PARAMETERS:
                self.write(name, str(number % 2) if name.endswith("armed") else str(30 + number))
            self.quiet()
            self.wait(20)
        self._say("parameters written")
        self.record(150)  # cut into 60, 60 and 30 s
        for _ in range(10):
            self.wait(20)
            self.quiet()
        self._journal.mark(recording=False)
        self._say("a recording in three pieces")
        for length in (0, 30):
            self.record(0)
            self.wait(length)
            self.stop()
            self.quiet()
        self.expire()
        self.wait(60)
        self.quiet()
        self._say("recordings stopped, a login")
        for round_ in range(5):
            self.record(0)
            self.wait(round_)
            self.at_once(self.stop, lambda: self.write("pd_setting", str(50 + round_)), lambda: self.write("csd_armed", str(round_ % 2)),
                         lambda: self.write("sdcard_setting", str(60 + round_)), self.expire)
            self.wait(30)
            self.quiet()
        self._say("stops, writes and logins at once")
        self.upgrade("success")
        self.wait(60)
        self._say("an upgrade")
        self.write("pd_setting", "71")
        self.record(0)
        self.cut()  # with a recording under way
        self.start()
        self.wait(60)
        self.record(80)
        self.wait(60)
        self._journal.mark(recording=False)
        self.quiet()
        self._say("an end within a recording")
        self.upgrade("fail_upgrade")
        self.write("sdcard_armed", "0")
        self.wait(60)
        self.at_once(lambda: self.upgrade("success"), lambda: self.write("sdcard_setting", "44"))
        self._say("an upgrade that failed, another one")
        self.record(0)
        self.wait(90)
        self.stop()
        self.expire()
        self.wait(max(1, HOUR - self._device.clock.now()))
        self.quiet()


def main():
    build, agent, result = sys.argv[1:]
    device, began = Device(build, agent), time.monotonic()
    journal = Journal()
    journal.hold(KEPT_CONF)
    journal.mark(quiet={KEPT_CONF: read(KEPT_CONF).decode()}, fwver="1.0.3", recording=False)

    def say(text):
        print(f"{device.clock.now():5.0f} s of the hour, {time.monotonic() - began:.0f} s: {text}", flush=True)
    try:
        Script(device, journal, say).run()
        say("over")
    except Exception:
        print(device.log_text()[-3000:], flush=True)
        raise
    finally:
        device.end_agent()
        device.stop()
        shutil.copy(JOURNAL, result)


if __name__ == "__main__":
    main()
