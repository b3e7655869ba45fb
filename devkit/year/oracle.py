"""Judges a life by its records, after each hour and at its end. It knows the contract, not the agent."""
from history import BUSY, History
from rules.alarms import AlarmsFollowReplies, EventsReachThePolls
from rules.device import UpgradesAreToldOf, ViewersWithoutFramesReboot
from rules.files import ConfigurationHoldsWhatWasWritten, RecordingLogMatches, RecordingsObey
from rules.flat import TheAgentStaysWhatItWas
from rules.handlers import HandlersAreExplained
from rules.polls import POLL, PollsKeepTheirPeriod, RequestsDoNotOverlap

RULES = [PollsKeepTheirPeriod, RequestsDoNotOverlap, AlarmsFollowReplies, EventsReachThePolls, HandlersAreExplained,
         ConfigurationHoldsWhatWasWritten, RecordingLogMatches, RecordingsObey, ViewersWithoutFramesReboot, UpgradesAreToldOf,
         TheAgentStaysWhatItWas]
LAST_EVENTS = 12
DAY = 86400


class Oracle:
    def __init__(self, life, conf):
        self._life = life
        self.history = History(life, conf)
        self._rules = [rule(self.history) for rule in RULES]
        self._last = []      # the last records that tell a reader something
        self._counts = {}
        self._now = 0
        self._log = ""

    def judge(self, now, records, running, evidence):
        """Takes in an hour. True when a rule is broken."""
        self._now = now
        self.history.add(now, records, running)
        evidence = {**evidence, "calls": [record for record in records if record["kind"] == "call"], "calls_running": len(running)}
        for record in records:
            self._count(record)
            for rule in self._rules:
                rule.feed(record)
        for rule in self._rules:
            rule.hour(now, evidence)
        self._last = (self._last + records)[-3000:]
        self._log = evidence["log"]
        return any(rule.broken for rule in self._rules)

    def _count(self, record):
        poll = record["kind"] == "request" and record["target"].startswith(POLL)
        what = {"request": "polls" if poll else "requests", "event": record.get("do"), "call": "calls",
                "late": "busy" if record.get("seconds", 0) > BUSY else "late"}.get(record["kind"], record["kind"])
        self._counts[what] = self._counts.get(what, 0) + 1

    def result(self):
        broken = sorted((time, rule.name, text) for rule in self._rules for time, text in rule.broken)
        if broken:
            return self.report(*broken[0], len(broken))
        return {"seed": self._life["seed"], "days": self._life["days"], "verdict": "well", "lived": self._now / DAY, "counts": self._counts}

    def report(self, time, rule, text, number=1):
        """What a reader needs: when, which rule, what happened before."""
        before = [record for record in self._last if record["t"] <= time + 5 and record["kind"] != "request"]
        requests = [record for record in self._last if time - 120 < record["t"] <= time + 5 and record["kind"] == "request"]
        return {"seed": self._life["seed"], "days": self._life["days"], "verdict": "broken", "lived": self._now / DAY, "time": round(time, 1), "rule": rule,
                "text": text, "broken": number, "counts": self._counts,
                "last": sorted(before[-LAST_EVENTS:] + requests[-LAST_EVENTS:], key=lambda record: record["t"]), "log": self._log[-200000:]}
