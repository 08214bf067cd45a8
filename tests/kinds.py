"""Runs one kind of tests of a tree that is built: tests/python tests.kinds KIND [--long].

Ends with a line of its counts.
"""

import argparse
import io
import re
import subprocess
import sys

from tests.runners import BUILD, BUILD_SANITIZED, JOBS, Counts, build, counting_runner, ctest, pytest


def fuzz(long: bool) -> Counts:
    """The saved inputs; in a long run also the fuzzers, which look for new ones."""
    counts = ctest("fuzz")
    report = BUILD / "report-fuzz.xml"
    said = report.read_text(encoding="utf-8") if report.exists() else ""
    print("executions:", sum(int(number) for number in re.findall(r"executions: (\d+)", said)))
    if long:
        counts += counting_runner("tests/fuzz/run", "--seconds", "120")
    return counts


class Heard(io.StringIO):
    """Shows what is written to it, and keeps it."""

    def write(self, text: str) -> int:
        print(text, end="", flush=True)
        return super().write(text)


def fault(long: bool) -> Counts:
    """The daemon through its scenarios; the platform library and the stand-ins call by call."""
    heard = Heard()
    counts = counting_runner("tests/fault/run", "--build", BUILD, *(["--long"] if long else []), out=heard)
    daemon = sum(int(number) for number in re.findall(r"injections in the daemon: (\d+)", heard.getvalue()))
    counts += ctest("fault-library")
    report = BUILD / "report-fault-library.xml"
    said = report.read_text(encoding="utf-8") if report.exists() else ""
    libraries = sum(int(number) for number in re.findall(r"injections: (\d+)", said))
    print(f"injections in the libraries: {libraries}\ninjections: {daemon + libraries}")
    return counts


def plan(long: bool) -> Counts:
    """What the program says, and that it is what the oracle of the model says."""
    counts = ctest("plan", environment={"PLAN_SEEDS": "5000"} if long else None)
    counts += pytest("tests/plan", *(["--long"] if long else []))
    return counts


def sanitized(long: bool) -> Counts:
    """The scenarios, and the tests in process, under AddressSanitizer and UBSan, in a build of their own. A long
    run also takes the daemon through some of its failures there, and scenarios and tests through valgrind."""
    build(BUILD_SANITIZED, "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_CXX_FLAGS_DEBUG=-g1", "-DIVARODE_SANITIZE=ON")
    options = {"ASAN_OPTIONS": "detect_leaks=1:abort_on_error=0", "UBSAN_OPTIONS": "print_stacktrace=1"}
    counts = ctest("unit", BUILD_SANITIZED, options)
    counts += ctest("fuzz", BUILD_SANITIZED, options)
    counts += counting_runner("tests/conformance/run", "--build", BUILD_SANITIZED, "--leaks", "-j", JOBS,
                              *([] if long else ["--scenarios"]))
    if long:
        counts += counting_runner("tests/fault/run", "--build", BUILD_SANITIZED, "--leaks", "-j", JOBS)
        counts += counting_runner("tests/strict/valgrind", "--build", BUILD, "-j", JOBS)
    return counts


def system(long: bool) -> Counts:
    """A long run records every board, restarts ten times below traffic, upgrades from the last release, and is watched
    for an hour."""
    release = subprocess.run(["git", "describe", "--tags", "--abbrev=0"], capture_output=True, text=True).stdout.strip()
    longer = ["--recorded", "--long", "--restarts", "10", "--plans", "40", "--scraped", "60",
              *(["--older", release] if release else [])]
    return pytest("tests/system", *(longer if long else []))


def mutation(long: bool) -> Counts:
    """The tool itself, then a fixed sample of the mutants, or all of them."""
    counts = pytest("tests/mutation")
    counts += counting_runner("tests/mutation/run", "-j", JOBS,
                              *(["--replays", "100"] if long else ["--sample", "500", "--replays", "15"]))
    return counts


# Kind: what it proves, and how it runs; kinds run in this order.
KINDS = {
    "unit": ("the daemon's records, the stand-ins and the emulated switch, in process",
             lambda long: ctest("unit", environment={"BUS_LOAD_SECONDS": "120"} if long else None)),
    "model": ("the daemon beside an oracle of ports, VLANs and interfaces, on the emulated switch",
              lambda long: ctest("model", environment={"MODEL_SEEDS": "5000"} if long else None)),
    "contract": ("what the platform library promises, on the real kernel", lambda long: ctest("contract")),
    "conformance": ("the shipped daemon, call by call, through scenario files",
                    lambda long: counting_runner("tests/conformance/run", "--build", BUILD)),
    "plan": ("what ivarode-plan says: true, in words, and which ports meet when", plan),
    "fault": ("every call made to fail at each of its occurrences", fault),
    "fuzz": ("hostile input to everything that takes input from outside", fuzz),
    "mips": ("scenarios and model on little-endian and big-endian MIPS, emulated",
             lambda long: counting_runner("tests/mips/run", "-j", JOBS, *(["--scenarios"] if long else []))),
    "sanitize": ("scenarios, unit and fuzz tests again, under AddressSanitizer and UBSan", sanitized),
    "strict": ("static analysis: cppcheck and clang-tidy over the sources, mypy and flake8 over the Python",
               lambda long: counting_runner("tests/strict/run", "--build", BUILD, "-j", JOBS,
                                            *(["--deep"] if long else []))),
    "bench": ("instructions that fixed scenarios take, against the table kept with them",
              lambda long: counting_runner("tests/bench/check", "--build", BUILD)),
    "mutation": ("the daemon changed in one small way at a time: some test notices each", mutation),
    "docs": ("the books: complete, true to the sources, links and scripts sound",
             lambda long: pytest("tests/docs", *(["--long"] if long else []))),
    "hostile": ("other users, servers, peers and full disks against every program: nothing of root's is given or lost",
                lambda long: pytest("tests/hostile")),
    "package": ("what is installed and packaged, and that it builds on the headers of many years",
                lambda long: pytest("tests/package", *(["--long"] if long else []))),
    "system": ("the whole router on the virtual board, with real frames", system),
    "web": ("the page in a browser, the web server and the plug-in below it, against the virtual board",
            lambda long: pytest("tests/web")),
    "chaos": ("the router under kills, flaps and requests in flight: each start finds its way back",
              lambda long: pytest("tests/chaos", *(["--rounds", "200", "--recorded"] if long else []))),
}


def main() -> int:
    parser = argparse.ArgumentParser(prog="tests/python tests.kinds", description=__doc__)
    parser.add_argument("kind", choices=KINDS, help="which kind")
    parser.add_argument("--long", action="store_true", help="its longer run, where it has one")
    arguments = parser.parse_args()
    counts = KINDS[arguments.kind][1](arguments.long)
    print(counts, flush=True)
    return 0 if counts.failed == 0 else 1


if __name__ == "__main__":
    sys.exit(main())
