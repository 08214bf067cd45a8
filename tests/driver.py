"""Builds the tree and runs the kinds of tests, one after the other; ends with the counts of all."""

import argparse
import os
import re
import shutil
import subprocess
import sys
import time
import xml.etree.ElementTree as ElementTree
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BUILD = Path(os.environ.get("IVARODE_BUILD", ROOT / "build")).resolve()
BUILD_SANITIZED = ROOT / "build-sanitized"
JOBS = str(os.cpu_count() or 1)
SKIPPED = 77  # how a runner of our own ends that cannot run here


class Counts:
    def __init__(self, passed=0, failed=0, skipped=0):
        self.passed, self.failed, self.skipped = passed, failed, skipped

    def __iadd__(self, other):
        self.passed += other.passed
        self.failed += other.failed
        self.skipped += other.skipped
        return self

    def __str__(self):
        return f"{self.passed} passed, {self.failed} failed, {self.skipped} skipped"


def run(command, **options):
    print("+", " ".join(str(word) for word in command), flush=True)
    return subprocess.run([str(word) for word in command], cwd=ROOT, **options)


def launcher():
    options = ["-DCMAKE_C_COMPILER_LAUNCHER=ccache", "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
    return options if shutil.which("ccache") else []


def build_for_mips(folder):
    if run(["lab/vm/cross-build.sh", "--tests", folder, *launcher()]).returncode != 0:
        sys.exit("test: the build for MIPS failed")


def build(folder, *options):
    done = run(["cmake", "-S", ".", "-B", folder, "-G", "Ninja", "-DIVARODE_TESTS=ON", *options,
                *launcher()], stdout=subprocess.DEVNULL)
    if done.returncode == 0:
        done = run(["cmake", "--build", folder, "-j", JOBS])
    if done.returncode != 0:
        sys.exit("test: the build failed")


def junit_counts(report, status):
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


def ctest(label, folder=BUILD, environment=None):
    report = folder / f"report-{label}.xml"
    report.unlink(missing_ok=True)
    done = run(["ctest", "--test-dir", folder, "-L", f"^{label}$", "-j", JOBS, "--output-on-failure",
                "--no-tests=error", "--output-junit", report, "--progress", "-Q"],
               env={**os.environ, **(environment or {})})
    if done.returncode != 0:
        run(["ctest", "--test-dir", folder, "-L", f"^{label}$", "--rerun-failed", "--output-on-failure"],
            env={**os.environ, **(environment or {})})
    return junit_counts(report, done.returncode)


def pytest(folder, *options):
    report = BUILD / f"report-{Path(folder).name}.xml"
    report.unlink(missing_ok=True)
    # Debian's own interpreter, for which the packages are installed.
    done = run(["/usr/bin/python3", "-m", "pytest", "-q", "-rs", folder, f"--junitxml={report}", *options])
    return junit_counts(report, done.returncode)


def counting_runner(*command):
    """A runner of our own that closes with a line "N passed, N failed, N skipped"."""
    with subprocess.Popen([str(word) for word in command], cwd=ROOT, stdout=subprocess.PIPE,
                          text=True) as process:
        counts = None
        for line in process.stdout:
            print(line, end="", flush=True)
            found = re.match(r"(\d+) passed, (\d+) failed, (\d+) skipped$", line.strip())
            if found:
                counts = Counts(*(int(number) for number in found.groups()))
    if counts is None or (process.returncode not in (0, SKIPPED) and counts.failed == 0):
        return Counts(failed=1)
    return counts


def fuzz(long):
    """The saved inputs; in a long run also the fuzzers, which look for new ones."""
    counts = ctest("fuzz")
    report = BUILD / "report-fuzz.xml"
    said = report.read_text(encoding="utf-8") if report.exists() else ""
    print("executions:", sum(int(number) for number in re.findall(r"executions: (\d+)", said)))
    if long:
        counts += counting_runner("tests/fuzz/run", "--seconds", "120")
    return counts


def fault(long):
    """The daemon through its scenarios; the platform library and the stand-ins call by call."""
    counts = counting_runner("tests/fault/run", "--build", BUILD, *(["--long"] if long else []))
    counts += ctest("fault-library")
    report = BUILD / "report-fault-library.xml"
    said = report.read_text(encoding="utf-8") if report.exists() else ""
    print("injections in the libraries:", sum(int(n) for n in re.findall(r"injections: (\d+)", said)))
    return counts


def sanitized(_long):
    """The in-process tests under AddressSanitizer and UBSan, in a build of their own."""
    build(BUILD_SANITIZED, "-DCMAKE_BUILD_TYPE=Debug", "-DIVARODE_SANITIZE=ON")
    options = {"ASAN_OPTIONS": "detect_leaks=1:abort_on_error=0", "UBSAN_OPTIONS": "print_stacktrace=1"}
    counts = ctest("unit", BUILD_SANITIZED, options)
    counts += ctest("fuzz", BUILD_SANITIZED, options)
    return counts


# Kind: what it proves, and how it runs; kinds run in this order.
KINDS = {
    "unit": ("parts in process, against recorded seams", lambda long: ctest("unit")),
    "model": ("the daemon beside an oracle of ports, VLANs and interfaces, on the emulated switch",
              lambda long: ctest("model", environment={"MODEL_SEEDS": "5000"} if long else None)),
    "contract": ("what the platform library promises, on the real kernel", lambda long: ctest("contract")),
    "conformance": ("the shipped daemon, call by call, through scenario files",
                    lambda long: counting_runner("tests/conformance/run", "--build", BUILD)),
    "fault": ("every call made to fail at each of its occurrences", fault),
    "fuzz": ("hostile input to everything that takes input from outside", fuzz),
    "mips": ("unit tests, model and scenarios on little-endian and big-endian MIPS, emulated",
             lambda long: counting_runner("tests/mips/run", "-j", JOBS)),
    "sanitize": ("the unit and fuzz tests again, under AddressSanitizer and UBSan", sanitized),
    "strict": ("static analysis: cppcheck over everything, clang-tidy over the daemon",
               lambda long: counting_runner("tests/strict/run", "--build", BUILD, "-j", JOBS)),
    "docs": ("the books: complete, true to the sources, links and scripts sound",
             lambda long: pytest("tests/docs")),
    "package": ("what is installed and packaged, and that it builds on the headers of many years",
                lambda long: pytest("tests/package")),
    "system": ("the whole router on the virtual board, with real frames", lambda long: pytest("tests/system")),
    "chaos": ("the router under kills, flaps and requests in flight: each start finds its way back",
              lambda long: pytest("tests/chaos", "--rounds", "200" if long else "25")),
}


# The kinds that --vm and --mips are for.
ON_THE_BOARD = ("system", "chaos")


def kinds_that_exist():
    folders = {"unit": "tests/unit", "model": "tests/model", "contract": "tests/contract",
               "conformance": "tests/conformance/run", "fault": "tests/fault/run", "fuzz": "tests/fuzz",
               "mips": "tests/mips/run", "sanitize": "tests/unit", "strict": "tests/strict/run", "docs": "tests/docs",
               "package": "tests/package", "system": "tests/system", "chaos": "tests/chaos"}
    return [kind for kind in KINDS if (ROOT / folders[kind]).exists()]


def main():
    parser = argparse.ArgumentParser(prog="./test", description=__doc__)
    kinds = kinds_that_exist()
    parser.add_argument("--only", metavar="KIND", action="append", choices=kinds,
                        help="run this kind alone (may be given again): " + ", ".join(kinds))
    how = parser.add_mutually_exclusive_group()
    how.add_argument("--vm", dest="mode", action="store_const", const="vm",
                     help="only what runs on the board (system, or as --only says), inside the small machine")
    how.add_argument("--mips", dest="mode", action="store_const", const="mips",
                     help="the same inside a little-endian MIPS machine, with all programs built for it")
    parser.add_argument("--long", action="store_true", help="longer runs of the kinds that have them")
    parser.add_argument("--list", action="store_true", help="list the kinds and what each proves")
    arguments = parser.parse_args()
    if arguments.list:
        for kind in kinds:
            print(f"{kind:12} {KINDS[kind][0]}")
        return 0

    if arguments.mode:
        arguments.only = arguments.only or ["system"]
        apart = [kind for kind in arguments.only if kind not in ON_THE_BOARD]
        if apart:
            parser.error(f"--{arguments.mode} is for {' and '.join(ON_THE_BOARD)}, not for {', '.join(apart)}")
        os.environ["IVARODE_LAB_MODE"] = arguments.mode
    if arguments.mode == "mips":
        build_for_mips(BUILD / "mipsel")
    else:
        build(BUILD, "-DCMAKE_BUILD_TYPE=Release")
    total, table = Counts(), []
    for kind in arguments.only or kinds:
        print(f"\n== {kind}: {KINDS[kind][0]}", flush=True)
        start = time.monotonic()
        counts = KINDS[kind][1](arguments.long)
        table.append(f"{kind:12} {counts}, {time.monotonic() - start:.0f} s")
        total += counts
    print("\n" + "\n".join(table))
    print(total, flush=True)
    return 0 if total.failed == 0 and total.passed > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
