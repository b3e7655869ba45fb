"""What the agent takes at a moment: memory, descriptors, threads, and what lies in /tmp."""
import os

from desk import Gone

OF_THE_DESK = ("/tmp/.device", "/tmp/fuse_d", "/tmp/agent.", "/tmp/alarms", "/tmp/camera.", "/tmp/supervise.", "/tmp/skip.",
               "/tmp/sdk.json", "/tmp/year", "/tmp/working/filler")


def files_in_tmp():
    """(names, bytes) of the files in /tmp that are none of the desk's and not on the card."""
    size, found = 0, []
    for folder, folders, names in os.walk("/tmp"):
        folders[:] = [name for name in folders if not own_by_desk(os.path.join(folder, name))]
        for name in names:
            path = os.path.join(folder, name)
            if own_by_desk(path):
                continue
            try:
                size += os.lstat(path).st_size
                found.append(path[len("/tmp/"):])
            except OSError:
                pass
    return sorted(found), size


def own_by_desk(path):
    return path.startswith(OF_THE_DESK) or os.path.ismount(path) and path != "/tmp/working"


def status_number(pid, name):
    with open(f"/proc/{pid}/status") as file:
        for line in file:
            if line.startswith(name + ":"):
                return int(line.split()[1])
    return 0


def sample(desk):
    """The agent's size, None while there is none."""
    pid = desk.agent_pid()
    try:
        heap = min(desk.sdk("GET", "/heap")["in_use"] or 0 for _ in range(3))
        names, size = files_in_tmp()
        # The capture library's own thread begins with the first viewer.
        own = 1 if desk.sdk("GET", "/capture")["start_count"] else 0
        return {"pid": pid, "heap": heap, "rss_kib": status_number(pid, "VmRSS"), "threads": status_number(pid, "Threads") - own,
                "descriptors": len(os.listdir(f"/proc/{pid}/fd")), "files": names, "file_bytes": size}
    except (OSError, Gone):
        return None
