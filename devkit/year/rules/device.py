"""The device reboots for a viewer without frames and for nothing else that is not ordered; upgrades are told of as they went."""
from history import body_of
from rules.rule import Rule

STALL_PATIENCE = 60   # seconds in which a viewer without frames is noticed: 5 + 5 s, and what the look takes
TOLD = 150            # seconds from a start to the news of an upgrade that was under way
UPGRADE_LENGTH = 240  # seconds from the order to the reboot
STEPS = {"success": [18], "fail_upgrade": [18], "fail_download": [17], "stuck": []}
ORDERED = {"power_cut", "reboot"}
DISTURBING = {"outage", "fault", "conf_full", "power_cut", "camera_restart", "busy"}


class ViewersWithoutFramesReboot(Rule):
    name = "a viewer without frames reboots the device, and nothing else does"

    def __init__(self, history):
        super().__init__(history)
        self._first = True
        self._stalled = None    # since when a viewer gets no frames
        self._upgrades = False  # whether an upgrade began in this process: it keeps the watchdog quiet
        self._upgraded = None   # when the camera was told to upgrade
        self._viewed = False
        self._started, self._clockless = 0.0, False

    def feed(self, record):
        if record["kind"] == "event" and record["do"] == "viewer" and "gone" not in record:
            self._viewed = True
        elif record["kind"] == "stall" and "gone" not in record:
            self._stalled = record["t1"] if self._viewed else None
        elif record["kind"] == "end" and record["do"] == "viewer" and "gone" not in record:
            self._judge_stall(record["t"])
            self._stalled, self._viewed = None, False
        elif record["kind"] == "request" and "UPGRADE_FW" in record["body"]:
            self._upgrades, self._upgraded = True, record["t"]
        elif record["kind"] == "start":
            self._judge_start(record["t"])
            self._stalled, self._viewed, self._upgrades = None, False, False

    def _judge_stall(self, now):
        if self._stalled is not None and not self._upgrades and now > self._stalled + STALL_PATIENCE + self.history.late(self._stalled, now):
            self.breaks(now, f"a viewer has had no frames since {self._stalled:.1f} and the device was not rebooted")

    def _judge_start(self, now):
        explained = self._first or self.history.during(ORDERED, now - 60, now)
        explained = explained or self._upgraded is not None and now - self._upgraded < UPGRADE_LENGTH
        explained = explained or self._stalled is not None and not self._upgrades and now - self._stalled > 4
        self._look_at_clock()
        explained = explained or self._clockless
        if not explained:
            self.breaks(now, f"the agent started again and nothing had called for it (stalled since {self._stalled})")
        self._first, self._started, self._clockless = False, now, False

    def _look_at_clock(self):
        """A device that may have started without the time is rebooted as soon as it has it."""
        upset = {"ntp_fails", "outage", "fault", "camera_restart", "expire", "power_cut", "busy"}
        self._clockless = self._clockless or self.history.during(upset, self._started - 5, self._started + 120)

    def hour(self, now, evidence):
        if now - self._started < 2 * 3600:
            self._look_at_clock()
        self._judge_stall(now)


class UpgradesAreToldOf(Rule):
    name = "17 to 20 tell the true outcome of each upgrade"

    def __init__(self, history):
        super().__init__(history)
        self._must = []      # [status, since, until, certain]
        self._may = set()    # what may be told at any time, as an upgrade was disturbed
        self._marker = False  # True, False or None: not known
        self._outcome = None

    def feed(self, record):
        if record["kind"] == "event" and record["do"] == "upgrade":
            self._outcome = record["event"]["outcome"]
        elif record["kind"] == "request" and "UPGRADE_FW" in record["body"]:
            self._ordered(record)
        elif record["kind"] == "start":
            self._settle(record["t"])
        elif record["kind"] == "alarm" and record["status"] in (17, 18, 19, 20):
            self._told(record)
        elif record["kind"] == "event" and record["do"] in ("camera_restart", "outage", "fault", "expire", "conf_full", "power_cut"):
            if self._outcome:
                self._disturbed()

    def _disturbed(self):
        for entry in self._must:
            entry[3] = False
        self._may |= {17, 18, 19, 20}

    def _ordered(self, request):
        upset = self.history.during(DISTURBING | {"expire"}, request["t"] - 60, request["t"] + UPGRADE_LENGTH)
        taken = self.history.received(request) == "yes" and "UPGRADE_FW" in body_of(request)
        if upset or not taken:
            self._may, self._marker = {17, 18, 19, 20}, None
            return
        self._must = [[status, request["t"], request["t"] + UPGRADE_LENGTH, True] for status in STEPS[self._outcome]]
        self._may, self._marker = ({17, 20} if self._outcome in ("stuck", "fail_download") else set()), True

    def _settle(self, now):
        if self._marker:
            outcome = 19 if self._outcome == "success" else 20
            certain = not self.history.during(DISTURBING, now - 30, now + TOLD)
            self._must.append([outcome, now, now + TOLD, certain])
        if self._marker is None:
            self._may |= {19, 20}
        else:
            self._may -= {17, 18}
        self._marker = False

    def _told(self, record):
        for entry in self._must:
            if entry[0] == record["status"] and entry[1] <= record["t"]:
                self._must.remove(entry)
                return
        if record["status"] in self._may:
            return
        self.breaks(record["t"], f"{record['status']} was told of an upgrade, expected were {[entry[0] for entry in self._must]}")

    def hour(self, now, evidence):
        for entry in [entry for entry in self._must if now > entry[2]]:
            self._must.remove(entry)
            cut = self.history.during(DISTURBING, entry[1] - 30, entry[2])
            if entry[3] and not cut:
                self.breaks(entry[2], f"{entry[0]} was not told of the upgrade at {entry[1]:.1f} ({self._outcome})")
