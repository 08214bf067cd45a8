"""Counts the instructions of fixed scenarios and compares them with instructions.txt.

A scenario fails when it takes over 5 % more instructions than the table says. What is counted is the code of this
repository alone (daemon, platform library, stand-ins): neither the C library, which picks its routines by processor,
nor the recorder, nor the kernel. With --update the table is rewritten; it belongs into the commit that changed it.
The counts hold for the compiler that the table names and for a Release build; others skip.
"""

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
from collections.abc import Sequence
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from tests.conformance import notation
from tests.conformance.notation import Line
from tests.conformance.recording import Board, Command, run_process
from tests.conformance.scenario import load_fixtures

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent


TABLE = HERE / "instructions.txt"
ALLOWED = 1.05
SKIPPED = 77
COUNTED = ("ivarode", "bench-parts", "bench-skeleton", "libsys.so", "libubox.so", "libubus.so", "libuci.so")
TIMES = 200
ROUTES = 1000
HEAD = """\
# Instructions of our own code in fixed scenarios, counted by tests/bench/check. After a change that is worth its
# price: tests/bench/check --update, and commit this file with it.
"""


def call(target: str, message: str) -> list[Line]:
    return [("call", *target.split()), *notation.fields(message), (".",)]


def route(number: int) -> str:
    return (f'{{name: "r{number}", line: "auto", dstaddr: "10.{number >> 8}.{number & 255}.0", '
            'netmask: "255.255.255.0", gateway: "203.0.113.1", metric: "3"}')


NET_DEV = "head\nhead\n" + "".join(f"lan{i % 3 + 1}: {i} 2 0 0 0 0 0 0 {i} 2 0 0 0 0 0 0\n" for i in range(64))
ADD = call("ivarode.intf add", '{intf: "lan2.9", ipaddr: "10.0.0.1", netmask: "255.0.0.0", vlanid1: 9}')
DELETE = call("ivarode.intf del", '{intf: ["lan2.9"]}')
MANY = [line for number in range(ROUTES) for line in call("ivarode.route add", route(number))]
FIND = call("ivarode.route enable", f'{{name: ["r{ROUTES - 1}"], enable: 1}}')

# Name: what the recorded daemon does before, and what is counted. None: the start itself.
RECORDED: dict[str, tuple[list[Line], list[Line] | None]] = {
    "start, three LANs and two WANs": ([], None),
    "200 x run": ([], call("ivarode.run run", "") * TIMES),
    "200 x statistics sample, 64 devices": ([("netdev", NET_DEV)], [("timer",)] * TIMES),
    "200 x statist": ([], call("ivarode.intf statist", "") * TIMES),
    "200 x status": ([], call("ivarode.intf status", "") * TIMES),
    "200 x route added and deleted": ([], (call("ivarode.route add", route(0)) +
                                           call("ivarode.route del", '{name: ["r0"]}')) * TIMES),
    "200 x route found behind 999 others": (MANY, FIND * TIMES),
    "200 x interface added and deleted": ([], (ADD + DELETE) * TIMES),
    "200 x cable pulled and plugged": ([], [("link", "1", "0"), ("link", "1", "1")] * TIMES),
}

# Name: what is prepared and counted with the real platform library in name spaces of its own.
REAL = {
    "1000 routes added by the library, 300 removed": "bench-parts routes 1000 300",
    "1000 routes loaded from the configuration": "bench-parts load 1 1",
    "firewall skeleton": "bench-skeleton",
}
WORLD = """
mount --bind {folder}/etc /etc && ip link set lo up && ip link add lan1_0 type veth peer name far &&
ip address add 203.0.113.2/24 dev lan1_0 && ip link set far up && ip link set lan1_0 up &&
ip rule add preference 10000 lookup 10000 && PATH={folder}/bin:$PATH exec {command}
"""


class Unable(Exception):
    """Why a scenario cannot be run here."""


def valgrind(profile: Path) -> list[str]:
    return ["valgrind", "--tool=callgrind", "--trace-children=no", f"--callgrind-out-file={profile}", "-q"]


def instructions(profile: Path) -> int:
    """Instructions of our own objects in a profile, calls to others not included."""
    total, counted, skip = 0, False, False
    names: dict[str, str] = {}
    for line in Path(profile).read_text(encoding="utf-8").splitlines():
        if line.startswith(("ob=", "cob=")):
            number, _, name = line.partition("=")[2].partition(" ")
            names.setdefault(number, name)
            if line.startswith("ob="):
                path = Path(names[number])
                counted = path.name in COUNTED and path.parent.name != "seam"
        elif line.startswith("calls="):
            skip = True                     # the next line is what the called function took
        elif line[:1] in "+-*0123456789":
            costs = line.split()[1:]        # none: nothing
            total += int(costs[0]) if costs and counted and not skip else 0
            skip = False
    if not total:
        raise Unable("the profile holds none of our instructions")
    return total


class CountingBoard(Board):
    """Runs the recorded daemon under valgrind, which must not be recorded itself."""

    def __init__(self, build: Path, profile: Path) -> None:
        super().__init__(build)
        self.profile = profile

    def command(self, script: Path, entry: Sequence[str] = (), arguments: Sequence[str] = ()) -> Command:
        command, environment = super().command(script, entry, arguments)
        preload = environment.pop("LD_PRELOAD")
        line = valgrind(self.profile)
        line[line.index("--trace-children=no")] = "--trace-children=yes"
        return [*line, "env", "LD_PRELOAD=" + preload, *command], {"PATH": environment["PATH"],
                                                                   "IVARODE_SCRIPT": environment["IVARODE_SCRIPT"]}


def recorded_count(build: Path, steps: Sequence[Line]) -> int:
    fixtures = load_fixtures(HERE.parent / "conformance/fixtures.txt")
    setup = [line for part in ("two-wan-board", "three-lans-two-wans")
             for line in fixtures[part].setup + fixtures[part].first]
    with tempfile.TemporaryDirectory() as folder:
        board = CountingBoard(build, Path(folder) / "profile")
        run = run_process(board, [*setup, ("loop",), ("quiet",), *steps, ("step", "end")], folder, timeout=300)
        if run.exit != "0":
            raise RuntimeError(f"the daemon ended with {run.exit}: {run.output}")
        return instructions(board.profile)


def recorded(build: Path, name: str) -> int:
    before, counted = RECORDED[name]
    if counted is None:
        return recorded_count(build, [])
    return recorded_count(build, [*before, *counted]) - recorded_count(build, before)


def write_world(folder: Path) -> None:
    for name in ("etc/config", "bin"):
        (folder / name).mkdir(parents=True)
    (folder / "etc/config/route_config").write_text("".join(
        f"config route 'r{number}'\n\toption enable '1'\n\toption line 'auto'\n"
        f"\toption dstaddr '10.{number >> 8}.{number & 255}.0'\n\toption netmask '255.255.255.0'\n"
        "\toption gateway '203.0.113.1'\n\toption metric '10'\n" for number in range(ROUTES)), encoding="utf-8")
    iptables = folder / "bin/iptables"
    iptables.write_text('#!/bin/sh\ncase "$*" in *-S*) echo "-P PREROUTING ACCEPT" ;; esac\n', encoding="utf-8")
    iptables.chmod(0o755)


def real(build: Path, name: str) -> int:
    if subprocess.run(["unshare", "-n", "-m", "true"], capture_output=True, check=False).returncode != 0:
        raise Unable("no name spaces of our own here (root is needed)")
    with tempfile.TemporaryDirectory() as text:
        folder = Path(text)
        write_world(folder)
        command = [*valgrind(folder / "profile"), str(build / "bin" / REAL[name].split()[0]), *REAL[name].split()[1:]]
        done = subprocess.run(["unshare", "-n", "-m", "sh", "-c",
                               WORLD.format(folder=folder, command=" ".join(command))],
                              capture_output=True, text=True, check=False, timeout=300)
        if done.returncode != 0:
            raise RuntimeError(f"{REAL[name]}: status {done.returncode} {done.stderr}")
        return instructions(folder / "profile")


def compiler(build: Path) -> str:
    """The compiler of a build, and its kind, as the table names them."""
    cache = (build / "CMakeCache.txt").read_text(encoding="utf-8")
    path, kind = (re.findall(rf"^{name}:\w+=(.*)$", cache, re.MULTILINE)[0]
                  for name in ("CMAKE_CXX_COMPILER", "CMAKE_BUILD_TYPE"))
    version = subprocess.run([path, "-dumpfullversion", "-dumpversion"], capture_output=True, text=True, check=True)
    machine = subprocess.run([path, "-dumpmachine"], capture_output=True, text=True, check=True)
    return f"{machine.stdout.strip()} {version.stdout.strip()} {kind}"


def read_table() -> tuple[str, dict[str, int]]:
    lines = [line for line in TABLE.read_text(encoding="utf-8").splitlines() if line and not line.startswith("#")]
    rows = (line.strip().split(None, 1) for line in lines[1:])
    return lines[0].removeprefix("built by: "), {name: int(count) for count, name in rows}


def measure(build: Path, name: str) -> tuple[str, int | None, str | None]:
    """(name, count, None), or (name, None, why not)."""
    try:
        return name, recorded(build, name) if name in RECORDED else real(build, name), None
    except Unable as error:
        return name, None, str(error)


def verdict(name: str, count: int, wanted: int | None) -> tuple[bool, str]:
    if wanted is None:
        return False, f"FAIL {name}: not in the table"
    change = f"{100 * count / wanted - 100:+.2f} %"
    if count > wanted * ALLOWED:
        return False, f"FAIL {name}: {count} instructions, the table says {wanted} ({change})"
    return True, f"ok   {name:<50} {count:12d}  {change}"


def main() -> int:
    parser = argparse.ArgumentParser(prog="tests/bench/check", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", type=Path, default=ROOT / "build", help="build folder (default: build)")
    parser.add_argument("--update", action="store_true", help="rewrite the table")
    parser.add_argument("-k", metavar="TEXT", default="", help="only scenarios whose names hold the text")
    parser.add_argument("-j", type=int, default=os.cpu_count() or 1, help="scenarios at once")
    options = parser.parse_args()
    names = [name for name in [*RECORDED, *REAL] if options.k in name]
    if not names:
        sys.exit(f"check: no scenario's name holds {options.k!r}")
    if not shutil.which("valgrind"):
        print(f"skipped: valgrind is not installed\n0 passed, 0 failed, {len(names)} skipped")
        return SKIPPED
    built_by = compiler(options.build)
    wanted: dict[str, int] = {}
    if not options.update:
        table_of, wanted = read_table()
        if built_by != table_of:
            print(f"skipped: built by {built_by}, the table is of {table_of}\n0 passed, 0 failed, {len(names)} skipped")
            return SKIPPED
    passed = failed = skipped = 0
    with ThreadPoolExecutor(max(1, options.j)) as pool:
        results = list(pool.map(lambda name: measure(options.build.resolve(), name), names))
    for name, count, why in results:
        if count is None:
            skipped += 1
            print(f"skip {name}: {why}")
        elif not options.update:
            good, text = verdict(name, count, wanted.get(name))
            passed, failed = passed + good, failed + (not good)
            print(text)
    if options.update:
        if options.k or skipped:
            sys.exit("check: the table is written from a whole run only")
        TABLE.write_text(HEAD + f"built by: {built_by}\n" + "".join(
            f"{count:12d}  {name}\n" for name, count, _ in results), encoding="utf-8")
        print(TABLE.read_text(encoding="utf-8"))
        return 0
    if failed:
        print("When the growth is worth it: tests/bench/check --update, and commit instructions.txt with the change.")
    print(f"{passed} passed, {failed} failed, {skipped} skipped")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
