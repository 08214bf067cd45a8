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
from typing import Any, TextIO

ROOT = Path(__file__).resolve().parent.parent
BUILD = Path(os.environ.get("IVARODE_BUILD", ROOT / "build")).resolve()
BUILD_SANITIZED = ROOT / "build-sanitized"
JOBS = str(os.cpu_count() or 1)
COUNTS = re.compile(r"(\d+) passed, (\d+) failed, (\d+) skipped$")
SKIPPED = 77  # how a runner of our own ends that cannot run here


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


def run(command: Sequence[object], **options: Any) -> subprocess.CompletedProcess[bytes]:
    print("+", " ".join(str(word) for word in command), flush=True)
    return subprocess.run([str(word) for word in command], cwd=ROOT, **options)


# What one clone of the tree has compiled serves the others, wherever they lie.
os.environ.setdefault("CCACHE_BASEDIR", str(ROOT))
os.environ.setdefault("CCACHE_NOHASHDIR", "1")


def launcher() -> list[str]:
    options = ["-DCMAKE_C_COMPILER_LAUNCHER=ccache", "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
    return options if shutil.which("ccache") else []


def build_for_mips(folder: Path) -> None:
    if run(["lab/vm/cross-build.sh", "--tests", folder, *launcher()]).returncode != 0:
        sys.exit("test: the build for MIPS failed")


def build(folder: Path, *options: str) -> None:
    done = run(["cmake", "-S", ".", "-B", folder, "-G", "Ninja", "-DIVARODE_TESTS=ON",
                "-DCMAKE_COMPILE_WARNING_AS_ERROR=ON", *options, *launcher()], stdout=subprocess.DEVNULL)
    if done.returncode == 0:
        done = run(["cmake", "--build", folder, "-j", JOBS])
    if done.returncode != 0:
        sys.exit("test: the build failed")


def junit_counts(report: Path, status: int) -> Counts:
    """Counts of a JUnit report; a run that left none, or failed without a failing test, is one failure."""
    if not report.exists():
        return Counts(failed=1)
    counts = Counts()
    for case in ElementTree.parse(report).iter("testcase"):
        if case.find("failure") is not None or case.find("error") is not None:
            counts.failed += 1
        elif case.find("skipped") is not None or case.get("status") in ("notrun", "disabled"):
            counts.skipped += 1
        else:
            counts.passed += 1
    if status != 0 and counts.failed == 0:
        counts.failed = 1
    return counts


def ctest(label: str, folder: Path = BUILD, environment: dict[str, str] | None = None) -> Counts:
    report = folder / f"report-{label}.xml"
    report.unlink(missing_ok=True)
    done = run(["ctest", "--test-dir", folder, "-L", f"^{label}$", "-j", JOBS, "--output-on-failure",
                "--no-tests=error", "--output-junit", report, "--progress", "-Q"],
               env={**os.environ, **(environment or {})})
    if done.returncode != 0:
        run(["ctest", "--test-dir", folder, "-L", f"^{label}$", "--rerun-failed", "--output-on-failure"],
            env={**os.environ, **(environment or {})})
    return junit_counts(report, done.returncode)


def pytest(folder: str, *options: str) -> Counts:
    report = BUILD / f"report-{Path(folder).name}.xml"
    report.unlink(missing_ok=True)
    # Debian's own interpreter, for which the packages are installed.
    done = run(["/usr/bin/python3", "-m", "pytest", "-q", "-rs", folder, f"--junitxml={report}", *options])
    return junit_counts(report, done.returncode)


def counting_runner(*command: object, out: TextIO = sys.stdout, **options: Any) -> Counts:
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
