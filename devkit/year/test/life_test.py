"""Lives, their shrinking and their table."""
import importlib.machinery
import importlib.util
import json
import os
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))

import live  # noqa: E402
from life import DAY, KINDS, make_life  # noqa: E402
from shrink import fewest, shrink  # noqa: E402
from table import table  # noqa: E402


class Lives(unittest.TestCase):
    def test_are_a_function_of_seed_and_days(self):
        self.assertEqual(make_life(7, 3), make_life(7, 3))
        self.assertNotEqual(make_life(7, 3)["events"], make_life(8, 3)["events"])

    def test_hold_every_kind_in_order(self):
        events = make_life(1, 60)["events"]
        self.assertEqual({event["do"] for event in events}, {kind for kind, *_ in KINDS})
        self.assertEqual(events, sorted(events, key=lambda event: event["at"]))
        self.assertLess(events[-1]["at"], 60 * DAY)

    def test_survive_a_file(self):
        life = make_life(3, 2)
        self.assertEqual(json.loads(json.dumps(life)), life)


class FakeDesk:
    """A camera whose requests come one after another; each is followed by an alarm as soon as it is told."""
    def __init__(self, alarms):
        self._alarms, self._rows = alarms, []

    def request(self, seq, end=True):
        self._rows.append({"seq": seq, "time_ms": seq, "end_ms": seq if end else None, "status": 200 if end else None, "fault": None,
                           "target": "", "method": "GET", "endpoint": "", "cookie": "", "body": "", "reply": ""})
        with open(self._alarms, "a") as file:
            file.write(json.dumps({"monotonic_ms": seq + 0.5, "status": seq, "pid": 1}) + "\n")

    def camera(self, _, path):
        told = [dict(row) for row in self._rows if row["seq"] > int(path.rpartition("=")[2])]
        self.request(self._rows[-1]["seq"] + 1)
        return told


class FakeClock:
    def of_ms(self, ms):
        return ms

    def now(self):
        return 0

    def take_late(self):
        return []

    def starts(self):
        return []


class FakeWorld:
    def take_records(self):
        return [], []


class TheCollector(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.addCleanup(setattr, live, "ALARMS", live.ALARMS)
        live.ALARMS = os.path.join(folder.name, "alarms")
        self.desk = FakeDesk(live.ALARMS)
        self.collector = live.Collector(self.desk, FakeClock(), FakeWorld())

    def taken(self):
        records, _ = self.collector.take()
        return [record["t"] for record in records]

    def test_tells_of_no_alarm_before_its_request(self):
        self.desk.request(1)
        self.assertEqual(self.taken(), [1, 1.5])
        self.assertEqual(self.taken(), [2, 2.5])

    def test_tells_of_no_alarm_behind_a_request_that_is_under_way(self):
        self.desk.request(1)
        self.desk.request(2, end=False)
        self.desk.request(3)
        self.assertEqual(self.taken(), [1, 1.5])
        self.desk._rows[1].update(end_ms=2, status=200)
        self.assertEqual(self.taken(), [2, 2.5, 3, 3.5, 4, 4.5])


class TheProgram(unittest.TestCase):
    def test_lives_as_many_at_once_as_it_has_processors(self):
        loader = importlib.machinery.SourceFileLoader("year", os.path.join(os.path.dirname(os.path.abspath(__file__)), "../year"))
        year = importlib.util.module_from_spec(importlib.util.spec_from_loader("year", loader))
        loader.exec_module(year)
        allowed = os.sched_getaffinity(0)
        os.sched_setaffinity(0, {min(allowed)})
        self.assertEqual(year.processors(), 1)
        os.sched_setaffinity(0, allowed)
        self.assertEqual(year.processors(), len(allowed))


class FakeRunner:
    """A device that breaks when both of two events happen."""

    def __init__(self, needed):
        self.needed, self.lives = needed, 0

    def run(self, life, say):
        self.lives += 1
        done = {event["number"] for event in life["events"]}
        broken = self.needed <= done
        time = max([event["at"] for event in life["events"] if event["number"] in self.needed], default=0)
        return {"verdict": "broken", "rule": "a rule", "time": time} if broken else {"verdict": "well"}


class Shrinking(unittest.TestCase):
    def test_leaves_what_is_needed(self):
        self.assertEqual(fewest(list(range(100)), lambda rest: {3, 77} <= set(rest)), [3, 77])
        self.assertEqual(fewest([1], lambda rest: True), [])

    def test_cuts_a_life_down(self):
        life = {"seed": 1, "days": 9, "events": [{"at": number * 3600, "number": number} for number in range(200)]}
        runner = FakeRunner({5, 60})
        small = shrink(life, runner.run(life, None), runner, lambda text: None)
        self.assertEqual([event["number"] for event in small["events"]], [5, 60])
        self.assertLess(small["days"], 3)
        self.assertLess(runner.lives, 60)

    def test_leaves_a_life_that_does_not_break_again(self):
        life = {"seed": 1, "days": 1, "events": [{"at": 1, "number": 1}]}
        found = {"verdict": "broken", "rule": "a rule", "time": 2}
        self.assertEqual(shrink(life, found, FakeRunner({2}), lambda text: None), life)


class Tables(unittest.TestCase):
    def test_merge_shards(self):
        well = {"seed": 2, "days": 5, "lived": 5.0, "real_seconds": 30, "verdict": "well", "counts": {"polls": 9, "alarm": 4}}
        broken = {**well, "seed": 1, "lived": 2.0, "verdict": "broken", "time": 86400, "rule": "a rule", "text": "what happened"}
        with tempfile.TemporaryDirectory() as folder:
            paths = []
            for row in (well, broken):
                paths.append(os.path.join(folder, str(row["seed"])))
                with open(paths[-1], "w") as file:
                    file.write("progress\n" + json.dumps(row) + "\n")
            lines = table(paths).splitlines()
        self.assertIn("1.00 days: a rule: what happened", lines[1])
        self.assertTrue(lines[2].endswith("well"))
        self.assertEqual(lines[3], "2 lives, 1 well, 1 broken; 7 days lived")


if __name__ == "__main__":
    unittest.main()
