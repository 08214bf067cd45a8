"""Runs the tests that are in process, and the daemon through its scenarios, under valgrind's memcheck: unset values
that decide, accesses outside what is allocated, memory freed twice or lost. Any such report, in a forked child too, is
a failure of its program.
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree
from collections.abc import Callable, Iterator, Sequence
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path
from typing import Any

from tests.conformance import compare
from tests.conformance.recording import Board, Command, record
from tests.conformance.scenario import Scenario, load_all

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent


NOT_INSTALLED = 77
PATIENCE = 1800  # seconds for one program
# What valgrind adds is seen in a few rounds of what else goes on for many.
FEW_SEEDS = "*-" + ":".join(f"*AgreesWithTheRealPlane/{seed}" for seed in range(2, 100))
PROGRAMS = {
    "daemon-unit-test": "*", "compat_bus_test": "*", "uci_test": "*",
    "lab-unit-test": FEW_SEEDS, "lab-siblings-test": "*", "model-test": "Random.*:Warned.*",
}
ENVIRONMENT = {**os.environ, "MODEL_SEEDS": "2"}
# Each of its tests needs a process of its own, which it would start without valgrind.
ONE_BY_ONE = "contract_test"
SCENARIOS = "scenarios"
# A program that cannot be started is reported through memory that parent and child share; valgrind copies it.
LEFT_OUT = {"IptablesTest.ProgramsOfTheSystemAreFoundWithoutAPath"}

# Name of a program, passed, failed and skipped tests, what to show.
Verdict = tuple[str, tuple[int, int, int], str]
Job = tuple[Callable[..., Verdict], tuple[Any, ...]]


def checker(log: Path | str) -> list[str]:
    return ["valgrind", "--quiet", f"--log-file={log}", f"--suppressions={HERE / 'valgrind.supp'}",
            "--leak-check=full", "--show-leak-kinds=definite,indirect", "--num-callers=30"]


def memcheck(log: Path, *words: object) -> tuple[int | str, str]:
    """The command's exit status and what it said."""
    try:
        done = subprocess.run([str(word) for word in (*checker(log), *words)], cwd=ROOT, env=ENVIRONMENT,
                              stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                              timeout=PATIENCE, check=False)
    except subprocess.TimeoutExpired as ended:
        return "time", (ended.stdout or b"").decode(errors="replace")
    return done.returncode, done.stdout.decode(errors="replace")


def complaints(log: Path) -> list[str]:
    """The reports with a stack in a log, which the processes of a program share. How one ended is no report."""
    lines: dict[str, list[str]] = {}
    for line in log.read_text(errors="replace").splitlines() if log.exists() else []:
        found = re.match(r"==(\d+)== ?(.*)", line)
        if found:
            lines.setdefault(found[1], []).append(found[2])
    paragraphs = [text for part in lines.values() for text in re.split(r"\n\s*\n", "\n".join(part))]
    return [text for text in paragraphs if re.search(r"^ +(at|by) 0x", text, re.M)
            and not text.startswith("Process terminating")]


def tests_of(report: Path) -> tuple[int, int, int]:
    """Passed, failed and skipped tests of a GoogleTest report."""
    cases = list(ElementTree.parse(report).iter("testcase"))
    failed = sum(1 for case in cases if case.find("failure") is not None)
    skipped = sum(1 for case in cases if case.get("status") == "notrun" or case.get("result") == "skipped")
    return len(cases) - failed - skipped, failed, skipped


def run_program(build: Path, program: str, chosen: str) -> Verdict:
    """Name, counts and what to show of one GoogleTest program."""
    with tempfile.TemporaryDirectory() as folder:
        log, report = Path(folder) / "log", Path(folder) / "report.xml"
        status, said = memcheck(log, build / "bin" / program, f"--gtest_filter={chosen}", "--gtest_brief=1",
                                f"--gtest_output=xml:{report}")
        found = complaints(log)
        passed, failed, skipped = tests_of(report) if report.exists() else (0, 0, 0)
    if status != 0 and not failed:
        found.append(f"ended with {status}")
    shown = said[-4000:] if status != 0 else ""
    return program, (passed, failed + (1 if found else 0), skipped), "\n\n".join([shown, *found]).strip()


def run_corpus(build: Path, target: str) -> Verdict:
    program = f"fuzz-{target}"
    with tempfile.TemporaryDirectory() as folder:
        log = Path(folder) / "log"
        status, said = memcheck(log, build / "bin" / program, ROOT / "tests/fuzz/corpus" / target)
        found = complaints(log)
    sound = status == 0 and not found
    shown = "" if sound else "\n\n".join([f"ended with {status}", said[-4000:], *found])
    return program, (1, 0, 0) if sound else (0, 1, 0), shown


def run_alone(build: Path, test: str) -> Verdict:
    """One test that lives in a sandbox, from which no report comes out."""
    with tempfile.TemporaryDirectory() as folder:
        log = Path(folder) / "log"
        status, said = memcheck(log, build / "bin" / ONE_BY_ONE, f"--gtest_filter={test}")
        found = complaints(log)
    if status != 0 or found:
        return ONE_BY_ONE, (0, 1, 0), "\n\n".join([f"{test} ended with {status}", said[-4000:], *found])
    if "[  SKIPPED ]" in said:
        return ONE_BY_ONE, (0, 0, 1), ""
    return ONE_BY_ONE, (1, 0, 0) if "[  PASSED  ] 1 test." in said else (0, 1, 0), ""


class CheckedBoard(Board):
    """The daemon finds the recorder as its platform library: what is preloaded would be so to valgrind, too."""

    def command(self, script: Path, entry: Sequence[str] = (), arguments: Sequence[str] = ()) -> Command:
        command, environment = super().command(script, entry, arguments)
        environment["LD_LIBRARY_PATH"] = str(Path(environment.pop("LD_PRELOAD")).parent)
        return [*checker(f"{Path(script).parent}/log-%p"), *command], environment


def run_scenario(build: Path, scenario: Scenario) -> Verdict:
    with tempfile.TemporaryDirectory() as folder:
        runs = record(CheckedBoard(build), scenario, folder, timeout=PATIENCE)
        found = [text for log in sorted(Path(folder).glob("log-*")) for text in complaints(log)]
    shown = [*compare.check(scenario, runs), *found]
    return SCENARIOS, (0, 1, 0) if shown else (1, 0, 0), "\n".join([scenario.where, *shown]) if shown else ""


def scenarios() -> list[Scenario]:
    """Of each table one row; valgrind's own allocator cannot be made to fail."""
    return [one for one in load_all(ROOT / "tests/conformance") if one.row == 0 and not any(
        line[0] == "result" and line[2] == "alloc" for line in one.first) and not any(
        step.title.startswith("result") and "alloc" in step.title for step in one.steps)]


def one_by_one(build: Path) -> Iterator[str]:
    """The filters, one for each test of the program."""
    listed = subprocess.run([build / "bin" / ONE_BY_ONE, "--gtest_list_tests"], stdout=subprocess.PIPE, text=True,
                            check=True).stdout
    suite = ""
    for line in listed.splitlines():
        name = line.split("#")[0].rstrip()
        if line.startswith(" "):
            yield suite + name.strip()
        elif name.endswith("."):
            suite = name


def name_of(job: Job) -> str:
    what, (_, subject, *_) = job
    return f"{SCENARIOS} {subject.path.stem} {subject.name}" if what is run_scenario else str(subject)


def jobs(build: Path, pick: str) -> list[Job]:
    wanted: list[Job] = [(run_program, (build, program, chosen)) for program, chosen in PROGRAMS.items()]
    wanted += [(run_corpus, (build, path.name)) for path in sorted((ROOT / "tests/fuzz/corpus").iterdir())]
    wanted += [(run_scenario, (build, one)) for one in scenarios()]
    if (build / "bin" / ONE_BY_ONE).exists():
        wanted += [(run_alone, (build, name)) for name in one_by_one(build) if name not in LEFT_OUT]
    return [job for job in wanted if pick in name_of(job)]


def main() -> int:
    parser = argparse.ArgumentParser(prog="tests/strict/valgrind", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default=ROOT / "build", type=Path, help="build folder (default: ./build)")
    parser.add_argument("-k", dest="pick", metavar="TEXT", default="", help="only programs, targets, scenarios or "
                        "contract tests whose name holds the text")
    parser.add_argument("-j", dest="jobs", type=int, default=os.cpu_count() or 1, help="programs at once")
    options = parser.parse_args()
    if not shutil.which("valgrind"):
        print("skipped: valgrind is not installed")
        print("0 passed, 0 failed, 1 skipped")
        return NOT_INSTALLED
    totals = [0, 0, 0]
    sums: dict[str, list[int]] = {}
    with ThreadPoolExecutor(options.jobs) as pool:
        for name, counts, shown in pool.map(lambda job: job[0](*job[1]), jobs(options.build.resolve(), options.pick)):
            if shown:
                print(f"{'FAIL' if counts[1] else 'note'} {name}\n{shown}", flush=True)
            sums[name] = [a + b for a, b in zip(sums.get(name, [0, 0, 0]), counts)]
            totals = [a + b for a, b in zip(totals, counts)]
            if name not in (ONE_BY_ONE, SCENARIOS):
                print(f"{name}: {counts[0]} passed, {counts[1]} failed", flush=True)
    for name in (SCENARIOS, ONE_BY_ONE):
        passed, failed, skipped = sums.get(name, (0, 0, 0))
        if name in sums:
            print(f"{name}: {passed} passed, {failed} failed, {skipped} without what they need")
    print(f"{totals[0]} passed, {totals[1]} failed, {totals[2]} skipped")
    return 1 if totals[1] or not totals[0] else 0


if __name__ == "__main__":
    sys.exit(main())
