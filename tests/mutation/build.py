"""Builds the product with its mutants in it, and programs of the tests with such objects in place of the product's own."""
import hashlib
import json
import os
import pickle
import re
import shlex
import shutil
import subprocess
from concurrent.futures import ThreadPoolExecutor

from finder import render

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.abspath(os.path.join(HERE, "../.."))
RELEASE = os.path.join(ROOT, "build/release")
WORK = os.path.join(ROOT, "build/mutate")
PRODUCT = "platform/Z55/"
LEFT_OUT = re.compile(r"-flto.*|-ffat-lto-objects|-W(?!l,).*|-ffile-prefix-map=.*|-O.|-DNDEBUG")


def run(command, **options):
    return subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)


def commands():
    """Of each source of the product, how the release build compiles it."""
    with open(os.path.join(RELEASE, "compile_commands.json")) as file:
        rows = json.load(file)
    found = {os.path.relpath(row["file"], ROOT): shlex.split(row["command"]) for row in rows}
    return {name: command for name, command in found.items() if name.startswith(PRODUCT)}


def parser_arguments(command):
    return [a for a in command[1:] if re.match(r"-D|-std|-I|-fno-exceptions|-fno-rtti", a)]


def digest_of_tools():
    """What decides how a source is switched."""
    found = hashlib.sha256()
    for name in ("finder.py", "build.py", "switch.h"):
        with open(os.path.join(HERE, name), "rb") as file:
            found.update(file.read())
    return found.hexdigest()


TOOLS = digest_of_tools()
# What a debug build asserts, and an index beyond an array's end: the process ends, as under the sanitizers.
CHECKED = ["-D_GLIBCXX_ASSERTIONS", "-fsanitize=bounds", "-fsanitize-undefined-trap-on-error"]


class Tree:
    """A copy of the product's sources and their objects. `folder` is below build/mutate."""

    def __init__(self, folder, base=None, plain=True):
        """`plain`: the sources are those of the product; else they are what was written here last."""
        self.folder = os.path.join(WORK, folder)
        self.base = base  # a tree whose objects stand where this one has none
        self.sources = os.path.join(self.folder, "source")
        os.makedirs(self.sources, exist_ok=True)
        self.commands = commands()
        others = None if plain else shutil.ignore_patterns("*.cpp", "*.h")
        shutil.copytree(os.path.join(ROOT, PRODUCT), os.path.join(self.sources, PRODUCT), dirs_exist_ok=True, ignore=others)

    def write(self, name, text):
        with open(os.path.join(self.sources, name), "wb") as file:
            file.write(text)

    def restore(self, name):
        shutil.copy2(os.path.join(ROOT, name), os.path.join(self.sources, name))

    def object_of(self, name):
        own = os.path.join(self.folder, "objects", name + ".o")
        return own if self.base is None or os.path.exists(own) else self.base.object_of(name)

    def compile(self, name, only_check=False):
        """Returns what the compiler complains about, None where it does not."""
        target = os.path.join(self.folder, "objects", name + ".o")
        os.makedirs(os.path.dirname(target), exist_ok=True)
        command = [a for a in self.commands[name] if not LEFT_OUT.fullmatch(a)]
        command[command.index("-o") + 1] = target
        command[-1] = os.path.join(self.sources, name)
        command += ["-O0", "-w", "-Werror=vla", "-Dconstinit=", *CHECKED, "-include", os.path.join(HERE, "switch.h")]
        if only_check:
            command.append("-fsyntax-only")
        if not only_check and os.path.exists(target):
            os.unlink(target)  # what does not compile leaves none
        done = run(command, cwd=RELEASE)
        return None if done.returncode == 0 else done.stdout.decode(errors="replace")

    def link(self, target):
        """Links a program of the release build (a target of ninja) with this tree's objects. Returns its path, None where it fails."""
        line = run(["ninja", "-t", "commands", target], cwd=RELEASE, check=True).stdout.decode().splitlines()[-1]
        words = shlex.split(line[line.index("&& ") + 3:line.rindex(" && :")])
        # Vendor libraries are looked for beside the program that is replaced.
        words = [w.replace("\\$ORIGIN", RELEASE) for w in words if not w.startswith("-flto")]
        inside = {word: re.fullmatch(r"platform/Z55/CMakeFiles/\w+\.dir/(.*)\.o", word) for word in words}
        ours = [self.object_of(PRODUCT + inside[word].group(1)) for word in words if inside.get(word)]
        path = os.path.join(self.folder, os.path.basename(target))
        words[words.index("-o") + 1] = path
        # Of what a header defines, the first one found is everybody's: it shall not be that of the tests.
        done = run(words[:1] + ours + [word for word in words[1:] if not inside.get(word)] + [switch_object()], cwd=RELEASE)
        return path if done.returncode == 0 else None


def switch_object():
    path = os.path.join(WORK, "switch.o")
    source = os.path.join(HERE, "switch.c")
    if not os.path.exists(path) or os.path.getmtime(path) < os.path.getmtime(source):
        subprocess.run(["cc", "-O1", "-fPIC", "-c", source, "-o", path], check=True)
    return path


def includers(name, names, text_of):
    """The sources among `names` that a header reaches, by the names in their #include lines."""
    reached, todo = set(), [name]
    while todo:
        leaf = os.path.basename(todo.pop())
        for other in names:
            if other not in reached and re.search(rb'#include "(?:[\w./]*/)?%s"' % re.escape(leaf.encode()), text_of(other)):
                reached.add(other)
                todo.append(other)
    return [n for n in reached if n.endswith(".cpp")]


class Schemata:
    """All sources with as many switches as compile, of the mutants in `wanted` alone where that is given. What needs to be known
    when compiled is left for a build of its own."""

    def __init__(self, finders, jobs, say, wanted=None):
        self.finders = finders  # by the source's name
        self.jobs = jobs
        self.say = say
        self.tree = Tree("all" if wanted is None else "sample", plain=False)
        self.on = {name: {m.number for p in f.places.values() if not p.fixed for m in p.mutants} for name, f in finders.items()}
        if wanted is not None:
            self.on = {name: numbers & wanted for name, numbers in self.on.items()}
        self.whole = {name: set(numbers) for name, numbers in self.on.items()}
        self.kept = set()
        self.notes = os.path.join(self.tree.folder, "left-out")
        self.keep(set().union(*(f.needed for f in finders.values()), self.remember()))

    def remember(self):
        """Leaves out what did not compile in a source that is still the same. Returns the constants that stayed constants."""
        if not os.path.exists(self.notes):
            return set()
        with open(self.notes, "rb") as file:
            tools, kept, left_out = pickle.load(file)
        if tools != TOOLS:
            return set()
        for name, (text, keys) in left_out.items():
            if name in self.finders and self.finders[name].text == text:
                self.on[name] -= {m.number for p in self.finders[name].places.values() for m in p.mutants if m.key in keys}
        return kept & set().union(*(f.constants for f in self.finders.values()))

    def note(self):
        left_out = {}
        for name, finder in self.finders.items():
            keys = {m.key for p in finder.places.values() for m in p.mutants if m.number in self.whole[name] - self.on[name]}
            left_out[name] = finder.text, keys
        with open(self.notes, "wb") as file:
            pickle.dump((TOOLS, self.kept, left_out), file)

    def keep(self, names):
        """These constants stay constants, and with them those that their values are made of."""
        while names:
            self.kept |= names
            following = set()
            for name, finder in self.finders.items():
                for start, end in (finder.constants[n] for n in names if n in finder.constants):
                    self.on[name] -= {m.number for p in finder.places.values() for m in p.mutants if start <= m.offset < end}
                    following |= {w.decode() for w in re.findall(rb"\w+", finder.text[start:end])}
            known = set().union(*(f.constants for f in self.finders.values()))
            names = (following & known) - self.kept

    def write(self):
        for name, finder in self.finders.items():
            text = render(finder.text, finder.places, self.on[name], self.kept)
            path = os.path.join(self.tree.sources, name)
            if os.path.exists(path):
                with open(path, "rb") as file:
                    if file.read() == text:
                        continue
            self.tree.write(name, text)
            yield name

    def each(self, sources, **options):
        with ThreadPoolExecutor(self.jobs) as pool:
            return dict(zip(sources, pool.map(lambda name: self.tree.compile(name, **options), sources)))

    def build(self):
        """Returns the numbers of the mutants that are in the objects."""
        remembered = {name: set(numbers) for name, numbers in self.on.items()}
        every, bad = list(self.tree.commands), {}
        for turn in range(1, 20):
            written = list(self.write())
            header = any(name.endswith(".h") for name in written)
            sources = every if header else sorted((set(bad) | set(written) | self.without_object()) & set(every))
            bad = {name: text for name, text in self.each(sources).items() if text}
            if not bad:
                break
            self.say(f"{len(bad)} sources do not take all switches; turn {turn}")
            dropped = [self.drop(text, "error") for text in bad.values()]
            if not any(dropped) and not any([self.drop(text, "error|note") for text in bad.values()]):
                raise SystemExit("cannot be built:\n" + "".join(bad.values())[-3000:])
        self.put_back(remembered)
        self.note()
        return set().union(*self.on.values())

    def without_object(self):
        return {name for name in self.tree.commands if not os.path.exists(self.tree.object_of(name))}

    def put_back(self, remembered):
        """A complaint drops more than the one switch that it is about: tries what was dropped in ever smaller parts."""
        dropped = {n: sorted(remembered[n] - self.on[n] - self.in_kept(n)) for n in remembered if n.endswith(".cpp")}
        dropped = {name: numbers for name, numbers in dropped.items() if numbers}
        if not dropped:
            return
        self.say(f"{sum(map(len, dropped.values()))} switches in {len(dropped)} sources are tried once more")
        with ThreadPoolExecutor(self.jobs) as pool:
            list(pool.map(self.put_back_in, dropped, dropped.values()))

    def in_kept(self, name):
        finder = self.finders[name]
        spans = [finder.constants[n] for n in self.kept if n in finder.constants]
        return {m.number for p in finder.places.values() for m in p.mutants if any(a <= m.offset < b for a, b in spans)}

    def put_back_in(self, name, numbers):
        finder, todo = self.finders[name], [numbers]
        while todo:
            some = todo.pop()
            self.tree.write(name, render(finder.text, finder.places, self.on[name] | set(some), self.kept))
            if self.tree.compile(name, only_check=True) is None:
                self.on[name] |= set(some)
            elif len(some) > 1:
                todo += [some[len(some) // 2:], some[:len(some) // 2]]
        self.tree.write(name, render(finder.text, finder.places, self.on[name], self.kept))
        self.tree.compile(name)

    def drop(self, complaint, kind):
        """Takes out what stands on the lines that are complained about. Returns whether there was anything."""
        before = len(self.kept), sum(map(len, self.on.values()))
        for path, line, text in re.findall(r"^(/\S+?):(\d+):\d+: (?:%s)(.*)" % kind, complaint, re.M):
            name = os.path.relpath(path, self.tree.sources)
            if name not in self.finders:
                continue
            finder = self.finders[name]
            known = set().union(*(f.constants for f in self.finders.values()))
            words = {w.decode() for w in re.findall(rb"\w+", finder.text.split(b"\n")[int(line) - 1])} & known - self.kept
            at = len(b"\n".join(finder.text.split(b"\n")[:int(line) - 1])) + 1
            words = words if re.search(r"constant|constexpr|variable", text) else set()
            words |= {n for n, (start, end) in finder.constants.items() if start <= at + 1 < end or at <= start < at + 1} - self.kept
            if words:
                self.keep(words)
                continue
            for place in finder.places.values():
                first, last = (1 + finder.text.count(b"\n", 0, at) for at in (place.start, place.end))
                if first <= int(line) <= last < first + 12:
                    self.on[name] -= {m.number for m in place.mutants}
        return before != (len(self.kept), sum(map(len, self.on.values())))
