#!/usr/bin/env python3
"""Lives one life, inside a device view: live.py BUILD AGENT SPEED LIFE-FILE RESULT-FILE SECONDS."""
import json
import math
import os
import sys
import time

from clock import Clock
from desk import ALARMS, LOG, STATE, Desk, wait_for
from life import DAY
from sizes import sample
from world import World, conf_text, tidy_card

HOUR = 3600
PATIENCE = 120  # real seconds without any progress of time after which the device hangs
OF_UPGRADES = 17  # the first alarm status that follows from no poll's reply
CONF = {"ITEM_DEVICE": "Camera", "ITEM_STREAM": "Stream1", "PASSWORD": "secret", "SESSION_KEY": "", "COOKIE": "/tmp/working/cookie",
        "BATTERY_ARMED": "1", "SDCARD_ARMED": "1", "NIMB_ARMED": "0", "BATTERY_LOW": "20", "SDCARD_LOW": "10", "NIMB_LOW": "10",
        "OTA_TMP_FILE": "/tmp/working/ota.marker", "RECORDING_FLAG_FILE": "/tmp/working/recording",
        "RECORDING_LOG_FILE": "/tmp/fuse_d/recording.log", "TIMEZONE": "GMT+8", "NIMB_HOST": "127.0.0.1:1", "LULLABY_SONG": "1"}


class Collector:
    """What the desk recorded since it was last asked, as records with the time of the life."""

    def __init__(self, desk, clock, world):
        self._desk, self._clock, self._world = desk, clock, world
        self._request, self._alarms, self._started = 0, 0, 0
        self._early = []  # alarms that came behind a request which is still under way

    def take(self):
        alarms = self._early + self._new_alarms()  # first: none may come without the request that called for it
        records, running = self._world.take_records()
        requests, under_way = self._requests()
        self._early = [alarm for alarm in alarms if alarm["t"] > under_way and alarm["status"] < OF_UPGRADES]
        records += requests + [alarm for alarm in alarms if alarm not in self._early] + self._starts()
        records += [{"kind": "late", "since": since, "t": until, "seconds": seconds} for since, until, seconds in self._clock.take_late()]
        return sorted(records, key=lambda record: record["t"]), running

    def _requests(self):
        """Those that have ended, up to the first that has not, and when that began."""
        rows = []
        for row in self._desk.camera("GET", f"/requests?since={self._request}"):
            if row["end_ms"] is None and row["status"] is None and self._clock.now() - self._clock.of_ms(row["time_ms"]) < 900:
                return rows, self._clock.of_ms(row["time_ms"])
            self._request = row["seq"]
            rows.append({"kind": "request", "t": self._clock.of_ms(row["time_ms"]), "seq": row["seq"], "fault": row["fault"],
                         "end": None if row["end_ms"] is None else self._clock.of_ms(row["end_ms"]), "target": row["target"],
                         "method": row["method"], "endpoint": row["endpoint"], "cookie": row["cookie"], "body": row["body"][:400],
                         "status": row["status"], "reply": row["reply"]})
        return rows, math.inf

    def _new_alarms(self):
        if not os.path.exists(ALARMS):
            return []
        with open(ALARMS) as file:
            file.seek(self._alarms)
            text = file.read()
        self._alarms += text.rfind("\n") + 1
        return [{"kind": "alarm", "t": self._clock.of_ms(row["monotonic_ms"]), "status": row["status"], "pid": row["pid"]}
                for row in map(json.loads, text[:text.rfind("\n") + 1].splitlines())]

    def _starts(self):
        rows = [row for row in self._clock.starts() if row[0] >= self._started and row[0] > 0]  # the camera is number 0
        self._started = max([row[0] + 1 for row in rows], default=self._started)
        return [{"kind": "start", "t": started, "pid": pid} for _, pid, started in rows]


class RecordingLog:
    """The lines that are new in the recording log; whether some may be lost, as the card was formatted."""
    PATH = "/tmp/fuse_d/recording.log"

    def __init__(self):
        self._read, self._inode = 0, None

    def take(self):
        try:
            inode = os.stat(self.PATH).st_ino
            with open(self.PATH, encoding="latin-1") as file:
                lines = file.read().splitlines()
        except OSError:
            inode, lines = None, []
        lost = self._inode is not None and inode != self._inode
        new = lines if lost else lines[self._read:]
        self._read, self._inode = len(lines), inode
        return new, lost


def take_log():
    """What the agent has logged since it was last asked."""
    with open(LOG, "r+", encoding="latin-1") as file:
        text = file.read()
        file.truncate(0)
    with open(STATE + "calls", "r+") as file:
        file.truncate(0)
    return text


def what_waits(clock):
    """Where the threads of the bent processes are, for whoever looks into time that does not pass."""
    lines = [f"waits (pid, only sleeps, until): {clock.waits()}"]
    for pid in sorted({pid for _, pid, _ in clock.starts() if os.path.exists(f"/proc/{pid}/task")} - {0}):
        for thread in os.listdir(f"/proc/{pid}/task"):
            def read(name):
                with open(f"/proc/{pid}/task/{thread}/{name}") as file:
                    return file.read().strip()
            lines.append(f"  {read('comm')} {thread} {read('syscall')[:60]} {read('stat').rpartition(')')[2][1]} {read('wchan')} children {read('children')}")
    return "\n".join(lines)


def live(life, build, agent, speed, seconds, show):
    clock = Clock(STATE + "bend", speed, life["uptime"], life["wall"])
    desk = Desk(build, agent, speed, {**CONF, **life["conf"]})
    world = World(desk, clock, life["events"])
    collector = Collector(desk, clock, world)
    from oracle import Oracle
    oracle, recordings = Oracle(life, desk.conf), RecordingLog()
    hour, began, hours = 1, time.monotonic(), int(life["days"] * DAY / HOUR)
    try:
        desk.start()
        while hour <= hours and not (seconds and time.monotonic() - began > seconds):
            due = world.next_due()
            is_event = due is not None and due < hour * HOUR
            if not clock.wait_until(due if is_event else hour * HOUR, PATIENCE):
                return oracle.report(clock.now(), "time passes", f"for {PATIENCE} s nothing could be skipped\n{what_waits(clock)}")
            if is_event:
                world.act()
                continue
            records, running = collector.take()
            tidy_card()
            lines, lost = recordings.take()
            evidence = {"recordings": lines, "recordings_lost": lost, "size": sample(desk), "conf": conf_text(), "reboots": desk.reboots(), "camera": desk.camera("GET", "/state"),
                        "log": take_log()}
            if oracle.judge(hour * HOUR, records, running, evidence):
                break
            if hour % 24 == 0:
                show(hour // 24, time.monotonic() - began)
            hour += 1
        result = oracle.result()
        if result["verdict"] != "well":
            result["waits"] = what_waits(clock)
        return result
    finally:
        desk.stop()


def main():
    build, agent, speed, life_file, result_file, seconds = sys.argv[1:]
    with open(life_file) as file:
        life = json.load(file)
    began = time.monotonic()
    result = live(life, build, agent, float(speed), float(seconds), lambda day, real: print(f"day {day} after {real:.0f} s", flush=True))
    result["real_seconds"] = round(time.monotonic() - began, 1)
    with open(result_file, "w") as file:
        json.dump(result, file)


if __name__ == "__main__":
    main()
