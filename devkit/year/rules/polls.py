"""Polls come at their period, ask for what is due, and are back soon after whatever kept them away."""
from history import BOOT, body_of, error_of
from rules.rule import Rule

POLL = "/CGI/CameraStatus?Notification&"
ALWAYS = ["MotionEvent", "AudioEvent", "TemperatureEvent"]
PERIODS = {"Battery": "BATTERY_PERIOD", "Space": "SDCARD_PERIOD", "SD": "SDCARD_PERIOD"}
SLACK = 15     # seconds that a cycle may take beyond its pause: transfers, shell commands, a busy queue
RECOVERY = 75  # seconds in which polls are back: a login every 5 s, 5 + 9 s before the first poll, transfers given up
EDGE = 3       # seconds around a period's end in which an event may be due or not yet
KEEP_AWAY = {"outage", "fault", "camera_restart", "expire", "boot", "power_cut", "reboot", "conf_full", "busy"}


def keys_of(target):
    return target[len(POLL):].split("&")


class PollsKeepTheirPeriod(Rule):
    name = "polls keep their period and are back soon after a fault"

    def __init__(self, history):
        super().__init__(history)
        self._last = 0.0     # when the last poll began
        self._ended = None   # when it ended, None where the next may come at any time
        self._asked = {}     # when each key was asked for last; a key that may be due is not in it

    def feed(self, record):
        if record["kind"] == "start":
            self._ended, self._asked = None, {}
        if record["kind"] != "request" or not record["target"].startswith(POLL):
            return
        self._judge_gap(record["t"])
        if self._ended is not None and record["t"] < self._ended + self.history.period - 1.5:
            self.breaks(record["t"], f"a poll only {record['t'] - self._ended:.1f} s after the last one")
        self._judge_keys(record)
        self._last = record["t"]
        received = self.history.received(record)
        again = received == "maybe" or received == "yes" and error_of(body_of(record)) != 0
        if again or record["end"] is None:
            self._ended, self._asked = None, {}
        else:
            self._ended = record["end"]

    def _judge_gap(self, now):
        away = self.history.last_end(KEEP_AWAY, self._last - RECOVERY, now)
        allowed = max(self._last + SLACK, (away or -1e9) + RECOVERY) + self.history.period + self.history.late(self._last, now)
        if now > self._last + self.history.period + SLACK:
            self._asked = {}  # polls that nobody saw may have asked
        if now > allowed:
            self.breaks(allowed, f"no poll from {self._last:.1f} to {now:.1f}, last disturbed at {away}")

    def _judge_keys(self, poll):
        keys = keys_of(poll["target"])
        if keys[:3] != ALWAYS:
            self.breaks(poll["t"], f"the poll asks for {keys}")
        for key, conf in PERIODS.items():
            passed, period = poll["t"] - self._asked.get(key, -1e9), int(self.history.installed[conf])
            edge = EDGE + self.history.late(poll["t"] - passed - EDGE, poll["t"] + EDGE)
            if key in keys and key in self._asked and passed < period - edge:
                self.breaks(poll["t"], f"{key} is asked for {passed:.0f} s after the last time, its period is {period}")
            if key not in keys and key in self._asked and passed > period + edge:
                self.breaks(poll["t"], f"{key} is not asked for {passed:.0f} s after the last time, its period is {period}")
            if key in keys:
                self._asked[key] = poll["t"]

    def hour(self, now, evidence):
        self._judge_gap(now)


class RequestsDoNotOverlap(Rule):
    name = "camera requests never overlap, but for the four that may"

    def __init__(self, history):
        super().__init__(history)
        self._open = []  # requests that may still be under way

    def feed(self, record):
        if record["kind"] != "request" or record["fault"] or record["end"] is None or self._may_overlap(record):
            return
        self._open = [other for other in self._open if other["end"] > record["t"]]
        for other in self._open:
            self.breaks(record["t"], f"{record['target']} began while {other['target']} was under way")
        self._open.append(record)

    def _may_overlap(self, request):
        if request["endpoint"] == "CameraLogin" or self.history.during({"outage", "camera_restart", "power_cut", "busy"}, request["t"] - 60, request["end"]):
            return True
        is_start = any(0 <= request["t"] - start < BOOT for start in self.history.starts)
        return is_start and "<Time>" in request["body"]
