"""Seeded lives: a life is a pure function of its seed and its days. An event is {"at": seconds, "do": kind, ...}; one that
lasts says how long ("for"), so that every event can be taken out of a life without a trace."""
import calendar
import random

DAY = 86400
VERSIONS = 100

# What the cloud reads and writes.
PARAMS = ["md_armed", "md_sensitivity", "sd_armed", "sd_sensitivity", "td_armed", "td_up", "td_down", "pd_armed",
          "sdcard_armed", "pd_setting", "sdcard_setting", "high_definition", "csd_armed"]
STATUSES = ["Battery", "Adapt", "firmware_newver", "Sdcard", "Upgrade_SW_status", "Upgrade_SW_process", "firmware_ver",
            "Temp_now_status", "LullabyPlay", "LullabySong", "Nightlight", "resolution_capability", "nonsense"]
WRITES = [("md_armed", ["0", "1"]), ("md_sensitivity", ["2", "7", "8"]), ("sd_armed", ["0", "1"]),
          ("sd_sensitivity", ["4", "6"]), ("td_armed", ["0", "1"]), ("td_up", ["35", "38"]), ("td_down", ["5", "10"]),
          ("pd_armed", ["0", "1", "1"]), ("sdcard_armed", ["0", "1", "1"]), ("pd_setting", ["15", "20", "25"]),
          ("sdcard_setting", ["5", "10", "12"]), ("csd_armed", ["0", "1"]), ("csd_setting", ["7", "9"]),
          ("save_param", ["1"]), ("unknown", ["1"])]
PTZ = [(1, 0), (2, 0), (3, 0), (30, 1), (30, 0), (40, 1), (40, 0), (41, 1), (42, 3), (42, 9), (43, 2), (44, 7)]


def outage(draw):
    kind = draw.choice(["refused", "refused", "vanished"])
    longest = 30000 if kind == "refused" else 3000
    return {"kind": kind, "for": round(min(draw.expovariate(1 / 600) + 5, longest))}


FAULTS = [
    {"kind": "error_code", "value": -1}, {"kind": "error_code", "value": -2}, {"kind": "http_status", "status": 500},
    {"kind": "http10"}, {"kind": "close"}, {"kind": "reset"}, {"kind": "reset", "after": True},
    {"kind": "close", "after": True}, {"kind": "truncate", "bytes": 12}, {"kind": "garbage"},
    {"kind": "garbage", "raw": True}, {"kind": "oversize", "bytes": 9000}, {"kind": "pieces", "ms": 200},
    {"kind": "drip", "bytes": 40, "ms": 100}, {"kind": "delay", "ms": 4000}, {"kind": "hang"}]
ENDPOINTS = ["*", "CameraStatus", "CameraStatus", "CameraSetting", "CameraSetup", "RemoteControl", "CameraLogin", "VideoList"]


NO_LOGIN = [{"kind": "reset"}, {"kind": "close"}, {"kind": "error_code", "value": -1}]


def fault(draw):
    order = {**draw.choice(FAULTS), "endpoint": draw.choice(ENDPOINTS)}
    return {"order": order, "for": draw.choice([30, 120, 300, 900])}


def burst(draw):
    calls = [read_call(draw) if draw.random() < 0.5 else write_call(draw) for _ in range(draw.randint(3, 8))]
    return {"calls": calls}


def read_call(draw):
    if draw.random() < 0.5:
        return ["get_device_param", [draw.choice(PARAMS)]]
    return ["get_device_status", [draw.choice(STATUSES)]]


def write_call(draw):
    name, values = draw.choice(WRITES)
    return ["set_device_param", [name, draw.choice(values)]]


def ptz_call(draw):
    return ["ptz_direction_control", list(draw.choice(PTZ))]


def recording(draw):
    length = draw.choice([0, 0, 20, 90, 150, 200])
    # Many a stop comes while the first piece is being closed.
    at = draw.choice([draw.uniform(3, 260), draw.uniform(31, 38), draw.uniform(61, 68)])
    stop = round(at, 1) if length == 0 or draw.random() < 0.4 else None
    return {"length": length, "stop_after": stop}


def viewer(draw):
    length = draw.randint(20, 400)
    stalls = draw.random() < 0.15
    return {"for": length, "stalls_after": draw.randint(8, 20) if stalls else None}


# Kind, how many in a day, and what makes its parameters.
KINDS = [
    ("pulse", 8, lambda draw: {"name": draw.choice(["MotionEvent", "MotionEvent", "AudioEvent"])}),
    ("temperature", 2, lambda draw: {"value": draw.choice(["-3", "20", "45"])}),
    ("battery", 3, lambda draw: {"value": str(draw.choice([3, 9, 14, 18, 24, 60, 95, 100]))}),
    ("card_out", 0.7, lambda draw: {"for": draw.choice([20, 300, 4000])}),
    ("card_full", 0.5, lambda draw: {"for": draw.choice([700, 5000, 20000])}),
    ("viewer", 2, viewer),
    ("call", 12, lambda draw: {"call": read_call(draw)}),
    ("call", 6, lambda draw: {"call": write_call(draw)}),
    ("call", 3, lambda draw: {"call": ptz_call(draw)}),
    ("burst", 2, burst),
    ("record", 3, recording),
    ("call", 0.7, lambda draw: {"call": ["get_camera_snapshot", [draw.choice([0, 1])]]}),
    ("talk", 0.7, lambda draw: {"frames": draw.randint(1, 30)}),
    ("call", 0.4, lambda draw: {"call": ["notify_Z55_connection_status", [draw.choice([0, 1])]]}),
    ("resolution", 0.3, lambda draw: {"value": draw.choice(["1", "2", "3"])}),
    ("format", 0.2, lambda draw: {}),
    ("upgrade", 0.5, lambda draw: {"outcome": draw.choice(["success", "success", "fail_download", "fail_upgrade", "stuck"])}),
    ("camera_restart", 0.5, lambda draw: {}),
    ("expire", 2, lambda draw: {}),
    ("outage", 1.2, outage),
    ("fault", 3, fault),
    ("fault", 0.4, lambda draw: {"order": {"endpoint": "CameraLogin", **draw.choice(NO_LOGIN)}, "expire": True, "for": draw.choice([600, 4000])}),
    ("ntp_fails", 0.3, lambda draw: {"for": draw.choice([4000, 30000])}),
    ("step", 1, lambda draw: {"seconds": draw.choice([-86400, -3600, -2, 2, 3600, 86400, 40 * DAY])}),
    ("conf_full", 0.4, lambda draw: {"for": draw.choice([300, 3000]), "writes": ["pd_setting", draw.choice(["15", "20", "25"])]}),
    ("power_cut", 0.25, lambda draw: {}),
    ("reboot", 0.1, lambda draw: {}),
]

# Where the wall clock stands at first: days that clocks have tripped over.
WALLS = [(2026, 3, 1), (2028, 2, 28), (2027, 12, 31), (2038, 1, 18), (2100, 2, 28), (2026, 10, 25)]
# Seconds that the device has run for: the turns of 49.7 days and of 24.8 days in milliseconds, of 32 bits in microseconds.
UPTIMES = [100, 2**32 / 1000 - 7200, 2**31 / 1000 - 7200, 2**32 / 1e6 - 900]


def make_life(seed, days):
    """{"seed", "days", "uptime", "wall", "conf", "events"}: the same for the same arguments."""
    draw = random.Random(f"life {seed}")
    life = {"seed": seed, "days": days, "uptime": draw.choice(UPTIMES), "wall": calendar.timegm(draw.choice(WALLS) + (20, 0, 0)),
            "conf": make_conf(draw)}
    life["events"] = make_events(draw, days * DAY)
    return life


def make_conf(draw):
    period = draw.choice([20, 30, 60])
    return {"POLL_STATUS_PERIOD_SEC": str(period), "BATTERY_PERIOD": str(draw.choice([0, 120, 300])),
            "SDCARD_PERIOD": str(draw.choice([300, 600])), "NIMB_PERIOD": "3600", "POOL_NTP_PERIOD_SEC": str(draw.choice([3600, 20000])),
            "RECORDING_PERIOD": str(draw.choice([30, 60])), "OTA_POLLING_PERIOD": str(draw.choice([0, 5, 10]))}


def make_events(draw, length):
    """Every kind at its own rate, from the first half hour on; nothing happens in the last hour."""
    events = []
    for kind, per_day, parameters in KINDS:
        at = 1800.0
        while True:
            at += draw.expovariate(per_day / DAY)
            if at > length - 3600:
                break
            events.append({"at": round(at, 2), "do": kind, **parameters(draw)})
    return sorted(events, key=lambda event: event["at"])
