"""What a board holds, as a bag of facts: a fact is a tuple whose first word is its kind.

A clean start's facts are what the configuration names. Two boards compare by difference: what one lacks, and what it
has beyond the other.
"""

from __future__ import annotations

import collections
import concurrent.futures
import json
import re
import time
from collections.abc import Callable, Iterator, Sequence
from typing import Any

from tests.system import bus, state
from tests.system.held_lab import Lab

Fact = tuple[Any, ...]
Facts = collections.Counter[Fact]

# Kinds of what the daemon and the switch keep to themselves: a new start begins with these anew.
OWN = {"registry", "traffic", "vlan", "pvid", "untag"}
DUMP = r"""
: > /var/log/daemon.log
for p in 0 1 2 3 4; do
    ubus -S -t 60 call ivarode.intf port_dump "{\"port\":$p}" || exit
    echo "port: $p" >> /var/log/daemon.log
done
cat /var/log/daemon.log"""


def switch(lab: Lab) -> Iterator[Fact]:
    found = state.switch(lab)
    for entry, (vid, members, untag) in found["vlans"].items():
        if members:
            yield "vlan", entry, vid, tuple(members), tuple(untag)
    for port, pvid in found["pvids"].items():
        yield "pvid", port, pvid
    yield "untag", found["untag_enabled"]


def devices(lab: Lab) -> Iterator[Fact]:
    for name, value in state.devices(lab).items():
        yield "device", name, *value


def addresses(lab: Lab) -> Iterator[Fact]:
    for name, values in state.addresses(lab).items():
        for value in values:
            yield "address", name, value


def routes(lab: Lab) -> Iterator[Fact]:
    for line in state.routes(lab):
        yield "route", line


def rules(lab: Lab) -> Iterator[Fact]:
    for line in state.rules(lab):
        yield "rule", line


def firewall(lab: Lab) -> Iterator[Fact]:
    """A chain is one fact: the order of its rules counts."""
    for table, chains in state.firewall(lab).items():
        for chain, held in chains.items():
            yield "chain", table, chain, tuple(held)


def rows(lab: Lab) -> Iterator[Fact]:
    for name, text in re.findall(r"^\[(\w.*)\]\n((?:[^\[].*\n)*)", state.rows(lab), re.M):
        yield "row", name, *text.split()


def answers(lab: Lab) -> Iterator[Fact]:
    """What the daemon says on the bus: its objects, the links it sees, what it counts, what is on each port."""
    for name in lab.ok("router", "ubus", "list").split():
        yield "object", name
    status, reply = bus.intf(lab, "status")
    yield "links", status, *(reply or {}).get("link", [])
    status, reply = bus.intf(lab, "statist")
    yield "statist", status
    for name in reply or {}:
        yield "traffic", name
    held = []
    for line in lab.shell("router", DUMP, check=True, timeout=300).out.splitlines():
        if found := re.search(r"(\S* vid1=\d+ vid2=\d+)", line):
            held.append(found[1])
        elif found := re.match(r"port: (\d)", line):
            yield from (("registry", int(found[1]), entry) for entry in held)
            held.clear()


def clients(lab: Lab) -> Iterator[Fact]:
    listed = json.loads(lab.ok("router", "ubus", "-t", "60", "call", "service", "list"))
    for service, value in listed.items():
        for name, instance in value.get("instances", {}).items():
            yield "client", service, name, instance["running"], " ".join(instance["command"])


KERNEL = (devices, addresses, routes, rules, firewall, rows, clients)
ALL = (switch, *KERNEL, answers)


def take(lab: Lab, parts: Sequence[Callable[[Lab], Iterator[Fact]]] = ALL) -> Facts:
    """All facts, counted. The parts are asked for side by side: most of the time is the way there and back."""
    facts: Facts = collections.Counter()
    with concurrent.futures.ThreadPoolExecutor(len(parts)) as pool:
        for part in pool.map(lambda read: list(read(lab)), parts):
            facts.update(part)
    return facts


def kernel(lab: Lab) -> Facts:
    """Without the daemon and the switch: what a stopped daemon may have left."""
    return take(lab, KERNEL)


def bare(fact: Fact) -> bool:
    """Whether a router has it where this daemon has never run."""
    kind, *words = fact
    return (kind in ("device", "address") and words[0] in ("lo", "eth0")
            or kind == "route" and " dev lo " in words[0]
            or kind == "rule" and words[0].split(":")[0] in ("0", "32766", "32767")
            or kind == "chain" and words[1].isupper() and not words[2])


def first(lab: Lab) -> Facts:
    """The facts of a clean start, once the links have been seen: each WAN has its way out then."""
    deadline = time.monotonic() + 60 * lab.pace
    while True:
        facts = take(lab)
        if {("rule", f"2000{number}: from all lookup 2000{number}") for number in lab.topology.wans} <= set(facts):
            return facts
        assert time.monotonic() < deadline, show(facts)


def only(facts: Facts, wanted: Callable[[Fact], bool]) -> Facts:
    return collections.Counter({fact: count for fact, count in facts.items() if wanted(fact)})


def show(facts: Facts) -> str:
    return "\n".join(sorted("    " + " ".join(map(str, fact)) for fact in facts.elements())) or "    nothing"
