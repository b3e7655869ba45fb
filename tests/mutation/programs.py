"""The programs of the tests: which cases they have, what each comes by, and whether one notices a mutant."""
import json
import os
import subprocess
import time
from concurrent.futures import ThreadPoolExecutor
from dataclasses import dataclass, field

from build import RELEASE, WORK

UNIT = ["unit_z55", "unit_agent", "unit_utils", "unit_model", "unit_frame", "unit_os", "unit_os_shell", "unit_os_inherit"]
SYSTEM = [f"system_{name}_test" for name in ("start", "session", "inheritance", "time", "shortage")]  # of what no unit test has in it
SLOW = 60  # seconds: a case of the system tests that takes longer is not tried
VIEW = os.path.join(RELEASE, "devkit/device/device-view")


@dataclass
class Case:
    program: str
    name: str
    seconds: float = 0.0
    seen: set = field(default_factory=set)
    environment: dict = field(default_factory=dict)  # of a system test: which agent it starts


def listed(program):
    """(name, source file) of all cases of a GoogleTest program."""
    path = os.path.join(WORK, os.path.basename(program) + ".cases.json")
    subprocess.run([program, "--gtest_list_tests", f"--gtest_output=json:{path}"], stdout=subprocess.DEVNULL, check=True)
    with open(path) as file:
        suites = json.load(file)["testsuites"]
    return [(f"{s['name']}.{t['name']}", t["file"]) for s in suites for t in s["testsuite"] if not t["name"].startswith("DISABLED_")]


def cases_of(program, environment=None):
    return [Case(program, name, environment=environment or {}) for name, _ in listed(program)]


def system_programs():
    return [os.path.join(RELEASE, "tests/system", name) for name in SYSTEM]


def run_case(case, environment, limit):
    """"passed", "failed" or "hung"; each case in a process and a device view of its own, as ctest runs it."""
    # What is hung ends by itself, also where this script is gone.
    command = ["timeout", "-s", "KILL", str(limit), VIEW, "--", case.program, f"--gtest_filter={case.name}", "--gtest_fail_fast"]
    done = subprocess.run(command, cwd=os.path.join(RELEASE, "tests/unit"), env={**os.environ, **case.environment, **environment},
                          stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=False)
    return "passed" if done.returncode == 0 else "hung" if done.returncode in (137, -9) else "failed"


def limit_of(case):
    """Seconds until a case counts as hung: it may be a busy machine."""
    return 1 + 4 * case.seconds


def measure(cases, count, jobs, tell, limit=120):
    """Runs each case once without a mutant and notes its time and which of `count` mutants it comes by. Returns those that pass."""
    def one(case):
        path = os.path.join(WORK, f"seen.{os.getpid()}.{id(case)}")
        with open(path, "wb") as file:
            file.truncate(count)
        begin = time.monotonic()
        result = run_case(case, {"MUTANTS_SEEN": path}, limit)
        case.seconds = time.monotonic() - begin
        if result == "failed":  # a machine out of breath is no reason to go without the case
            result = run_case(case, {"MUTANTS_SEEN": path}, limit)
        with open(path, "rb") as file:
            case.seen = {number for number, byte in enumerate(file.read()) if byte}
        os.unlink(path)
        tell(case, result)
        return result == "passed"

    with ThreadPoolExecutor(jobs) as pool:
        return [case for case, passed in zip(cases, pool.map(one, cases)) if passed]
