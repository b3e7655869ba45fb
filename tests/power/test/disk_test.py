"""The model of a disk that loses its power."""
import os
import random
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))

from disk import Disk, Record, records  # noqa: E402

OLD, NEW, LOG = "/d/conf", "/d/conf.new", "/d/log"


def journal(*calls):
    """Records of (kind, field..., data or None)."""
    return [Record(call[0], list(call[1:-1]), call[-1] or b"") for call in calls]


CREATE = ("create", NEW, "2", None)
WRITE = ("write", NEW, "2", "0", b"new")
SYNC = ("fsync", NEW, "2", None)
RENAME = ("rename", NEW, OLD, None)
SYNC_FOLDER = ("fsyncdir", "/d", "1", None)


class Cut(unittest.TestCase):
    def left(self, *calls, most=1000, read=(OLD, LOG)):
        """The images that a cut after these calls may leave; the disk holds an old file."""
        disk = Disk(read)
        disk.hold(OLD, 1, b"old")
        for record in journal(*calls):
            disk.do(record)
        images, self.whole = disk.images(random.Random(1), most, 20)
        return [dict(image) for image in images]

    def texts(self, path, *calls):
        return {image.get(path) for image in self.left(*calls)}

    def test_nothing_is_pending_at_first(self):
        self.assertEqual(self.left(), [{OLD: b"old"}])

    def test_replacing_with_both_syncs_leaves_the_old_or_the_new(self):
        for count in range(1, 6):
            calls = [CREATE, WRITE, SYNC, RENAME, SYNC_FOLDER][:count]
            self.assertLessEqual(self.texts(OLD, *calls), {b"old", b"new"}, calls)
        self.assertEqual(self.texts(OLD, CREATE, WRITE, SYNC, RENAME), {b"old", b"new"})
        self.assertEqual(self.left(CREATE, WRITE, SYNC, RENAME, SYNC_FOLDER), [{OLD: b"new"}])

    def test_renaming_before_the_sync_may_leave_any_piece(self):
        self.assertEqual(self.texts(OLD, CREATE, WRITE, RENAME), {b"old", b"", b"n", b"ne", b"new", b"\0\0\0"})

    def test_a_rename_may_be_undone_or_leave_both_names(self):
        images = self.left(CREATE, WRITE, SYNC, SYNC_FOLDER, RENAME)
        self.assertIn({OLD: b"old", NEW: b"new"}, images)
        self.assertIn({OLD: b"new", NEW: b"new"}, images)
        self.assertIn({OLD: b"new"}, images)
        self.assertEqual(len(images), 3)

    def test_a_removal_may_be_undone_until_its_folder_is_synced(self):
        remove = ("unlink", OLD, None)
        self.assertEqual(self.texts(OLD, remove), {b"old", None})
        self.assertEqual(self.left(remove, SYNC_FOLDER), [{}])

    def test_a_synced_file_may_have_no_name(self):
        calls = [("create", LOG, "3", None), ("write", LOG, "3", "0", b"line"), ("fsync", LOG, "3", None)]
        self.assertEqual(self.texts(LOG, *calls), {None, b"line"})
        self.assertEqual(self.texts(LOG, *calls, SYNC_FOLDER), {b"line"})

    def test_writing_in_place_may_leave_any_mixture(self):
        left = self.texts(OLD, ("truncate", OLD, "1", "0", None), ("write", OLD, "1", "0", b"new"))
        self.assertLessEqual({b"old", b"", b"n", b"ne", b"new", b"nld"}, left)

    def test_an_appended_line_may_be_torn_and_the_synced_one_not(self):
        line = [("create", LOG, "3", None), ("write", LOG, "3", "0", b"a\n"), ("fsync", LOG, "3", None), SYNC_FOLDER]
        self.assertEqual(self.texts(LOG, *line, ("write", LOG, "3", "2", b"bc\n")),
                         {b"a\n", b"a\nb", b"a\nbc", b"a\nbc\n", b"a\n\0\0\0"})

    def test_files_are_lost_independently(self):
        calls = [("create", LOG, "3", None), SYNC_FOLDER, ("write", OLD, "1", "0", b"x"), ("write", LOG, "3", "0", b"y")]
        pairs = {(image[OLD], image[LOG]) for image in self.left(*calls)}
        self.assertLessEqual({(b"old", b"y"), (b"xld", b""), (b"old", b""), (b"xld", b"y")}, pairs)

    def test_too_many_are_varied_one_at_a_time_and_sampled(self):
        calls = [("create", LOG, "3", None), SYNC_FOLDER, ("write", OLD, "1", "0", b"longer"), ("write", LOG, "3", "0", b"line")]
        everything = {tuple(sorted(image.items())) for image in self.left(*calls)}
        self.assertTrue(self.whole)
        some = {tuple(sorted(image.items())) for image in self.left(*calls, most=10)}
        self.assertFalse(self.whole)
        self.assertLess(len(some), len(everything))
        self.assertLessEqual(some, everything)
        self.assertIn(((OLD, b"old"), (LOG, b"lin")), some)
        self.assertIn(((OLD, b"lo" + b"d"), (LOG, b"line")), some)

    def test_a_leftover_is_cut_at_a_few_bytes_only(self):
        long = bytes(range(65, 91)) * 20
        left = self.texts(NEW, CREATE, SYNC_FOLDER, ("write", NEW, "2", "0", long))
        self.assertEqual(left, {b"", long[:1], long[:260], long[:519], long, bytes(520)})


class Journals(unittest.TestCase):
    def test_are_read_with_data_that_holds_lines(self):
        data = b"create\t/a\t7\t0\n\nwrite\t/a\t7\t0\t4\nx\ty\n\nfsync\t/a\t7\t0\n\nwrite\t/a\t7\t4\t9\nhal"
        self.assertEqual([(record.kind, record.fields, record.data) for record in records(data)],
                         [("create", ["/a", "7"], b""), ("write", ["/a", "7", "0"], b"x\ty\n"), ("fsync", ["/a", "7"], b"")])


if __name__ == "__main__":
    unittest.main()
