"""What the agent does while its calls fail: each situation's order, what the contract lets it answer, and what shows it done."""
import base64
import hashlib
import os

from device import LOG, RESERVE, STATE, read_from

MEDIA = "/tmp/fuse_d/DCIM/100MEDIA"
RECORDING_FLAG, RECORDING_LOG, MARKER, FIRMWARE = "/tmp/working/recording", "/tmp/working/recording.log", "/tmp/working/ota.marker", "/tmp/FWVER.txt"
ERROR = {"result": 5, "value": "ERROR"}
NO_BUFFER = {"result": 5, "value": None}  # no memory for the text itself
CAMERA_ERRORS = set(range(-9, 0))


class Situation:
    """`seconds`: bent ones that it needs at most; `conf`: what the configuration has beside the usual."""
    name, seconds, conf, alarms = "", 8, {}, ()
    ends = False  # it ends the agent's process, or may
    paced = False  # what comes out hangs on the clock: nothing tells when that fails
    once = ()     # requests, by a part of their body, that the agent makes once in its life
    writes = {}   # configuration keys and the values that they may have afterwards

    def warm(self, device):
        """At the beginning of each life of the agent: what makes threads that stay."""

    def before(self, device):
        """Brings the device to where the situation begins. Nothing fails yet."""

    def act(self, device):
        """Does it, and returns what came of it."""

    def alone(self, device):
        """Ends what the camera still does where the agent has ended: another one begins."""

    def after(self, device):
        """Tidies up what a failure has left undone. Nothing fails any more. True where the agent must begin anew."""
        return False

    def wrong(self, outcome, usual):
        """What the contract does not allow of this outcome; None where it does."""


class Call(Situation):
    """One call of a handler with a result out of `results`, or the usual one."""
    def __init__(self, name, handler, *arguments, results=(), seconds=3, writes=None, conf=None, **more):
        self.name, self.seconds, self.writes, self.conf = name, seconds, writes or {}, conf or {}
        self._call, self._more, self._results = (handler, arguments), more, results

    def act(self, device):
        return device.call(*self._call, seconds=self.seconds, **self._more)

    def wrong(self, outcome, usual):
        if outcome != usual and outcome not in self._results:
            return f"the result is {outcome}"
        return None


def number(*results):
    return [{"result": result} for result in results]


class Write(Call):
    """A value that is another each time."""
    def __init__(self, name, parameter, key, values, results):
        super().__init__(name, "set_device_param", results=results)
        self._parameter, self._values, self._turn = parameter, values, 0
        self.writes = {key: values} if key else {}

    def before(self, device):
        self._call = ("set_device_param", [self._parameter, self._values[0]])
        super().act(device)
        self._call = ("set_device_param", [self._parameter, self._values[1]])


class LiveVideo(Call):
    def warm(self, device):
        device.sdk("PUT", "/capture", {"stalled": True})
        device.call("c_request_video", [0, 0], seconds=1)

    def after(self, device):
        device.call("c_end_video", [0, 0], seconds=1)
        return False


class Frame(Situation):
    def __init__(self, name, kind):
        self.name, self._kind = name, kind

    def act(self, device):
        before = device.sdk("GET", "/frames")
        data = base64.b64encode(bytes([0, 0, 0, 1, 0x67]) + bytes(20000)).decode()
        device.passing("POST", "/capture/frame", {"kind": self._kind, "timestamp": 100000, "data_base64": data}, 1)
        after = device.sdk("GET", "/frames")
        return {key: after[key] - before[key] for key in ("video", "audio", "ownership_errors")}

    def wrong(self, outcome, usual):
        return None if outcome in (usual, {"video": 0, "audio": 0, "ownership_errors": 0}) else f"frames handed over: {outcome}"


class Snapshot(Situation):
    def __init__(self, name, mode, seconds, results):
        self.name, self.seconds, self._mode, self._results = name, seconds, mode, results

    def before(self, device):
        with open(MEDIA + "/ZZZZ0001.THM", "wb") as file:
            file.write(bytes(range(256)) * 40)

    def act(self, device):
        reply = device.call("get_camera_snapshot", [self._mode], seconds=self.seconds)
        data = base64.b64decode(reply["data_base64"])
        return {"result": reply["result"], "whole": reply["length"] == len(data), "any": len(data) > 0, "kind": reply["kind"],
                "head": data[:4].hex(), "end": data[-2:].hex(), "hash": hashlib.md5(data).hexdigest() if self._mode else None}

    def wrong(self, outcome, usual):
        if not outcome["whole"] or outcome["kind"] != 11:
            return f"the record is {outcome}"
        if outcome["result"] == 0:
            return None if outcome == usual else f"the picture is {outcome}"
        if outcome["any"]:
            return f"a failure brings a picture: {outcome}"
        return None if outcome["result"] in self._results else f"the result is {outcome['result']}"


class Thread(Call):
    """A handler that starts a thread; done when that has ended."""
    def act(self, device):
        outcome = super().act(device)
        device.pass_until(device.is_quiet, "its thread ends", self.seconds)
        return outcome


class Resolution(Thread):
    def before(self, device):
        for group in ("MOTION_DETECTION", "AUDIO_DETECTION"):
            device.camera("PATCH", "/settings/" + group, {"ENABLE": "ON"})


class Talk(Situation):
    """A clip of half a second: its frames, and what the camera gets of it."""
    name, seconds, once, paced = "talk-back clip", 30, ("AUDIO_ON",), True

    def act(self, device):
        before = device.camera("GET", "/state")["audio_clips"]
        sound = base64.b64encode(bytes(640 * 20)).decode()
        order = {"pcm_base64": sound, "frame_bytes": 640, "pace": "fast", "first_sequence": 0}
        reply = device.passing("POST", "/talk", order, 1)
        device.pass_until(device.is_quiet, "the clip ends", self.seconds)
        clips = device.camera("GET", "/state")["audio_clips"] - before
        return {"frames": reply["frames"], "accepted": reply["accepted"], "clips": clips}

    def wrong(self, outcome, usual):
        if outcome["accepted"] > outcome["frames"] or outcome["clips"] > outcome["accepted"]:
            return f"of the clip: {outcome}"
        return None


class Recording(Situation):
    """90 seconds, cut at 60."""
    name, seconds, ends = "recording with a cut", 130, False
    STARTS = {0, -1, -10, 11} | CAMERA_ERRORS

    def before(self, device):
        if os.path.exists(RECORDING_LOG):
            os.remove(RECORDING_LOG)

    def act(self, device):
        result = device.call("start_recording_video", [90], seconds=3)["result"]
        device.pass_until(device.is_quiet, "the recording ends", self.seconds)
        if device.ended() is not None:
            return {"result": result}
        left = device.sdk("GET", "/variable?name=video_recording")["value"]
        return {"result": result, "left": left, "flag": os.path.exists(RECORDING_FLAG), "lines": len(log_lines())}

    def after(self, device):
        if device.camera("GET", "/state")["recording"]["active"] or device.sdk("GET", "/variable?name=video_recording")["value"]:
            device.call("stop_recording_video", seconds=8)
        if os.path.exists(RECORDING_FLAG):
            os.remove(RECORDING_FLAG)
        if not device.camera("GET", "/state")["recording"]["active"]:
            return False
        device.camera("POST", "/restart")
        return True

    def wrong(self, outcome, usual):
        if outcome["result"] not in self.STARTS:
            return f"start_recording_video returns {outcome['result']}"
        for line in log_lines():
            stamp, _, rest = line.partition("_")
            length, _, name = rest.partition("_")
            if not (len(stamp) == 14 and stamp.isdigit() and length.removeprefix("-").isdigit() and (name == "" or name.endswith(".MP4"))):
                return f"a line of the recording log: {line!r}"
        return None


def log_lines():
    text = read_from(RECORDING_LOG, 0)
    return text.splitlines()


class Upgrade(Situation):
    """An upgrade that succeeds: order, download, the camera's restart of the device, and the news of it."""
    name, seconds, ends = "upgrade", 60, True
    _goes_on = False

    def before(self, device):
        for path in (MARKER, STATE + "reboots"):
            if os.path.exists(path):
                os.remove(path)
        with open(FIRMWARE, "w") as file:
            file.write("1.0.3")
        open(RESERVE, "a").close()
        device.camera("PATCH", "/config", {"fwver": "1.0.3", "upgrade": {"steps": 2, "step_ms": 6000, "outcome": "success"}})
        device.camera("PATCH", "/status", {"NewFirmwareVersion": "1.0.4", "NewFirmwareEvent": "1", "FwUpgradeStatus": "Idle", "Adaptor": "1"})

    def act(self, device):
        result = device.call("set_device_param", ["doOTA", "1"], seconds=3)["result"]
        if result == 0:
            end = device.clock.reading_ns() + int(self.seconds * 1e9)
            device.pass_until(lambda: device.ended() is not None or device.clock.reading_ns() > end, "time passes", self.seconds)
            if device.ended() is None and any("UPGRADE_FW" in row["body"] for row in device.camera("GET", "/requests")):
                device.pass_until(lambda: device.ended() is not None, "the camera restarts the device", self.seconds)
            if device.ended() == -9:
                device.start_agent()
                device.wait_ready_for(120)
        alarms = device.new_alarms()
        self._goes_on = result == 0 and not {19, 20} & set(alarms)  # the agent may yet have the camera restart the device
        return {"result": result, "alarms": alarms, "marker": os.path.exists(MARKER)}

    def alone(self, device):
        device.camera("POST", "/restart")

    def after(self, device):
        if not device.is_ready():
            device.wait_ready()
        open(RESERVE, "a").close()
        if not self._goes_on and device.camera("GET", "/state")["status"].get("FwUpgradeStatus") == "Idle":
            return False
        device.camera("POST", "/restart")
        return True

    def wrong(self, outcome, usual):
        if outcome["result"] not in (0, -1):
            return f"set_device_param returns {outcome['result']}"
        news = [alarm for alarm in outcome["alarms"] if alarm >= 17]
        if news not in ([], [18], [19], [20], [18, 19], [18, 20], [17]):
            return f"the news is {news}"
        if outcome["result"] != 0 and news:
            return f"news of an upgrade that was refused: {news}"
        return None


class Poll(Situation):
    """A cycle in which everything is due and everything is to be told."""
    name, seconds, paced = "poll cycle", 70, True  # a second more or less, and an event is due a cycle later
    conf = {"POLL_STATUS_PERIOD_SEC": "60", "NIMB_ARMED": "1"}

    def before(self, device):
        device.camera("PATCH", "/status", {"Battery": "90", "SD": "1", "MotionEvent": "0", "AudioEvent": "0", "TemperatureEvent": "0"})
        self._cycle(device)
        device.new_alarms()
        device.camera("PATCH", "/status", {"Battery": "5", "SD": "0", "Temperature": "99", "MotionEvent": "1", "AudioEvent": "1", "TemperatureEvent": "1"})

    def _cycle(self, device):
        begun = os.path.getsize(LOG)

        def over():
            _, found, cycle = read_from(LOG, begun).partition("(polling) beginning of a time")
            return device.ended() is not None or found and "(Polling) end of a time" in cycle
        device.pass_until(over, "a poll cycle ends", self.seconds)

    def act(self, device):
        self._cycle(device)
        return {"alarms": sorted(device.new_alarms())}

    def wrong(self, outcome, usual):
        more = set(outcome["alarms"]) - set(usual["alarms"])
        twice = len(set(outcome["alarms"])) != len(outcome["alarms"])
        return f"alarms {outcome['alarms']}, usually {usual['alarms']}" if more or twice else None


class PollHeld(Poll):
    """Two cycles in which what is low was low before: nobody is told again."""
    name = "poll cycle, told"
    conf = {**Poll.conf, "SDCARD_LOW": "101"}

    def before(self, device):
        device.camera("PATCH", "/status", {"Battery": "5", "SD": "0", "MotionEvent": "0", "AudioEvent": "0", "TemperatureEvent": "0"})
        self._cycle(device)

    def act(self, device):
        self._cycle(device)
        self._cycle(device)
        return {"alarms": device.new_alarms()}


class Start(Situation):
    """From main on until the agent polls, with a handler that answers."""
    name, seconds, ends = "start-up", 100, True

    def before(self, device):
        device.stop_agent()

    def act(self, device):
        device.start_agent()
        return {"ready": device.wait_ready_for(self.seconds)}

    def after(self, device):
        if device.ended() is None and not device.is_ready():
            device.wait_ready()


class Reboot(Situation):
    """The process becomes the reboot tool."""
    name, seconds, ends = "reboot", 3, True

    def act(self, device):
        try:
            device.call("rebootOperation", seconds=self.seconds)
        except device.Gone:
            device.agent.wait()
        return {"code": device.ended()}

    def wrong(self, outcome, usual):
        return None if outcome == usual else f"it ended with {outcome}"


SITUATIONS = [
    Call("status by request", "get_device_status", "Battery", results=[ERROR, NO_BUFFER]),
    Call("parameter by request", "get_device_param", "md_armed", results=[ERROR, NO_BUFFER]),
    Call("parameter by file", "get_device_param", "pd_setting", results=[{"result": 0, "value": ""}, ERROR, NO_BUFFER]),
    Call("status by file", "get_device_status", "firmware_ver", results=[ERROR, NO_BUFFER, {"result": 0, "value": ""}]),
    Call("status by shell", "get_device_status", "sdcardquota", results=[ERROR, NO_BUFFER, {"result": 11, "value": "sdcardquota"}, ]),
    Write("parameter to the camera", "md_armed", None, ["0", "1"], number(-1, 5)),
    Write("parameter to the file", "pd_setting", "BATTERY_LOW", ["20", "21"], []),
    Call("login", "login", results=number(-1)),
    Call("configuration value", "read_conf_value", "PASSWORD", "/tmp/working/VeloAgent.conf", results=[{"result": 1, "value": None}]),
    Call("session key", "get_session_key", results=[{"value": None}]),
    Call("night light", "ptz_direction_control", 30, 1),
    Call("lullaby", "ptz_direction_control", 41, 1),
    Call("cloud lost", "notify_Z55_connection_status", 1),
    Resolution("resolution", "ptz_direction_control", 45, 1, seconds=15),
    LiveVideo("live video", "c_request_video", 0, 0),
    Call("photo piece", "photo_write_callback", "abc" * 100, results=[{"result": 0, "count": 0, "data_base64": ""}]),
    Frame("video frame", 1),
    Frame("audio frame", 2),
    Snapshot("snapshot by photo", 0, 6, {-1, 1} | CAMERA_ERRORS),
    Snapshot("snapshot by thumbnail", 1, 2, {-99}),
    Talk(),
    Recording(),
    Poll(),
    PollHeld(),
    Upgrade(),
    Reboot(),
    Start(),
]


def situation(name):
    return next(each for each in SITUATIONS if each.name == name)
