"""One call of tests/mutate: what there is to be tried, in which order, and what came of it."""
import glob
import os
import pickle
import queue
import re
import threading
import time
from concurrent.futures import ProcessPoolExecutor, ThreadPoolExecutor

import equivalents
from alone import MOST_CASES, Alone, LogReference
from build import PRODUCT, ROOT, WORK, Schemata, commands, includers, parser_arguments
from finder import Finder
from programs import SLOW, UNIT, Case, cases_of, limit_of, listed, measure, run_case, system_programs
from results import Results, digest, digest_of_tests

MOST_TRIED = 40  # cases of the unit tests for one mutant, the likeliest first
MOST_LISTED = 8  # for one that nobody is said to notice
MOST_LOOKS = 120, 80  # and for one that those do not notice: of the unit tests, of the system tests
MOST_IN_A_FILE = 1000  # mutants
TOOLS = os.path.dirname(os.path.abspath(__file__))


def say(text):
    print(f"{time.strftime('%H:%M:%S')} {text}", flush=True)


class Progress:
    """A line every few seconds."""

    def __init__(self, what, total):
        self.what, self.total, self.done, self.last = what, total, 0, time.monotonic()
        self.lock = threading.Lock()

    def step(self, note=""):
        with self.lock:
            self.done += 1
            if time.monotonic() - self.last > 5 or self.done == self.total:
                self.last = time.monotonic()
                say(f"{self.what}: {self.done} of {self.total}{note}")


def find(name):
    """The places of a source; kept from call to call."""
    path = os.path.join(ROOT, name)
    kept = os.path.join(WORK, "found", name.replace("/", "_") + "." + digest(path, os.path.join(TOOLS, "finder.py")))
    if os.path.exists(kept):
        with open(kept, "rb") as file:
            return pickle.load(file)
    known = commands()
    arguments = parser_arguments(known.get(name) or known[PRODUCT + "agent/package_note.cpp"])
    finder = Finder(name, path, arguments + ["-x", "c++"])
    os.makedirs(os.path.dirname(kept), exist_ok=True)
    with open(kept, "wb") as file:
        pickle.dump(finder, file)
    return finder


def find_all(jobs):
    paths = glob.glob(os.path.join(ROOT, PRODUCT, "**/*.*"), recursive=True)
    names = sorted(os.path.relpath(p, ROOT) for p in paths if p.endswith((".cpp", ".h")))
    with ProcessPoolExecutor(jobs) as pool:
        finders = dict(zip(names, pool.map(find, names)))
    mutants = [m for f in finders.values() for p in f.places.values() for m in p.mutants]
    mutants.sort(key=lambda m: (m.file, m.offset, m.operator))
    # A change in one source leaves the numbers of all others what they are.
    first, last = {name: MOST_IN_A_FILE * place for place, name in enumerate(names)}, {}
    for mutant in mutants:
        last[mutant.file] = last.get(mutant.file, first[mutant.file] - 1) + 1
        mutant.number = last[mutant.file]
    return finders, mutants


def state_of(finders):
    paths = sorted(os.path.join(ROOT, n) for n in finders)
    return digest(*paths, *(os.path.join(TOOLS, n) for n in ("finder.py", "build.py", "switch.h", "switch.c")))


def kept_as(name, state, make):
    """What `make` makes; kept until `state` is another."""
    path = os.path.join(WORK, name)
    if os.path.exists(path):
        with open(path, "rb") as file:
            before = pickle.load(file)
        if before[0] == state:
            return before[1]
    made = make()
    with open(path, "wb") as file:
        pickle.dump((state, made), file)
    return made


def switch(finders, mutants, jobs, wanted):
    """The objects with switches, and the numbers of the mutants in them."""
    begin = time.monotonic()
    schemata = Schemata(finders, jobs, say, wanted)
    numbers = schemata.build()
    say(f"{len(mutants)} mutants, {len(numbers)} of them with a switch; built in {time.monotonic() - begin:.0f} s")
    return schemata.tree, numbers


def measured(cases, count, jobs, limit):
    """Those that pass, with what they come by."""
    progress = Progress(f"measuring {os.path.basename(cases[0].program)}", len(cases))

    def tell(case, result):
        if result != "passed":
            say(f"left out, {result} without a mutant: {case.name}")
        progress.step()

    return measure(cases, count, jobs, tell, limit)


def unit_cases(tree, count, jobs):
    """The cases of the unit tests; only a program that has changed is measured anew."""
    with ThreadPoolExecutor(jobs) as pool:
        programs = list(pool.map(tree.link, ["tests/unit/" + n for n in UNIT]))
    if None in programs:
        raise SystemExit("a program of the tests does not link with the mutants in it")
    found = []
    for program in programs:
        found += kept_as(os.path.relpath(program, WORK) + ".seen", digest(program), lambda p=program: measured(cases_of(p), count, jobs, 120))
    return found


def system_cases(tree, count, jobs):
    """The same of the system tests that are built, with an agent that has the mutants in it."""
    agent = tree.link("VeloAgent")
    found = []
    for program in system_programs():
        found += kept_as(f"all/{os.path.basename(program)}.seen", digest(agent, program),
                         lambda p=program: measured(cases_of(p, {"VELO_AGENT": agent}), count, jobs, SLOW))
    return found


class Chooser:
    """Which cases are tried on a mutant, in which order: what noticed its neighbours, what bears a name of the changed line,
    then what is quick and about its file."""

    def __init__(self, finders, mutants, cases):
        self.finders, self.mutants, self.cases = finders, mutants, cases
        self.users = {}
        self.in_file, self.of_number, self.cost, self.lately, self.naming_texts = {}, {}, {}, {}, {}
        for mutant in mutants:
            self.in_file.setdefault(mutant.file, set()).add(mutant.number)
        # Tables and constants are set before any case of a unit test begins: all of a program come by those. (What all cases
        # with an agent come by is its start.)
        programs = {}
        for case in cases:
            if not case.environment:
                programs.setdefault(case.program, []).append(case.seen)
        self.at_start = set().union(*(set.intersection(*seen) for seen in programs.values()))
        for case in cases:
            seen = case.seen - self.at_start
            for name, numbers in self.in_file.items():
                common = len(seen & numbers)
                if common:
                    self.cost[id(case), name] = (case.seconds + 0.02) / (common / len(seen) + 0.02)
            for number in seen:
                self.of_number.setdefault(number, []).append(case)
        self.known = {name for _, name in self.cost}
        self.tests_of = {(p, name): file.split("tests/unit/")[-1] for p in {c.program for c in cases} for name, file in listed(p)}
        self.readers = {name: self.readers_of(name) for name in finders}

    def readers_of(self, name):
        """The sources that can use a constant of this one."""
        included = includers(name, list(self.finders), lambda n: self.finders[n].text) if name.endswith(".h") else []
        return [name, *included]

    def constant_of(self, mutant):
        """The name of the constant that it is in; "" for none."""
        spans = self.finders[mutant.file].constants.items()
        return next((name for name, (start, end) in spans if start <= mutant.offset < end), "")

    def users_of(self, mutant):
        """The numbers of the mutants on lines that name the constant that this one is in, and beside them."""
        constant = self.constant_of(mutant)
        if not constant:
            return set()
        if constant not in self.users:
            word = re.compile(rb"\b%s\b" % constant.encode())
            lines = {(file, text.count(b"\n", 0, hit.start()) + 1) for file, text in ((n, f.text) for n, f in self.finders.items())
                     for hit in word.finditer(text)}
            self.users[constant] = {m.number for m in self.mutants if any((m.file, m.line + d) in lines for d in (-2, -1, 0, 1, 2))}
        return self.users[constant] - self.at_start

    def knows(self, name):
        """Whether a case comes by the source."""
        return name in self.known or bool(self.in_file.get(name, set()) & self.at_start)

    def naming(self, mutant):
        """The cases of the test sources that name the variable whose first value this is."""
        declared = re.findall(rb"\b(\w+)(?:\[\w*\])?(?: =|\{)", self.finders[mutant.file].text[:mutant.offset])
        word = re.compile(rb"\b%s\b" % declared[-1]) if declared else None
        return [c for c in self.cases if word and word.search(self.text_of(c))]

    def text_of(self, case):
        """Of the test source that a case stands in."""
        name = self.tests_of[case.program, case.name]
        if name not in self.naming_texts:
            with open(os.path.join(ROOT, name if name.startswith("/") else "tests/unit/" + name), "rb") as file:
                self.naming_texts[name] = file.read()
        return self.naming_texts[name]

    def quoted(self, mutant):
        """The text, in quotes, that the mutant changes; b"" where it changes none."""
        text = self.finders[mutant.file].text
        begin, end = text.rfind(b'"', 0, mutant.offset), text.find(b'"', mutant.offset)
        is_text = mutant.operator == "literal" and '"' in mutant.shown and begin >= 0 and b"\n" not in text[begin:end]
        return text[begin:end + 1] if is_text else b""

    def tried_on(self, mutant):
        """All cases that may notice it, the likeliest first. Nobody knows who comes by a mutant that needs a build of its own."""
        names, found, users = [mutant.file], self.of_number.get(mutant.number), set()
        if found is None:
            names, users = self.readers[mutant.file], self.users_of(mutant)
            found = [c for c in self.cases if any((id(c), n) in self.cost for n in names)] or self.naming(mutant) or self.cases
        lately = self.lately.get(mutant.file, [])
        words = [w.lower() for text in re.findall(r'"([^"]*)"', mutant.shown) for w in re.findall(r"[A-Za-z]{4,}", text)]
        words += [w.lower() for w in re.findall(r"[A-Z][a-z]{3,}", self.constant_of(mutant))]

        quoted = self.quoted(mutant)
        mirrored = mutant.file.removeprefix(PRODUCT).rsplit(".", 1)[0]  # tests/unit mirrors the product's folders

        def rank(case):
            if case in lately:
                return 0, -lately.index(case)
            cost = min(self.cost.get((id(case), n), 1e9) for n in names)
            name = case.name.lower().replace("_", "")
            if any(w in name for w in words):
                cost /= 20
            if self.tests_of[case.program, case.name].startswith(mirrored) or (quoted and quoted in self.text_of(case)):
                cost /= 20
            return 1 if users & case.seen else 2, cost

        return sorted(found, key=rank)

    def noticed(self, mutant, case):
        lately = [c for c in self.lately.get(mutant.file, []) if c is not case]
        self.lately[mutant.file] = (lately + [case])[-6:]


doubtful = set()  # names of cases that have failed once and then passed with the same mutant


def notices(case, mutated, usual):
    """"failed" or "hung" where the case fails with the mutant, twice, and passes without it where time may be the reason: a busy
    machine is no mutant. Else ""."""
    first = run_case(case, mutated, limit_of(case))
    if first == "passed":
        return ""
    limit = 3 * limit_of(case)
    if first == "hung" or case.name in doubtful:
        begin = time.monotonic()
        if run_case(case, usual, limit) != "passed":
            return ""
        limit = min(limit, 1 + 10 * (time.monotonic() - begin))
    if run_case(case, mutated, limit) != "passed":
        return first
    doubtful.add(case.name)
    return ""


def try_switched(mutant, chooser, most, hint="", but=(), tried=None):
    """Who notices it; "" for nobody. `hint`: the name of the case to be tried first; `but`: those that have been; `tried` gets
    those that are."""
    cases = [c for c in chooser.tried_on(mutant) if c.name not in but]
    for case in sorted(cases[:most] + [c for c in cases[most:] if c.name == hint], key=lambda c: c.name != hint):
        if tried is not None:
            tried.add(case.name)
        how = notices(case, {"MUTANT": str(mutant.number)}, {"MUTANT": "-1"})
        if how == "failed":
            chooser.noticed(mutant, case)
        if how:
            return case.name
    return ""


def try_alone(mutant, chooser, alone, most, hint):
    """The same for one that needs a build of its own; None where it cannot be built."""
    link = alone.build(mutant)
    programs = {}
    cases = chooser.tried_on(mutant)
    for case in [c for c in cases if c.name == hint] + cases[:most] if link else []:
        target = "tests/unit/" + os.path.basename(case.program)
        if target not in programs:
            programs[target] = link(target)
        if programs[target] is None:
            return None
        if all(run_case(Case(programs[target], case.name), {}, 4 * limit_of(case)) != "passed" for _ in range(2)):
            return case.name
    return "" if link else None


class Session:
    def __init__(self, jobs):
        self.jobs = jobs
        os.makedirs(WORK, exist_ok=True)
        self.finders, self.mutants = find_all(jobs)
        tests = digest_of_tests()
        self.results = {name: Results(name, tests) for name in self.finders}
        self.listed, self.unknown = equivalents.match(self.mutants)
        self.log_lock = threading.Lock()
        self.tried = {}  # by the mutant's number: the names of the cases that did not notice it

    def start(self, wanted=None):
        """Builds and measures. `wanted`: the numbers of the only mutants that are to be tried; None: all."""
        os.makedirs(os.path.join(WORK, "all"), exist_ok=True)
        if wanted is None:
            self.tree, self.numbers = kept_as("switches", state_of(self.finders), lambda: switch(self.finders, self.mutants, self.jobs, None))
        else:
            self.tree, self.numbers = switch(self.finders, self.mutants, self.jobs, wanted)
        cases = unit_cases(self.tree, 1 + self.mutants[-1].number, self.jobs)
        self.chooser = Chooser(self.finders, self.mutants, cases)
        self.log_reference = LogReference(self.finders)

    def settle(self, mutant, by):
        if by is None:
            result, by = "unbuildable", ""
        else:
            by = by or self.log_notices(mutant)
            result = "noticed" if by else "survived"
        before = self.results[mutant.file].of(mutant)
        if result == "survived" and before and before["tests"] == self.results[mutant.file].tests:
            by = before["by"]  # whether all tests have seen it
        self.results[mutant.file].put(mutant, result, by)
        if result == "survived" and mutant.number not in self.listed:
            print(f"survived: {mutant.file}:{mutant.line}: {mutant.operator}: {mutant.shown}", flush=True)

    def log_notices(self, mutant):
        if mutant.operator != "literal" or '"' not in mutant.shown:
            return ""
        with self.log_lock:
            return "docs/LOG.md" if self.log_reference.notices(mutant) else ""

    def is_open(self, mutant):
        return self.results[mutant.file].is_open(mutant)

    def try_all(self, mutants):
        switched = [m for m in mutants if m.number in self.numbers]
        progress = Progress("trying", len(switched))

        def one(mutant):
            most = MOST_LISTED if mutant.number in self.listed else MOST_TRIED if self.chooser.knows(mutant.file) else 0
            tried = self.tried[mutant.number] = set()
            self.settle(mutant, try_switched(mutant, self.chooser, most, self.results[mutant.file].hint(mutant), tried=tried))
            progress.step(f", {mutant.file}")

        with ThreadPoolExecutor(self.jobs) as pool:
            list(pool.map(one, switched))

    def look_again(self, mutants):
        """What the likeliest cases left: with more of the unit tests; with the system tests where no unit test has the source."""
        left = [m for m in mutants if m.number in self.numbers and m.number not in self.listed and self.result_of(m) == "survived"
                and self.results[m.file].of(m)["by"] == ""]
        left.sort(key=lambda m: not self.chooser.knows(m.file))
        started = [m for m in left if not self.chooser.knows(m.file)]
        cases = system_cases(self.tree, 1 + self.mutants[-1].number, self.jobs) if started else []
        system = Chooser(self.finders, self.mutants, cases)
        progress = Progress("looking again", len(left))

        def one(mutant):
            chooser, most = (self.chooser, MOST_LOOKS[0]) if self.chooser.knows(mutant.file) else (system, MOST_LOOKS[1])
            by = try_switched(mutant, chooser, most, self.results[mutant.file].hint(mutant), but=self.tried.get(mutant.number, ()))
            self.results[mutant.file].put(mutant, "noticed" if by else "survived", by or "nobody")
            progress.step(f", {mutant.file}")

        with ThreadPoolExecutor(self.jobs) as pool:
            list(pool.map(one, left))

    def try_alone(self, mutants):
        mutants = [m for m in mutants if m.number not in self.numbers]
        progress = Progress("building and trying one by one", len(mutants))
        free = queue.SimpleQueue()
        for number in range(self.jobs):
            free.put(Alone(self.finders, self, number))

        def one(mutant):
            alone = free.get()
            most = MOST_LISTED if mutant.number in self.listed else MOST_CASES
            self.settle(mutant, self.log_notices(mutant) or try_alone(mutant, self.chooser, alone, most, self.results[mutant.file].hint(mutant)))
            alone.clean()
            free.put(alone)
            progress.step(f", {mutant.file}")

        with ThreadPoolExecutor(self.jobs) as pool:
            list(pool.map(one, mutants))

    # --- Figures

    KINDS = ("noticed", "survived", "equivalent", "unbuildable", "untried")

    def result_of(self, mutant):
        row = self.results[mutant.file].of(mutant)
        result = row["result"] if row else "untried"
        return "equivalent" if result == "survived" and mutant.number in self.listed else result

    def counts(self, mutants):
        results = [self.result_of(m) for m in mutants]
        return {kind: results.count(kind) for kind in self.KINDS}

    def table(self, mutants):
        groups = {}
        for mutant in mutants:
            groups.setdefault(mutant.file, []).append(mutant)
        print("\n| File | Mutants | Noticed | Survived | Equivalent | Not buildable | Score |\n|---|--:|--:|--:|--:|--:|--:|")
        for name, group in [*sorted(groups.items()), ("**all**", mutants)]:
            n = self.counts(group)
            told = n["noticed"] + n["survived"]
            score = f"{100 * n['noticed'] / told:.1f} %" if told else ""
            name = name.removeprefix(PRODUCT) + (f" ({n['untried']} untried)" if n["untried"] else "")
            print(f"| {name} | {len(group)} | {n['noticed']} | {n['survived']} | {n['equivalent']} | {n['unbuildable']} | {score} |")
        for mutant in mutants:
            result = self.result_of(mutant)
            if result == "survived" or (result == "noticed" and mutant.number in self.listed):
                wrong = "" if result == "survived" else "listed as equivalent, "
                print(f"{wrong}{result}: {mutant.file}:{mutant.line}: {mutant.operator}: {mutant.shown}")
        for row in self.unknown:
            print("listed as equivalent, no mutant: " + ": ".join(row))
        return self.counts(mutants)
