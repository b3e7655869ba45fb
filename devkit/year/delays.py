"""How long the machine keeps processes that could run from running."""
import os


def of_thread(pid, thread):
    """Nanoseconds that a thread has waited for a processor so far; 0 where it is gone or the kernel does not count."""
    try:
        with open(f"/proc/{pid}/task/{thread}/schedstat", "rb") as file:
            return int(file.read().split()[1])
    except (OSError, IndexError):
        return 0


def threads(pid):
    try:
        return os.listdir(f"/proc/{pid}/task")
    except OSError:
        return []


class Delays:
    def __init__(self):
        self._seen = {}

    def take(self, pids):
        """Seconds that all threads of these processes have waited since this was last asked, one after another."""
        now = {thread: of_thread(pid, thread) for pid in pids for thread in threads(pid)}
        waited = sum(max(0, count - self._seen.get(thread, 0)) for thread, count in now.items())
        self._seen = now
        return waited / 1e9
