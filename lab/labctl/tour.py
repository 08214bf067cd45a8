"""What ./run does once everything is built: raise the board, check it, show it, stay until Ctrl-C."""

from __future__ import annotations

import argparse
import contextlib
import signal
import sys
import time

from . import boards, carrier, checks, client, machine, paths, progress, topology, view

CHANGE = 'ivarode.intf port_add {"name":"lan2"}'

HINTS = """
The board stays up. Try from another terminal:
  lab/lab status                              ports, VLANs, interfaces
  lab/lab ubus call ivarode.intf status       any bus call
  lab/lab link 2 down                         pull a cable; lab/lab link 2 up
  lab/lab exec pc1 ping -c3 198.51.100.1      any command in any host (router, pc1.., isp)
  lab/lab capture 0 -c5                       frames on a front port
  lab/lab log -f                              the router's log
  lab/lab exec router ivarode-plan            what the next start would do
Ctrl-C here ends it, without a trace."""


class Report:
    def __init__(self, colour: bool) -> None:
        self.colour, self.failed, self.passed = colour, 0, 0

    def line(self, good: bool, text: str) -> None:
        mark, code = ("ok  ", "32") if good else ("FAIL", "31")
        self.passed += good
        self.failed += not good
        print(f"\x1b[{code}m{mark}\x1b[0m {text}" if self.colour else f"{mark} {text}", flush=True)


def options(argv: list[str]) -> argparse.Namespace:
    top = argparse.ArgumentParser(prog="./run",
                                  description="Builds everything, boots the virtual board with the daemon on it, "
                                  "checks it with real frames, and leaves it up to be played with.")
    top.add_argument("--check", action="store_true", help="end after the checks, with their verdict")
    how = top.add_mutually_exclusive_group()
    how.add_argument("--vm", dest="mode", action="store_const", const="vm",
                     help="inside the small machine, whatever this kernel has")
    how.add_argument("--native", dest="mode", action="store_const", const="native", help="on this kernel")
    how.add_argument("--mips", dest="mode", action="store_const", const="mips",
                     help="inside a small little-endian MIPS machine, with all programs built for it")
    top.add_argument("--board", default="one-cpu", help="sample of lab/boards or a file (default: %(default)s)")
    top.add_argument("--config", default="home", help="sample of lab/configs or a folder (default: %(default)s)")
    top.add_argument("--name", default=paths.DEFAULT_LAB, help=argparse.SUPPRESS)
    return top.parse_args(argv)


def tour(lab: client.Lab, args: argparse.Namespace, report: Report, colour: bool) -> None:
    began = time.monotonic()
    if lab.alive():
        print(f"A lab named {lab.name} is up: ending it first.", flush=True)
        lab.stop()
    with progress.shown("the machine of the board starts", sys.stdout):
        mode, why = lab.start(args.mode or "", tied=True, notes=sys.stdout)
    info = lab.info()
    print(f"The board runs {info['text']}{'' if args.mode or mode == 'native' else ': ' + why} "
          f"({time.monotonic() - began:.1f} s).", flush=True)
    with progress.shown("the board comes up, five seconds of it the daemon's own pause", sys.stdout):
        board = lab.raise_board(args.board, args.config)
        since, _ = lab.said("ivarode init success", 90)
    report.line(True, checks.footprint(lab, since))
    about = topology.Topology(board, args.config)
    results = []
    for name, check in checks.applicable(about):
        try:
            results.append((True, check(lab, about)))
        except (checks.Failure, client.LabError, TimeoutError) as error:
            results.append((False, f"{name}: {error}"))
        report.line(*results[-1])
    print("\n" + view.status(lab, colour) + "\n")
    print(lab.run("router", "ubus", "list", "-v").out)
    print(f"What one change would do, before it is made:\n$ ivarode-plan --call '{CHANGE}'\n...\n{planned(lab)}")
    verdict = f"{report.passed} checks passed, {report.failed} failed"
    print(f"{verdict}, {time.monotonic() - began:.0f} s after the build.", flush=True)


def planned(lab: client.Lab) -> str:
    """The plan of one change, from its request on."""
    said = lab.run("router", "ivarode-plan", "--call", CHANGE).out
    return said[max(said.find(CHANGE), 0):]


def print_log(lab: client.Lab) -> None:
    """What the board said last, for who must find out why a check failed."""
    with contextlib.suppress(client.LabError, TimeoutError):
        print("\nThe end of the logs:\n" + lab.shell("router", LAST_WORDS, timeout=10).out, flush=True)


LAST_WORDS = """tail -n 25 /var/log/messages /var/log/*.log
for pid in $(pidof ivarode); do grep -H State /proc/$pid/status; cat /proc/$pid/wchan; echo; done
busybox ps"""


def main(argv: list[str]) -> int:
    args = options(argv)
    colour = sys.stdout.isatty()
    stay = not args.check and sys.stdin.isatty() and sys.stdout.isatty()
    lab, report = client.Lab(args.name), Report(colour)
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(1))
    try:
        tour(lab, args, report, colour)
        if stay and not report.failed:
            print(HINTS, flush=True)
            while lab.alive():
                time.sleep(1)
    except KeyboardInterrupt:
        print()
    except (client.LabError, boards.ConfigError, carrier.CarrierError, machine.MachineError) as error:
        report.line(False, str(error))
    finally:
        if report.failed:
            print_log(lab)
        lab.stop()
    return 0 if report.passed and not report.failed else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
