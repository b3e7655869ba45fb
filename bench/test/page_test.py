#!/usr/bin/env python3
"""What ./test --bench concludes from counts: growth is noticed, and only where both were counted alike."""
import sys
import unittest
from pathlib import Path

sys.path.insert(0, str(Path(__file__).resolve().parent.parent))
import counting  # noqa: E402
import page  # noqa: E402

PAGE = Path(__file__).resolve().parent.parent.parent / "docs/PERFORMANCE.md"
BOTH = {"host", "ARM"}


def doctored(factor, kind):
    """The page's own counts, those of one kind changed."""
    counts = page.recorded_counts(PAGE.read_text())
    return {row: {k: int(n * factor) if k == kind else n for k, n in kinds.items()} for row, kinds in counts.items()}


class Page(unittest.TestCase):
    def setUp(self):
        self.recorded = page.recorded_counts(PAGE.read_text())

    def test_the_page_has_every_count_of_every_task(self):
        self.assertGreaterEqual(len(self.recorded), 15)
        for row, kinds in self.recorded.items():
            self.assertEqual(set(kinds), set(page.COUNTS), row)
        self.assertEqual(set(page.recorded_environments(PAGE.read_text())), BOTH)
        times = {row["task"] for row in page.rows(page.block(PAGE.read_text(), "times"))}
        self.assertLessEqual(set(self.recorded), times)

    def test_the_same_counts_are_no_growth(self):
        self.assertEqual(page.growth(self.recorded, self.recorded, BOTH), [])

    def test_growth_within_five_percent_passes(self):
        for kind in page.COUNTS:
            self.assertEqual(page.growth(self.recorded, doctored(1.04, kind), BOTH), [], kind)

    def test_growth_beyond_five_percent_is_told_by_task_and_numbers(self):
        for kind in page.COUNTS:
            grown = page.growth(self.recorded, doctored(1.07, kind), BOTH)
            self.assertTrue(grown, kind)
            self.assertTrue(all(f" {kind} grew from " in line for line in grown), grown)

    def test_a_first_allocation_or_system_call_is_growth(self):
        row = next(row for row, kinds in self.recorded.items() if kinds["system calls"] == 0)
        now = {row: {**self.recorded[row], "system calls": 1}}
        self.assertEqual(page.growth(self.recorded, now, BOTH), [f"{row}: system calls grew from 0 to 1"])

    def test_fewer_is_no_growth(self):
        for kind in page.COUNTS:
            self.assertEqual(page.growth(self.recorded, doctored(0.5, kind), BOTH), [])

    def test_counts_of_another_compiler_are_not_compared(self):
        self.assertEqual(page.growth(self.recorded, doctored(3, "instructions"), {"ARM"}), [])
        self.assertTrue(page.growth(self.recorded, doctored(3, "instructions"), {"host"}))
        self.assertEqual(page.growth(self.recorded, doctored(3, "ARM instructions"), {"host"}), [])

    def test_a_task_that_is_not_recorded_is_told(self):
        self.assertEqual(page.growth({}, {"new task": {"instructions": 1}}, BOTH),
                         ["new task: docs/PERFORMANCE.md has no instructions"])

    def test_what_is_written_is_read_back(self):
        table = page.counts_table(self.recorded, {})
        text = page.with_block(PAGE.read_text(), "counts", table)
        self.assertEqual(page.recorded_counts(text), self.recorded)


class Windows(unittest.TestCase):
    TRACE = ('6 write(1, "before", 6) = 6\n6 write(-1, "task|product", 12) = -1 EBADF (Bad file descriptor)\n'
             '6 openat(AT_FDCWD, "x") = 3\n7 futex(0x1, FUTEX_WAIT <unfinished ...>\n6 close(3) = 0\n'
             '7 <... futex resumed>) = 0\n7 --- SIGALRM {si_signo=SIGALRM} ---\n'
             '6 write(-1, "end", 3) = -1 EBADF (Bad file descriptor)\n6 close(9) = 0\n')

    def test_calls_of_all_threads_count_once_between_the_marks(self):
        self.assertEqual(counting.calls_in_windows(self.TRACE), [3])

    def test_the_least_window_counts_less_the_empty_one(self):
        windows = [("nothing", "product", 5), ("task", "product", 30), ("task", "product", 25), ("task", "product", 27)]
        self.assertEqual(counting.least(windows)["task", "product"], 20)


if __name__ == "__main__":
    unittest.main()
