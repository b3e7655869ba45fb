"""The file through which the preload is told which call of the agent fails (fail_file.h has the same layout)."""
import mmap
import struct

KINDS = ["alloc", "open", "read", "write", "write short", "fsync", "rename", "close", "fork", "pipe", "pthread_create",
         "socket", "connect", "send", "recv", "sem_init", "clock_gettime"]
HEAD = struct.Struct("iiqiiQQ")
COUNTS = struct.Struct(f"{len(KINDS)}Q")
TRACE_BYTES = 1024


class FailFile:
    def __init__(self, path):
        with open(path, "w+b") as file:
            file.truncate(HEAD.size + COUNTS.size + TRACE_BYTES)
            self._map = mmap.mmap(file.fileno(), 0)

    def arm(self, kind=None, nth=0, from_then_on=False):
        """Calls are counted from now on; the nth of the kind fails (0: none), or all from it on."""
        HEAD.pack_into(self._map, 0, 0, KINDS.index(kind or KINDS[0]), nth, from_then_on, 0, 0, 0)
        self._map[HEAD.size:] = bytes(COUNTS.size + TRACE_BYTES)
        struct.pack_into("i", self._map, 0, 1)

    def disarm(self):
        struct.pack_into("i", self._map, 0, 0)

    def counts(self):
        return dict(zip(KINDS, COUNTS.unpack_from(self._map, HEAD.size)))

    def failure(self):
        """(calls that failed, bytes that the last one wanted, the first one's trace) since it was armed."""
        *_, failed, size = HEAD.unpack_from(self._map, 0)
        return failed, size, self._map[HEAD.size + COUNTS.size:].split(b"\0")[0].decode().split()
