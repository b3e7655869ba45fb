"""The table of many lives, from the JSON lines that shards wrote."""
import json


def read_lines(paths):
    rows = []
    for path in paths:
        with open(path) as file:
            rows += [json.loads(line) for line in file if line.startswith("{")]
    return sorted(rows, key=lambda row: row["seed"])


def table(paths):
    return table_of(read_lines(paths))


def table_of(rows):
    lines = [f"{'seed':>12} {'days':>7} {'real s':>8} {'polls':>9} {'alarms':>7} {'calls':>7} {'starts':>6}  verdict"]
    for row in rows:
        counts = row["counts"]
        verdict = "well" if row["verdict"] == "well" else f"{row['time'] / 86400:.2f} days: {row['rule']}: {row['text']}"
        lines.append(f"{row['seed']:>12} {row['lived']:>7.1f} {row['real_seconds']:>8.0f} {counts.get('polls', 0):>9} "
                     f"{counts.get('alarm', 0):>7} {counts.get('calls', 0):>7} {counts.get('start', 0):>6}  {verdict}")
    well, days = sum(row["verdict"] == "well" for row in rows), sum(row["lived"] for row in rows)
    lines.append(f"{len(rows)} lives, {well} well, {len(rows) - well} broken; {days:.0f} days lived")
    return "\n".join(lines)
