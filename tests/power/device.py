"""The device around the agent, inside a device view: camera, clock, files; the agent is started and ended here, as init and
a power switch would."""
import contextlib
import glob
import json
import os
import signal
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "../../devkit/year"))
from clock import LIMIT, Clock  # noqa: E402
from desk import ALARMS, CAPTURE, CONF, LOG, SDK_PORTS, STATE, Desk, Gone, wait_for  # noqa: E402

SPEED = 20       # of the clocks while somebody waits for a peer
WALL = 1767225600  # 2026-01-01, when the device is switched on
MINUTE = 60 * 10**9  # nanoseconds
FLASH, CARD = "/tmp/kept/", "/tmp/fuse_d/"
KEPT_CONF = FLASH + "VeloAgent.conf"  # CONF is a link to it, as the service makes it
COOKIE, VERSION = "/tmp/cookie.txt", "/tmp/FWVER.txt"
# Each in a folder of its own: the sync of one's folder must not stand in for another's.
MARKER, FLAG, RECORDINGS = CARD + "upgrade/.ota_running", CARD + "flag/.recording", CARD + "log/recording.log"
KEPT = [KEPT_CONF, COOKIE, VERSION, MARKER, FLAG, RECORDINGS]
NEW = ".veloagent-new"
RESERVE = CARD + ".ota.tmp"
JOURNAL = "/tmp/.device/journal"
DEFAULTS = {"ITEM_DEVICE": "Camera", "ITEM_STREAM": "Stream1", "PASSWORD": "secret", "SESSION_KEY": "", "COOKIE": COOKIE,
            "POLL_STATUS_PERIOD_SEC": "10", "POOL_NTP_PERIOD_SEC": "3600", "BATTERY_PERIOD": "60", "SDCARD_PERIOD": "60",
            "NIMB_PERIOD": "3600", "BATTERY_ARMED": "1", "SDCARD_ARMED": "1", "NIMB_ARMED": "0", "BATTERY_LOW": "20", "SDCARD_LOW": "10",
            "NIMB_LOW": "10", "OTA_POLLING_PERIOD": "5", "OTA_TMP_FILE": MARKER, "RECORDING_FLAG_FILE": FLAG,
            "RECORDING_LOG_FILE": RECORDINGS, "RECORDING_PERIOD": "60", "TIMEZONE": "GMT+8", "NIMB_HOST": "127.0.0.1:1",
            "LULLABY_SONG": "1"}


class Device(Desk):
    def __init__(self, build, agent):
        self.clock = Clock(STATE + "bend", SPEED, 60, WALL)
        super().__init__(build, agent, SPEED, DEFAULTS)
        for path in KEPT:
            os.makedirs(os.path.dirname(path), exist_ok=True)
        os.remove(CONF)
        os.symlink(KEPT_CONF, CONF)
        with open(KEPT_CONF, "w") as file:
            file.write("# Made from the sample.\n\n" + "".join(f"{key}={value}\n" for key, value in self.conf.items()))
        with open(RESERVE, "w"):
            pass  # 100 MB that nobody needs here
        self._preload = os.path.join(build, "tests/power/libwatch_files.so")
        self._process = None
        self._starts = 0
        self._start([self._device + "bend-skip"], self._plain, "/tmp/skip.log")

    # --- Time

    def let_time_pass(self):
        """For the next minute: were the agent down, nobody else would be there to stop it."""
        self.clock._write(LIMIT, self.clock.reading_ns() + MINUTE)

    def hold_time(self):
        self.clock.hold()

    def pass_until(self, condition, what, seconds=30):
        """Lets time pass until `condition`; `seconds` are real."""
        def look():
            if self.agent_runs():
                self.let_time_pass()
            return condition()
        try:
            wait_for(what, look, seconds)
        finally:
            self.hold_time()

    # --- The agent

    def start_agent(self, kill=None):
        self._starts += 1
        with open(LOG, "wb") as log:
            environment = {**self._bent, "BEND_SKIP": "1", "DESK_SDK_PORTS_FILE": SDK_PORTS, "DESK_SDK_ALARMS_FILE": ALARMS, "TZ": "UTC",
                           "DESK_SDK_AT_LOAD": json.dumps([["PUT", "/capture", CAPTURE]]), "POWER_JOURNAL": JOURNAL,
                           "POWER_FILES": f"{FLASH}:/tmp/working/:{COOKIE}:{VERSION}:{MARKER}:{FLAG}:{RECORDINGS}", "POWER_WITNESS": ALARMS,
                           "LD_PRELOAD": self._bent["LD_PRELOAD"] + ":" + self._preload}
            if kill:
                environment["POWER_KILL"] = kill
            with contextlib.suppress(FileNotFoundError):
                os.remove(SDK_PORTS)
            self._process = subprocess.Popen([self._agent], env=environment, stdin=subprocess.DEVNULL, stdout=log, stderr=log, cwd="/tmp",
                                             start_new_session=True)
        with open(STATE + "agent.pid", "w") as file:
            file.write(f"{self._process.pid}\n")
        wait_for("the agent begins", lambda: not self.agent_runs() or any(row[1] == self._process.pid for row in self.clock.starts()))

    def agent_runs(self):
        return self._process is not None and self._process.poll() is None

    def end_agent(self):
        """Ends it at once, wherever it is, with all that it started."""
        if self._process is None:
            return
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self._process.pid, signal.SIGKILL)
        self._process.wait()
        self._process = None

    def log_text(self):
        with open(LOG, encoding="latin-1") as file:
            return file.read()

    def logs(self, text):
        return lambda: text in self.log_text()

    def write(self, name, value):
        return self.sdk("POST", "/call", {"name": "set_device_param", "args": [name, value]})["results"][0]["result"]

    def call(self, name, *arguments):
        return self.sdk("POST", "/call", {"name": name, "args": list(arguments)})["results"][0]["result"]

    # --- What is outside

    def alarms(self):
        if not os.path.exists(ALARMS):
            return []
        with open(ALARMS) as file:
            return [json.loads(line)["status"] for line in file.read().splitlines()]


def read(path):
    try:
        with open(path, "rb") as file:
            return file.read()
    except FileNotFoundError:
        return None


def put(files):
    """The disk holds these files and no others of the agent's."""
    for path in KEPT:
        for old in glob.glob(glob.escape(path) + "*"):
            os.remove(old)
    for path, text in files.items():
        with open(path, "wb") as file:
            file.write(text)
