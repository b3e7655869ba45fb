"""A disk that loses its power: what the journal's calls have made certain, and every state that the rest may be in.

A call on a file's bytes is certain once that file was synced, a call on a name once its folder was. Until then, each by itself
and in any order across files: a write may be there, be missing, be cut at any byte, or have its length and no bytes (zeros); of
several writes to a file any may be there; a name that was made, removed or renamed may be so or not, and a renamed one may
stand under both names. A rename itself never loses the name it gives: every file system promises that much."""
import itertools
import os

FEW_CUTS = 4             # of bytes under a name that nobody reads
FOLDER_CALLS = 5         # of one folder, whose combinations are all built; of more, a sample
FILE_CALLS = 4           # of one file, the same


class Record:
    """A line of the journal and its data."""
    __slots__ = ("kind", "fields", "data")

    def __init__(self, kind, fields, data):
        self.kind, self.fields, self.data = kind, fields, data


def records(data):
    """The records of a journal's bytes; one that is not whole ends it."""
    place = 0
    while place < len(data):
        end = data.find(b"\n", place)
        if end < 0:
            return
        fields = data[place:end].decode().split("\t")
        length = int(fields[-1])
        if end + 1 + length + 1 > len(data):
            return
        yield Record(fields[0], fields[1:-1], data[end + 1:end + 1 + length])
        place = end + 1 + length + 1


def overlaid(text, offset, data):
    return text[:offset].ljust(offset, b"\0") + data + text[offset + len(data):]


def changed(text, call):
    if call[0] == "write":
        return overlaid(text, call[1], call[2])
    return text[:call[1]].ljust(call[1], b"\0")


def all_of(text, calls):
    for call in calls:
        text = changed(text, call)
    return text


class File:
    def __init__(self, text=b""):
        self.certain, self.calls = text, []

    def now(self):
        return all_of(self.certain, self.calls)

    def sync(self):
        self.certain, self.calls = self.now(), []

    def texts(self, every_cut):
        """What may be left of it, without what is the same twice."""
        found = {self.certain: None}
        if len(self.calls) <= FILE_CALLS:
            chosen = [list(itertools.compress(self.calls, bits)) for bits in itertools.product([0, 1], repeat=len(self.calls))]
        else:
            chosen = [self.calls[:count] for count in range(len(self.calls) + 1)]
        for calls in chosen:
            found[all_of(self.certain, calls)] = None
            if calls and calls[-1][0] == "write":
                self._add_cuts(found, calls, every_cut)
        return list(found)

    def _add_cuts(self, found, calls, every_cut):
        _, offset, data = calls[-1]
        before = all_of(self.certain, calls[:-1])
        cuts = range(1, len(data)) if every_cut else sorted({1, len(data) // 2, len(data) - 1} & set(range(1, len(data))))[:FEW_CUTS]
        for cut in cuts:
            found[overlaid(before, offset, data[:cut])] = None
        found[overlaid(before, offset, bytes(len(data)))] = None


class Folder:
    def __init__(self):
        self.certain, self.calls = {}, []

    def now(self):
        return self._after(self.calls, ["done"] * len(self.calls))

    def sync(self):
        self.certain, self.calls = self.now(), []

    def _after(self, calls, how):
        names = dict(self.certain)
        for call, done in zip(calls, how):
            if done == "not":
                continue
            kind, name, number = call[0], call[1], call[2]
            if kind == "unlink":
                names.pop(name, None)
            else:
                names[name] = number
            if kind == "rename" and done == "done":
                names.pop(call[3], None)
        return names

    def states(self, chance):
        """The names that may be left: [{name: file's number}]."""
        choices = [["not", "done", "both"] if call[0] == "rename" else ["not", "done"] for call in self.calls]
        if len(self.calls) <= FOLDER_CALLS:
            ways = itertools.product(*choices)
        else:
            prefixes = [["done"] * count + ["not"] * (len(choices) - count) for count in range(len(choices) + 1)]
            ways = prefixes + [[chance.choice(choice) for choice in choices] for _ in range(3 ** FOLDER_CALLS)]
        found = {}
        for how in ways:
            names = self._after(self.calls, how)
            found[tuple(sorted(names.items()))] = names
        return list(found.values())


class Disk:
    """`read` are the paths that are read by that name again: a leftover under another name is cut at a few bytes only."""

    def __init__(self, read):
        self._read = set(read)
        self._files, self._folders = {}, {}

    def _folder(self, path):
        return self._folders.setdefault(os.path.dirname(path), Folder())

    def hold(self, path, number, text):
        """`path` is there and certain."""
        self._files[number] = File(text)
        self._folder(path).certain[os.path.basename(path)] = number

    def do(self, record):
        """One call; whether it changed what may be left."""
        fields, kind = record.fields, record.kind
        if kind in ("write", "truncate", "fsync"):
            return self._do_in_file(kind, fields, record.data)
        if kind == "fsyncdir":
            folder = self._folders.get(fields[0])
            if folder is None or not folder.calls:
                return False
            folder.sync()
            return True
        return self._do_with_name(kind, fields)

    def _do_in_file(self, kind, fields, data):
        file = self._files.setdefault(int(fields[1]), File())
        if kind == "fsync":
            changes = bool(file.calls)
            file.sync()
            return changes
        file.calls.append(("write", int(fields[2]), data) if kind == "write" else ("truncate", int(fields[2])))
        return True

    def _do_with_name(self, kind, fields):
        folder, name = self._folder(fields[0]), os.path.basename(fields[0])
        if kind == "create":
            self._files[int(fields[1])] = File()
            folder.calls.append(("create", name, int(fields[1])))
        elif kind == "unlink":
            folder.calls.append(("unlink", name, None))
        elif kind in ("rename", "link"):
            if os.path.dirname(fields[0]) != os.path.dirname(fields[1]):
                raise ValueError(f"{kind} from one folder to another: {fields}")
            folder.calls.append((kind, os.path.basename(fields[1]), folder.now()[name], name))
        else:
            raise ValueError(f"unknown call {kind}")
        return True

    def now(self):
        """{path: text} as the running system sees it."""
        return {path: self._files[number].now() for path, number in self._names([folder.now() for folder in self._folders.values()])}

    def _names(self, states):
        return [(os.path.join(folder, name), number) for folder, names in zip(self._folders, states) for name, number in names.items()]

    def images(self, chance, most, sample):
        """Each {path: text} that may be left; whether all were built. Where they are more than `most`: each folder and each file
        in each of its states while the others are as old, or as new, as can be, and a sample of combinations."""
        states = [folder.states(chance) for folder in self._folders.values()]
        read = {number for folder, ways in zip(self._folders, states) for names in ways for name, number in names.items()
                if os.path.join(folder, name) in self._read}
        texts = {number: file.texts(number in read) for number, file in self._files.items() if file.calls}
        count = 1
        for choices in [*states, *texts.values()]:
            count *= len(choices)
        whole = count <= most
        chosen = self._all(states, texts) if whole else itertools.chain(self._single(states, texts), self._sample(states, texts, chance, sample))
        return (self._image(names, contents) for names, contents in chosen), whole

    def _image(self, states, texts):
        return {path: texts[number] if number in texts else self._files[number].certain for path, number in self._names(states)}

    @staticmethod
    def _all(states, texts):
        for names in itertools.product(*states):
            for contents in itertools.product(*texts.values()):
                yield names, dict(zip(texts, contents))

    def _single(self, states, texts):
        oldest = ([ways[0] for ways in states], {number: choices[0] for number, choices in texts.items()})
        newest = ([folder.now() for folder in self._folders.values()], {number: self._files[number].now() for number in texts})
        for names, contents in (oldest, newest):
            yield names, contents
            for place, ways in enumerate(states):
                for way in ways:
                    yield [*names[:place], way, *names[place + 1:]], contents
            for number, choices in texts.items():
                for text in choices:
                    yield names, {**contents, number: text}

    @staticmethod
    def _sample(states, texts, chance, sample):
        for _ in range(sample):
            yield [chance.choice(ways) for ways in states], {number: chance.choice(choices) for number, choices in texts.items()}
