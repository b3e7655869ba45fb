"""The bent clock of a life: reads it, waits on it, and limits what bend-skip may skip (devkit/device/bend_file.h)."""
import mmap
import os
import struct
import time

from delays import Delays

WALL, ORIGIN, SKIPPED, LIMIT = 0, 8, 16, 24
PROCESSES_BEGUN, PROCESSES, PROCESS_BYTES, PROCESSES_KEPT = 40, 48, 16, 4096
WAITS_KEPT, WAIT_BYTES = 160, 16
FILE_BYTES = PROCESSES + PROCESSES_KEPT * PROCESS_BYTES + WAITS_KEPT * WAIT_BYTES
LOOK_AGAIN = 0.0004  # real seconds between two looks while waiting
COUNT_AGAIN = 0.05   # real seconds between two counts of how long the device's programs had to wait for a processor
WORTH_TELLING = 0.1  # seconds of the device's clock
UNLIMITED = 2**62


class Clock:
    """Seconds of the device's monotonic clock since the life began, `uptime` seconds after the device's boot, when the
    wall clock showed `wall`."""

    def __init__(self, path, speed, uptime, wall):
        with open(path, "a+b") as file:
            file.truncate(FILE_BYTES)
            self._map = mmap.mmap(file.fileno(), FILE_BYTES)
        self._speed = speed
        self._late = []  # [since, until, seconds of the device's clock that went by while its programs could not run]
        self._delays, self._counted, self._counted_at = Delays(), time.monotonic(), 0.0
        self._pids, self._pids_known = [], 0
        origin = time.clock_gettime_ns(time.CLOCK_MONOTONIC)
        self._write(ORIGIN, origin)
        # The clock of a machine that has run for longer than the device is turned back.
        skipped = int(uptime * 1e9) - origin
        self._write(SKIPPED, skipped)
        self._write(WALL, int((wall - time.time()) * 1e6) - skipped // 1000)
        self._begin = int(uptime * 1e9)

    def _read(self, place):
        return struct.unpack_from("q", self._map, place)[0]

    def _write(self, place, value):
        struct.pack_into("q", self._map, place, value)

    def reading_ns(self):
        origin = self._read(ORIGIN)
        return origin + int((time.clock_gettime_ns(time.CLOCK_MONOTONIC) - origin) * self._speed) + self._read(SKIPPED)

    def now(self):
        return (self.reading_ns() - self._begin) / 1e9

    def of_ms(self, reading_ms):
        """The time of a record that tells its milliseconds."""
        return reading_ms / 1e3 - self._begin / 1e9

    def hold(self):
        """Nothing is skipped until the next wait."""
        self._write(LIMIT, 0)

    def wait_until(self, moment, patience=120.0):
        """Lets time pass. False when the device has not reached `moment` after so many real seconds without any skip."""
        self._write(LIMIT, self._begin + int(moment * 1e9))
        seen, since = -1, time.monotonic()
        while self.now() < moment:
            time.sleep(LOOK_AGAIN)
            if time.monotonic() > self._counted + COUNT_AGAIN:
                self._count_delays()
            skipped = self._read(SKIPPED)
            if skipped != seen:
                seen, since = skipped, time.monotonic()
            elif time.monotonic() - since > patience:
                return False
        self.hold()
        return True

    def _count_delays(self):
        seconds, now = self._delays.take(self._alive()) * self._speed, self.now()
        if seconds > WORTH_TELLING:
            self._late.append([min(self._counted_at, now - seconds), now, seconds])
        self._counted, self._counted_at = time.monotonic(), now

    def _alive(self):
        """The processes that live in bent time."""
        begun = struct.unpack_from("I", self._map, PROCESSES_BEGUN)[0]
        if begun != self._pids_known:
            self._pids_known, self._pids = begun, [pid for _, pid, _ in self.starts()]
        self._pids = [pid for pid in self._pids if os.path.exists(f"/proc/{pid}")]
        return self._pids

    def take_late(self):
        """When the machine was busy since this was last asked, and how much time went by."""
        self._count_delays()
        late, self._late = self._late, []
        return late

    def starts(self):
        """(pid, time of its start) of the newest processes, oldest first."""
        begun = struct.unpack_from("I", self._map, PROCESSES_BEGUN)[0]
        rows = []
        for number in range(max(0, begun - PROCESSES_KEPT), begun):
            at = PROCESSES + number % PROCESSES_KEPT * PROCESS_BYTES
            pid, _, started = struct.unpack_from("iiq", self._map, at)
            rows.append((number, pid, (started - self._begin) / 1e9))
        return rows

    def waits(self):
        """(pid, whether it only sleeps, time of its deadline) of each thread that waits."""
        rows = []
        for number in range(WAITS_KEPT):
            at = PROCESSES + PROCESSES_KEPT * PROCESS_BYTES + number * WAIT_BYTES
            pid, sleeps, deadline = struct.unpack_from("iiq", self._map, at)
            if pid:
                rows.append((pid, bool(sleeps), (deadline - self._begin) / 1e9))
        return rows
