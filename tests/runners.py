"""Building the tree, and running tests in the ways there are: CTest, pytest, and runners of our own."""

from __future__ import annotations

import os
import re
import shutil
import subprocess
import sys
import xml.etree.ElementTree as ElementTree
from collections.abc import Sequence
from pathlib import Path
from typing import Any, Protocol

from tests import progress

ROOT = Path(__file__).resolve().parent.parent
BUILD = Path(os.environ.get("IVARODE_BUILD", ROOT / "build")).resolve()
BUILD_SANITIZED = ROOT / "build-sanitized"
JOBS = str(os.cpu_count() or 1)
COUNTS = re.compile(r"(\d+) passed, (\d+) failed, (\d+) skipped$")
SKIPPED = 77  # how a runner of our own ends that cannot run here


class Out(Protocol):
    def write(self, text: str, /) -> int: ...

    def flush(self) -> None: ...


class Counts:
    def __init__(self, passed: int = 0, failed: int = 0, skipped: int = 0) -> None:
        self.passed, self.failed, self.skipped = passed, failed, skipped

    def __iadd__(self, other: Counts) -> Counts:
        self.passed += other.passed
        self.failed += other.failed
        self.skipped += other.skipped
        return self

    def __str__(self) -> str:
        return f"{self.passed} passed, {self.failed} failed, {self.skipped} skipped"


def start(command: Sequence[object], **options: Any) -> subprocess.Popen[Any]:
    print("+", " ".join(str(word) for word in command), flush=True)
    return subprocess.Popen([str(word) for word in command], cwd=ROOT, **options)


def run(command: Sequence[object], **options: Any) -> int:
    """The status of a command."""
    with start(command, **options) as process:
        return process.wait()


# What one clone of the tree has compiled serves the others, wherever they lie.
os.environ.setdefault("CCACHE_BASEDIR", str(ROOT))
os.environ.setdefault("CCACHE_NOHASHDIR", "1")


def launcher() -> list[str]:
    options = ["-DCMAKE_C_COMPILER_LAUNCHER=ccache", "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
    return options if shutil.which("ccache") else []


def build_for_mips(folder: Path) -> None:
    if run(["lab/vm/cross-build.sh", "--tests", folder, *launcher()]) != 0:
        sys.exit("test: the build for MIPS failed")


def build(folder: Path, *options: str) -> None:
    status = run(["cmake", "-S", ".", "-B", folder, "-G", "Ninja", "-DIVARODE_TESTS=ON",
                  "-DCMAKE_COMPILE_WARNING_AS_ERROR=ON", *options, *launcher()], stdout=subprocess.DEVNULL)
    if status == 0:
        status = run(["cmake", "--build", folder, "-j", JOBS])
    if status != 0:
        sys.exit("test: the build failed")


def junit_counts(report: Path, status: int) -> Counts:
    """Counts of a JUnit report; a run that left none, or failed without a failing test, is one failure."""
    if not report.exists():
        return Counts(failed=1)
    counts = Counts()
    for case in ElementTree.parse(report).iter("testcase"):
        names = dict.fromkeys(case.get(key, "").removeprefix("tests.") for key in ("classname", "name"))
        progress.took(float(case.get("time", 0)), ".".join(names))
        if case.find("failure") is not None or case.find("error") is not None:
            counts.failed += 1
        elif case.find("skipped") is not None or case.get("status") in ("notrun", "disabled"):
            counts.skipped += 1
        else:
            counts.passed += 1
    if status != 0 and counts.failed == 0:
        counts.failed = 1
    return counts


STARTED = re.compile(r" *Start +\d+: (.*)")
ENDED = re.compile(r" *(\d+)/(\d+) Test +#\d+: ")


def ctest(label: str, folder: Path = BUILD, environment: dict[str, str] | None = None) -> Counts:
    report = folder / f"report-{label}.xml"
    report.unlink(missing_ok=True)
    environment = {**os.environ, **(environment or {})}
    command = ["ctest", "--test-dir", folder, "-L", f"^{label}$"]
    with start([*command, "-j", JOBS, "--no-tests=error", "--output-junit", report], env=environment,
               stdout=subprocess.PIPE, text=True) as process:
        done = total = 0            # the second is named with the first test that ends
        running = ""
        for line in process.stdout or ():
            if started := STARTED.match(line):
                running = started[1]
            elif ended := ENDED.match(line):
                done, total = int(ended[1]), int(ended[2])
            progress.at(done, total, running)
    if process.returncode != 0:
        run([*command, "--rerun-failed", "--output-on-failure"], env=environment)
    return junit_counts(report, process.returncode)


def pytest(folder: str, *options: str) -> Counts:
    report = BUILD / f"report-{Path(folder).name}.xml"
    report.unlink(missing_ok=True)
    # Debian's own interpreter, for which the packages are installed.
    status = run(["/usr/bin/python3", "-m", "pytest", "-q", "-rs", folder, f"--junitxml={report}", *options])
    return junit_counts(report, status)


def counting_runner(*command: object, out: Out | None = None, **options: Any) -> Counts:
    """A runner of our own that closes with a line "N passed, N failed, N skipped"; its output goes to out."""
    with subprocess.Popen([str(word) for word in command], cwd=ROOT, stdout=subprocess.PIPE, text=True,
                          **options) as process:
        counts = None
        for line in process.stdout or ():
            print(line, end="", flush=True, file=out)
            found = COUNTS.match(line.strip())
            if found:
                counts = Counts(*(int(number) for number in found.groups()))
    if counts is None or (process.returncode not in (0, SKIPPED) and counts.failed == 0):
        return Counts(failed=1)
    return counts
