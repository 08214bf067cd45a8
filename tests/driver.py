"""Builds the tree and runs the kinds of tests; ends with the counts of all."""

import argparse
import io
import os
import subprocess
import sys
import tempfile
import threading
import time
from collections.abc import Iterator, Sequence
from pathlib import Path

from labctl import terminal
from tests import progress
from tests.kinds import KINDS
from tests.runners import BUILD, Counts, Out, build, build_for_mips, counting_runner

# What runs on the virtual board mostly waits for its clock: two boards go on beside what keeps the processors busy,
# and are served first.
ON_BOARDS = (("docs", "chaos", "web"), ("system",))
# These need no board and write to no folder of the others, so they run beside them too.
APART = ("mips", "sanitize", "strict")
# The kinds that --vm and --mips are for.
IN_A_MACHINE = ("system", "chaos")
STANDING_BACK = 10
LONGEST_KINDS, LONGEST_TESTS = 5, 10


class Running(terminal.Step):
    """One kind while it runs: a stream for its output, and how far it is, by that and by what it says apart."""

    def __init__(self, kind: str, said: progress.Heard, out: Out) -> None:
        super().__init__(f"{kind:11}", look=lambda _: self.listen())
        self.said, self.out = said, out

    def listen(self) -> None:
        self.said.look()
        if self.said.last:
            self.at(*self.said.last)

    def write(self, text: str) -> int:
        if self.heard(text):        # a build
            self.said.last = None
        return self.out.write(text)

    def flush(self) -> None:
        self.out.flush()


class Report:
    """What is shown: of each kind its output as it comes when it runs alone, else as a whole when it has ended."""

    def __init__(self, live: terminal.Live, alone: bool) -> None:
        self.live, self.alone, self.lock = live, alone, threading.Lock()
        self.total = Counts()
        self.table: dict[str, str] = {}
        self.kinds: list[tuple[float, str]] = []
        self.tests: list[tuple[float, str]] = []

    def run(self, kind: str, long: bool, nice: int) -> None:
        words = ["nice", "-n", nice, "tests/python", "tests.kinds", kind, *(["--long"] if long else [])]
        self.say(f"\n== {kind}: {KINDS[kind][0]}" if self.alone else f"-- {kind} begins")
        start, kept = time.monotonic(), io.StringIO()
        with tempfile.NamedTemporaryFile() as place:
            said = progress.Heard(Path(place.name))
            running = Running(kind, said, self.live) if self.alone else Running(kind, said, kept)
            with self.live.doing(running):
                counts = counting_runner(*words, out=running, stderr=subprocess.STDOUT,
                                         env={**os.environ, progress.PLACE: place.name})
            said.look()
        seconds = time.monotonic() - start
        line = f"{kind:12} {counts}, {seconds:.0f} s"
        self.say("" if self.alone else f"\n== {kind}: {KINDS[kind][0]}\n{kept.getvalue()}-- {line}")
        with self.lock:
            self.total += counts
            self.table[kind] = line
            self.kinds.append((seconds, kind))
            self.tests += [(taken, f"{kind:12} {name}") for taken, name in said.times]

    def say(self, text: str) -> None:
        print(text, file=self.live, flush=True)

    def longest(self) -> Iterator[str]:
        """The kinds and the tests that took longest."""
        for title, timed, most in (("kinds", self.kinds, LONGEST_KINDS), ("tests", self.tests, LONGEST_TESTS)):
            yield f"longest {title}:"
            for seconds, name in sorted(timed, reverse=True)[:most]:
                line = f"{seconds:7.1f} s  {name}"
                yield line[:terminal.size(sys.stdout).columns] if sys.stdout.isatty() else line


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
        terminal.show("\n".join(terminal.wrapped(f"{kind:12} {KINDS[kind][0]}", sys.stdout, 13) for kind in kinds))
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
    with terminal.Live(sys.stdout, rows=len(ON_BOARDS) + 2) as live:
        report = Report(live, alone=len(chosen) == 1)
        run_beside(report, chosen, arguments.long)
    print("\n".join(["", *report.longest(), "", *(report.table[kind] for kind in chosen)]))
    print(report.total, flush=True)
    return 0 if report.total.failed == 0 and report.total.passed > 0 else 1


if __name__ == "__main__":
    try:
        sys.exit(main())
    except KeyboardInterrupt:
        sys.exit(130)
