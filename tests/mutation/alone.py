"""Mutants that need a build of their own: numbers and texts that the compiler must know. And what a look into docs/LOG.md
says about a text that is printed."""
import os
import shutil

from build import ROOT, Tree, includers, run

MOST_CASES = 200  # for one mutant


def mutated(finder, mutant):
    start, end, new = mutant.plain
    return finder.text[:start] + new + finder.text[end:]


class Alone:
    def __init__(self, finders, schemata, number):
        self.finders = finders
        self.tree = Tree(f"alone-{number}", schemata.tree)
        self.clean()

    def build(self, mutant):
        """The function that links a program with the mutant; None where it does not compile."""
        self.tree.write(mutant.file, mutated(self.finders[mutant.file], mutant))
        complaints = [self.tree.compile(name) for name in self.sources_of(mutant.file)]
        self.tree.restore(mutant.file)
        return None if any(complaints) else self.tree.link

    def sources_of(self, name):
        if name.endswith(".cpp"):
            return [name]
        return includers(name, list(self.finders), lambda other: self.finders[other].text)

    def clean(self):
        shutil.rmtree(os.path.join(self.tree.folder, "objects"), ignore_errors=True)


class LogReference:
    """docs/LOG.md lists each text that the agent prints; the check of the two notices a text that changes."""

    def __init__(self, finders):
        self.finders = finders
        self.tree = Tree("log")
        for folder in ("docs", "scripts"):
            shutil.copytree(os.path.join(ROOT, folder), os.path.join(self.tree.sources, folder), dirs_exist_ok=True)

    def notices(self, mutant):
        self.tree.write(mutant.file, mutated(self.finders[mutant.file], mutant))
        done = run(["scripts/log-reference", "--check"], cwd=self.tree.sources)
        self.tree.restore(mutant.file)
        return done.returncode != 0
