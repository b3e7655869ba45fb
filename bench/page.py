"""docs/PERFORMANCE.md: what is recorded in it, how figures compare with that, and how they get into it."""
import re

GROWTH = 1.05  # of a count, beyond which a run fails
COUNTS = ("instructions", "allocations", "system calls", "ARM instructions", "ARM system calls")
KEPT = "-"


def block(text, name):
    found = re.search(rf"<!-- {name} -->\n(.*?)<!-- end of {name} -->", text, re.S)
    if not found:
        raise ValueError(f"docs/PERFORMANCE.md has no block {name}")
    return found[1]


def with_block(text, name, content):
    old = block(text, name)
    return text.replace(f"<!-- {name} -->\n{old}<!-- end", f"<!-- {name} -->\n{content}<!-- end")


def rows(table):
    """The rows of a Markdown table as dictionaries by the names of its columns."""
    lines = [[cell.strip() for cell in line.strip().strip("|").split("|")] for line in table.splitlines() if line.startswith("|")]
    return [dict(zip(lines[0], cells, strict=True)) for cells in lines[2:]]


def markdown(columns, table):
    lines = [columns, ["---"] * len(columns), *table]
    return "".join("| " + " | ".join(map(str, line)) + " |\n" for line in lines)


def recorded_counts(text):
    """{row: {kind: count}} as the page has them."""
    found = {}
    for row in rows(block(text, "counts")):
        found[row["task"]] = {kind: int(row[kind]) for kind in COUNTS if row[kind] != KEPT}
    return found


def recorded_environments(text):
    return dict(re.findall(r"^Counted with \((\w+)\): (.*)$", text, re.M))


def goals(text):
    """{row: the largest ratio that is aimed at}."""
    return {row["task"]: float(row["goal"]) for row in rows(block(text, "times")) if row["goal"] != KEPT}


def environment_of(kind):
    return "ARM" if kind.startswith("ARM") else "host"


def growth(recorded, now, comparable):
    """Sentences about counts that grew. recorded, now: {row: {kind: count}}; comparable: of host and ARM those counted alike."""
    found = []
    for row, kinds in now.items():
        for kind, count in kinds.items():
            if environment_of(kind) not in comparable:
                continue
            before = recorded.get(row, {}).get(kind)
            if before is None:
                found.append(f"{row}: docs/PERFORMANCE.md has no {kind}")
            elif count > before * GROWTH:
                found.append(f"{row}: {kind} grew from {before} to {count}")
    return found


def counts_table(now, reference):
    cells = [[row, *(kinds.get(kind, KEPT) for kind in COUNTS), *(reference.get(row, {}).get(kind, KEPT) for kind in COUNTS[:3])]
             for row, kinds in now.items()]
    return markdown(["task", *COUNTS, "reference: instructions", "its allocations", "its system calls"], cells)


def others(contestants, floor):
    """'0.45 sockets, ...' of the floors, or of the peers."""
    picked = [(c["name"].removeprefix("floor: "), c["ratio"]) for c in contestants[2:] if c["name"].startswith("floor: ") == floor]
    return ", ".join(f"{ratio:.2f} {name}" for name, ratio in picked) or KEPT


def reached(ratio, goal):
    return round(ratio, 2) <= goal  # beyond two digits a median of ratios says nothing


def times_table(times, aims):
    table = []
    for row, contestants in times.items():
        product, reference = contestants[0], contestants[1]
        goal = aims.get(row)
        met = KEPT if goal is None else "met" if reached(product["ratio"], goal) else "not met"
        table.append([row, reference["name"], others(contestants, True), others(contestants, False), f"{product['ratio']:.2f}",
                      KEPT if goal is None else f"{goal:.2f}", met, f"{product['ns'] / 1000:.1f}", f"{reference['ns'] / 1000:.1f}"])
    return markdown(["task", "reference", "floor", "peers", "ratio", "goal", "", "µs", "reference's µs"], table)
