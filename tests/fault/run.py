"""Makes every call of the daemon fail, one at a time, in every scenario, and looks at what it does then.

The scenarios are those of tests/conformance. Each is run once to count the calls that can fail (platform calls,
switch accesses, allocations, files; a question gets the opposite answer instead), then once more for each of
them. After the failure the daemon must answer with a status it knows, report on both channels alike, leave
nothing open, serve the next requests, and still walk and take down everything it holds. Calls of the start are
failed for the configurations below, once each, not again for every scenario. Counted as passed are scenarios.
"""
import argparse
import functools
import os
import sys
from collections.abc import Iterable, Iterator, Mapping, Sequence
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from labctl.trace import collapse
from tests import progress
from tests.conformance.notation import Line
from tests.conformance.recording import Board, Run, plan, run_process, temporary_folder
from tests.conformance.scenario import Scenario, load_all, load_fixtures, step_script
from tests.docs import books
from tests.facts.daemon import facts

HERE = Path(__file__).resolve().parent
CONFORMANCE = HERE.parent / "conformance"


START_SETUPS = (
    ("one-wan-board", "nothing-configured"),
    ("two-wan-board", "three-lans-two-wans"),
    ("one-wan-board", "lan-and-dhcp-wan"),
    ("one-wan-board", "lan-and-pppoe-wan"),
    ("two-cpu-board", "lan-and-static-wan"),
)
# Its one prescribed endless wait: the method does not move on from an interface whose port cannot be told.
ENDLESS = "statist does not move on from an interface whose link query fails"
PORTS = ("lan1", "lan2", "lan3", "lan4", "wan1", "wan2")

Job = tuple[Scenario, int]              # and the call to fail
Statuses = dict[str, books.Method]      # of "OBJECT METHOD"


def aftermath() -> list[Line]:
    """Requests after a scenario: is the daemon still there, are its lists whole, can all of it be taken down."""
    lines: list[Line] = []
    for key, step in enumerate(aftermath_steps()):
        lines += [("step", f"after{key}"), *step]
    return lines


def aftermath_steps() -> list[list[Line]]:
    def name(method: str, field: Sequence[str], value: bytes) -> list[Line]:
        return [("call", "ivarode.intf", method), ("field", *field, value), (".",)]

    def dump(port: int) -> list[Line]:
        return name("port_dump", ("5", "port"), port.to_bytes(4, "big"))

    steps: list[list[Line]] = [[("forget",), ("call", "ivarode.run", "run"), (".",)]]
    steps += [dump(port) for port in range(5)]
    steps += [[("link", str(port), "1")] for port in range(5)]
    steps.append([("timer",)])
    steps += [name("port_del", ("3", "name"), port.encode() + b"\0") for port in PORTS]
    steps += [dump(port) for port in range(5)]
    return steps


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="tests/fault/run", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default=HERE.parent.parent / "build", type=Path,
                        help="build folder (default: ./build)")
    parser.add_argument("--prefix", default="", help="command to run the daemon with, such as an emulator")
    parser.add_argument("-k", dest="pick", metavar="TEXT", help="only scenarios whose topic or name holds the text")
    parser.add_argument("-j", dest="jobs", type=int, default=os.cpu_count() or 1, help="runs at once")
    parser.add_argument("--every", type=int, default=7, metavar="N", help="only every N-th injection (default: 7)")
    parser.add_argument("--long", action="store_true", help="every injection")
    parser.add_argument("--leaks", action="store_true", help="let a sanitized build look for leaked memory too")
    return parser.parse_args()


def label(scenario: Scenario) -> str:
    return f"{Path(scenario.path).parent.name}/{Path(scenario.path).stem}: {scenario.name}"


def start_scenarios() -> Iterator[Scenario]:
    fixtures = load_fixtures(CONFORMANCE / "fixtures.txt")
    for names in START_SETUPS:
        scenario = Scenario(" + ".join(names), Path("fault/start.txt"), 0)
        for name in names:
            scenario.setup += fixtures[name].setup
            scenario.first += fixtures[name].first
        yield scenario


def script_of(scenario: Scenario, folder: Path | str, fail_at: int) -> tuple[list[Line], dict[str, str]]:
    """The script of a scenario's last process, with the failure and the aftermath; the titles of its steps."""
    lines, steps = plan(scenario, folder, [("fail-at", str(fail_at))] if fail_at else [])[-1]
    end = next(i for i, line in enumerate(lines) if line == ("step", "end"))
    titles = {str(scenario.steps.index(step)): step.title for step in steps}
    return [*lines[:end], *aftermath(), ("step", "end")], titles


def demanded_results(scenario: Scenario) -> set[int]:
    """The results that a scenario itself gives to platform calls."""
    lines = [*scenario.first, *(step_script(step)[0] for step in scenario.steps if step.title.startswith("result "))]
    return {int(line[3]) for line in lines if line[0] == "result"}


def known_statuses() -> Statuses | None:
    """{"OBJECT METHOD": its row of the bus book}; None when a method has none."""
    rows = {f"{name} {method}": row for name, table in books.bus_methods().items() for method, row in table.items()}
    missing = [method for method in map(" ".join, facts().methods()) if method not in rows or not rows[method].statuses]
    for method in missing:
        print(f"error: docs/bus.md says no statuses of {method}: which may it answer when a call below it fails?",
              file=sys.stderr)
    return None if missing else rows


def status_complaint(title: str, line: str, demanded: set[int], statuses: Statuses) -> str | None:
    """A failing platform call's own result, -1 or what the scenario demands, is the status of some methods."""
    method = " ".join(title.split()[1:3])
    status = int(line.split()[1])
    known = statuses[method].statuses | ({-1} | demanded if statuses[method].platform else set())
    return None if status in known else f"{method} answered {status}"


def complaints(run: Run, titles: Mapping[str, str], endless: bool, demanded: set[int], statuses: Statuses) -> list[str]:
    out = []
    allowed = {"0", "-3"} | ({"99"} if endless else set())
    if run.exit not in allowed:
        out.append(f"ended with {run.exit}")
    if run.output:
        out.append("output: " + run.output[:2000])
    for key, part in run.parts.items():
        seen = [line for line in part if not line.startswith("injected") and "_safe_record(" not in line]
        for line in collapse(seen):
            if line.startswith(("syslog(", "outlib_error", "outlib_warning", "outlib_notice")):
                out.append(f"reported on one channel only: {line}")
            if line.startswith(("leak:", "ioctl", "close(", "script error")) or (
                    line.startswith("endless") and not endless):
                out.append(line)
            if line.startswith("status ") and key in titles and titles[key].startswith("call "):
                wrong = status_complaint(titles[key], line, demanded, statuses)
                out += [wrong] if wrong else []
    if run.exit == "0":
        out += aftermath_complaints(run)
    return out


def aftermath_complaints(run: Run) -> list[str]:
    """The daemon answers "run", and port_dump of all five ports comes to its end, before and after the removals."""
    out = []
    steps = aftermath_steps()
    for key, step in enumerate(steps):
        lines = run.parts.get(f"after{key}")
        if lines is None:
            return [f"nothing served any more at {step}"]
        dumped = ("call", "ivarode.intf", "port_dump") in step or ("call", "ivarode.run", "run") in step
        if dumped and "status 0" not in lines:
            out.append(f"after the scenario {step} gave {lines}")
    return out


def one(board: Board, statuses: Statuses, scenario: Scenario, fail_at: int) -> tuple[str, str | None, list[str]]:
    with temporary_folder() as folder:
        lines, titles = script_of(scenario, folder, fail_at)
        run = run_process(board, lines, folder, timeout=60)
    found = complaints(run, titles, scenario.name == ENDLESS, demanded_results(scenario), statuses)
    injected = next((line for part in run.parts.values() for line in part if line.startswith("injected")), None)
    if injected is None:
        found.append("the failure was never injected")
    return label(scenario), injected, found


def points(board: Board, scenario: Scenario, start: bool) -> range:
    """The numbers of the calls to fail: those of the start, or those after it."""
    with temporary_folder() as folder:
        lines, _ = script_of(scenario, folder, 0)
        run = run_process(board, lines, folder, timeout=60)
    keys = [key for key in run.order if key != "start"]
    if not keys:
        return range(0)
    if start:
        return range(1, run.fallible_before[keys[0]] + 1)
    last = next((key for key in keys if key.startswith("after")), None)
    return range(run.fallible_before[keys[0]] + 1, (run.fallible_before[last] if last else run.fallible) + 1)


def distinct(scenarios: Iterable[Scenario]) -> Iterator[Scenario]:
    """Scenarios with steps after the start; of those that differ in expectations alone, one."""
    seen = set()
    for scenario in scenarios:
        steps = tuple((step.title, step.times, *step.content) for step in scenario.steps if step.title != "start")
        key = (tuple(scenario.setup), tuple(scenario.first), steps)
        ends = any(step.title in ("restart", "end") for step in scenario.steps)
        if steps and key not in seen and not scenario.entry and not ends:
            seen.add(key)
            yield scenario


def main() -> int:
    options = arguments()
    board = Board(options.build, options.prefix.split(), leaks=options.leaks)
    if board.missing():
        print(f"error: not built: {', '.join(board.missing())}", file=sys.stderr)
        return 2
    statuses = known_statuses()
    if statuses is None:
        return 2
    todo = [(scenario, True) for scenario in start_scenarios()]
    todo += [(scenario, False) for scenario in distinct(load_all(CONFORMANCE))]
    if options.pick:
        todo = [(scenario, start) for scenario, start in todo if options.pick in label(scenario)]
    injections, wrong, failed = 0, 0, set()
    with ThreadPoolExecutor(max(1, options.jobs)) as pool:
        counted = pool.map(lambda item: (item[0], points(board, *item)), todo)
        jobs = [(scenario, number) for scenario, numbers in counted for number in numbers]
        jobs = jobs[::1 if options.long else options.every]
        for batch in chunks(jobs, 2000):
            for where, injected, found in pool.map(functools.partial(one, board, statuses), *zip(*batch)):
                injections += 1
                progress.at(injections, len(jobs), where)
                if found:
                    wrong += 1
                    failed.add(where)
                    print(f"FAIL {where}\n  {injected}\n" + "\n".join(f"    {text}" for text in found))
    names = {label(scenario) for scenario, _ in jobs}
    print(f"failures injected with complaints: {wrong}")
    print(f"injections in the daemon: {injections}")
    print(f"{len(names) - len(failed)} passed, {len(failed)} failed, 0 skipped")
    return 1 if wrong or not injections else 0


def chunks(items: Sequence[Job], size: int) -> Iterator[Sequence[Job]]:
    return (items[at:at + size] for at in range(0, len(items), size))


if __name__ == "__main__":
    sys.exit(main())
