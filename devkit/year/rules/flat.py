"""What the agent takes stays what it was: memory, descriptors, threads, files in /tmp."""
from rules.rule import Rule

# A transfer waits for its next use; one that fails is given up, and the next one is made anew.
HANDLE_BYTES, HANDLE_DESCRIPTORS = 16 * 1024, 2
HEAP_SLACK = 12 * 1024 + HANDLE_BYTES  # and keys and addresses of another length, a log line's buffer
RSS_SLACK_KIB = 3072        # memory that the C library keeps for the next thread or the next long reply
MOST_FILE_BYTES = 16 * 1024
FILES = {"total", "space", "space_percent", "gateway.txt", "FWVER.txt", "working/VeloAgent.conf", "working/cookie", "working/ota.marker",
         "working/recording"}
LEFT_BY_POWER_CUT = 2 * 86400  # seconds until the next successful write takes away what a power cut has left
WARM = 2                    # hours of a process before its size is a measure
SPAN = 4                    # hours whose least value is compared: transfers come and go


class TheAgentStaysWhatItWas(Rule):
    name = "memory, descriptors, threads and files in /tmp are flat"

    def __init__(self, history):
        super().__init__(history)
        self._pid = 0
        self._samples = []
        self._cut = -1e9
        self._outcome = None
        self._monitors = 0  # threads of upgrades that may follow them for ever

    def feed(self, record):
        if record["kind"] == "event" and record["do"] == "power_cut":
            self._cut = record["t"]
        elif record["kind"] == "event" and record["do"] == "upgrade":
            self._outcome = record["event"]["outcome"]
        elif record["kind"] == "request" and "UPGRADE_FW" in record["body"]:
            upset = self.history.during({"outage", "fault", "camera_restart", "expire", "power_cut"}, record["t"] - 30, record["t"] + 200)
            self._monitors += 1 if upset or self._outcome != "fail_download" else 0

    def hour(self, now, evidence):
        size = evidence["size"]
        if size is None or evidence["calls_running"]:
            return
        if size["pid"] != self._pid:
            self._pid, self._samples, self._monitors = size["pid"], [], 0
        self._samples.append(size)
        self._judge_files(now, size)
        warm = self._samples[WARM:]
        if len(warm) >= 2 * SPAN:
            first, last = warm[:SPAN], warm[-SPAN:]
            for what, slack in (("heap", HEAP_SLACK), ("rss_kib", RSS_SLACK_KIB), ("threads", self._monitors), ("descriptors", HANDLE_DESCRIPTORS)):
                before, after = min(row[what] for row in first), min(row[what] for row in last)
                if after > before + slack:
                    self.breaks(now, f"{what} grew from {before} to {after} in {len(warm) - SPAN} hours")

    def _judge_files(self, now, size):
        foreign = set(size["files"]) - FILES
        if foreign and now > self._cut + LEFT_BY_POWER_CUT:
            self.breaks(now, f"files in /tmp that nobody knows: {sorted(foreign)}")
        if size["file_bytes"] > MOST_FILE_BYTES:
            self.breaks(now, f"{size['file_bytes']} bytes of files in /tmp")
