"""What the oracle knows of a life so far, from records only: what the world did to the device, when the agent started,
what was written to the configuration, and what may have disturbed a request."""
import re

FOR_EVER = 1e18
KEPT = 4 * 3600  # seconds that intervals are remembered after their end
BOOT = 60        # seconds after a start of the agent in which it logs in and begins to poll

# Written by set_device_param: name, key of the configuration, whether the value is a switch.
CONF_PARAMS = {"pd_armed": ("BATTERY_ARMED", True), "sdcard_armed": ("SDCARD_ARMED", True), "csd_armed": ("NIMB_ARMED", True),
               "pd_setting": ("BATTERY_LOW", False), "sdcard_setting": ("SDCARD_LOW", False), "csd_setting": ("NIMB_LOW", False)}
# What the agent certainly receives as it stands in the record, and what it certainly does not take for a reply.
WHOLE = {None, "delay", "error_code", "garbage"}
FAILED = {"http_status", "http10", "close", "reset", "truncate"}
UPGRADE = 300  # seconds that an upgrade takes at most, the reboot too
HARD = {"outage", "camera_restart", "upgraded", "busy"}
BUSY = 1  # seconds that the machine keeps the device from running: half the agent's shortest time-out, which may then be over


def element(text, name):
    """The text between the first tag of that name and the first closing one; None where there is none."""
    start, end = text.find(f"<{name}>"), text.find(f"</{name}>")
    start += len(name) + 2
    return text[start:end] if start >= len(name) + 2 and start <= end else None


def body_of(request):
    return request["reply"].partition("\r\n\r\n")[2]


def error_of(body):
    """The reply's error code as a number, 0 where there is none."""
    text = element(body, "ErrorCode")
    number = re.match(r"\s*[+-]?\d+", text or "")
    return int(number.group()) if number else 0


class History:
    def __init__(self, life, conf):
        self.life = life
        self.installed = dict(conf)
        self.period = max(int(conf["POLL_STATUS_PERIOD_SEC"]), 1)
        self.events = []    # [begin, end, what, event] of what lasts or strikes
        self.starts = []    # times at which the agent started
        self.writes = []    # [key, begun, ended, value, certain]
        self.running = []
        self._late = []     # [since, until, seconds that went by while the machine was busy]

    def add(self, now, records, running):
        """Takes in a batch of records, oldest first, and the calls that are still under way."""
        self.running = running
        for record in records:
            if record["kind"] == "event":
                self._begin(record)
            elif record["kind"] == "end":
                self._end(record)
            elif record["kind"] == "late":
                self._late.append([record["since"], record["t"], record["seconds"]])
                if record["seconds"] > BUSY:
                    self.events.append([record["since"], record["t"] + 1, "busy", None])
            elif record["kind"] == "start":
                self.starts.append(record["t"])
                self.events.append([record["t"] - 15, record["t"] + BOOT, "boot", None])
                if self.during("upgrade", record["t"] - UPGRADE, record["t"]):
                    self.events.append([record["t"] - 15, record["t"], "upgraded", None])
        self.writes = [write for write in self.writes if write[2] < FOR_EVER]
        for record in [record for record in records if record["kind"] == "call"] + running:
            self._add_write(record)
        self._forget(now)

    def _begin(self, record):
        event = record["event"]
        end = FOR_EVER if "for" in event else record.get("t1", record["t"]) + (UPGRADE if record["do"] == "upgrade" else 1)
        self.events.append([record["t"], end, record["do"], event])

    def _end(self, record):
        for entry in self.events:
            if entry[3] is record["event"] or entry[3] == record["event"]:
                entry[1] = record.get("t1", record["t"]) + 1

    def _add_write(self, call):
        if call["name"] != "set_device_param" or call["args"][0] not in CONF_PARAMS:
            return
        key, is_switch = CONF_PARAMS[call["args"][0]]
        value = call["args"][1]
        if is_switch and value not in ("0", "1"):
            return
        end = call["end"] if call["end"] is not None else FOR_EVER
        certain = bool(call["result"]) and call["result"].get("result") == 0 and not self.during("conf_full", call["t"] - 2, end)
        self.writes.append([key, call["t"], end, value, certain])

    def _forget(self, now):
        self.events = [entry for entry in self.events if entry[1] > now - KEPT]
        self._late = [entry for entry in self._late if entry[1] > now - KEPT]
        for key in {write[0] for write in self.writes}:
            certain = [write for write in self.writes if write[0] == key and write[4] and write[2] < now - 3600]
            if certain:
                last = max(certain, key=lambda write: write[1])
                self.writes = [write for write in self.writes if write[0] != key or write[2] >= last[1]]

    def during(self, what, begin, end):
        """Whether something of that kind (a name or a set of names) went on at any moment from begin to end."""
        names = {what} if isinstance(what, str) else what
        return any(entry[2] in names and entry[0] <= end and entry[1] >= begin for entry in self.events)

    def last_end(self, names, begin, end):
        """Until when something of these kinds that touches begin to end went on; None where nothing did."""
        ends = [entry[1] for entry in self.events if entry[2] in names and entry[0] <= end and entry[1] >= begin]
        return max(ends) if ends else None

    def late(self, begin, end):
        """Seconds by which a busy machine may have made late what was due from begin to end."""
        return 2 * sum(seconds for since, until, seconds in self._late if since <= end and until >= begin)

    def conf(self, key, begin, end):
        """The values that the key may have had at some moment between begin and end."""
        writes = [write for write in self.writes if write[0] == key and write[1] <= end]
        settled = [write for write in writes if write[4] and write[2] < begin]
        newest = max(settled, key=lambda write: write[1], default=None)
        if newest is None:
            return {self.installed[key]} | {write[3] for write in writes}
        return {newest[3]} | {write[3] for write in writes if write is not newest and write[2] >= newest[1]}

    def received(self, request):
        """Whether the agent took the reply for one, as it is recorded: "yes", "no" or "maybe"."""
        end = request["end"]
        if end is None or self.during(HARD, request["t"] - 1, end + 1) or self.during("power_cut", request["t"], end + 1):
            return "maybe"
        if request["fault"] in FAILED:
            return "no"
        if request["fault"] in WHOLE and request["status"] == 200:
            return "yes"
        return "no" if request["fault"] is None else "maybe"
