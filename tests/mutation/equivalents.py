"""The list of mutants that no test can notice, tests/mutation/equivalent: a line with the file, a line each with operator and
changed line as the tool prints them, and below those the reason why nobody could see the difference. Where several mutants of a
file look alike, "[2]" behind the line is the second one of them alone."""
import os

PATH = os.path.join(os.path.dirname(os.path.abspath(__file__)), "equivalent")


def read(path=PATH):
    """{(file, operator, changed line): reason}"""
    found, file, waiting, reason = {}, None, [], False
    if not os.path.exists(path):
        return found
    with open(path) as lines:
        for line in lines:
            text = line.strip()
            if not text or line.startswith("#"):
                continue
            indent = len(line) - len(line.lstrip())
            if indent == 0:
                file, waiting = text, []
            elif indent == 2:
                waiting = [] if reason else waiting
                operator, shown = text.split(": ", 1)
                waiting.append((file, operator, shown))
            else:
                for key in waiting:
                    found[key] = (found[key] + " " if key in found else "") + text
            reason = indent > 2
    return found


def match(mutants, path=PATH):
    """{number of a mutant: reason} of those that are listed, and the listed ones that do not exist."""
    listed, found, alike, used = read(path), {}, {}, set()
    for mutant in mutants:
        row = mutant.file, mutant.operator, mutant.shown
        alike[row] = alike.get(row, 0) + 1
        for key in (row, (*row[:2], f"{mutant.shown} [{alike[row]}]")):
            if key in listed:
                found[mutant.number] = listed[key]
                used.add(key)
    return found, sorted(set(listed) - used)
