#!/usr/bin/env python3
"""Lives in a device view of its own: worker.py BUILD AGENT PRELOAD. Reads orders, a line of JSON each, from standard input, carries
them out and writes a line of JSON with what came of each."""
import json
import os
import re
import shutil
import sys
import time
import traceback

from device import BASE_CONF, CONF, ERRORS, LOG, PATIENCE, Device, Gone, Hangs
from situations import MEDIA, situation

CAMERA_STATUS = {"Battery": "90", "SD": "1", "Adaptor": "1", "Temperature": "25", "MotionEvent": "0", "AudioEvent": "0", "TemperatureEvent": "0"}
OUT_OF_MEMORY = "VeloAgent: out of memory\n"
REBOOT, SET_LATE = "***** reboot operation*****", "(NTP) curl finished succeeded"
SETTLING = 130  # bent seconds until threads and descriptors are as before: more than any pause that a thread may make
SETTLING_REAL = 30  # real ones at least, for a busy machine
DATA_BYTES = 4096  # an allocation of so many is data's: it may fail, never end the process
FAILURE = re.compile(r"fail|error|cannot|can't|could not|unable|null|not enough|not read|not started|no thread|no worker|res !=|out of memory|not written|aborting|"
                     r"Quit|does NOT|= -1|curr tv_sec:0,|status != 200|LOCAL_FAIL|not existed", re.IGNORECASE)
TEMPORARY = ".veloagent-new"
LEFT_BEHIND = {"total", "space", "space_percent", "gateway.txt", "FWVER.txt"}  # what shell commands write, and the login


class Broken(Exception):
    pass


def shape(line):
    return re.sub(r"0x[0-9a-f]+|\d+", "#", line.strip())


class Worker:
    def __init__(self, build, agent, preload):
        open(LOG, "a").close()
        open(ERRORS, "a").close()
        self.device = Device(build, agent, preload)
        self._situation = self._log_of_run = None

    # --- One situation after another.

    def enter(self, name):
        """The agent lives with the situation's configuration, and what is usual there is known."""
        if self._situation is not None and self._situation.name == name:
            return
        self._situation = situation(name)
        self.device.stop_agent()
        self.device.camera("PATCH", "/status", CAMERA_STATUS)
        self.device.camera("PATCH", "/config", {"photo_delay_ms": 0})
        self.restart()
        self.usual_lines, lived = set(), []
        while len(lived) < 3 or (lived[-1] != lived[-2] and len(lived) < 9):  # a busy machine may spoil one
            lived.append(self.live_usually())
        self.usual = lived[-1]
        self.counts = self.device.fail.counts()

    def restart(self):
        """A life of the agent's from a fresh configuration, up and polling."""
        device = self.device
        device.stop_agent()
        device.write_conf(self._situation.conf)
        self.new_life()

    def new_life(self):
        device = self.device
        device.stop_agent()
        device.begin_logs()
        for attempt in (1, 2, 3):
            device.start_agent()
            if device.wait_ready():
                break
        else:
            raise Broken(f"the agent does not start any more: {device.new_errors()[-300:]}")
        device.sdk("GET", "/state")
        self._situation.warm(device)
        self.take_size()

    def take_size(self):
        device = self.device
        device.new_alarms()
        device.take_threads()
        self.usual_descriptors = device.descriptors()

    def live_usually(self):
        """An undisturbed run, counted; its outcome and what else was seen. It widens what is usual in the log."""
        device = self.device
        self.begin()
        device.fail.arm()
        outcome = self._situation.act(device)
        device.fail.disarm()
        seen = self.seen()
        self.usual_lines |= {shape(line) for line in self.log_lines()}
        self.put_right()
        return outcome, seen

    def begin(self):
        device = self.device
        shutil.rmtree(MEDIA, ignore_errors=True)
        os.makedirs(MEDIA)
        self._situation.before(device)
        device.new_alarms()
        device.camera("DELETE", "/requests")
        self._log_of_run = None
        self._conf_before = conf()
        self._files_before = files()
        device.begin_logs()

    def put_right(self):
        """After a run: the agent lives."""
        device = self.device
        self._log_of_run = self.log_lines()  # a new life begins new logs
        if device.ended() is not None:
            self._situation.alone(device)
            self.new_life()
        if self._situation.after(device) or device.ended() is not None:
            self.new_life()

    def log_lines(self):
        return (self.device.new_log() + "\n" + self.device.new_errors()).splitlines()

    def seen(self):
        """What went out and what lies on the disk."""
        requests = {(row["endpoint"], row["method"], shape(row["target"]), shape(row["body"][:300]))
                    for row in self.device.camera("GET", "/requests") if not any(text in row["body"] for text in self._situation.once)}
        return {"requests": sorted(requests), "conf": {key: value for key, value in conf().items() if key != "SESSION_KEY"}}

    # --- One failure.

    def run(self, kind, nth, then):
        """(verdict, text, trace) of a run in which the nth call of the kind fails, or all from it on."""
        device = self.device
        try:
            self.begin()
            outcome, hangs = None, None
            device.fail.arm(kind, nth, then)
            try:
                outcome = self._situation.act(device)
            except Gone as gone:
                self.wait_for_end(gone)
            except Hangs as error:
                hangs = str(error)
            device.fail.disarm()
            if OUT_OF_MEMORY in device.new_errors():
                self.wait_for_end("out of memory")
            failed, size, trace = device.fail.failure()
            verdict = self.judge(kind, outcome, hangs, failed, size, trace)
            self.look_after(verdict)
            return verdict, failed, size, trace
        except (Broken, Hangs, Gone, ValueError, OSError) as error:
            device.fail.disarm()
            failed, size, trace = device.fail.failure()
            log = "\n    ".join(line for line in (self._log_of_run or self.log_lines())[-12:] if line.strip())
            text = str(error) if isinstance(error, Broken) else traceback.format_exc()
            self.restart()
            return f"FAILED: {text}\n    {log}", failed, size, trace

    def wait_for_end(self, gone):
        end = time.monotonic() + PATIENCE
        while self.device.ended() is None:
            if time.monotonic() > end:
                raise Broken(f"the agent lives, but says {gone}")
            time.sleep(0.001)

    def judge(self, kind, outcome, hangs, failed, size, trace):
        device = self.device
        code = device.ended()
        if failed == 0:
            return "no call"
        if hangs:
            raise Broken("hangs: " + hangs)
        if code is not None and not (self._situation.ends and outcome is not None and outcome == self.usual[0]):
            self.judge_end(kind, code, size, trace)
            return "ended"
        if outcome is None:
            raise Broken("no outcome")
        now = (outcome, self.seen())
        if is_libcurls(trace) and has_lost_query(now[1], self.usual[1]):
            return "survived"
        wrong = self._situation.wrong(outcome, self.usual[0])
        if wrong:
            raise Broken(wrong)
        told = self.failure_lines() or (kind == "clock_gettime" and self._situation.paced)
        if now != self.usual and not told:
            raise Broken(f"nothing in the log tells of it: {difference(now, self.usual)}")
        return "survived"

    def failure_lines(self):
        return [line for line in self.log_lines() if shape(line) not in self.usual_lines and FAILURE.search(line)]

    def judge_end(self, kind, code, size, trace):
        if code == 0 and REBOOT in self.device.new_log() and SET_LATE in self.device.new_log():
            return  # the clock, which could not be set at the start, could be set then: the contract has the device begin anew
        errors = self.device.new_errors()
        if kind != "alloc" or code != 1 or errors.count(OUT_OF_MEMORY) != 1 or not errors.endswith(OUT_OF_MEMORY):
            raise Broken(f"the process ended with {code}: {errors[-300:]!r}")
        if size >= DATA_BYTES:
            raise Broken(f"the process ended for want of {size} bytes")

    def look_after(self, verdict):
        """What a failure may leave: nothing but what the contract names, and the next call works."""
        device = self.device
        self.check_disk(verdict)
        lived = device.agent
        self.put_right()
        if verdict == "survived" and device.agent is lived:
            self.check_size()
        if verdict == "no call":
            return
        now, code = self.live_again()
        if now != self.usual:
            raise Broken(f"the next call: {difference(now, self.usual)}" + ("" if code is None else f"; the agent has ended with {code}"))
        self.check_leftovers()
        self.check_size()

    def live_again(self):
        device = self.device
        self.begin()
        outcome = self._situation.act(device)
        seen, code = self.seen(), device.ended()
        self.put_right()
        return (outcome, seen), code

    def check_size(self):
        device = self.device
        if "Read polling period failed" in device.new_errors():  # the clock's thread ends so
            return
        def same():
            threads = device.ended() is not None or len(device.threads()) <= len(device.usual_threads)
            return threads and len(device.descriptors()) <= len(self.usual_descriptors)
        # Beside a child of the agent's, which takes real time, the bent seconds are over at once.
        end, real_end = device.clock.reading_ns() + int(SETTLING * 1e9), time.monotonic() + SETTLING_REAL
        settled = False  # the agent goes on: what holds now may not a moment later

        def is_decided():
            nonlocal settled
            settled = same()
            return settled or (device.clock.reading_ns() > end and time.monotonic() > real_end)
        device.pass_until(is_decided, "threads and descriptors settle", SETTLING)
        if not settled:
            raise Broken(f"{len(device.threads())} threads, before {len(device.usual_threads)}; descriptors "
                         f"{device.descriptors()}, before {self.usual_descriptors}")

    def check_disk(self, verdict):
        now = conf()
        for key, value in self.device.own_conf.items():
            if key not in now:
                raise Broken(f"the configuration has lost {key}: {sorted(now)}")
            if key != "SESSION_KEY" and now[key] not in {value, self._conf_before.get(key), *self._situation.writes.get(key, ())}:
                raise Broken(f"the configuration has {key}={now[key]!r}")
        if set(now) != set(self.device.own_conf) or (now["SESSION_KEY"] and not now["SESSION_KEY"].isdigit()):
            raise Broken(f"the configuration is {now}")
        self.check_leftovers(() if verdict == "survived" else TEMPORARY)

    def check_leftovers(self, allowed=()):
        more = [name for name in files() - self._files_before if name not in LEFT_BEHIND and not (allowed and name.endswith(allowed))]
        own = {os.path.basename(BASE_CONF[key]) for key in ("OTA_TMP_FILE", "RECORDING_FLAG_FILE", "RECORDING_LOG_FILE", "COOKIE")}
        more = [name for name in more if os.path.basename(name) not in own]
        if more:
            raise Broken(f"files left: {more}")


def conf():
    with open(CONF, encoding="latin-1") as file:
        return dict(line.rstrip("\n").partition("=")[::2] for line in file)


def files():
    found = set()
    for folder in ("/tmp", "/tmp/working", "/tmp/fuse_d"):
        for name in os.listdir(folder):
            path = os.path.join(folder, name)
            if os.path.isfile(path) and not re.match(r"/tmp/(agent|camera|alarms|skip|sdk)\b", path):
                found.add(path[len("/tmp/"):])
    return found


def is_libcurls(trace):
    """Whether it was libcurl that called, and not the agent."""
    callers = [name for name in map(os.path.basename, trace) if name.startswith(("libcurl", "VeloAgent"))]
    return bool(callers) and callers[0].startswith("libcurl")


def has_lost_query(seen, usual):
    """libcurl drops a request's query, and says nothing, where its own copy of it is refused: the camera then answers another
    question, and whatever the agent makes of that is right."""
    more = set(seen["requests"]) - set(usual["requests"])
    return any((endpoint, method, body) == (row[0], row[1], row[3]) and row[2].startswith(target + "?")
               for endpoint, method, target, body in more for row in usual["requests"])


def difference(now, usual):
    (outcome, seen), (usual_outcome, usual_seen) = now, usual
    texts = []
    if outcome != usual_outcome:
        texts.append(f"{outcome} instead of {usual_outcome}")
    if seen["requests"] != usual_seen["requests"]:
        texts.append(f"requests {[row[2] + row[3][-60:] for row in seen['requests']]} instead of "
                     f"{[row[2] + row[3][-60:] for row in usual_seen['requests']]}")
    if seen["conf"] != usual_seen["conf"]:
        texts.append(f"configuration {seen['conf']} instead of {usual_seen['conf']}")
    return "; ".join(texts)


def main():
    worker = Worker(*sys.argv[1:])
    try:
        for line in sys.stdin:
            order = json.loads(line)
            worker.enter(order["situation"])
            if "kind" not in order:
                print(json.dumps({"counts": worker.counts}), flush=True)
                continue
            began = time.monotonic()
            worker.device.take_held_up()
            verdict, failed, size, trace = worker.run(order["kind"], order["nth"], order["then"])
            print(json.dumps({**order, "verdict": verdict, "failed": failed, "size": size, "trace": trace,
                              "held_up": round(worker.device.take_held_up(), 2), "seconds": round(time.monotonic() - began, 3)}), flush=True)
    finally:
        worker.device.close()


if __name__ == "__main__":
    main()
