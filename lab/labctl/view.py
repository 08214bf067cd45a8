"""The lab shown to a person: the router as its own tool draws it, hosts and cables, routes, iptables chains."""

from __future__ import annotations

import re
import sys

from . import client, terminal
from .commands import TABLES

COLOURS = re.compile(r"\x1b\[\d*m")


def sections(lab: client.Lab) -> list[str]:
    """The router's own status, a text for ports, VLANs, interfaces and the rest of it. In boxes, the hosts stand below
    their ports."""
    out = sys.stdout
    columns = ["--columns", str(max(40, terminal.size(out).columns))] if out.isatty() else []
    shown = lab.run("router", "ivarodectl", "status", *columns, timeout=90)
    text = (shown.out + shown.err).rstrip("\n")
    found = (text if terminal.has_colours(out) else COLOURS.sub("", text)).split("\n\n")
    hosts = {port: name for name, port in seats(lab)}
    if "└" in found[0]:
        numbers = COLOURS.sub("", found[0]).splitlines()[1]
        below = ""
        for box in re.finditer(r"│ *port (\d+) *│", numbers):
            below = below.ljust(box.start()) + hosts.get(box[1], "").center(len(box[0]))
        found[0] += "\n" + below.rstrip()
    else:
        found.append("cables: " + ", ".join(f"{hosts[port]} on port {port}" for port in sorted(hosts)))
    return found


def seats(lab: client.Lab) -> list[list[str]]:
    """Each host with the number of its port."""
    return [line.split() for line in lab.ok("agent", "hosts").splitlines() if " " in line]


def status(lab: client.Lab) -> str:
    """All of it, with what the lab knows: who sits where, and which of its programs run."""
    services = ", ".join(lab.ok("agent", "services").splitlines())      # first, as it says so where no lab is up
    title = f"lab {lab.name}: board {lab.board().name}, configuration {lab.config()}, {lab.info()['text']}"
    text = "\n\n".join([terminal.wrapped(title, sys.stdout, 2), *sections(lab)]) + "\n" + services
    # Each picture has a title, so blank lines go first where there is little room.
    return text if terminal.fits(text, sys.stdout) else text.replace("\n\n", "\n")


def drawing(lab: client.Lab, below: int) -> str:
    """As much of it as stands on a terminal above so many lines: all, or without VLANs and health, or the ports."""
    found = sections(lab)
    interfaces = [part for part in found[1:] if COLOURS.sub("", part).startswith("interface")]
    for some in (found, [found[0], *interfaces]):
        for text in ("\n\n".join(some), "\n".join(some)):
            if terminal.fits(text, sys.stdout, below):
                return text
    return found[0]


def routes(lab: client.Lab, table: str | None = None) -> str:
    """The routes of one table, or of all but the kernel's own of the router's addresses."""
    words = ["table", table or "all"]
    lines = lab.ok("router", "ip", "-4", "route", "show", *words).splitlines()
    return "\n".join(line.strip() for line in lines if table or " table local " not in line)


def chains(lab: client.Lab, only: str | None = None) -> str:
    """The router's chains as trees below the built-in ones, table by table."""
    text = []
    for table in TABLES if only is None else [only]:
        rules: dict[str, list[str]] = {}
        for line in lab.ok("router", "iptables", "-w", "-t", table, "-S").splitlines():
            words = line.split()
            rules.setdefault(words[1], [])
            if words[0] == "-A":
                rules[words[1]].append(" ".join(words[2:]))
        text.append(table)
        seen = set()

        def show(chain: str, depth: int) -> None:
            seen.add(chain)
            for rule in rules[chain]:
                text.append("  " * depth + rule)
                target = rule.split("-j ")[-1].split()[0] if "-j " in rule else ""
                if target in rules and target not in seen:
                    show(target, depth + 1)

        for chain in [c for c in rules if c.isupper() and rules[c]]:
            text.append("  " + chain)
            show(chain, 2)
        loose = [c for c in rules if c not in seen and not c.isupper()]
        if loose:
            text.append("  not hooked: " + ", ".join(loose))
    return "\n".join(text)
