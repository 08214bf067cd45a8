"""The commands of lab/lab."""

from __future__ import annotations

import argparse
import contextlib
import os
import pathlib
import signal
import sys
import threading
from collections.abc import Sequence

from . import boards, capture, carrier, client, machine, paths, recordings, repetition, scenarios, view

EPILOG = """examples:
  lab/lab up --board two-wan --config three-lans   another board and configuration
  lab/lab exec pc1 ping -c3 192.168.1.1            a command in a host (router, pc1.., isp, isp2)
  lab/lab ubus call ivarode.intf status            any ubus command, in the router
  lab/lab link 2 down                              pull the cable of front port 2
  lab/lab capture 0 -c 10                          look at frames on a front port
  lab/lab log --stderr                             what the daemon says beside its log

hosts, boards, configurations, and what to look at when something is odd: docs/lab.md
"""


def parser() -> argparse.ArgumentParser:
    top = argparse.ArgumentParser(prog="lab/lab", description="Raise, see and drive the virtual board.",
                                  epilog=EPILOG, formatter_class=argparse.RawDescriptionHelpFormatter)
    common = argparse.ArgumentParser(add_help=False, argument_default=argparse.SUPPRESS)
    for one, verbose, name in ((top, False, paths.DEFAULT_LAB), (common, argparse.SUPPRESS, argparse.SUPPRESS)):
        one.add_argument("-v", "--verbose", action="store_true", help="print each privileged step", default=verbose)
        one.add_argument("--name", metavar="LAB", help=f"which lab (default: {paths.DEFAULT_LAB})", default=name)
    sub = top.add_subparsers(dest="command", metavar="COMMAND", required=True)

    def add(name: str, text: str) -> argparse.ArgumentParser:
        return sub.add_parser(name, help=text, description=text[0].upper() + text[1:] + ".", parents=[common])

    up = add("up", "raise the lab, or raise its board again")
    up.add_argument("--board", default="one-cpu", help="sample of lab/boards or a file (default: %(default)s)")
    up.add_argument("--config", default="home", help="sample of lab/configs or a folder (default: %(default)s)")
    how = up.add_mutually_exclusive_group()
    how.add_argument("--vm", dest="mode", action="store_const", const="vm", help="inside the small machine")
    how.add_argument("--native", dest="mode", action="store_const", const="native", help="on this kernel")
    how.add_argument("--mips", dest="mode", action="store_const", const="mips",
                     help="inside a small MIPS machine (./run --mips builds for it)")
    add("down", "end the lab and everything in it")
    add("status", "draw ports, VLANs and interfaces")
    link = add("link", "plug or pull the cable of a front port")
    link.add_argument("port", type=int, choices=range(5), help="front port")
    link.add_argument("state", choices=["up", "down"], help="up plugs, down pulls")
    run = add("exec", "run a command in a host")
    run.add_argument("host", metavar="HOST", help="router, pc1 to pc4, isp, isp2, agent or machine")
    run.add_argument("words", nargs=argparse.REMAINDER, metavar="CMD", help="command and its words")
    ubus = add("ubus", "run ubus in the router")
    ubus.add_argument("words", nargs=argparse.REMAINDER, metavar="WORDS", help="what ubus is given")
    switch = add("switch", "show the switch as the router reads it: PVIDs, VLAN table, PHYs")
    switch.add_argument("words", nargs=argparse.REMAINDER, metavar="WORDS", help="--json for programs")
    for name, text in (("routes", "show the router's routing tables"), ("rules", "show its policy rules"),
                       ("chains", "show its iptables chains"), ("instances", "show the supervised processes"),
                       ("services", "show the board's own programs")):
        add(name, text)
    log = add("log", "show the router's system log")
    log.add_argument("-f", "--follow", action="store_true", help="go on as it grows")
    log.add_argument("--stderr", action="store_true", help="what the daemon wrote to standard error instead")
    cap = add("capture", "show the frames of a front port, or write them to a pcap file")
    cap.add_argument("port", choices=[*"01234", "eth0", "eth1"], metavar="PORT",
                     help="0 to 4, or eth0, eth1 for the CPU ports")
    cap.add_argument("-c", "--count", type=int, default=0, metavar="N", help="end after N frames")
    cap.add_argument("-w", "--write", metavar="FILE", help="write a pcap file")
    for name, text in (("start", "start one of the board's own programs"), ("stop", "end one of them"),
                       ("restart", "end one of them and start it again")):
        action = add(name, text)
        action.add_argument("what", choices=["daemon", "broker", "siblings"])
        if name != "stop":
            action.add_argument("--no-wait", dest="wait", action="store_false",
                                help="return before the daemon serves")
    record = add("record", "show a recording of a daemon, line by line")
    record.add_argument("action", choices=["show"], help="what to do with it")
    record.add_argument("file", type=pathlib.Path, metavar="FILE", help="a recording, as /tmp/ivarode.rec of a router")
    record.add_argument("--last", type=natural, metavar="N", help="the last N lines alone")
    record.add_argument("--around", metavar="MESSAGE", help="lines that hold this text, with those around them")
    replay = add("replay", "run a daemon on a recording, and show the first call that differs")
    replay.add_argument("file", type=pathlib.Path, metavar="FILE", help="a recording")
    replay.add_argument("--daemon", type=pathlib.Path, metavar="FILE", help="the daemon (default: that of the build)")
    replay.add_argument("--scenario", type=pathlib.Path, metavar="OUT",
                        help="write it as a scenario of tests/conformance instead")
    replay.add_argument("--board", action="store_true",
                        help="repeat its requests and events on the virtual board instead, and show which answers "
                             "differ")
    replay.add_argument("--until", type=natural, metavar="N", help="of the scenario: up to the N-th event")
    kill = add("kill", "send a signal to one of the board's own programs")
    kill.add_argument("-s", "--signal", type=int, default=15, metavar="N",
                      help="number of the signal, default 15; also -9 and the like")
    kill.add_argument("what", choices=["daemon", "broker", "siblings", "switch"])
    return top


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
    _, why = lab.start(mode or "", notes=sys.stderr, verbose=verbose)
    print(f"lab {lab.name} runs {lab.info()['text']}{'' if mode else ': ' + why}", flush=True)


def up(lab: client.Lab, args: argparse.Namespace) -> int:
    if not lab.alive():
        start_lab(lab, args.mode, args.verbose)
    elif args.mode and args.mode != lab.info()["mode"]:
        raise client.LabError(f"lab {lab.name} is up in another way already: lab/lab down first")
    log = lab.state / "hub.log"
    before = log.stat().st_size
    board = lab.raise_board(args.board, args.config)
    if args.verbose:
        print(log.read_bytes()[before:].decode(errors="replace"), end="")
    since, _ = lab.said("ivarode init success", 90)
    print(f"board {board.name}, configuration {args.config}: the daemon was ready {since:.1f} s after its start")
    return 0


def start_daemon(lab: client.Lab, wait: bool) -> int:
    lab.ok("agent", "start", "daemon")
    if wait:
        since, _ = lab.said("ivarode init success", 90)
        print(f"the daemon was ready {since:.1f} s after its start")
    return 0


def restart_daemon(lab: client.Lab, wait: bool) -> int:
    """As the image's init script does it: what the old daemon has laid goes before the new one starts."""
    lab.ok("agent", "stop", "daemon")
    lab.ok("router", "/lib/ivarode/cleanup.sh", timeout=60)
    return start_daemon(lab, wait)


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


def natural(text: str) -> int:
    number = int(text)
    if number < 0:
        raise ValueError(text)
    return number


def simple(lab: client.Lab, *words: str, host: str = "router") -> int:
    return relay(lab, host, words)


def dispatch(args: argparse.Namespace) -> int:
    lab = client.Lab(args.name)
    command = args.command
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
        print(view.status(lab, colour=sys.stdout.isatty()))
        return 0
    if command == "link":
        lab.link(args.port, args.state == "up")
        return 0
    if command == "exec":
        if not args.words:
            raise client.LabError("no command is given")
        return relay(lab, args.host, args.words)
    if command == "ubus":
        return simple(lab, "ubus", *args.words)
    if command == "switch":
        return simple(lab, "env", "LD_PRELOAD=" + view.SHIM, "ivarode-switch", *args.words)
    if command == "routes":
        return simple(lab, "ip", "-4", "route", "show", "table", "all")
    if command == "rules":
        return simple(lab, "ip", "-4", "rule")
    if command == "chains":
        print(view.chains(lab))
        return 0
    if command == "instances":
        return simple(lab, "ubus", "call", "service", "list")
    if command == "services":
        return simple(lab, "services", host="agent")
    if command == "log":
        path = "/var/log/daemon.log" if args.stderr else "/var/log/messages"
        return simple(lab, *(("tail", "-n", "+1", "-F", path) if args.follow else ("cat", path)))
    if command == "capture":
        return capture.run(lab, args.port, args.count, args.write)
    if command == "kill":
        return simple(lab, "kill", args.what, str(args.signal), host="agent")
    if command == "restart" and args.what == "daemon":
        return restart_daemon(lab, args.wait)
    if command == "start" and args.what == "daemon":
        return start_daemon(lab, args.wait)
    return simple(lab, command, args.what, host="agent")


def parse(argv: list[str]) -> argparse.Namespace:
    """Everything behind "ubus", "switch" and "exec HOST" is theirs, options too; "kill -9 daemon" as one types it."""
    at = 0
    while at < len(argv) and argv[at].startswith("-"):
        at += 2 if argv[at] == "--name" else 1
    command, rest = argv[at:at + 1], argv[at + 1:]
    own = {"ubus": 0, "switch": 0, "exec": 1}.get("".join(command))
    if own is not None and rest[:1] not in (["-h"], ["--help"]):
        args = parser().parse_args(argv[:at + 1] + rest[:own])
        args.words = rest[own:]
        return args
    if command == ["kill"]:
        rest = [a for word in rest for a in (["-s", word[1:]] if word[:1] == "-" and word[1:].isdigit() else [word])]
    return parser().parse_args(argv[:at] + command + rest)


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
