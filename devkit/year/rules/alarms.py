"""Alarms follow from what the camera answered: each that is due is sent, once, and no other."""
import math
import re

from history import body_of, element, error_of
from rules.polls import KEEP_AWAY, POLL, RECOVERY, keys_of
from rules.rule import Rule

MOTION, SOUND, HOT, CARD_FULL, QUOTA, BATTERY, COLD, NO_CARD = 1, 3, 10, 11, 12, 13, 14, 15
TEMPERATURE = "/CGI/CameraStatus?Temperature&TemperatureMax&TemperatureMin"
PROMPT = 10  # seconds from the reply to the alarm: the cycle's other values come first


def number(text):
    found = re.match(r"\s*[+-]?\d+", text or "")
    return int(found.group()) if found else 0


def conf_number(values):
    return {number(value) for value in values}


class Latch:
    """Whether an alarm was sent and its condition has not ended since: every state that is possible."""

    def __init__(self):
        self.states = {False}

    def value(self, low_or_not):
        """Takes in the possible conditions (True, False, or None: not looked at). Returns the possible numbers of alarms."""
        sent, after = set(), set()
        for state in self.states:
            for low in low_or_not:
                sent.add(1 if low and not state else 0)
                after.add(state if low is None else low)
        self.states = after
        return sent


class AlarmsFollowReplies(Rule):
    name = "every alarm that is due is sent once, and no other"

    def __init__(self, history):
        super().__init__(history)
        self._due = {}       # status: possible numbers of alarms, since the last poll
        self._sent = {}
        self._until = 0.0    # until when they are prompt
        self._polled = 0.0
        self._latches = {status: Latch() for status in (BATTERY, CARD_FULL, NO_CARD)}

    def feed(self, record):
        if record["kind"] == "start":
            self._close(record["t"], certain=False)
            self._latches = {status: Latch() for status in self._latches}
        elif record["kind"] == "alarm" and record["status"] not in (17, 18, 19, 20):
            self._alarm(record)
        elif record["kind"] == "request" and record["target"].startswith(POLL):
            self._close(record["t"], certain=True)
            self._poll(record)
        elif record["kind"] == "request" and record["target"] == TEMPERATURE:
            self._temperature(record)

    def hour(self, now, evidence):
        if now > self._until:
            self._close(now, certain=True)

    def _alarm(self, record):
        status = record["status"]
        self._sent[status] = self._sent.get(status, 0) + 1
        if self._sent[status] > max(self._due.get(status, {0})):
            self.breaks(record["t"], f"alarm {status} that nothing called for since the poll at {self._polled:.1f}")
        elif record["t"] > self._until + self.history.late(self._polled, record["t"]):
            self.breaks(record["t"], f"alarm {status} so late after the poll at {self._polled:.1f}")

    def _close(self, now, certain):
        cut = self.history.during({"power_cut", "boot", "reboot"}, self._polled, now)
        for status, numbers in self._due.items():
            if certain and not cut and self._sent.get(status, 0) < min(numbers):
                self.breaks(now, f"alarm {status} was due after the poll at {self._polled:.1f} and was not sent")
        self._due, self._sent = {}, {}

    def _poll(self, poll):
        self._polled = poll["t"]
        end = poll["end"] if poll["end"] is not None else poll["t"]
        self._until = end + PROMPT
        received = self.history.received(poll)
        body = body_of(poll)
        if received == "no" or error_of(body) != 0:
            return
        for status, numbers in self._values(poll, body, end).items():
            self._due[status] = numbers | ({0} if received == "maybe" else set())

    def _values(self, poll, body, end):
        values = {key: element(body, key) for key in keys_of(poll["target"])}
        received = self.history.received(poll)
        unsure = {None} if received == "maybe" else set()
        due = {status: {1} for key, status in (("MotionEvent", MOTION), ("AudioEvent", SOUND)) if (values.get(key) or "")[:1] == "1"}
        if values.get("Battery") is not None:
            due[BATTERY] = self._latches[BATTERY].value(self._battery(number(values["Battery"]), end) | unsure)
        if values.get("Space") is not None:
            due[CARD_FULL] = self._latches[CARD_FULL].value(self._space(end) | unsure)
        if values.get("SD") is not None:
            present = {"0": True, "1": False}.get(values["SD"][:1])
            due[NO_CARD] = self._latches[NO_CARD].value({present} | unsure)
        return due

    def _battery(self, level, end):
        armed, low = self.history.conf("BATTERY_ARMED", end - 1, end + 5), self.history.conf("BATTERY_LOW", end - 1, end + 5)
        return {level < limit for limit in conf_number(low) if 1 in conf_number(armed)} | ({None} if conf_number(armed) - {1} else set())

    def _space(self, end):
        armed = conf_number(self.history.conf("SDCARD_ARMED", end - 1, end + 5))
        if self.history.during({"card_full", "format"}, end - 30, end + 30):
            inside = any(entry[2] == "card_full" and entry[0] + 30 < end < entry[1] - 30 for entry in self.history.events)
            conditions = {True} if inside and not self.history.during("format", end - 21600, end) else {True, False}
        else:
            conditions = {False}
        return (conditions if 1 in armed else set()) | ({None} if armed - {1} else set())

    def _temperature(self, request):
        received, body = self.history.received(request), body_of(request)
        self._until = max(self._until, (request["end"] or request["t"]) + PROMPT)
        values = [element(body, key) for key in ("Temperature", "TemperatureMax", "TemperatureMin")]
        if received == "no" or error_of(body) != 0 or None in values:
            return
        now, highest, lowest = map(number, values)
        status = HOT if now > highest else COLD if now < lowest else None
        if status:
            self._due[status] = {1} | ({0} if received == "maybe" else set())


class EventsReachThePolls(Rule):
    """What happens in front of the camera is asked for in time: two poll periods plus what kept the polls away."""
    name = "what the camera sees is polled within two periods"

    def __init__(self, history):
        super().__init__(history)
        self._waiting = []  # (time, name)
        self._asked = []    # (end, names) of polls, those that still wait for their replies

    def feed(self, record):
        if record["kind"] == "event" and record["do"] == "pulse" and "gone" not in record:
            t, name = record["t"], record["event"]["name"]
            self._asked = [(end, seen) for end, seen in self._asked if end >= t]
            if not any(name in seen for _, seen in self._asked):
                self._waiting.append((t, name))
        if record["kind"] == "request" and record["endpoint"] == "CameraStatus":
            body = body_of(record)
            # A reply that was spoiled on its way may have held it.
            seen = {name for name in ("MotionEvent", "AudioEvent") if record["fault"] or element(body, name) == "1"}
            self._waiting = [(t, name) for t, name in self._waiting if name not in seen]
            self._asked.append((record["end"] or math.inf, seen))

    def hour(self, now, evidence):
        kept = []
        for t, name in self._waiting:
            away = self.history.last_end(KEEP_AWAY, t - RECOVERY, now)
            if now > max(t, (away or 0) + RECOVERY) + 2 * self.history.period + PROMPT:
                if not self.history.during("camera_restart", t, now) and not self.history.during("upgrade", t - 600, now):
                    self.breaks(t, f"{name} of {t:.1f} was never asked for")
            else:
                kept.append((t, name))
        self._waiting = kept
