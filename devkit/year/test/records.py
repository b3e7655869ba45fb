"""Records as a desk would have made them, for tests of the oracle's rules."""
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))

from history import History  # noqa: E402

CONF = {"hostIP": "127.0.0.1:1", "SESSION_KEY": "", "POLL_STATUS_PERIOD_SEC": "20", "BATTERY_PERIOD": "60", "SDCARD_PERIOD": "600",
        "RECORDING_PERIOD": "30", "BATTERY_ARMED": "1", "SDCARD_ARMED": "1", "NIMB_ARMED": "0", "BATTERY_LOW": "20",
        "SDCARD_LOW": "10", "NIMB_LOW": "10"}
KEYS = ["MotionEvent", "AudioEvent", "TemperatureEvent"]


def request(t, target, reply="", **more):
    return {"kind": "request", "t": t, "end": t + 0.01, "seq": 1, "fault": None, "target": "/CGI/" + target, "method": "GET", "body": "",
            "endpoint": target.partition("?")[0], "cookie": "", "status": 200, "reply": "HTTP/1.1 200 OK\r\n\r\n" + reply, **more}


def elements(values):
    return "".join(f"<{name}>{value}</{name}>" for name, value in values.items())


def poll(t, values=None, **more):
    """A poll that asks for what it is answered, and for the three that are always asked for."""
    all_values = {**dict.fromkeys(KEYS, "0"), **(values or {})}
    return request(t, "CameraStatus?Notification&" + "&".join(all_values), elements(all_values), **more)


def control(t, action, **more):
    document = f"<RemoteControl><Action>{action}</Action></RemoteControl>"
    return request(t, "RemoteControl", document, body=document, method="POST", **more)


def alarm(t, status):
    return {"kind": "alarm", "t": t, "status": status, "pid": 1}


def start(t):
    return {"kind": "start", "t": t, "pid": 1}


def event(t, do, **more):
    return {"kind": "event", "t": t, "t1": t + 0.1, "do": do, "event": {"at": t, "do": do, **more}}


def end(t, begun):
    return {"kind": "end", "t": t, "t1": t + 0.1, "do": begun["do"], "event": begun["event"]}


def late(t, seconds):
    """The machine has kept the device from running."""
    return {"kind": "late", "since": t - seconds, "t": t, "seconds": seconds}


def call(t, name, arguments, result, lasts=0.1):
    return {"kind": "call", "t": t, "end": t + lasts, "name": name, "args": arguments, "result": result}


def evidence(**more):
    size = {"pid": 1, "heap": 1000, "rss_kib": 9000, "threads": 5, "descriptors": 6, "files": [], "file_bytes": 0}
    conf = "".join(f"{key}={value}\n" for key, value in CONF.items())
    return {"size": size, "conf": conf, "camera": {"sessions": [""]}, "recordings": [], "recordings_lost": False, "calls_running": 0, **more}


def judged(rule, hours, **conf):
    """What a rule finds in hours of records: each is a list of records, or a pair of such a list and evidence. The texts."""
    history = History({"seed": 0}, {**CONF, **conf})
    tried = rule(history)
    for number, hour in enumerate(hours):
        records, seen = hour if isinstance(hour, tuple) else (hour, evidence())
        records = sorted(records, key=lambda record: record["t"])
        now = (number + 1) * 3600
        history.add(now, records, [])
        for record in records:
            tried.feed(record)
        tried.hour(now, {**seen, "calls": [record for record in records if record["kind"] == "call"]})
    return [text for _, text in tried.broken]
