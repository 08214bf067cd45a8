"""The words of lab/lab: its commands and their arguments, as one parser; what completes them reads the same one."""

from __future__ import annotations

import argparse
import pathlib
import sys
import textwrap
from typing import NoReturn

from . import paths

EPILOG = """examples:
  lab/lab up --board two-wan --config three-lans    another configuration
  lab/lab exec pc1 ping -c3 192.168.1.1             a command in a host
  lab/lab ubus call ivarode.intf status             any ubus command
  lab/lab link 2 down                               pull a cable
  lab/lab capture 0 -c 10                           look at frames of a port
  lab/lab COMMAND --help                            more about a command

hosts, boards, configurations, what to do when something is odd: docs/lab.md
"""
PORTS = [*"01234", "eth0", "eth1"]
TABLES = ["mangle", "nat", "filter"]
PROGRAMS = ["daemon", "broker", "siblings"]
WIDTH = 79


class Parser(argparse.ArgumentParser):
    """Its complaints keep their words whole on a narrow terminal."""

    def error(self, message: str) -> NoReturn:
        self.print_usage(sys.stderr)
        self.exit(2, textwrap.fill(f"{self.prog}: error: {message}", WIDTH, break_on_hyphens=False,
                                   break_long_words=False) + "\n")


def natural(text: str) -> int:
    number = int(text)
    if number < 0:
        raise ValueError(text)
    return number


def parser() -> argparse.ArgumentParser:
    top = Parser(prog="lab/lab", description="Raise, see and drive the virtual board.", epilog=EPILOG,
                 formatter_class=argparse.RawDescriptionHelpFormatter)
    common = Parser(add_help=False, argument_default=argparse.SUPPRESS)
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
    switch = add("switch", "show the switch as the router reads it")
    switch.add_argument("words", nargs=argparse.REMAINDER, metavar="WORDS", help="--json for programs")
    routes = add("routes", "show the router's routing tables")
    routes.add_argument("table", nargs="?", metavar="TABLE", help="one of them alone (default: all but local)")
    add("rules", "show its policy rules")
    chains = add("chains", "show its iptables chains")
    chains.add_argument("table", nargs="?", choices=TABLES, metavar="TABLE",
                        help=f"one table alone: {', '.join(TABLES)}")
    add("instances", "show the supervised processes")
    add("services", "show the board's own programs")
    log = add("log", "show the router's system log")
    log.add_argument("-f", "--follow", action="store_true", help="go on as it grows")
    log.add_argument("-n", "--lines", type=natural, metavar="N", help="the last N lines alone")
    log.add_argument("--stderr", action="store_true", help="what the daemon wrote to standard error instead")
    cap = add("capture", "show the frames of a port, or write them to a file")
    cap.add_argument("port", choices=PORTS, metavar="PORT", help="0 to 4, or eth0, eth1 for the CPU ports")
    cap.add_argument("-c", "--count", type=int, default=0, metavar="N", help="end after N frames")
    cap.add_argument("-w", "--write", metavar="FILE", help="write a pcap file")
    for name, text in (("start", "start one of the board's own programs"), ("stop", "end one of them"),
                       ("restart", "end one of them and start it again")):
        action = add(name, text)
        action.add_argument("what", choices=PROGRAMS)
        if name != "stop":
            action.add_argument("--no-wait", dest="wait", action="store_false",
                                help="return before the daemon serves")
    reload = add("reload", "do what a changed configuration of the daemon asks for, and no more")
    reload.add_argument("what", choices=["daemon"])
    reload.add_argument("--keep", action="store_true", help="keep what was added over the bus")
    reload.add_argument("--no-wait", dest="wait", action="store_false", help="return before the daemon serves")
    record = add("record", "show a recording of a daemon, line by line")
    record.add_argument("action", choices=["show"], help="what to do with it")
    record.add_argument("file", type=pathlib.Path, metavar="FILE", help="a recording, as /tmp/ivarode.rec of a router")
    record.add_argument("--last", type=natural, metavar="N", help="the last N lines alone")
    record.add_argument("--around", metavar="MESSAGE", help="lines that hold this text, with those around them")
    replay = add("replay", "run a daemon on a recording")
    replay.add_argument("file", type=pathlib.Path, metavar="FILE", help="a recording")
    replay.add_argument("--daemon", type=pathlib.Path, metavar="FILE", help="the daemon (default: that of the build)")
    replay.add_argument("--scenario", type=pathlib.Path, metavar="OUT",
                        help="write it as a scenario of tests/conformance instead")
    replay.add_argument("--board", action="store_true",
                        help="repeat its requests and events on the virtual board instead, and show which answers "
                             "differ")
    replay.add_argument("--until", type=natural, metavar="N", help="of the scenario: up to the N-th event")
    complete = add("completion", "print what completes these words in bash")
    complete.add_argument("program", nargs="?", default="lab/lab", metavar="NAME",
                          help="as which the program is called (default: %(default)s)")
    page = add("web", "serve the board's page on this machine, until Ctrl-C")
    page.add_argument("--port", type=int, default=0, metavar="N", help="port to serve it on (default: a free one)")
    kill = add("kill", "send a signal to one of the board's own programs")
    kill.add_argument("-s", "--signal", type=int, default=15, metavar="N",
                      help="number of the signal, default 15; also -9 and the like")
    kill.add_argument("what", choices=[*PROGRAMS, "switch"])
    return top


# What follows these commands, and so many words of their own, belongs to another program, options too.
FOREIGN = {"ubus": 0, "switch": 0, "exec": 1}


def parse(argv: list[str]) -> argparse.Namespace:
    """Options after "ubus", "switch" and "exec HOST" are not ours; "kill -9 daemon" as one types it."""
    at = 0
    while at < len(argv) and argv[at].startswith("-"):
        at += 2 if argv[at] == "--name" else 1
    command, rest = argv[at:at + 1], argv[at + 1:]
    own = FOREIGN.get("".join(command))
    if own is not None and rest[:1] not in (["-h"], ["--help"]):
        args = parser().parse_args(argv[:at + 1] + rest[:own])
        args.words = rest[own:]
        return args
    if command == ["kill"]:
        rest = [a for word in rest for a in (["-s", word[1:]] if word[:1] == "-" and word[1:].isdigit() else [word])]
    return parser().parse_args(argv[:at] + command + rest)
