#!/usr/bin/python3
"""finder_test.py: which mutants are found in a source, and that the source with their switches still says the same."""
import os
import sys
import tempfile
import unittest

sys.dont_write_bytecode = True
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
try:
    from finder import Finder, render
except ImportError:
    print("no python3-clang here: skipped")
    sys.exit(77)

ROWS = {  # body of a function -> operator and changed line of each mutant
    "a statement": ("f();", ["removed: /* f(); */"]),
    "none is a declaration": ("int x = f();", []),
    "a condition": ("if (p) f();", ["negated: if (!(p)) f();", "removed: if (p) /* f(); */"]),
    "a denied condition": ("if (!p) int x = f();", ["negated: if (p) int x = f();"]),
    "its parts": ("while (p && b < 3) int x = f();",
                  ["edge: while (p && b <= 3) int x = f();", "literal: while (p && b < 4) int x = f();",
                   "negated: while (!(p && b < 3)) int x = f();", "negated: while (!(p) && b < 3) int x = f();",
                   "negated: while (p && !(b < 3)) int x = f();"]),
    "an equality that is a condition is one mutant": ("if (b == a) int x = f();", ["negated: if (!(b == a)) int x = f();"]),
    "one that is not": ("bool x = b != a;", ["edge: bool x = b == a;"]),
    "a declared condition": ("if (int x = f()) int y = x;", ["negated: if (int x = f(); !x) int y = x;"]),
    "a condition behind a declaration": ("if (int x = f(); x != a) int y = x;", ["negated: if (int x = f(); !(x != a)) int y = x;"]),
    "a number stays one of its base": ("int x[] = {0x1F, 0xFFA, 0777, 9, 0x29};", [
        "literal: int x[] = {0x1E, 0xFFA, 0777, 9, 0x29};", "literal: int x[] = {0x1F, 0xFFB, 0777, 9, 0x29};",
        "literal: int x[] = {0x1F, 0xFFA, 0776, 9, 0x29};", "literal: int x[] = {0x1F, 0xFFA, 0777, 8, 0x29};",
        "literal: int x[] = {0x1F, 0xFFA, 0777, 9, 0x28};"]),
    "a text's ends": ('const char *x = "abc";', ['literal: const char *x = "xbc";', 'literal: const char *x = "abx";']),
    "no escape, no conversion": (r'const char *x = "\n%d-%s\t";', [r'literal: const char *x = "\n%d_%s\t";']),
    "a result": ("return f();", ["returned: return other(f());"]),
    "a constant result is a number": ("return 7;", ["literal: return 8;"]),
    "a case's number": ("switch (f()) { case 1: f(); break; }", ["literal: switch (f()) { case 2: f(); break; }",
                        "removed: switch (f()) { case 1: /* f(); */ break; }", "removed: switch (f()) { case 1: f(); /* break; */ }"]),
}


def found(body):
    with tempfile.NamedTemporaryFile("w", suffix=".cpp", dir=os.getcwd()) as file:
        file.write("int f(); extern int a, b, *p;\nint test() {\n" + body + "\n}\n")
        file.flush()
        return Finder("test.cpp", file.name, ["-x", "c++", "-std=c++20"])


class Finds(unittest.TestCase):
    def test_rows(self):
        for name, (body, expected) in ROWS.items():
            with self.subTest(name):
                mutants = [m for p in found(body).places.values() for m in p.mutants if m.line == 3]
                self.assertEqual(sorted(f"{m.operator}: {m.shown}" for m in mutants), sorted(expected))

    def test_without_a_switch_the_source_is_as_it_was(self):
        for name, (body, _) in ROWS.items():
            with self.subTest(name):
                finder = found(body)
                self.assertEqual(render(finder.text, finder.places, set(), set()), finder.text)

    def test_switches_nest(self):
        finder = found("if (b < 3) f();")
        for number, mutant in enumerate(sorted((m for p in finder.places.values() for m in p.mutants), key=lambda m: m.operator)):
            mutant.number = number
        text = render(finder.text, finder.places, set(range(9)), set()).decode().split("\n")[2]
        self.assertEqual(text, "if ((mutant(2) != static_cast<bool>((mutant(0) ? (b <= (mutant(1) ? 4 : 3)) : "
                               "(b < (mutant(1) ? 4 : 3)))))) { if (!mutant(3)) { f(); } }")


if __name__ == "__main__":
    unittest.main()
