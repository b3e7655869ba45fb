"""The programs of the tests: which cases they have, what each comes by, and whether one notices a mutant."""
import json
import os
import signal
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass, field

from build import RELEASE, WORK

UNIT = ["unit_z55", "unit_agent", "unit_utils", "unit_model", "unit_frame", "unit_os", "unit_os_shell", "unit_os_inherit"]
VIEW = os.path.join(RELEASE, "devkit/device/device-view")


@dataclass
class Case:
    program: str
    name: str
    seconds: float = 0.0
    seen: set = field(default_factory=set)


def cases_of(program):
    """All cases of a GoogleTest program."""
    path = os.path.join(WORK, os.path.basename(program) + ".cases.json")
    subprocess.run([program, "--gtest_list_tests", f"--gtest_output=json:{path}"], stdout=subprocess.DEVNULL, check=True)
    with open(path) as file:
        suites = json.load(file)["testsuites"]
    return [Case(program, f"{s['name']}.{t['name']}") for s in suites for t in s["testsuite"] if not t["name"].startswith("DISABLED_")]


def run_case(case, environment, limit):
    """"passed", "failed" or "hung"; each case in a process and a device view of its own, as ctest runs it."""
    command = [VIEW, "--", case.program, f"--gtest_filter={case.name}", "--gtest_fail_fast"]
    child = subprocess.Popen(command, cwd=os.path.join(RELEASE, "tests/unit"), env={**os.environ, **environment}, stdin=subprocess.DEVNULL,
                             stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, start_new_session=True)
    try:
        return "passed" if child.wait(limit) == 0 else "failed"
    except subprocess.TimeoutExpired:
        os.killpg(child.pid, signal.SIGKILL)
        child.wait()
        return "hung"


def limit_of(case):
    """Seconds until a case counts as hung: it may be a busy machine."""
    return 3 + 5 * case.seconds


def measure(cases, count, jobs, tell):
    """Runs each case once without a mutant and notes its time and which of `count` mutants it comes by. Returns those that pass."""
    def one(case):
        path = os.path.join(WORK, f"seen.{os.getpid()}.{id(case)}")
        with open(path, "wb") as file:
            file.truncate(count)
        begin = time.monotonic()
        result = run_case(case, {"MUTANTS_SEEN": path}, 120)
        case.seconds = time.monotonic() - begin
        with open(path, "rb") as file:
            case.seen = {number for number, byte in enumerate(file.read()) if byte}
        os.unlink(path)
        tell(case, result)
        return result == "passed"

    with ThreadPoolExecutor(jobs) as pool:
        return [case for case, passed in zip(cases, pool.map(one, cases)) if passed]
