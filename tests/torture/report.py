"""What a sweep has come to: the table, and a line for each failure that broke a rule."""
import os
import subprocess


def table(names, kinds, counts, results):
    """A row for each situation and kind: calls that were counted, failures tried, what came of them."""
    rows = [("situation", "kind of call", "calls", "tried", "survived", "ended cleanly", "FAILED")]
    for name in names:
        for kind in kinds:
            verdicts = [result["verdict"] for result in results if (result["situation"], result["kind"]) == (name, kind)]
            tried = [verdict for verdict in verdicts if verdict != "no call"]
            if not verdicts:
                continue
            rows.append((name, kind, counts[name][kind], len(tried), tried.count("survived"), tried.count("ended"),
                         sum(verdict.startswith("FAILED") for verdict in tried)))
    total = tuple(sum(row[column] for row in rows[1:]) for column in range(2, 7))
    rows.append(("all", "", *total))
    widths = [max(len(str(row[column])) for row in rows) for column in range(7)]
    lines = ["| " + " | ".join(str(cell).ljust(width) if column < 2 else str(cell).rjust(width)
                               for column, (cell, width) in enumerate(zip(row, widths))) + " |" for row in rows]
    lines.insert(1, "|" + "|".join("-" * (width + 2) if column < 2 else "-" * (width + 1) + ":" for column, width in enumerate(widths)) + "|")
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
