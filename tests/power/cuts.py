"""Every disk that a power cut in the recorded hour could leave, judged, and without what is the same twice. Where /tmp is
memory, cookie and firmware version are gone; where it is a disk, they are not: both are built."""
import random

from device import COOKIE, KEPT, MARKER, VERSION
from disk import Disk, records
from promises import Truth, judge

MOST = 1000  # combinations at one point that are all built
SAMPLE = 100  # of those beyond


class Cuts:
    def __init__(self, journal, seed):
        self.records = list(records(journal))
        self._chance = random.Random(seed)
        self.points = self.images = self.sampled = self.twice = 0
        self.found = {}   # (files, firmware): number of the first point
        self.broken = {}  # rule: (point, files, firmware, text)

    def run(self):
        disk, truth = Disk(KEPT), Truth()
        for number, record in enumerate(self.records):
            witness = record.kind == "mark" or record.fields[0].endswith(".jsonl")
            if record.kind == "hold":
                disk.hold(record.fields[0], int(record.fields[1]), record.data)
                continue
            if record.kind == "killed" or (not witness and not disk.do(record)):
                continue
            truth.take(record, disk.now())
            if truth.conf:  # known from the first mark on
                self._cut(number, disk, truth)
        return self

    def _cut(self, number, disk, truth):
        self.points += 1
        images, whole = disk.images(self._chance, MOST, SAMPLE)
        self.sampled += not whole
        for files in images:
            self.images += 1
            for text in judge(files, truth):
                rule = text.split(":")[0]
                self.broken.setdefault(rule, (number, files, truth.firmware, text))
            self.twice += bool(set(truth.told) & {19, 20}) and MARKER in files
            without_memory = {path: text for path, text in files.items() if not path.startswith((COOKIE, VERSION))}
            for firmware in truth.firmwares():
                for left in (files, without_memory):
                    self.found.setdefault((tuple(sorted(left.items())), firmware), number)


def text_of(record):
    """A record as the reader of a report wants it."""
    return " ".join([record.kind, *record.fields, repr(record.data[:60]) if record.data else ""])


