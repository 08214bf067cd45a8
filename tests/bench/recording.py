"""What the recording costs: processor time of the daemon for a request or an event, with it and without.

tests/python tests.bench.recording [--build DIR]. Below the daemon stands the double, so that the times are the
daemon's and the recording's own. The smallest of several runs in turns counts.
"""

import argparse
import os
import subprocess
from pathlib import Path

from tests.conformance.notation import Line
from tests.conformance.recording import Board, temporary_folder
from tests.conformance.scenario import Step, load_fixtures, script_text, step_script

ROOT = Path(__file__).resolve().parents[2]
RUNS = 7
TABLE = "Inter-|\n face |\n" + "".join(f"  lan{i}: {i}000 3 0 0 0 0 0 0 {i}600 6 0 0 0 0 0 0\n" for i in range(1, 9))
ROUTE = '{name: "r", line: "lan1", dstaddr: "10.1.0.0", netmask: "255.255.0.0", gateway: "192.168.1.9", metric: "7"}'
QUESTIONS = {
    "call run": (["call ivarode.run run"], 40000),
    "call status": (["call ivarode.intf status"], 20000),
    "call statist": (["call ivarode.intf statist"], 10000),
    "route added and deleted": ([f"call ivarode.route add {ROUTE}", 'call ivarode.route del {name: ["r"]}'], 5000),
    "sample of the counters": (["timer"], 10000),
}


def processor_time(board: Board, steps: list[str], times: int, recorded: bool) -> float:
    """Seconds of a process that takes the steps so many times."""
    fixtures = load_fixtures(ROOT / "tests/conformance/fixtures.txt")
    lines: list[Line] = [("trace", ""), *fixtures["two-wan-board"].setup, *fixtures["three-lans-two-wans"].setup,
                         ("netdev", TABLE), ("quiet",), ("loop",)]
    lines += [line for step in steps for line in step_script(Step(step, ""))] * times
    with temporary_folder() as folder:
        script = Path(folder) / "script"
        script.write_text(script_text(lines))
        words, environment = board.command(script)
        if recorded:
            library = board.build / "lib/libivarode-record.so"
            environment["LD_PRELOAD"] = f"{library}:{environment['LD_PRELOAD']}"
            environment["IVARODE_RECORD"] = f"{folder}/recording"
        with subprocess.Popen(words, env=environment) as process:
            _, status, usage = os.wait4(process.pid, 0)
            process.returncode = os.waitstatus_to_exitcode(status)
        assert process.returncode == 0, steps
    return usage.ru_utime + usage.ru_stime


def each(board: Board, steps: list[str], times: int) -> tuple[float, float]:
    """Microseconds without and with the recording, less what the start takes."""
    found: dict[tuple[bool, int], float] = {}
    for _ in range(RUNS):
        for recorded in (False, True):
            for count in (0, times):
                key, spent = (recorded, count), processor_time(board, steps, count, recorded)
                found[key] = min(found.get(key, spent), spent)
    without, with_it = ((found[recorded, times] - found[recorded, 0]) / times * 1e6 for recorded in (False, True))
    return without, with_it


def main() -> None:
    parser = argparse.ArgumentParser(prog="tests/python tests.bench.recording", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=ROOT / "build", help="build folder (default: build)")
    board = Board(parser.parse_args().build)
    for question, (steps, times) in QUESTIONS.items():
        without, with_it = each(board, steps, times)
        print(f"{question}: {without:.2f} µs, recorded {with_it:.2f} µs: {with_it - without:+.2f} µs", flush=True)


if __name__ == "__main__":
    main()
