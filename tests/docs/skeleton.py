"""The firewall skeleton, as the daemon that ships lays it: asked of ivarode-plan."""

from __future__ import annotations

import json
import os
import pathlib
import subprocess

from tests.docs import sandbox

# As a packet meets the tables, and the chains of the kernel in them.
PLACES = [("mangle", "PREROUTING"), ("nat", "PREROUTING"), ("mangle", "FORWARD"), ("filter", "FORWARD"),
          ("filter", "INPUT"), ("mangle", "POSTROUTING"), ("nat", "POSTROUTING")]

Chains = dict[tuple[str, str], list[str]]       # table and chain: its rules in order


def plan() -> pathlib.Path:
    build = pathlib.Path(os.environ.get("IVARODE_BUILD", sandbox.ROOT / "build"))
    return build / "bin/ivarode-plan"


def chains() -> Chains:
    done = subprocess.run([plan(), "--board", sandbox.ROOT / "lab/boards/one-cpu.json",
                           "--config", sandbox.ROOT / "lab/configs/home", "--json"], capture_output=True, text=True,
                          check=True)
    found: Chains = {}
    for fact in json.loads(done.stdout)["end"]["facts"]:
        key, _, rules = fact.partition(" = ")
        words = key.split()
        if words[0] == "chain":
            found[words[1], words[2]] = rules.split(" ; ") if rules else []
    return found


def target(rule: str) -> str:
    """The user chain that a rule leads to, or nothing."""
    name = rule.removeprefix("-j ")
    return name if rule.startswith("-j ") and name.replace("_", "").isalnum() and not name.isupper() else ""


def below(found: Chains, table: str, chain: str, depth: int = 0) -> list[tuple[int, str]]:
    """(depth, rule) of everything that a chain leads to, in the order in which a packet meets it."""
    lines: list[tuple[int, str]] = []
    for rule in found[table, chain]:
        lines.append((depth, rule))
        if target(rule):
            lines += below(found, table, target(rule), depth + 1)
    return lines


def rows(found: Chains) -> list[list[str]]:
    """The rows of the book's table: table, chain, what it holds; chains that hold nothing are left out."""
    lines = []
    for table, place in PLACES:
        names = [place, *(target(rule) for _, rule in below(found, table, place) if target(rule))]
        lines += [[table, f"`{name}`", ", ".join(f"`{rule}`" for rule in found[table, name])] for name in names
                  if found[table, name]]
    return lines
