"""Drives the daemon whole, under the recorder, through the scenarios and compares every call it makes.

The daemon that runs is the one that ships. Below it stands the recorder (seam) instead of the platform
library; neither bus broker nor kernel nor privileges are needed. Last, the start is killed before each of its
calls in turn and repeated on what was left, thousands of events and requests come and go, and scenarios are
recorded as on a router and replayed, also by daemons that differ in one place.
"""
import argparse
import os
import sys
import time
from concurrent.futures import Executor, ThreadPoolExecutor
from pathlib import Path

from tests import progress
from tests.conformance import coverage
from tests.conformance.alterations import find_all
from tests.conformance.blocks import ScenarioError
from tests.conformance.compare import check, transcript
from tests.conformance.endurance import CYCLES, endure
from tests.conformance.kill_sweep import sweep_all
from tests.conformance.recording import Board, Runs, record, temporary_folder
from tests.conformance.replaying import replay_all
from tests.conformance.scenario import Scenario, load_all

HERE = Path(__file__).resolve().parent


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="tests/conformance/run", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default=HERE.parent.parent / "build", type=Path,
                        help="build folder (default: ./build)")
    parser.add_argument("--prefix", default="", help="command to run the daemon with, such as an emulator")
    parser.add_argument("-k", dest="pick", metavar="TEXT", help="only scenarios whose topic or name holds the text")
    parser.add_argument("-j", dest="jobs", type=int, default=os.cpu_count() or 1, help="scenarios at once")
    parser.add_argument("--scenarios", action="store_true",
                        help="only the scenarios, without the kill sweeps and endurance runs")
    parser.add_argument("--firsts", action="store_true", help="of each table only the first row")
    parser.add_argument("--leaks", action="store_true", help="let a sanitized build look for leaked memory too")
    parser.add_argument("--list", action="store_true", help="list the scenarios and stop")
    parser.add_argument("--show", action="store_true", help="print what is recorded, to write a scenario from")
    parser.add_argument("--coverage", action="store_true",
                        help="map messages, statuses and platform calls of the sources to the scenarios")
    return parser.parse_args()


def label(scenario: Scenario) -> str:
    return f"{scenario.path.parent.name}/{scenario.path.stem}: {scenario.name}"


def run_one(board: Board, scenario: Scenario, options: argparse.Namespace) -> tuple[Scenario, Runs, list[str]]:
    with temporary_folder() as folder:
        runs = record(board, scenario, folder, sites=options.coverage)
    return scenario, runs, check(scenario, runs)


def kill_sweep(board: Board, pool: Executor) -> tuple[int, int]:
    """How many configurations passed and failed."""
    passed = failed = 0
    for name, kills, lost, complaints in sweep_all(board, pool):
        failed, passed = (failed + 1, passed) if complaints else (failed, passed + 1)
        print(f"kills: {kills} in a start with {name}; {lost} lost a jump that was not laid yet")
        for text in complaints:
            print(f"FAIL kill sweep, {name}: {text}")
    return passed, failed


def endurance(board: Board, pool: Executor) -> tuple[int, int]:
    """How many kinds of cycles passed and failed."""
    passed = failed = 0
    for name, (cycles, complaints) in zip(CYCLES, pool.map(lambda one: endure(board, one), CYCLES)):
        failed, passed = (failed + 1, passed) if complaints else (failed, passed + 1)
        print(f"endurance: {cycles} times {name}")
        for text in complaints:
            print(f"FAIL endurance, {name}: {text}")
    return passed, failed


def replays(board: Board, pool: Executor, scenarios: list[Scenario]) -> tuple[int, int]:
    """How many scenarios were recorded and replayed, and how many of them not well."""
    passed = failed = 0
    if board.prefix or board.leaks:        # a recording is replayed by what was built for this machine
        return passed, failed
    for scenario, complaints in replay_all(board, pool, scenarios):
        failed, passed = (failed + 1, passed) if complaints else (failed, passed + 1)
        for text in [f"FAIL replay of {label(scenario)}", *complaints] if complaints else []:
            print(text)
    print(f"replayed: {passed} scenarios")
    return passed, failed


def altered(board: Board, pool: Executor) -> tuple[int, int]:
    """How many altered daemons a replay finds where they differ first, and how many not."""
    if board.prefix or board.leaks:
        return 0, 0
    complaints = list(find_all(board, pool))
    found = sum(1 for text in complaints if not text)
    print(f"altered daemons found by a replay: {found - 1} of {len(complaints) - 1}")
    for text in filter(None, complaints):
        print(f"FAIL {text}")
    return found, len(complaints) - found


def main() -> int:
    options = arguments()
    try:
        scenarios = load_all(HERE)
    except ScenarioError as error:
        print(f"error: {error}", file=sys.stderr)
        return 2
    if options.pick:
        scenarios = [one for one in scenarios if options.pick in label(one)]
    if options.firsts:
        scenarios = [one for one in scenarios if one.row == 0]
    if not scenarios:
        print(f"error: no scenario's topic or name holds {options.pick!r}; --list shows them", file=sys.stderr)
        return 2
    if options.list:
        print("\n".join(label(one) for one in scenarios))
        return 0
    board = Board(options.build, options.prefix.split(), leaks=options.leaks)
    if board.missing():
        print(f"error: not built: {', '.join(board.missing())}", file=sys.stderr)
        return 2
    skipped = 0
    if not board.entries.exists():
        skipped = sum(1 for one in scenarios if one.entry)
        scenarios = [one for one in scenarios if not one.entry]
        print(f"{skipped} scenarios of operations without a caller are skipped: {board.entries} is not built")

    started = time.monotonic()
    passed, failed, recorded = 0, 0, []
    with ThreadPoolExecutor(max(1, options.jobs)) as pool:
        for scenario, runs, complaints in pool.map(lambda one: run_one(board, one, options), scenarios):
            recorded.append((scenario, runs))
            if options.show:
                print("\n".join(transcript(scenario, runs)) + "\n")
            if complaints:
                failed += 1
                print(f"FAIL {label(scenario)}\n" + "\n".join(complaints))
            else:
                passed += 1
            progress.at(passed + failed, len(scenarios), label(scenario))
        if not (options.pick or options.show or options.scenarios):
            for counts in (kill_sweep(board, pool), endurance(board, pool), replays(board, pool, scenarios),
                           altered(board, pool)):
                passed, failed = passed + counts[0], failed + counts[1]
    if options.coverage:
        coverage.report(HERE.parent.parent / "src", board, recorded, label)
    print(f"{time.monotonic() - started:.1f} s")
    print(f"{passed} passed, {failed} failed, {skipped} skipped")
    return 1 if failed else 0


if __name__ == "__main__":
    try:
        sys.exit(main())
    except BrokenPipeError:        # nobody reads on, as behind "| head"
        os._exit(1)
