"""Answers what the daemon costs, each figure beside its limit or a peer in the same run; writes docs/performance.md.

Needs a Release build with tests, root and strace; what needs VLAN devices runs where the lab runs (this kernel, or the
small machine). --quick takes fewer rounds, is done in under two minutes on an idle machine, and only prints the table.
So does --libs, which asks the same questions on other bus and configuration libraries.
"""

import argparse
import contextlib
import os
import platform
import re
import subprocess
import sys
import time
from collections.abc import Callable, Sequence
from pathlib import Path
from typing import Any

from tests.bench import book, libraries, on_board, on_host, recorded, report
from tests.bench.row import Row

FAILURES = (*on_board.FAILURES, subprocess.SubprocessError, OSError, KeyError, ValueError)

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(prog="tests/bench/run", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=ROOT / "build", help="build folder (default: build)")
    parser.add_argument("--mipsel", type=Path, help="a mipsel build folder, for its sizes (default: build-mipsel)")
    parser.add_argument("--libs", type=Path, metavar="DIR",
                        help="a folder with libubox.so, libblobmsg_json.so, libubus.so, libuci.so, or some of them, to "
                             "be measured in place of the build's; the table alone")
    parser.add_argument("--quick", action="store_true", help="fewer rounds, the table alone")
    parser.add_argument("--only", choices=("host", "board", "vlans"), help="a part of it, the table alone")
    return parser.parse_args()


def machine() -> str:
    """This machine in words."""
    system = re.search(r'PRETTY_NAME="([^"(]*)', Path("/etc/os-release").read_text(encoding="utf-8"))
    compiler = subprocess.run(["c++", "-dumpfullversion"], capture_output=True, text=True, check=False).stdout.strip()
    virtual = "hypervisor" in Path("/proc/cpuinfo").read_text(encoding="utf-8")
    kernel, name = ".".join(platform.release().split(".")[:2]), system[1].strip() if system else "Linux"
    return (f"{os.cpu_count() or 1} {platform.machine().replace('_', '-')} cores"
            f"{' of a virtual machine' if virtual else ''}, Linux {kernel}, {name}, "
            f"g++ {compiler}; load {os.getloadavg()[0]:.1f} when the run began")


class Run:
    """The rows of all parts, what the plots need, and what could not be had."""

    def __init__(self, options: argparse.Namespace, build: Path) -> None:
        self.options, self.build = options, build
        self.rows: list[Row] = []
        self.plots: dict[str, Any] = {}
        self.lacking: list[str] = []

    def part(self, what: tuple[str, str], measure: Callable[[], Sequence[Any]], *fallback: Any) -> Sequence[Any]:
        """Measures a part; a part that cannot be had leaves a line that says why."""
        if self.options.only and what[0] not in self.options.only:
            return fallback
        print(f"bench: {what[1]} ...", file=sys.stderr, flush=True)
        try:
            return measure()
        except FAILURES as error:
            reason = str(error).strip().splitlines() or ["no reason given"]
            self.lacking.append(f"{what[1]}: not measured ({reason[-1]})")
            print("bench: " + self.lacking[-1], file=sys.stderr, flush=True)
            return fallback

    def measure(self) -> None:
        os.environ["IVARODE_BUILD"] = str(self.build)     # what the lab runs
        quick, build = self.options.quick, self.build
        why = on_board.lacking()
        if why:
            sys.exit("bench: " + why)
        calls, routes, self.plots["routes"], memory, switch = self.part(
            ("board", "bus calls, routes and frames on a board"),
            lambda: on_board.without_vlans(build, quick), [], [], {}, [], None)
        recording = self.part(("board", "a daemon that is recorded, beside one that is not"),
                              lambda: (recorded.rows(build, quick),), [])[0]
        starts, interfaces, statist, more_memory = self.part(
            ("vlans", "start, interfaces and statistics on a board with VLAN devices"),
            lambda: on_board.with_vlans(build, quick), [], [], [], [])
        mips = self.part(("vlans", "the start on MIPS"),
                         lambda: ([] if quick or self.options.libs else on_board.on_mips(build),), [])[0]
        firewall = self.part(("host", "the firewall skeleton"), lambda: (on_host.firewall_rows(build, quick),), [])[0]
        load, self.plots["load"] = self.part(("host", "routes from the configuration"),
                                             lambda: on_host.load_rows(build, quick), [], {})
        samples, self.plots["samples"] = self.part(
            ("host", "statistics samples"),
            lambda: on_host.sample_rows(build, quick, ROOT / "lab/boards/one-cpu.json"), [], {})
        mipsel = self.options.mipsel or next((folder for folder in (build / "mipsel", ROOT / "build-mipsel")
                                              if (folder / "bin/ivarode").exists()), None)
        sizes = self.part(("host", "sizes"), lambda: (on_host.size_rows(build, mipsel),), [])[0]
        self.rows = [*calls[2:], *statist, *interfaces, *load, *routes, *firewall, *starts, *mips, *samples,
                     *memory, *more_memory, *sizes, *recording, *calls[:2], *([switch] if switch else [])]


def main() -> int:
    options = arguments()
    if not (options.build / "bin/bench").exists():
        sys.exit(f"bench: nothing to measure in {options.build} (cmake -DIVARODE_TESTS=ON -DCMAKE_BUILD_TYPE=Release)")
    began, described = time.monotonic(), machine()
    build, given = options.build.resolve(), options.libs and options.libs.resolve()
    try:
        with libraries.exchanged(build, given) if given else contextlib.nullcontext(build) as folder:
            measured = libraries.described(folder, given)
            run = Run(options, folder)
            run.measure()
    except FileNotFoundError as error:
        sys.exit(f"bench: {error}")
    described += f" and {os.getloadavg()[0]:.1f} when it ended"
    print(report.as_text(run.rows))
    print("\n".join(["", *run.lacking, "Machine: " + described, "Libraries: " + measured,
                     f"{time.monotonic() - began:.0f} s"]))
    if options.quick or options.only or options.libs:
        print("docs/performance.md is left as it is; a whole run writes it.")
    elif run.lacking:
        print("docs/performance.md is left as it is: parts are missing.")
        return 1
    else:
        book.write(ROOT / "docs", run.rows, run.plots, described)
        print("docs/performance.md is written.")
    return 0


if __name__ == "__main__":
    sys.exit(main())
