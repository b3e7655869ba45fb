"""Every call of a handler has the result that the camera's answers explain."""
from history import CONF_PARAMS, HARD, body_of, element, error_of
from rules.rule import Rule

DETECTION = {"md": "MOTION_DETECTION", "sd": "AUDIO_DETECTION", "td": "TEMPERATURE_ALERT"}
ELEMENTS = {"armed": "ENABLE", "sensitivity": "SENSITIVITY", "up": "MAX", "down": "MIN"}
STATUS_KEYS = {"Battery": "Battery", "Adapt": "Adaptor", "firmware_newver": "NewFirmwareVersion", "Sdcard": "SD",
               "Upgrade_SW_status": "FwUpgradeStatus", "Upgrade_SW_process": "FwDownloadProgress", "Temp_now_status": "Temperature",
               "LullabyPlay": "LullabyPlay", "LullabySong": "LullabySong", "LullabyTime": "LullabyTime",
               "LullabyPlayingTime": "LullabyPlayingTime", "LullabyMode": "LullabyMode", "LullabyVolume": "LullabyVolume",
               "Nightlight": "Nightlight"}
STORED = {"pd_armed", "sdcard_armed", "pd_setting", "sdcard_setting"}
ACCEPTED = {"save_param", "reboot", "high_definition", "sdformat"}
LOCAL = {"Sdsize", "sdcardquota", "firmware_ver"}
BOOLEANS = {"ON": "1", "OFF": "0"}
ERROR = {"result": 5, "value": "ERROR"}
UPSET = HARD | {"power_cut", "boot", "reboot", "fault"}
TOLD = ("result", "value", "frames", "accepted")
KEEP = 600  # seconds that requests are remembered: calls take long while the camera is slow


CLOSES = 15  # seconds in which the cutting thread closes a piece


def text_result(text):
    text = text[:129]
    return {"result": len(text), "value": text}


class HandlersAreExplained(Rule):
    name = "every handler's result is explained by the camera's state"

    def __init__(self, history):
        super().__init__(history)
        self._requests = []

    def feed(self, record):
        if record["kind"] == "request":
            self._requests.append(record)

    def hour(self, now, evidence):
        """Calls are judged when all their requests are known."""
        for call in evidence["calls"]:
            if "gone" not in call and call["result"] is not None:
                self._judge(call)
        oldest = min([call["t"] for call in self.history.running], default=now)
        self._requests = [request for request in self._requests if request["t"] > min(oldest, now) - KEEP]

    def _judge(self, call):
        allowed = getattr(self, "_" + call["name"], lambda call: None)(call)
        told = {key: call["result"][key] for key in TOLD if key in call["result"]}
        if allowed is not None and told not in allowed:
            self.breaks(call["end"], f"{call['name']}({', '.join(map(str, call['args']))}) gave {told}, explained are {allowed}")

    def _asked(self, call, end_of_target):
        return [request for request in self._requests
                if call["t"] - 0.01 <= request["t"] <= call["end"] + 0.01 and request["target"].endswith(end_of_target)]

    def _upset(self, call):
        return self.history.during(UPSET, call["t"] - 2, call["end"] + 2)

    def _read(self, call, target, name, translate):
        """The results of a read of one element: of each request in its time, and failure where something failed."""
        requests = self._asked(call, target)
        results = [ERROR] if self._upset(call) else []
        for request in requests:
            received, value = self.history.received(request), element(body_of(request), name)
            if received == "maybe":
                return None
            good = received == "yes" and value is not None
            results.append(text_result(translate.get(value, value)) if good else ERROR)
        return results

    def _get_device_param(self, call):
        name = call["args"][0]
        if name in STORED:
            return [text_result(value) for value in self.history.conf(CONF_PARAMS[name][0], call["t"], call["end"])]
        if name == "high_definition":
            return [text_result(str(value)) for value in (1, 2, 3)]
        group, _, what = name.partition("_")
        if group in DETECTION and what in ELEMENTS:
            return self._read(call, "?" + DETECTION[group], ELEMENTS[what], BOOLEANS)
        return [ERROR]

    def _get_device_status(self, call):
        name = call["args"][0]
        if name in STATUS_KEYS:
            return self._read(call, "CameraStatus?" + STATUS_KEYS[name], STATUS_KEYS[name], {})
        if name == "resolution_capability":
            return [text_result("788480")]
        return None if name in LOCAL else [ERROR]

    def _set_device_param(self, call):
        name, value = call["args"]
        if name in CONF_PARAMS or name in ACCEPTED:
            return [{"result": 0}]
        if name == "doOTA":
            return [{"result": 0}, {"result": -1}]
        group, _, what = name.partition("_")
        if group not in DETECTION or what not in ELEMENTS:
            return [{"result": -1}]
        return self._detection_write(call, group, value)

    def _detection_write(self, call, group, value):
        gets, posts = self._asked(call, "CameraSetting?" + DETECTION[group]), self._asked(call, "/CGI/CameraSetup")
        posts = [post for post in posts if DETECTION[group] in post["body"]]
        if self._upset(call) or any(self.history.received(request) != "yes" for request in gets + posts):
            return [{"result": 0}, {"result": -1}, {"result": 5}]
        if any(element(body_of(request), "ENABLE") is None for request in gets):  # the session is over: no group to change
            return [{"result": 5}]
        return [{"result": 0}] if gets and posts else [{"result": "a document posted"}]

    def _get_camera_snapshot(self, call):
        if call["args"][0] != 0:
            return [{"result": 0}, {"result": -99}]
        requests = [request for request in self._requests if call["t"] - 0.01 <= request["t"] <= call["end"] + 0.01]
        if self._upset(call):
            return None
        recording = next((element(body_of(row), "Recording") for row in requests if row["target"].endswith("?Recording")), "0")
        photos = [row for row in requests if row["endpoint"] == "photo"]
        orders = [error_of(body_of(row)) for row in requests if "PHOTO_TO_MOBILE" in row["body"]]
        return [{"result": int(recording or 0)}] + [{"result": 0 if row["status"] == 200 else -1} for row in photos] + \
            [{"result": code} for code in orders if code != 0]

    def _start_recording_video(self, call):
        return self._recording(call, "VIDEO_START", -10)

    def _stop_recording_video(self, call):
        return self._recording(call, "VIDEO_STOP", -1)

    def _recording(self, call, action, nothing_done):
        """The result of its own request; where it sent none it had nothing to do, or the cutting thread did it."""
        if self._upset(call):
            return None
        own = [row for row in self._requests if call["t"] - 0.01 <= row["t"] <= call["end"] + 0.01 and action in row["body"]]
        waited = [row for row in self._requests if call["t"] - CLOSES <= row["t"] < call["t"] and action in row["body"]]
        results = [{"result": error_of(body_of(row))} for row in own + waited]
        return results + ([] if own and not waited else [{"result": nothing_done}])

    def _talk(self, call):
        return [{"frames": call["result"].get("frames"), "accepted": call["result"].get("frames")}]

    def _ptz_direction_control(self, call):
        return [{"result": 0}]
