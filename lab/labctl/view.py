"""The lab shown to a person: the router as its own tool draws it, hosts and cables, routes, iptables chains."""

from __future__ import annotations

import shutil

from . import client
from .commands import TABLES


def status(lab: client.Lab, colour: bool = False) -> str:
    """The router's own status, with what the lab knows: who sits where, and which of its programs run."""
    columns = ["--columns", str(max(40, shutil.get_terminal_size().columns))] if colour else []
    shown = lab.run("router", "ivarodectl", "status", *columns, timeout=90)
    hosts = [line.split() for line in lab.ok("agent", "hosts").splitlines() if " " in line]
    seats = ", ".join(f"{name} on port {port}" for port, name in sorted(hosts))
    services = ", ".join(lab.ok("agent", "services").splitlines())
    title = f"lab {lab.name}: board {lab.board().name}, configuration {lab.config()}, {lab.info()['text']}"
    return "\n".join([title, "", (shown.out + shown.err).rstrip("\n"), "", f"cables: {seats}", services])


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
