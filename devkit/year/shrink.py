"""Cuts a life down to the fewest events that still break the same rule (delta debugging)."""
import math

DAY = 86400


def without(events, start, stop):
    return events[:start] + events[stop:]


def fewest(events, still):
    """The events of a smallest part that `still` holds for: none of those left can go."""
    pieces = 2
    while events:
        size = math.ceil(len(events) / pieces)
        for start in range(0, len(events), size):
            fewer = without(events, start, start + size)
            if still(fewer):
                events, pieces = fewer, max(pieces - 1, 2)
                break
        else:
            if size == 1:
                return events
            pieces = min(pieces * 2, len(events))
    return events


def ended(life, time):
    """The life up to some hours after `time`."""
    return {**life, "days": (time + 4 * 3600) / DAY, "events": [event for event in life["events"] if event["at"] <= time]}


def shrink(life, result, runner, say):
    """A smaller life that breaks the same rule; the same where none was found."""
    rule, smallest = result["rule"], ended(life, result["time"])

    def still(events):
        nonlocal smallest
        found = runner.run({**smallest, "events": events}, lambda text: None)
        same = found["verdict"] == "broken" and found["rule"] == rule
        say(f"  {len(events)} events: {'still broken' if same else found['verdict']}")
        if same:
            smallest = ended({**smallest, "events": events}, found["time"])
        return same

    if not still(smallest["events"]):
        say("  the rule is not broken a second time: the life stays as it is")
        return life
    events = fewest(smallest["events"], still)
    return {**smallest, "events": events}
