"""What must hold of what a power cut leaves on the disk, from what was asked for, answered and told before it."""
import json
import re

from device import COOKIE, DEFAULTS, FLAG, KEPT_CONF, MARKER, NEW, RECORDINGS, VERSION

NOTICES = (18, 19, 20)
OUTCOMES = (19, 20)
KEY = re.compile(r"[0-9]{7}")


def entries(text):
    """The entries of a configuration, in order; None where a line is neither that nor a comment."""
    lines = text.decode("latin-1").split("\n")
    if lines.pop() != "":
        return None
    kept = [line for line in lines if line and not line.startswith("#")]
    if any("=" not in line for line in kept):
        return None
    return [tuple(line.split("=", 1)) for line in kept]


def whole_lines(text):
    return text[:text.rfind(b"\n") + 1]


class Truth:
    """What is known at a point of the journal."""

    def __init__(self):
        self.conf = {}            # key: {values that it may have}
        self.writing = {}         # number of a write under way: (key, value)
        self.keys = set()         # session keys that the files may hold
        self.cookies = set()      # the same for the cookie's file, None: it may be missing
        self.versions = {None}    # texts that the firmware version's file may hold
        self.firmware = None      # that the camera runs
        self.recording = None     # whether the flag must be there; None: either
        self.log = b""            # what the recording log must begin with
        self.torn_log = b""       # that an earlier power cut left
        self.now = {}             # the files as the running system sees them
        self.order = None         # of an upgrade that is not settled: [old version, to]
        self.told = []            # notices of it

    def take(self, record, now):
        self.now = now
        if record.kind == "mark":
            mark = json.loads(record.data)
            for what, value in mark.items():
                getattr(self, "_take_" + what, lambda value, mark: None)(value, mark)
        elif record.kind == "write" and record.fields[0].endswith(".jsonl"):
            self.told += [row["status"] for row in map(json.loads, record.data.splitlines()) if row["status"] in NOTICES]
        else:
            self._take_contents(now)

    def _take_contents(self, now):
        """Keys and versions come from the camera: whole ones that the agent has written are known to be good."""
        for path, known in ((KEPT_CONF + NEW, self.keys), (KEPT_CONF, self.keys)):
            key = dict(entries(now.get(path, b"")) or {}).get("SESSION_KEY", "")
            if KEY.fullmatch(key):
                known.add(key)
        for path in (COOKIE + NEW, COOKIE):
            found = re.fullmatch(r" Set-Cookie: Session=([0-9]{7})\n", now.get(path, b"").decode("latin-1"))
            if found:
                self.cookies.add(now[path])

    def _take_quiet(self, files, _):
        conf = dict(entries(files[KEPT_CONF].encode("latin-1")) or {})
        self.conf = {key: {value} | {other for known, other in self.writing.values() if known == key} for key, value in conf.items()}
        self.keys = {conf.get("SESSION_KEY", "")}
        self.cookies = {files[COOKIE].encode("latin-1")} if COOKIE in files else {None}
        self.versions = {files[VERSION].encode("latin-1")} if VERSION in files else {None}
        self.log = files.get(RECORDINGS, "").encode("latin-1")
        if MARKER not in files and not self.notice_due():
            self.order, self.told = None, []

    def _take_left(self, files, mark):
        """The disk that a power cut left; an upgrade that its marker tells of is due."""
        self._take_quiet(files, mark)
        self.log, self.torn_log = whole_lines(self.log), self.log
        self.firmware = mark["firmware"]
        self.versions.add(self.firmware.encode())
        if MARKER in files:
            self.order, self.told = [files[MARKER], self.firmware], [18]

    def _take_fwver(self, version, _):
        self.firmware = version
        self.versions.add(version.encode())

    def _take_begin(self, number, mark):
        self.writing[number] = (mark["key"], mark["value"])
        self.conf[mark["key"]].add(mark["value"])

    def _take_end(self, number, mark):
        key, value = self.writing.pop(number)
        self.conf[key] = {value} | {other for known, other in self.writing.values() if known == key}

    def _take_recording(self, value, _):
        self.recording = value

    def _take_upgrade(self, old, mark):
        self.order, self.told = [old, mark["to"]], []
        self.versions.add(mark["to"].encode())  # a login may come between the camera's restart and the device's

    # --- What a judge wants to know

    def notice_due(self):
        """Whether the marker must be there: an upgrade was told of, its outcome was not."""
        return 18 in self.told and not set(self.told) & set(OUTCOMES)

    def firmwares(self):
        """That the camera may run at the start after a power cut now."""
        return {self.firmware, self.order[1]} if self.order and 18 in self.told else {self.firmware}


def judge(files, truth):
    """The rules that these files break, as texts. `files` are {path: bytes}."""
    return [text for rule in (judge_conf, judge_login, judge_marker, judge_recordings) for text in rule(files, truth)]


def judge_conf(files, truth):
    if KEPT_CONF not in files:
        return ["no entry of the configuration is lost: the file is gone"]
    found = entries(files[KEPT_CONF])
    if found is None or len(dict(found)) != len(found):
        return ["the configuration is old or new: it is torn"]
    broken = []
    wanted = set(truth.conf)
    if set(dict(found)) != wanted:
        broken.append(f"no entry of the configuration is lost: {sorted(set(dict(found)) ^ wanted)}")
    for key, value in found:
        allowed = truth.keys if key == "SESSION_KEY" else truth.conf.get(key, set())
        if value not in allowed:
            broken.append(f"the configuration holds what was last written: {key} is {value!r}, not one of {sorted(map(str, allowed))}")
    return broken


def judge_login(files, truth):
    """Cookie and firmware version: old or new; missing where they have not been certain yet."""
    broken = []
    for path, allowed, what in ((COOKIE, truth.cookies, "cookie"), (VERSION, truth.versions, "firmware version")):
        text = files.get(path)
        if text not in allowed:
            broken.append(f"the {what}'s file is old or new: it holds {text!r}")
    return broken


def judge_marker(files, truth):
    marker = files.get(MARKER)
    if marker is None:
        return ["an upgrade's notice is not lost: its marker is gone before its outcome was told"] if truth.notice_due() else []
    if truth.order is None:
        return ["an upgrade's notice is sent at most once: the marker of one that was settled is back"]
    if marker != truth.order[0].encode():
        return [f"the marker is old or new: it holds {marker!r}"]
    return []


def judge_recordings(files, truth):
    broken = []
    flag, log = files.get(FLAG), files.get(RECORDINGS)
    if flag not in (None, b"") or (truth.recording is not None and (flag is not None) != truth.recording):
        broken.append(f"the recording's flag is there while one runs: it is {'there' if flag is not None else 'not there'}")
    if not (log or b"").startswith(truth.log):
        broken.append("the recording log loses no line that was written")
    newest = truth.now.get(RECORDINGS, b"")
    rest = (log or b"").rstrip(b"\0")
    if not newest.startswith(rest) and not truth.torn_log.startswith(rest):
        broken.append(f"the recording log holds whole lines, and of the last one perhaps a piece: it ends in {log[-80:]!r}")
    return broken


def expected_notice(files, firmware):
    """What the start on these files must tell of an upgrade."""
    marker = files.get(MARKER)
    if marker is None:
        return []
    return [19 if marker and marker.split(b"\n")[0] != firmware.encode() else 20]


def all_keys():
    return set(DEFAULTS) | {"hostIP"}
