"""What ./run does once everything is built: raise the board, check it, show it, stay until Ctrl-C."""

from __future__ import annotations

import argparse
import contextlib
import signal
import sys
import time

from . import boards, carrier, checks, client, machine, paths, terminal, topology, view

CHANGE = 'ivarode.intf port_add {"name":"lan2"}'

HINTS = """The board stays up until Ctrl-C. Try from another terminal:
  lab/lab status                           ports, VLANs, interfaces
  lab/lab web                              the board in a browser
  lab/lab link 2 down                      pull a cable; lab/lab link 2 up
  lab/lab exec pc1 ping -c3 198.51.100.1   any command in router, pc1, isp ...
  lab/lab ubus call ivarode.intf status    any bus call
  lab/lab log -f, lab/lab capture 0 -c5    the router's log, frames on a port
  lab/lab exec router ivarode-plan         what the next start would do"""


class Report:
    def __init__(self, live: terminal.Live) -> None:
        self.live, self.failed, self.passed = live, 0, 0

    def line(self, good: bool, text: str) -> None:
        mark, code = ("ok  ", 32) if good else ("FAIL", 31)
        self.passed += good
        self.failed += not good
        line = terminal.wrapped(f"{mark} {text}", self.live.out, len(mark) + 1)
        self.say(line.replace(mark, terminal.painted(code, mark, self.live.out), 1))

    def say(self, text: str) -> None:
        print(text, file=self.live, flush=True)

    def verdict(self) -> str:
        return f"{self.passed} checks passed, {self.failed} failed"


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
    top.add_argument("-v", "--verbose", action="store_true",
                     help="also show the objects of the bus and the plan of a change, as without a terminal")
    top.add_argument("--name", default=paths.DEFAULT_LAB, help=argparse.SUPPRESS)
    return top.parse_args(argv)


def tour(lab: client.Lab, args: argparse.Namespace, report: Report, stay: bool) -> None:
    began, live = time.monotonic(), report.live
    if lab.alive():
        report.say(f"A lab named {lab.name} is up: ending it first.")
        lab.stop()
    with live.doing("Looking at what this kernel has"):
        mode, why = lab.start(args.mode or "", tied=True, live=live)
    info = lab.info()
    line = f"The board runs {info['text']}{'' if args.mode or mode == 'native' else ': ' + why}"
    report.say(terminal.wrapped(f"{line} ({time.monotonic() - began:.1f} s).", live.out, 2))
    with live.doing("Raising hosts and switch of the board"):
        board = lab.raise_board(args.board, args.config)
    with live.doing("Starting the daemon (5 s are its own pause)", 5.5):
        since, _ = lab.said("ivarode init success", 90)
    report.line(True, checks.footprint(lab, since))
    about = topology.Topology(board, args.config)
    applicable = list(checks.applicable(about))
    with live.doing("Checking") as step:
        for number, (name, check) in enumerate(applicable):
            step.at(number, len(applicable), name)
            try:
                good, text = True, check(lab, about)
            except (checks.Failure, client.LabError, TimeoutError) as error:
                good, text = False, f"{name}: {error}"
            report.line(good, text)
    show(lab, report, began, args.verbose or not live.out.isatty(), stay and not report.failed)


def show(lab: client.Lab, report: Report, began: float, whole: bool, stay: bool) -> None:
    """The board and the verdict, on a terminal as its last lines. whole: also what fills several of them."""
    hints = HINTS if stay else ""
    with report.live.doing("Drawing the board, with two samples of its counters"):
        drawn = view.drawing(lab, hints.count("\n") + 2)
        change = f"$ ivarode-plan --call '{CHANGE}'\n...\n{planned(lab)}" if whole else ""
    if whole:
        report.say("\n" + lab.run("router", "ubus", "list", "-v").out)
        report.say(f"What one change would do, before it is made:\n{change}")
    report.say(f"{drawn}\n{report.verdict()}, {time.monotonic() - began:.0f} s after the build.")
    if hints:
        report.say(hints)


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
    stay = not args.check and sys.stdin.isatty() and sys.stdout.isatty()
    lab = client.Lab(args.name)
    for number in (signal.SIGTERM, signal.SIGHUP):
        signal.signal(number, lambda *_: sys.exit(1))
    with terminal.Live(sys.stdout) as live:
        report = Report(live)
        try:
            tour(lab, args, report, stay)
            while stay and not report.failed and lab.alive():
                time.sleep(1)
        except KeyboardInterrupt:
            report.say("")
        except (client.LabError, boards.ConfigError, carrier.CarrierError, machine.MachineError) as error:
            report.line(False, str(error))
        finally:
            if report.failed:
                print_log(lab)
            with live.doing("Ending the board"):
                lab.stop()
    return 0 if report.passed and not report.failed else 1


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
