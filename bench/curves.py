"""./test --bench --curves: how the tasks grow, and how long the handlers take beside their limits."""
import math

import counting
import page

PACING = 100  # milliseconds into a second in which no request starts but back to back
AHEAD = {"idle": 0, "poll storm": 1, "eight callers": 8}  # requests of others that each of a handler's waits for
FLAT = 1.5  # the most that the last point of a flat curve may be of its first


def measured(mode, kind):
    report = counting.in_device([counting.NATIVE / "bench/bench", mode], f"{mode}.report", seconds=900)
    return [line[1:] for line in report if line[0] == kind]


def slope(points):
    """Of the least squares' line through (x, y), and its value at 0."""
    n, sx, sy = len(points), sum(x for x, _ in points), sum(y for _, y in points)
    sxx, sxy = sum(x * x for x, _ in points), sum(x * y for x, y in points)
    steep = (n * sxy - sx * sy) / (n * sxx - sx * sx)
    return steep, (sy - steep * sx) / n


def growth_power(points):
    """Of y ~ x^p, between the upper points where what is fixed no longer counts: 1 is linear, 2 quadratic."""
    (x1, y1), (x2, y2) = points[-3], points[-1]
    return math.log(y2 / y1) / math.log(x2 / x1)


def verdict(points):
    if points[-1][1] <= points[0][1] * FLAT:
        return "flat"
    power = growth_power(points)
    return "linear" if power < 1.3 else f"grows with the power {power:.1f}"


def curves_table(lines):
    curves = {}
    for name, x, y in lines:
        curves.setdefault(name, []).append((int(x), float(y)))
    table = []
    for name, points in curves.items():
        steep, start = slope(points)
        shape = verdict(points)
        line = "-" if shape == "flat" else f"{start:.1f} + {steep:.3f} x"
        table.append([name, " ".join(f"{x}: {y:.5g}" for x, y in points), shape, line])
    return page.markdown(["curve", "x: µs", "shape", "µs as a line"], table)


def limit(requests, pauses, transfer, load):
    """Of a call's milliseconds: its own transfers and those that it waits for, the demanded pauses, and the pacing, which
    holds a request up where the one before it ended in the first tenth of a second: once in each second it takes part in."""
    longest = requests * (1 + AHEAD[load]) * transfer + pauses
    seconds = math.ceil(longest / 1000) + 1 if requests else 0
    return longest + PACING * min(seconds, requests * (1 + AHEAD[load]))


def latency_table(lines):
    names = list(dict.fromkeys(line[1] for line in lines))
    bare = [float(ms) for ms in next(line for line in lines if line[1] == names[0])[4:6]]  # median, 95th percentile
    table = []
    for load, name, requests, pauses, median, p95, most, failures in lines:
        own, held = [page.KEPT] * 2, page.KEPT
        if name != names[0] and int(requests):
            bound = limit(int(requests), int(pauses), bare[1], load)
            transfers = int(requests) * (1 + AHEAD[load]) * bare[0]
            own = [f"{float(median) - int(pauses) - transfers:.2f}", f"{bound:.0f}"]
            held = "held" if float(most) <= bound else "p95 held" if float(p95) <= bound else "beyond"
        table.append([name, load, requests, pauses, *(f"{float(ms):.4g}" for ms in (median, p95, most)), *own, held, failures])
    table.sort(key=lambda row: names.index(row[0]))
    return page.markdown(["handler", "load", "requests", "demanded pauses", "median ms", "p95 ms", "max ms", "of it the agent's own",
                          "limit ms", "", "failed"], table)


def run(say, page_to_write, in_columns):
    say("curves")
    curves = curves_table(measured("curves", "point"))
    print("\n" + in_columns(curves) + "\n")
    say("latency of each handler idle, under a poll storm, beside eight callers; some three minutes")
    latency = latency_table(measured("latency", "latency"))
    print("\n" + in_columns(latency) + "\n")
    if page_to_write:
        text = page.with_block(page_to_write.read_text(), "curves", curves)
        page_to_write.write_text(page.with_block(text, "latency", latency))
        say(f"{page_to_write.name} is written")
    bent = [line for line in curves.splitlines() if "power" in line]
    say(f"{len(curves.splitlines()) - 2} curves, {len(bent)} steeper than a line")
    return 0
