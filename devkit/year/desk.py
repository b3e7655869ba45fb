"""The device of a life, inside a device view: camera, agent and bend-skip in one bent time, and their interfaces."""
import http.client
import json
import os
import signal
import subprocess
import time

CONF = "/tmp/working/VeloAgent.conf"
STATE = "/tmp/.device/"
SDK_PORTS = "/tmp/sdk.json"
LOG, ERRORS, ALARMS = "/tmp/agent.log", "/tmp/agent.err", "/tmp/alarms.jsonl"
CAPTURE = {"live": {"video_fps": 1, "audio_fps": 1, "video_bytes": 2000, "audio_bytes": 100, "pace": "bent"}}


class Gone(Exception):
    """Nobody answers: the agent is not up, or has ended meanwhile."""


def request(port, method, path, body=None, sent=None, patience=900):
    """The reply's JSON. Calls `sent` once the request is on its way."""
    link = http.client.HTTPConnection("127.0.0.1", port, timeout=patience)
    try:
        link.request(method, path, None if body is None else json.dumps(body), {"Content-Type": "application/json"})
        if sent:
            sent()
        reply = link.getresponse()
        text = reply.read()
    except (OSError, http.client.HTTPException) as error:
        raise Gone(str(error)) from error
    finally:
        link.close()
    if reply.status != 200:
        raise ValueError(f"{method} {path}: {reply.status} {text[:200]!r}")
    return json.loads(text) if text.strip() else {}


def wait_for(what, condition, seconds=60):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise RuntimeError(f"not within {seconds} s: {what}")
        time.sleep(0.002)


class Desk:
    def __init__(self, build, agent, speed, conf):
        self._device = os.path.join(build, "devkit/device/")
        self._agent = agent
        bend = {"BEND_SPEED": str(speed), "BEND_FILE": STATE + "bend"}
        self._plain = {**os.environ, **bend}
        self._bent = {**self._plain, "BEND_SKIP": "server", "LD_PRELOAD": self._device + "libbend_time.so"}
        self._children = []
        self._start([os.path.join(build, "devkit/camera/camera"), "--ports-file", "/tmp/camera.json", "--sd", "/tmp/fuse_d",
                     "--reboot-tool", "/usr/bin/qmx_reboot"], self._bent, "/tmp/camera.log")
        wait_for("the camera listens", lambda: os.path.exists("/tmp/camera.json"))
        ports = json.load(open("/tmp/camera.json"))
        self._control = ports["control"]
        self.address = f"127.0.0.1:{ports['cgi']}"
        self.conf = {**conf, "hostIP": self.address}
        # The configuration has a file system of its own, so that it can be full alone.
        subprocess.run(["mount", "-t", "tmpfs", "-o", "size=256k", "tmpfs", "/tmp/working"], check=True)
        with open(CONF, "w") as file:
            file.writelines(f"{key}={value}\n" for key, value in self.conf.items())
        with open(STATE + "ntpdate.stdout", "w"):
            pass

    def _start(self, command, environment, log):
        with open(log, "ab") as output:
            self._children.append(subprocess.Popen(command, env=environment, stdout=output, stderr=output,
                                                   stdin=subprocess.DEVNULL))

    def start(self):
        """Starts the agent, and time that is skipped while camera and agent sleep."""
        shell = f'exec "$@" >>{LOG} 2>>{ERRORS}'
        preload = ["/usr/bin/env", "LD_PRELOAD=" + self._bent["LD_PRELOAD"], "BEND_SKIP=1"]
        own = {"DESK_SDK_PORTS_FILE": SDK_PORTS, "DESK_SDK_ALARMS_FILE": ALARMS, "TZ": "UTC",
               "DESK_SDK_AT_LOAD": json.dumps([["PUT", "/capture", CAPTURE]]),
               "GLIBC_TUNABLES": "glibc.malloc.tcache_count=0:glibc.malloc.arena_max=2"}
        self._start([self._device + "supervise", "--respawn", "--", "/bin/sh", "-c", shell, "sh", *preload, self._agent],
                    {**self._plain, **own}, "/tmp/supervise.log")
        wait_for("the agent begins: " + self._agent, self._log_has_begun)
        self._start([self._device + "bend-skip"], self._plain, "/tmp/skip.log")

    @staticmethod
    def _log_has_begun():
        return os.path.exists(LOG) and os.path.getsize(LOG) > 0

    def stop(self):
        for child in reversed(self._children):
            child.terminate()
        for child in self._children:
            child.wait()

    def camera(self, method, path, body=None):
        """What the camera's control says. It is always there, but may hang up on whoever comes while it is busy."""
        for pause in (0.02, 0.2, 1):
            try:
                return request(self._control, method, path, body)
            except Gone:
                time.sleep(pause)
        return request(self._control, method, path, body)

    def sdk(self, method, path, body=None, sent=None):
        try:
            with open(SDK_PORTS) as file:
                ports = json.load(file)
        except (OSError, ValueError) as error:
            raise Gone(str(error)) from error
        return request(ports["port"], method, path, body, sent)

    def agent_pid(self):
        try:
            with open(STATE + "agent.pid") as file:
                return int(file.read())
        except (OSError, ValueError):
            return 0

    def reboots(self):
        try:
            with open(STATE + "reboots") as file:
                return int(file.read())
        except (OSError, ValueError):
            return 0

    def set_tool(self, tool, what, value):
        path = f"{STATE}{tool}.{what}"
        if value is None:
            os.path.exists(path) and os.remove(path)
            return
        with open(path + ".new", "w") as file:
            file.write(str(value))
        os.rename(path + ".new", path)

    def step_wall_clock(self, seconds):
        subprocess.run([self._device + "bend-step", "--", str(seconds)], env=self._plain, check=True)

    def cut_power(self):
        """The agent ends at once, wherever it is."""
        pid = self.agent_pid()
        if pid:
            try:
                os.killpg(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
