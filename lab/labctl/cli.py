"""The commands of lab/lab."""

from __future__ import annotations

import argparse
import contextlib
import os
import signal
import sys
import threading
import time
from collections.abc import Sequence

from . import (boards, bus, capture, carrier, client, completion, machine, recordings, repetition, scenarios,
               terminal, topology, view)
from .commands import parse
from .web import pages


def relay(lab: client.Lab, host: str, words: Sequence[str]) -> int:
    """Runs a command with our own standard streams; its status."""
    with lab.spawn(host, *words) as command:
        def feed() -> None:
            with contextlib.suppress(OSError):      # we may be at our end already
                while data := os.read(0, 65536):
                    command.write(data)
                command.end_input()

        if sys.stdin is None or sys.stdin.isatty():
            command.end_input()                     # there is no terminal on the other side
        else:
            threading.Thread(target=feed, daemon=True).start()
        signal.signal(signal.SIGTERM, lambda *_: command.kill(15))
        while True:
            try:
                for stream, data in command.frames():
                    out = sys.stdout if stream == 1 else sys.stderr
                    out.buffer.write(data)
                    out.buffer.flush()
                break
            except KeyboardInterrupt:
                command.kill(signal.SIGINT)
        if command.failure or command.status is None:
            raise client.LabError(command.failure)
        return command.status


def start_lab(lab: client.Lab, mode: str | None, verbose: bool) -> None:
    with terminal.doing("Looking at what this kernel has") as live:
        _, why = lab.start(mode or "", live=live, verbose=verbose)
    print(f"lab {lab.name} runs {lab.info()['text']}{'' if mode else ': ' + why}", flush=True)


def up(lab: client.Lab, args: argparse.Namespace) -> int:
    boards.check("boards", args.board)
    boards.check("configs", args.config)
    if not lab.alive():
        start_lab(lab, args.mode, args.verbose)
    elif args.mode and args.mode != lab.info()["mode"]:
        raise client.LabError(f"lab {lab.name} is up in another way already: lab/lab down first")
    log = lab.state / "hub.log"
    before = log.stat().st_size
    with terminal.doing("Raising hosts and switch of the board"):
        board = lab.raise_board(args.board, args.config)
    if args.verbose:
        print(log.read_bytes()[before:].decode(errors="replace"), end="")
    since = until_it_serves(lab)
    print(f"board {board.name}, configuration {args.config}: the daemon was ready {since:.1f} s after its start")
    for line in topology.Topology(board, args.config).unanswered():
        print(line)
    return 0


DAEMON_STARTS = ("Starting the daemon (5 s are its own pause)", 5.5)


def until_it_serves(lab: client.Lab) -> float:
    """Seconds from the daemon's start until it serves."""
    with terminal.doing(*DAEMON_STARTS):
        since, _ = lab.said("ivarode init success", 90)
    return since or 0.0


# The image's own words for what comes before the daemon; who runs it is the board's affair.
BEFORE_START = """for name in open_instance set_param add_jail close_instance; do eval "procd_$name() { :; }"; done
. /etc/init.d/ivarode && start_service"""


NO_PLAN = 3             # of /lib/ivarode/reload.sh


def start_daemon(lab: client.Lab, wait: bool) -> int:
    """As the image's init script does it, which also switches forwarding on."""
    if "daemon running" in lab.ok("agent", "services"):
        raise client.LabError("daemon is running already")
    lab.shell("router", BEFORE_START, check=True)
    lab.ok("agent", "start", "daemon")
    if wait:
        print(f"the daemon was ready {until_it_serves(lab):.1f} s after its start")
    return 0


def restart_daemon(lab: client.Lab, wait: bool) -> int:
    """As the image's init script does it: what the old daemon has laid goes before the new one starts."""
    with terminal.doing("Ending the daemon, and cleaning up behind it"):
        lab.ok("agent", "stop", "daemon")
        lab.ok("router", "/lib/ivarode/cleanup.sh", timeout=60)
    return start_daemon(lab, wait)


def reload_daemon(lab: client.Lab, keep: bool, wait: bool) -> int:
    """As the image's init script does it: what is to go goes, and the new daemon starts over the rest."""
    status = relay(lab, "router", ["/lib/ivarode/reload.sh", *(["--keep"] if keep else [])])
    if status == NO_PLAN:
        return restart_daemon(lab, wait)
    if not lab.run("router", "pidof", "ivarode"):
        while "daemon running" in lab.ok("agent", "services"):
            time.sleep(0.02)        # its parent hears of the end a moment later
        start_daemon(lab, wait)
    return status


def replay(lab: client.Lab, args: argparse.Namespace) -> int:
    if args.board:
        if args.daemon or args.scenario:
            raise recordings.RecordingError("--board goes without --daemon and --scenario")
        kept = repetition.Kept(args.file)
        if not lab.alive():
            start_lab(lab, None, args.verbose)
        return 0 if repetition.repeat(lab, kept, lambda line: print(line, flush=True)) else 1
    if args.scenario is not None:
        text = scenarios.written(args.file, args.until, args.daemon)
        args.scenario.write_text(text, encoding="utf-8", errors="surrogateescape")
        return 0
    verdict = recordings.play(args.file, args.daemon)
    print(verdict.text)
    return 0 if verdict.same else 1


def simple(lab: client.Lab, *words: str, host: str = "router") -> int:
    return relay(lab, host, words)


def dispatch(args: argparse.Namespace) -> int:
    lab = client.Lab(args.name)
    command = args.command
    if command == "completion":
        print(completion.script(args.program), end="")
        return 0
    if command == "record":
        print("\n".join(recordings.show(args.file, args.last, args.around)))
        return 0
    if command == "replay":
        return replay(lab, args)
    if command == "up":
        return up(lab, args)
    if command == "down":
        print(f"lab {lab.name} is down" if lab.stop() else f"lab {lab.name} was not up")
        return 0
    if command == "status":
        terminal.show(view.status(lab))
        return 0
    if command == "link":
        lab.link(args.port, args.state == "up")
        return 0
    if command == "exec":
        if not args.words:
            raise client.LabError("no command is given")
        return relay(lab, args.host, args.words)
    if command == "ubus":
        return bus.call(lab, args.words) if bus.is_call(args.words) else simple(lab, "ubus", *args.words)
    if command == "switch":
        return simple(lab, "ivarodectl", "switch", *args.words)
    if command == "routes":
        terminal.show(view.routes(lab, args.table))
        return 0
    if command == "rules":
        return simple(lab, "ip", "-4", "rule")
    if command == "chains":
        terminal.show(view.chains(lab, args.table))
        return 0
    if command == "instances":
        return simple(lab, "ubus", "call", "service", "list")
    if command == "services":
        return simple(lab, "services", host="agent")
    if command == "log":
        path = "/var/log/daemon.log" if args.stderr else "/var/log/messages"
        lines = "+1" if args.lines is None else str(args.lines)
        return simple(lab, "tail", "-n", lines, *(["-F"] if args.follow else []), path)
    if command == "web":
        return pages.serve(lab, args.port)
    if command == "capture":
        return capture.run(lab, args.port, args.count, args.write)
    if command == "kill":
        return simple(lab, "kill", args.what, str(args.signal), host="agent")
    if command == "restart" and args.what == "daemon":
        return restart_daemon(lab, args.wait)
    if command == "reload":
        return reload_daemon(lab, args.keep, args.wait)
    if command == "start" and args.what == "daemon":
        return start_daemon(lab, args.wait)
    return simple(lab, command, args.what, host="agent")


def main(argv: list[str]) -> int:
    args = parse(argv)
    try:
        return dispatch(args)
    except (client.LabError, boards.ConfigError, carrier.CarrierError, machine.MachineError) as error:
        print(f"lab/lab: {error}", file=sys.stderr)
        return 1
    except recordings.RecordingError as error:
        print(f"lab/lab: {error}", file=sys.stderr)
        return 2
    except KeyboardInterrupt:
        return 130
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), 1)
        return 0
