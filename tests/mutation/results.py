"""What became of each mutant: a file of lines below build/mutate/results for each source, good for as long as the source is
the same. What was noticed stays noticed; what survived is tried again once the tests have changed."""
import hashlib
import json
import os
import threading

from build import ROOT, WORK

lock = threading.Lock()


def digest(*paths):
    found = hashlib.sha256()
    for path in paths:
        with open(path, "rb") as file:
            found.update(file.read())
    return found.hexdigest()[:16]


def digest_of_tests():
    paths = []
    for folder in ("tests/unit", "tests/support"):
        for at, _, names in os.walk(os.path.join(ROOT, folder)):
            paths += [os.path.join(at, n) for n in names if n.endswith((".cpp", ".h", ".txt"))]
    return digest(*sorted(paths))


class Results:
    def __init__(self, name, tests):
        self.tests = tests
        self.source = digest(os.path.join(ROOT, name))
        self.path = os.path.join(WORK, "results", name.replace("/", "_") + ".jsonl")
        self.rows = {}
        self.hints = {}  # who noticed a like change of an older source
        if os.path.exists(self.path):
            with open(self.path) as file:
                for line in file:
                    row = json.loads(line)
                    if row["result"] == "noticed":
                        self.hints[row["operator"], row["shown"]] = row["by"]
                    if row["source"] == self.source:
                        self.rows[row["key"]] = row

    def of(self, mutant):
        return self.rows.get(mutant.key)

    def hint(self, mutant):
        return self.hints.get((mutant.operator, mutant.shown), "")

    def is_open(self, mutant):
        row = self.of(mutant)
        return row is None or (row["result"] == "survived" and row["tests"] != self.tests)

    def put(self, mutant, result, by=""):
        row = {"source": self.source, "key": mutant.key, "line": mutant.line, "operator": mutant.operator, "shown": mutant.shown,
               "result": result, "by": by, "tests": self.tests}
        with lock:
            self.rows[mutant.key] = row
            os.makedirs(os.path.dirname(self.path), exist_ok=True)
            with open(self.path, "a") as file:
                file.write(json.dumps(row) + "\n")
