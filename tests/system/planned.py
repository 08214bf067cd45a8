"""What ivarode-plan says that a board has at the end, and what a board has, in the same words: facts as docs/plan.md
describes them, read from the board by other means than the program's.

Left out is what a plan does not know: MACs that the kernel chooses, process numbers, and the rule that the platform
library puts before those of WANs.
"""

from __future__ import annotations

import ipaddress
import json
import re
import time
from collections.abc import Iterator
from concurrent.futures import ThreadPoolExecutor

from tests.plan import planning
from tests.system import state
from tests.system.held_lab import Lab

REGISTERS, LENGTH = 0x10110000, 0x108
COUNTED = [*range(0x40, 0x4c, 4), *range(0x50, 0x80, 4), 0x98, *range(0x100, 0x108, 4)]
COLUMNS = ("proto", "ipaddr", "netmask", "gateway", "addr4", "addr5")
CONNECTED_FIRST, STATIC_TABLE = 10001, 10000
KERNELS = (0, 32766, 32767)
PATIENCE = 60       # seconds until everything has settled


def words(text: str) -> str:
    """In any order: iptables lists the words of a rule in another than they were given in, and names a match that
    follows from the protocol."""
    return " ".join(sorted(text.replace("-m tcp ", "").split()))


def same_words(fact: str) -> str:
    key, _, value = fact.partition(" = ")
    if key.startswith("chain "):
        return f"{key} = {' ; '.join(words(rule) for rule in value.split(' ; '))}"
    if key.startswith("process "):
        return f"{key} = {' '.join(re.sub(r'password (?!mtu)[^ ]+', 'password', value).replace(chr(39), '').split())}"
    return fact


def by_class(address: str) -> str:
    """The mask of an address that was given none."""
    first = int(address.split(".")[0])
    return "255.0.0.0" if first < 128 else "255.255.0.0" if first < 192 else "255.255.255.0"


def planned(plan: planning.Plan) -> set[str]:
    """The facts of the end that a board can be asked for. A rule of the kernel does not say which WAN it is for."""
    known = (fact for fact in plan["end"]["facts"] if not fact.startswith(("pid ", "phy ", "secret "))
             and not re.fullmatch(r"switch \w+ = 0x0+", fact))
    masks = {f"netmask {name} = {by_class(one['address'])}" for name, one in plan["end"]["interfaces"].items()
             if one["address"] and not one["netmask"]}
    return masks | {re.sub(r"^policy (\d+) .*", r"rule \1 = lookup \1", same_words(fact)) for fact in known}


def devices(lab: Lab) -> Iterator[str]:
    for name, (kind, _, lower, master, mac, up) in state.devices(lab).items():
        if name == "lo":
            continue
        yield f"device {name} = " + (f"vlan of {lower}" if kind == "vlan" else kind if kind == "bridge" else "port")
        yield f"mac {name} = {mac}"
        if up:
            yield f"up {name}"
        if master:
            yield f"bridge of {name} = {master}"


def addresses(lab: Lab) -> Iterator[str]:
    for name, found in state.addresses(lab).items():
        for one in found if name != "lo" else ():
            address = ipaddress.IPv4Interface(one)
            yield f"address {name} = {address.ip}"
            yield f"netmask {name} = {address.netmask}"


def routes(lab: Lab) -> Iterator[str]:
    """Default routes of WANs, in the tables of their numbers, and those of the daemon's own table."""
    for line in state.routes(lab):
        if found := re.match(r"default via (\S+) dev (\S+) table (\d+)", line):
            yield f"gateway {found[3]} {found[2]} = {found[1]}"
        elif found := re.match(rf"(\S+) via (\S+) dev (\S+) table {STATIC_TABLE} .*metric (\d+)", line):
            network = ipaddress.IPv4Network(found[1])
            yield f"route {STATIC_TABLE} {network.with_netmask} via {found[2]} dev {found[3]} metric {found[4]}"


def rules(lab: Lab) -> Iterator[str]:
    for line in state.rules(lab):
        preference, table = re.findall(r"^(\d+):.* lookup (\S+)", line)[0]
        if int(preference) not in KERNELS and int(preference) != CONNECTED_FIRST:
            yield f"rule {preference} = lookup {table}"


def chains(lab: Lab) -> Iterator[str]:
    for table, held in state.firewall(lab).items():
        for chain, found in held.items():
            if found or not chain.isupper():
                yield same_words(f"chain {table} {chain}" + (" = " + " ; ".join(found) if found else ""))


def rows(lab: Lab) -> Iterator[str]:
    for name, text in re.findall(r"^\[(\w.*)\]\n((?:[^\[].*\n)*)", state.rows(lab), re.M):
        column = dict(line.split("=", 1) for line in text.splitlines())
        yield f"wan {name} = " + " ".join(column.get(key) or "-" for key in COLUMNS)


def clients(lab: Lab) -> Iterator[str]:
    listed = json.loads(lab.ok("router", "ubus", "-t", "60", "call", "service", "list"))
    for service in ("dhcp", "pppoe"):
        for name, instance in listed.get(service, {}).get("instances", {}).items():
            yield same_words(f"process {service} {name} = {' '.join(instance['command'])}")


def registers(lab: Lab) -> Iterator[str]:
    """Those that the layout is in, as the memory of the processor has them; 0 where nothing was written."""
    dump = lab.ok("router", "od", "-An", "-v", "-tx4", "-w4", f"-j{REGISTERS}", f"-N{LENGTH}", "/dev/mem").split()
    for offset in COUNTED:
        if int(dump[offset // 4], 16):
            yield f"switch 0x{offset:03x} = 0x{dump[offset // 4]}"


def real(lab: Lab) -> set[str]:
    """Asked for side by side: most of the time is the way there and back."""
    parts = (devices, addresses, routes, rules, chains, rows, clients, registers)
    with ThreadPoolExecutor(len(parts)) as pool:
        return {fact for part in pool.map(lambda read: list(read(lab)), parts) for fact in part}


def differences(lab: Lab, plan: planning.Plan) -> dict[str, list[str]]:
    """What the board lacks, and what it has beyond the plan; nothing of either where the plan was true."""
    wanted, there = planned(plan), real(lab)
    given = {fact.split()[1] for fact in wanted if fact.startswith("mac ")}
    there = {fact for fact in there if not fact.startswith("mac ") or fact.split()[1] in given}
    if "device eth1 = port" not in wanted:
        there.discard("device eth1 = port")
    return {"lacks": sorted(wanted - there), "has": sorted(there - wanted)}


def compare(lab: Lab, plan: planning.Plan) -> None:
    """Looks until the board is as planned, or time is up."""
    deadline = time.monotonic() + PATIENCE * lab.pace
    while any((found := differences(lab, plan)).values()):
        assert time.monotonic() < deadline, json.dumps(found, indent=1)
