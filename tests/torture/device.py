"""The device of a worker, inside a device view: camera, agent and preload, time that passes when it is told to, and what
can be seen of the agent from outside."""
import json
import os
import signal
import subprocess
import sys
import threading
import time

ROOT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "../..")
sys.path.insert(0, os.path.join(ROOT, "devkit/year"))
import desk as year_desk  # noqa: E402
from clock import COUNT_AGAIN, LIMIT, Clock  # noqa: E402
from delays import Delays  # noqa: E402
from desk import ALARMS, CONF, ERRORS, LOG, SDK_PORTS, STATE, Gone, request, wait_for  # noqa: E402, F401
from fail_file import FailFile  # noqa: E402

SPEED = 5  # of the clocks while somebody waits for a peer: two seconds for a connection must not pass while a busy machine looks away
WALL = 1_780_000_000
SPINS = 1 << 20  # characters of log without being up: it asks for its identity without a pause, as it has to
PATIENCE = 120  # real seconds for whatever the agent does: the machine may be busy with something else
NEVER = "100000000"
BASE_CONF = {"ITEM_DEVICE": "Camera", "ITEM_STREAM": "Stream1", "PASSWORD": "secret", "SESSION_KEY": "", "COOKIE": "/tmp/working/cookie",
             "BATTERY_ARMED": "1", "SDCARD_ARMED": "1", "NIMB_ARMED": "0", "BATTERY_LOW": "20", "SDCARD_LOW": "10", "NIMB_LOW": "10",
             "OTA_TMP_FILE": "/tmp/working/ota.marker", "RECORDING_FLAG_FILE": "/tmp/working/recording",
             "RECORDING_LOG_FILE": "/tmp/working/recording.log", "RECORDING_PERIOD": "60", "TIMEZONE": "GMT+8",
             "NIMB_HOST": "127.0.0.1:1", "POLL_STATUS_PERIOD_SEC": NEVER, "POOL_NTP_PERIOD_SEC": NEVER, "OTA_POLLING_PERIOD": "5"}
RESERVE = "/tmp/fuse_d/.ota.tmp"
READY = ("vq_ipca_init return", "end of a time. Start sleeping")
FAIL_FILE = STATE + "fail"


class Hangs(Exception):
    """What should have happened has not, within the patience."""


class Device(year_desk.Desk):
    Gone = Gone

    def __init__(self, build, agent, preload):
        super().__init__(build, agent, SPEED, BASE_CONF)
        self.fail = FailFile(FAIL_FILE)
        self.clock = Clock(STATE + "bend", SPEED, 3600, WALL)
        self._preload, self._vendors = preload, os.path.join(build, "devkit/vendor")
        self.agent = None
        self._alarms_read = 0
        self._delays, self._counted, self._held_up = Delays(), 0.0, 0.0
        self.usual_threads = set()
        self.log_size = self.errors_size = 0
        self.own_conf = dict(self.conf)
        self._start([self._device + "bend-skip"], self._plain, "/tmp/skip.log")

    # --- The agent's process.

    def write_conf(self, changes=None):
        """A configuration made anew, while no agent runs."""
        self.own_conf = {**self.conf, **(changes or {})}
        with open(CONF, "w") as file:
            file.writelines(f"{key}={value}\n" for key, value in self.own_conf.items())

    def start_agent(self):
        open(RESERVE, "a").close()
        if os.path.exists(SDK_PORTS):
            os.remove(SDK_PORTS)
        environment = {**self._plain, "BEND_SKIP": "1", "FAIL_FILE": FAIL_FILE, "DESK_SDK_PORTS_FILE": SDK_PORTS, "DESK_SDK_ALARMS_FILE": ALARMS, "TZ": "UTC",
                       "LD_LIBRARY_PATH": self._vendors, "LD_PRELOAD": f"{self._preload}:{self._bent['LD_PRELOAD']}"}
        self._started_at = self._looked_at = os.path.getsize(LOG) if os.path.exists(LOG) else 0
        self._log_end, self._marks = "", set()
        with open(LOG, "ab") as log, open(ERRORS, "ab") as errors:
            self.agent = subprocess.Popen([self._agent], env=environment, cwd="/tmp", stdin=subprocess.DEVNULL, stdout=log,
                                          stderr=errors, start_new_session=True)
        with open(STATE + "agent.pid", "w") as file:
            file.write(str(self.agent.pid))

    def ended(self):
        """The agent's exit code (below 0: minus the signal), None while it runs."""
        return self.agent.poll()

    def stop_agent(self):
        if self.agent is None:
            return
        try:
            os.killpg(self.agent.pid, signal.SIGKILL)
        except ProcessLookupError:
            pass
        self.agent.wait()

    def close(self):
        self.stop_agent()
        self.stop()

    # --- Time. It stands (runs at its usual speed, but nothing is skipped) unless one of these lets it pass.

    def pass_until(self, condition, what, seconds, patience=PATIENCE):
        """Lets at most so many bent seconds pass until the condition holds."""
        self.clock._write(LIMIT, self.clock.reading_ns() + int(seconds * 1e9))
        end = time.monotonic() + patience
        try:
            while not condition():
                if time.monotonic() > end:
                    raise Hangs(what)
                time.sleep(0.0005)
                if time.monotonic() > self._counted + COUNT_AGAIN:
                    self._count_delays()
        finally:
            self.clock.hold()

    def _count_delays(self):
        pids = [os.getpid(), *(process.pid for process in (self.agent, *self._children) if process)]
        self._held_up = max(self._held_up, self._delays.take(pids) * SPEED)
        self._counted = time.monotonic()

    def take_held_up(self):
        """For how many bent seconds at most, since this was last asked, the machine has kept from running who was ready to."""
        self._count_delays()
        held_up, self._held_up = self._held_up, 0.0
        return held_up

    def wait_ready(self, patience=PATIENCE):
        """Until the agent that was started polls; False when it has ended before."""
        self.pass_until(lambda: self.is_ready() or self.ended() is not None, "the agent polls", 100_000, patience)
        return self.ended() is None

    def wait_ready_for(self, seconds):
        """The same for at most so many bent seconds; False when it does not poll by then, or spins."""
        end = self.clock.reading_ns() + int(seconds * 1e9)
        self.pass_until(lambda: self.is_ready() or self.ended() is not None or self.clock.reading_ns() > end or
                        self._looked_at - self._started_at > SPINS, "the agent polls", seconds)
        return self.is_ready() and self.ended() is None

    def is_ready(self):
        new = read_from(LOG, self._looked_at)
        self._looked_at += len(new)
        self._log_end = self._log_end[-100:] + new
        self._marks |= {mark for mark in READY if mark in self._log_end}
        return len(self._marks) == len(READY)

    def begin_logs(self):
        self.log_size, self.errors_size = os.path.getsize(LOG), os.path.getsize(ERRORS)

    def new_log(self):
        return read_from(LOG, self.log_size)

    def new_errors(self):
        return read_from(ERRORS, self.errors_size)

    # --- Calls of handlers.

    def call(self, name, arguments=(), seconds=300, **more):
        """The handler's result, after as many bent seconds as it needs. Gone when the agent ends meanwhile."""
        return self.passing("POST", "/call", {"name": name, "args": list(arguments), **more}, seconds)["results"][0]

    def passing(self, method, path, body, seconds=300):
        outcome = []

        def run():
            try:
                outcome.append(self.sdk(method, path, body))
            except Exception as error:  # it is raised where it is waited for
                outcome.append(error)
        thread = threading.Thread(target=run, daemon=True)
        thread.start()
        self.pass_until(lambda: outcome, f"{path} {body}", seconds)
        if isinstance(outcome[0], Exception):
            raise outcome[0]
        return outcome[0]

    # --- What is seen of it.

    def new_alarms(self):
        """The status codes of the alarms since this was last asked, over all of the agent's lives."""
        rows = read_from(ALARMS, self._alarms_read)
        rows = rows[:rows.rfind("\n") + 1]
        self._alarms_read += len(rows)
        return [json.loads(row)["status"] for row in rows.splitlines()]

    def take_threads(self):
        """The threads that stand now, transient ones left out, are the usual ones. A busy machine lets a transient one stand for
        longer: it is looked until they stay the same."""
        for _ in range(20):
            samples = []
            for _ in range(4):
                samples.append(self.threads())
                time.sleep(0.003)
            self.usual_threads = set.intersection(*samples)
            if self.usual_threads == set.union(*samples):
                return

    def threads(self):
        return set(os.listdir(f"/proc/{self.agent.pid}/task"))

    def is_quiet(self):
        """Whether it has ended, or no other threads than usual are at work."""
        return self.ended() is not None or self.threads() <= self.usual_threads

    def descriptors(self):
        """What each descriptor is, sockets and pipes without their numbers."""
        found = []
        folder = f"/proc/{self.agent.pid}/fd"
        for name in os.listdir(folder):
            try:
                found.append(os.readlink(f"{folder}/{name}").split(":[")[0])
            except OSError:
                pass
        return sorted(found)


def read_from(path, position):
    try:
        with open(path, encoding="latin-1") as file:
            file.seek(position)
            return file.read()
    except OSError:
        return ""
