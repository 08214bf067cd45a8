"""Builds the tree and runs the kinds of tests; ends with the counts of all."""

import argparse
import io
import os
import subprocess
import sys
import threading
import time
from collections.abc import Sequence

from tests.kinds import KINDS
from tests.runners import BUILD, Counts, build, build_for_mips, counting_runner

# What runs on the virtual board mostly waits for its clock: two boards go on beside what keeps the processors busy,
# and are served first.
ON_BOARDS = (("docs", "chaos", "web"), ("system",))
# These need no board and write to no folder of the others, so they run beside them too.
APART = ("mips", "sanitize", "strict")
# The kinds that --vm and --mips are for.
IN_A_MACHINE = ("system", "chaos")
STANDING_BACK = 10


class Report:
    """What is shown: of each kind its output as it comes when it runs alone, else as a whole when it has ended."""

    def __init__(self, alone: bool) -> None:
        self.alone, self.lock = alone, threading.Lock()
        self.total = Counts()
        self.table: dict[str, str] = {}

    def run(self, kind: str, long: bool, nice: int) -> None:
        words = ["tests/python", "tests.kinds", kind, *(["--long"] if long else [])]
        self.say(f"\n== {kind}: {KINDS[kind][0]}" if self.alone else f"-- {kind} begins")
        start, kept = time.monotonic(), io.StringIO()
        counts = counting_runner("nice", "-n", nice, *words, out=sys.stdout if self.alone else kept,
                                 stderr=subprocess.STDOUT)
        line = f"{kind:12} {counts}, {time.monotonic() - start:.0f} s"
        self.say("" if self.alone else f"\n== {kind}: {KINDS[kind][0]}\n{kept.getvalue()}-- {line}")
        with self.lock:
            self.total += counts
            self.table[kind] = line

    def say(self, text: str) -> None:
        with self.lock:
            print(text, flush=True)


def run_beside(report: Report, kinds: Sequence[str], long: bool) -> None:
    """The kinds in rows, those on the boards beside the others."""
    on_boards = [[kind for kind in row if kind in kinds] for row in ON_BOARDS]
    apart = [kind for kind in APART if kind in kinds]
    others = [kind for kind in kinds if not any(kind in row for row in [*on_boards, apart])]
    standing_back = STANDING_BACK if any(on_boards) else 0

    def go(row: Sequence[str], nice: int) -> None:
        for kind in row:
            report.run(kind, long, nice)

    threads = [threading.Thread(target=go, args=[row, 0], daemon=True) for row in on_boards]
    threads += [threading.Thread(target=go, args=[row, standing_back], daemon=True) for row in (others, apart)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


def main() -> int:
    parser = argparse.ArgumentParser(prog="./test", description=__doc__)
    kinds = list(KINDS)
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
        apart = [kind for kind in arguments.only if kind not in IN_A_MACHINE]
        if apart:
            parser.error(f"--{arguments.mode} is for {' and '.join(IN_A_MACHINE)}, not for {', '.join(apart)}")
        os.environ["IVARODE_LAB_MODE"] = arguments.mode
    if arguments.mode == "mips":
        build_for_mips(BUILD / "mipsel")
    else:
        build(BUILD, "-DCMAKE_BUILD_TYPE=Release")
    chosen = arguments.only or kinds
    report = Report(alone=len(chosen) == 1)
    run_beside(report, chosen, arguments.long)
    print("\n" + "\n".join(report.table[kind] for kind in chosen))
    print(report.total, flush=True)
    return 0 if report.total.failed == 0 and report.total.passed > 0 else 1


if __name__ == "__main__":
    sys.exit(main())
