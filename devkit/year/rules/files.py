"""The configuration holds what was last written; the recording log matches the recordings."""
import re

from history import HARD, body_of
from rules.rule import Rule

WRITTEN = ["SESSION_KEY", "BATTERY_ARMED", "SDCARD_ARMED", "NIMB_ARMED", "BATTERY_LOW", "SDCARD_LOW", "NIMB_LOW"]
LINE = re.compile(r"(\d{14})_(-?\d+)_([A-Z0-9.]*)")
CLOSING = 60  # seconds from the order to stop to the line in the log: the camera closes its file, the name is asked for
LENGTH_SLACK = 4


class ConfigurationHoldsWhatWasWritten(Rule):
    name = "the configuration holds exactly what was last written"

    def __init__(self, history):
        super().__init__(history)
        self._key_written = True  # at the last login; what could not be written then waits for the next one

    def feed(self, record):
        if record["kind"] == "request" and record["endpoint"] == "CameraLogin":
            self._key_written = not self.history.during("conf_full", record["t"] - 5, record["t"] + 5)

    def hour(self, now, evidence):
        lines = evidence["conf"].splitlines()
        entries = dict(line.partition("=")[::2] for line in lines)
        if [line.partition("=")[0] for line in lines] != list(self.history.installed):
            self.breaks(now, f"the entries are {[line.partition('=')[0] for line in lines]}")
        for key, installed in self.history.installed.items():
            allowed = {installed} if key not in WRITTEN else self._written(key, now, evidence)
            if allowed is not None and entries.get(key) not in allowed:
                self.breaks(now, f"{key} is {entries.get(key)!r}, written was {sorted(allowed)}")

    def _written(self, key, now, evidence):
        if key != "SESSION_KEY":
            return self.history.conf(key, now - 1, now)
        upset = self.history.during(HARD | {"expire", "fault", "boot", "power_cut", "conf_full", "upgrade"}, now - 120, now)
        return None if upset or not self._key_written else set(evidence["camera"]["sessions"])


class RecordingLogMatches(Rule):
    """Counts what must stand in the log at least and at most, and compares lengths where every piece is certain."""
    name = "the recording log matches the recordings"

    def __init__(self, history):
        super().__init__(history)
        self._started = None  # when a piece certainly began
        self._lines = []      # of the log that belong to none yet
        self._pieces = []     # (time of the stop, length or None, certain) that are not in the log yet

    def feed(self, record):
        if record["kind"] == "start":
            self._started = None
        if record["kind"] != "request" or record["endpoint"] != "RemoteControl":
            return
        if "VIDEO_START" in record["body"]:
            self._started = record["t"] if self._done(record) == "yes" else None
        if "VIDEO_STOP" in record["body"]:
            done = self._done(record)
            if done != "no":
                length = record["t"] - self._started if self._started is not None and done == "yes" else None
                self._pieces.append((record["t"], length, done == "yes"))
            self._started = None

    def _done(self, request):
        received = self.history.received(request)
        if received == "yes" and not re.search("VIDEO_ST(ART|OP)", body_of(request)):
            return "no"
        return received

    def hour(self, now, evidence):
        if evidence["recordings_lost"]:
            self._lines = []
        lines = self._lines = self._lines + evidence["recordings"]
        due = [piece for piece in self._pieces if piece[0] < now - CLOSING]
        sure = [piece for piece in due if piece[2] and not self._may_be_lost(piece)]
        if evidence["recordings_lost"]:
            return self._forget(due)
        if len(lines) < len(sure):
            self.breaks(sure[-1][0], f"{len(lines)} lines for {len(sure)} recordings that certainly ended: {lines}")
        if len(lines) > len(self._pieces):
            self.breaks(now, f"{len(lines)} lines for {len(self._pieces)} recordings: {lines}")
        if len(sure) == len(due) <= len(lines):
            for piece, line in zip(due, lines):
                self._compare(piece, line)
        self._forget(due)

    def _forget(self, due):
        """What is left are the pieces that may still come, and lines that may be theirs."""
        self._pieces = [piece for piece in self._pieces if piece not in due]
        self._lines = self._lines[len(due):] if len(self._lines) >= len(due) else []
        self._lines = self._lines[-len(self._pieces):] if self._pieces else []

    def _may_be_lost(self, piece):
        return self.history.during({"power_cut", "boot", "card_full", "format", "reboot", "busy"}, piece[0] - 60, piece[0] + CLOSING)

    def _compare(self, piece, line):
        found = LINE.fullmatch(line)
        if not found:
            self.breaks(piece[0], f"a line of the log is {line!r}")
        elif piece[1] is not None and not self.history.during({"step", "fault", "busy"}, piece[0] - piece[1] - 5, piece[0] + 5):
            if abs(int(found[2]) - piece[1]) > LENGTH_SLACK:
                self.breaks(piece[0], f"{line!r} tells of a recording of {piece[1]:.1f} s")


class RecordingsObey(Rule):
    """A piece is started only for a job that was ordered and not stopped, and no longer than it was ordered for."""
    name = "recordings begin and end as they were ordered"
    PIECE = 9  # seconds that a stop and a start take beyond the piece

    def __init__(self, history):
        super().__init__(history)
        self._starts = []  # of pieces, to be judged when all calls of their time are known
        self._orders = []

    def feed(self, record):
        if record["kind"] == "request" and "VIDEO_START" in record["body"]:
            self._starts.append(record["t"])

    def hour(self, now, evidence):
        self._orders += [call for call in evidence["calls"] if "recording_video" in call["name"]]
        running = [call for call in self.history.running if "recording_video" in call["name"]]
        for t in self._starts:
            if not self._ordered(t, self._orders + running):
                self.breaks(t, "a recording was started that nobody had ordered, or that was stopped or over")
        self._starts = []
        self._orders = [call for call in self._orders if call["t"] > now - 7200]

    def _ordered(self, t, calls):
        starts = [call for call in calls if call["name"].startswith("start") and call["t"] <= t + 0.01]
        return self.history.during("busy", t - 5, t) or any(self._alive(start, t, calls) for start in starts)

    def _alive(self, start, t, calls):
        length = start["args"][0]
        period = int(self.history.installed["RECORDING_PERIOD"])
        if length > 0 and t > start["t"] + length + (length // period + 2) * self.PIECE + 60:
            return False
        over = start["end"] if start["end"] is not None else 1e18
        return not any(call["name"].startswith("stop") and call["end"] is not None and call["t"] > over and call["end"] < t - 0.1
                       for call in calls)
