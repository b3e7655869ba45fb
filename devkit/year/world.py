"""Does to the device what the events of a life say, and keeps a record of what was done and of every call's result."""
import base64
import heapq
import itertools
import os
import threading

from desk import CONF, Gone

FILLER, CONF_FILLER = "/tmp/fuse_d/filler", "/tmp/working/filler"
FRAME_BYTES = 640
MEDIA, KEPT_MEDIA = "/tmp/fuse_d/DCIM/100MEDIA", 30


def fill(path, leave_bytes):
    """Fills the file system of `path` but for so many bytes, once."""
    if os.path.exists(path):
        return
    room = os.statvfs(os.path.dirname(path))
    size = room.f_bavail * room.f_bsize - leave_bytes
    with open(path, "wb") as file:
        if size > 0:
            os.posix_fallocate(file.fileno(), 0, size)


def remove(path):
    if os.path.exists(path):
        os.remove(path)


class World:
    def __init__(self, desk, clock, events):
        self.desk, self.clock = desk, clock
        self.records = []
        self._lock = threading.Lock()
        self._order = itertools.count()
        self._due = []
        self._running = {}
        self._lasting = {}  # how many events of a kind last at present
        self._versions = itertools.count(4)
        self._watching = None
        for event in events:
            self._at(event["at"], lambda event=event: self._do(event))

    # --- The calendar.

    def _at(self, moment, action):
        heapq.heappush(self._due, (moment, next(self._order), action))

    def next_due(self):
        return self._due[0][0] if self._due else None

    def act(self):
        """Does what is due first."""
        heapq.heappop(self._due)[2]()

    def _do(self, event):
        record = {"kind": "event", "t": self.clock.now(), "do": event["do"], "event": event}
        self._keep(record)
        try:
            getattr(self, "_do_" + event["do"])(event)
        except Gone as error:
            record["gone"] = str(error)
        record["t1"] = self.clock.now()

    def _end(self, event, action):
        """Has `action` done when the time of the last event of this kind is over."""
        what = (event["do"], event.get("kind"))
        self._lasting[what] = self._lasting.get(what, 0) + 1

        def end():
            self._lasting[what] -= 1
            record = {"kind": "end", "t": self.clock.now(), "do": event["do"], "event": event}
            self._keep(record)
            try:
                if self._lasting[what] == 0 or event["do"] in ("fault", "viewer"):
                    action()
            except Gone as error:
                record["gone"] = str(error)
            record["t1"] = self.clock.now()
        self._at(self.clock.now() + event["for"], end)

    def _keep(self, record):
        with self._lock:
            self.records.append(record)

    def take_records(self):
        """What was kept since, and copies of the calls that are under way."""
        with self._lock:
            kept, self.records = self.records, []
            return kept, [dict(record) for record in self._running.values()]

    # --- Calls of the cloud, each on a thread of its own.

    def call(self, name, arguments, path="/call", order=None):
        body = order or {"name": name, "args": arguments}
        record = {"kind": "call", "t": self.clock.now(), "end": None, "name": name, "args": arguments, "result": None}
        number = next(self._order)
        with self._lock:
            self._running[number] = record
        sent = threading.Event()
        threading.Thread(target=self._run, args=(number, record, path, body, sent), daemon=True).start()
        sent.wait()  # no time is skipped before the agent has it

    def _run(self, number, record, path, body, sent):
        try:
            reply = self.desk.sdk("POST", path, body, sent.set)
            record["result"] = reply["results"][0] if "results" in reply else reply
            if "begun_ms" in reply:
                record["t"], record["end"] = self.clock.of_ms(reply["begun_ms"]), self.clock.of_ms(reply["ended_ms"])
        except (Gone, ValueError) as error:
            record["gone"] = str(error)
        record["end"] = record["end"] or self.clock.now()
        sent.set()
        with self._lock:
            del self._running[number]
            self.records.append(record)

    def calls_running(self):
        with self._lock:
            return len(self._running)

    # --- The kinds of events.

    def _do_call(self, event):
        name, arguments = event["call"]
        order = {"name": name, "args": arguments}
        if name == "get_camera_snapshot":
            order["save"] = "/tmp/year.jpg"
        self.call(name, arguments, order=order)

    def _do_burst(self, event):
        for name, arguments in event["calls"]:
            self.call(name, arguments)

    def _do_resolution(self, event):
        self.call("set_device_param", ["high_definition", event["value"]])

    def _do_format(self, event):
        self.call("set_device_param", ["sdformat", "1"])

    def _do_reboot(self, event):
        self.call("rebootOperation", [])

    def _do_record(self, event):
        self.call("start_recording_video", [event["length"]])
        if event["stop_after"] is not None:
            self._at(self.clock.now() + event["stop_after"], lambda: self.call("stop_recording_video", []))

    def _do_talk(self, event):
        sound = base64.b64encode(bytes(FRAME_BYTES * event["frames"])).decode()
        order = {"pcm_base64": sound, "frame_bytes": FRAME_BYTES, "pace": "bent", "first_sequence": 0}
        self.call("talk", [], "/talk", order)

    def _do_pulse(self, event):
        self.desk.camera("POST", "/event", {"name": event["name"], "polls": 1})

    def _do_temperature(self, event):
        self.desk.camera("PATCH", "/status", {"Temperature": event["value"]})
        self.desk.camera("POST", "/event", {"name": "TemperatureEvent", "polls": 1})

    def _do_battery(self, event):
        self.desk.camera("PATCH", "/status", {"Battery": event["value"]})

    def _do_card_out(self, event):
        self.desk.camera("PATCH", "/status", {"SD": "0"})
        self._end(event, lambda: self.desk.camera("PATCH", "/status", {"SD": "1"}))

    def _do_card_full(self, event):
        fill(FILLER, 4 * 1024 * 1024)
        self._end(event, lambda: remove(FILLER))

    def _do_conf_full(self, event):
        fill(CONF_FILLER, 0)
        self._at(self.clock.now() + event["for"] / 2, lambda: self.call("set_device_param", event["writes"]))
        self._end(event, lambda: remove(CONF_FILLER))

    def _do_viewer(self, event):
        self._watching = event
        self.desk.sdk("PUT", "/capture", {"stalled": False})
        self.desk.sdk("PUT", "/watch", {"on": True})
        if event["stalls_after"] is not None:
            self._at(self.clock.now() + event["stalls_after"], lambda: self._stall(event))
        self._end(event, lambda: self._leave(event))

    def _stall(self, event):
        if self._watching is not event:
            return
        record = {"kind": "stall", "t": self.clock.now()}
        self._keep(record)
        try:
            self.desk.sdk("PUT", "/capture", {"stalled": True})
        except Gone as error:
            record["gone"] = str(error)
        record["t1"] = self.clock.now()

    def _leave(self, event):
        if self._watching is event:
            self._watching = None
            self.desk.sdk("PUT", "/watch", {"on": False})
            self.desk.sdk("PUT", "/capture", {"stalled": False})

    def _do_upgrade(self, event):
        self.desk.camera("PATCH", "/config", {"upgrade": {"steps": 4, "step_ms": 6000, "outcome": event["outcome"]}})
        self.desk.camera("PATCH", "/status", {"NewFirmwareVersion": f"1.0.{next(self._versions)}", "NewFirmwareEvent": "1"})
        self.call("set_device_param", ["doOTA", "1"])

    def _do_camera_restart(self, event):
        self.desk.camera("POST", "/restart")

    def _do_expire(self, event):
        self.desk.camera("POST", "/session/expire")

    def _do_outage(self, event):
        leave, come_back = {"refused": ("/refuse", "/accept"), "vanished": ("/vanish", "/appear")}[event["kind"]]
        self.desk.camera("POST", leave)
        self._end(event, lambda: self.desk.camera("POST", come_back))

    def _do_fault(self, event):
        number = self.desk.camera("POST", "/faults", event["order"])["id"]
        if "expire" in event:
            self.desk.camera("POST", "/session/expire")
        self._end(event, lambda: self.desk.camera("DELETE", f"/faults/{number}"))

    def _do_ntp_fails(self, event):
        self.desk.set_tool("ntpdate", "exit", 1)
        self._end(event, lambda: self.desk.set_tool("ntpdate", "exit", None))

    def _do_step(self, event):
        self.desk.step_wall_clock(event["seconds"])

    def _do_power_cut(self, event):
        self.desk.cut_power()


def tidy_card():
    """As the camera does in time, takes away its oldest recordings and photos."""
    try:
        names = sorted(name for name in os.listdir(MEDIA) if not name.startswith("."))
        for name in names[:-KEPT_MEDIA]:
            os.remove(os.path.join(MEDIA, name))
    except FileNotFoundError:
        pass  # it is being formatted


def conf_text():
    with open(CONF, encoding="latin-1") as file:
        return file.read()
