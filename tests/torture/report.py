"""What a sweep has come to: the table, and a line for each failure that broke a rule."""
import os
import subprocess


def cell(verdicts):
    """How many failures were survived, how many ended the process cleanly, how many broke a rule."""
    survived, ended = verdicts.count("survived"), verdicts.count("ended")
    failed = sum(verdict.startswith("FAILED") for verdict in verdicts)
    parts = [str(survived)] if survived or not ended + failed else []
    parts += [f"{ended} ended"] if ended else []
    parts += [f"{failed} FAILED"] if failed else []
    return " + ".join(parts) if verdicts else ""


def table(names, kinds, results):
    """A row for each situation, a column for each kind of call that failed in any."""
    verdicts = {}
    for result in results:
        if result["verdict"] != "no call":
            for name in (result["situation"], "all"):
                for kind in (result["kind"], "all"):
                    verdicts.setdefault((name, kind), []).append(result["verdict"])
    columns = [kind for kind in kinds if ("all", kind) in verdicts] + ["all"]
    rows = [("situation", *columns)] + [(name, *(cell(verdicts.get((name, column), [])) for column in columns)) for name in [*names, "all"]]
    lines = ["| " + " | ".join(row) + " |" for row in rows]
    lines.insert(1, "|---|" + "--:|" * len(columns))
    return "\n".join(lines) + "\n"


def describe(result, build):
    which = f"{result['situation']}, {result['kind']} {result['nth']}" + (" and on" if result["then"] else "")
    places = [place for place in map(lambda entry: readable(entry, build), result["trace"]) if place]
    return f"{which}: {result['verdict']}\n    at {' < '.join(places[:12])}" + (f" ({result['size']} bytes)" if result["size"] else "")


def readable(entry, build):
    """"object+offset" as a function's name, where the object tells it; nothing for the preload's own frames."""
    path, _, offset = entry.rpartition("+")
    name = os.path.basename(path)
    if name.startswith(("libfail_calls", "libbend_time")):
        return ""
    try:
        told = subprocess.run(["addr2line", "-Cfe", path, offset], stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True).stdout.splitlines()
    except OSError:
        told = []
    known = told and told[0] != "??"
    return f"{told[0].partition('(')[0]}" if known else f"{name.partition('.so')[0]}+{offset}"
