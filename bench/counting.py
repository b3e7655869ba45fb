"""Runs bench/main.cpp's program under those who count, and takes the counts of each task from what they left."""
import os
import re
import shutil
import subprocess
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
NATIVE = ROOT / "build/release"
ARM = ROOT / "build/armhf"
SYSROOT = ROOT / "build/armhf-sysroot"
WORK = ROOT / "build/bench"
KINDS = ("instructions", "allocations", "system calls", "ARM instructions", "ARM system calls")

# The C library chooses its copies by the processor. Counts are to be the same on all: those of plain x86-64.
PLAIN_PROCESSOR = ("glibc.cpu.hwcaps=-AVX2,-AVX,-AVX512F,-AVX512VL,-AVX512BW,-ERMS,-FSRM,-SSSE3,-SSE4_1,-SSE4_2,-BMI2,-RTM,"
                   "-MOVBE,-LZCNT:glibc.cpu.x86_non_temporal_threshold=0x1000000")


class Failed(Exception):
    pass


def in_device(command, report, program_folder=NATIVE, seconds=600):
    """Runs `command` beside the little camera; returns the lines of its report as lists."""
    with tempfile.TemporaryDirectory(prefix="bench.", dir="/var/tmp") as disk:  # of the same depth wherever the checkout lies
        return lines_of(command, report, dict(os.environ, BENCH_DISK=disk, BENCH_BUILD=str(program_folder),
                                              BENCH_CPU=str(max(os.sched_getaffinity(0)))), seconds)


def lines_of(command, report, environment, seconds):
    path = WORK / report
    launch = [NATIVE / "devkit/device/device-view", "--bind", ROOT, "--", NATIVE / "bench/bench", "with-camera", *command]
    with open(path, "wb") as file:
        done = subprocess.run(["bash", "-c", 'exec "$@" 3>&1 >/dev/null', "bash", *map(str, launch)], stdout=file,
                              stderr=subprocess.PIPE, env=environment, timeout=seconds, check=False)
    if done.returncode != 0:
        raise Failed(f"{report} ended with {done.returncode}:\n{done.stderr.decode(errors='replace')[-2000:]}")
    return [line.split("\t") for line in path.read_text().splitlines()]


def least(windows):
    """{(row, contestant): the least count}, less what an empty window costs. windows: (row, contestant, beside threads, count)."""
    found = {}
    for row, contestant, count in windows:
        key = (row, contestant)
        found[key] = min(count, found.get(key, count))
    for (row, contestant), count in found.items():
        if not row.startswith("nothing"):
            found[row, contestant] = max(0, count - found[empty_of(row), "product"])
    return found


def empty_of(row):
    return "nothing beside threads" if row in ("request of 300 B", "poll request", "getSingleCameraStatus") else "nothing"


def names(report):
    return [(row, contestant) for kind, row, contestant, _ in report if kind == "window"]


def by_callgrind():
    folder = WORK / "callgrind"
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir()
    in_device(["env", f"GLIBC_TUNABLES={PLAIN_PROCESSOR}", "valgrind", "--tool=callgrind", "-q",
               f"--callgrind-out-file={folder}/out", NATIVE / "bench/bench", "counts"], "callgrind.report")
    windows = []
    for path in sorted(folder.iterdir(), key=lambda path: int(path.suffix[1:] or 0)):
        text = path.read_text()
        trigger = re.search(r"^desc: Trigger: Client Request: (.*)\|(.*)$", text, re.M)
        if trigger:
            windows.append((*trigger.groups(), int(re.search(r"^totals: (\d+)", text, re.M)[1])))
    return least(windows)


def calls_in_windows(trace):
    """The number of system calls in each window of a log of strace -f."""
    counts, now = [], None
    for line in trace.splitlines():
        call = line.split(None, 1)[1] if " " in line else line
        if call.startswith("write(-1, "):
            if call.startswith('write(-1, "end"'):
                counts.append(now)
                now = None
            else:
                now = 0
        elif now is not None and not call.startswith(("<...", "---", "+++")):
            now += 1
    return counts


def by_strace():
    """System calls and allocations; the first is None where nothing may be traced."""
    preload = f"LD_PRELOAD={NATIVE}/bench/libbench_allocations.so"
    program = [NATIVE / "bench/bench", "counts"]
    if subprocess.run(["strace", "-qq", "-o", "/dev/null", "true"], check=False, stderr=subprocess.DEVNULL).returncode != 0:
        report = in_device(["env", preload, *program], "strace.report")
        calls = None
    else:
        report = in_device(["strace", "-f", "-qq", "-o", WORK / "strace.log", "-E", preload, *program], "strace.report")
        counts = calls_in_windows((WORK / "strace.log").read_text(errors="replace"))
        calls = least([(*name, count) for name, count in zip(names(report), counts, strict=True)])
    return calls, least([(row, contestant, int(count)) for kind, row, contestant, count in report if kind == "window"])


def by_qemu():
    log = WORK / "qemu.log"
    log.unlink(missing_ok=True)
    report = in_device(["qemu-arm", "-L", SYSROOT, "-plugin", NATIVE / "bench/libbench_arm_counts.so", "-d", "plugin", "-D", log,
                        ARM / "bench/bench", "counts"], "qemu.report", ARM)
    lines = [line.split()[1:] for line in log.read_text().splitlines() if line.startswith("window ")]
    counted = list(zip(names(report), lines, strict=True))
    return (least([(*name, int(line[0])) for name, line in counted]), least([(*name, int(line[1])) for name, line in counted]))


# --- The row of the start: each program once, up to where it would connect.

CONFIGURED = ('printf "hostIP=127.0.0.1:65000\\nITEM_DEVICE=Camera\\nITEM_STREAM=Stream1\\nPASSWORD=secret\\nSESSION_KEY=\\n" '
              '>/tmp/working/VeloAgent.conf; exec "$@"')
START = "start to first connection"


def started(build, program, *before):
    """The number of allocations until the program connects; `before` counts the rest."""
    arguments = [build / "VeloAgent"] if program == "product" else [build / "bench/bare_start", "http://127.0.0.1:65000"]
    report = in_device(["bash", "-c", CONFIGURED, "bash", "env", "BENCH_TO_CONNECTION=1", *before, *arguments], "start.report", build)
    return int(report[0][1])


def count_start(counts):
    for program in ("product", "bare program"):
        key, preload = (START, program), f"LD_PRELOAD={NATIVE}/bench/libbench_allocations.so"
        file = WORK / "start.callgrind"
        counts["allocations"][key] = started(NATIVE, program, preload, f"GLIBC_TUNABLES={PLAIN_PROCESSOR}", "valgrind",
                                             "--tool=callgrind", "-q", f"--callgrind-out-file={file}")
        counts["instructions"][key] = int(number_in(file, r"(?m)^totals: (\d+)"))
        if "system calls" in counts:
            started(NATIVE, program, "strace", "-f", "-qq", "-o", WORK / "start.strace", "-E", preload)
            counts["system calls"][key] = sum(" <... " not in line for line in open(WORK / "start.strace")) - 2  # mark and report
        if "ARM instructions" in counts:
            log = WORK / "start.qemu"
            log.unlink(missing_ok=True)
            started(ARM, program, "qemu-arm", "-L", SYSROOT, "-E", f"LD_PRELOAD={ARM}/bench/libbench_allocations.so", "-plugin",
                    NATIVE / "bench/libbench_arm_counts.so", "-d", "plugin", "-D", log)
            instructions, calls = log.read_text().split()[1:3]
            counts["ARM instructions"][key], counts["ARM system calls"][key] = int(instructions), int(calls)


def all_counts(say):
    """{kind: {(row, contestant): count}}; a kind that cannot be counted here is missing."""
    say("instructions, by callgrind")
    counts = {"instructions": by_callgrind()}
    say("system calls and allocations")
    calls, counts["allocations"] = by_strace()
    if calls is None:
        say("system calls are not counted: nothing may be traced here")
    else:
        counts["system calls"] = calls
    if (ARM / "bench/bench").exists() and shutil.which("qemu-arm"):
        say("instructions and system calls of the camera's program, by QEMU")
        counts["ARM instructions"], counts["ARM system calls"] = by_qemu()
    else:
        say("nothing is counted for the camera: './test --target armhf' fetches what that needs")
    say("the start")
    count_start(counts)
    return counts


def number_in(path, pattern):
    found = re.search(pattern, path.read_text()) if path.is_file() else None
    return found[1] if found else "?"


def counted_with(build, include):
    """What decides about counts besides the source: compiler and libraries."""
    compiler = next(build.glob("CMakeFiles/*/CMakeCXXCompiler.cmake"), build)
    name = Path(number_in(compiler, r'CMAKE_CXX_COMPILER "([^"]+)"')).name
    version = number_in(compiler, r'CMAKE_CXX_COMPILER_VERSION "([^"]+)"')
    header = next(iter(include.glob("**/curl/curlver.h")), include)
    glibc = number_in(include / "features.h", r"__GLIBC_MINOR__\s+(\d+)")
    libcurl = number_in(header, r'LIBCURL_VERSION "([^"]+)"')
    return f"{name} {version}, glibc 2.{glibc}, libcurl {libcurl}"


def environments():
    found = {"host": counted_with(NATIVE, Path("/usr/include"))}
    if (ARM / "bench/bench").exists():
        found["ARM"] = counted_with(ARM, SYSROOT / "usr/include")
    return found
