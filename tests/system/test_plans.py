"""What ivarode-plan says beforehand is what the board has afterwards: switch, devices, addresses, routes, rules,
chains, rows and clients, read back by other means."""

from __future__ import annotations

import json
import re
from typing import TYPE_CHECKING, Any

import pytest

from labctl import paths
from tests.plan import planning
from tests.system import bus, state
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

Request = tuple[str, dict[str, Any]]

REQUESTS: list[Request] = [
    ("port_add", {"name": "lan2"}),
    ("add", {"intf": "lan4_guest", "vlanid1": 100, "ipaddr": "192.168.100.1", "netmask": "255.255.255.0"}),
    ("config", {"intf": "lan2_office", "old_intf": "lan2_default", "proto": "static", "ipaddr": "192.168.20.1",
                "netmask": "255.255.255.0", "mac": "02:00:00:00:20:01"}),
    ("port_add", {"name": "lan9"}),
    ("enable", {"intf": ["lan4_guest"], "enable": 0}),
]
CONNECTED_FIRST = 10001


def facts(plan: planning.Plan, kind: str) -> dict[str, str]:
    """Key -> value of the facts of one kind."""
    found = {}
    for fact in plan["end"]["facts"]:
        if fact.startswith(kind):
            key, _, value = fact.removeprefix(kind).partition(" = ")
            found[key] = value
    return found


def words_of(rule: str) -> tuple[str, ...]:
    """A rule by its words in any order: iptables lists them in another than they were given in, and names a match that
    follows from the protocol."""
    return tuple(sorted(rule.replace("-m tcp ", "").split()))


def planned_firewall(plan: planning.Plan) -> dict[tuple[str, str], list[tuple[str, ...]]]:
    found = {}
    for key, rules in facts(plan, "chain ").items():
        table, chain = key.split()
        found[table, chain] = [words_of(rule) for rule in rules.split(" ; ") if rule]
    return found


def real_firewall(lab: Lab) -> dict[tuple[str, str], list[tuple[str, ...]]]:
    return {(table, chain): [words_of(rule) for rule in rules] for table, chains in state.firewall(lab).items()
            for chain, rules in chains.items() if rules or not chain.isupper()}


def planned_devices(plan: planning.Plan) -> dict[str, tuple[str, str, bool]]:
    """Name -> what it is, its bridge, and whether it is up."""
    return {name: (one["kind"].split()[0], one["bridge"], one["up"]) for name, one in plan["end"]["interfaces"].items()}


def real_devices(lab: Lab) -> dict[str, tuple[str, str, bool]]:
    kinds = {"vlan": "vlan", "bridge": "bridge"}
    return {name: (kinds.get(kind, "port"), master or "", up)
            for name, (kind, _, _, master, _, up) in state.devices(lab).items() if name != "lo"}


def planned_addresses(plan: planning.Plan) -> dict[str, str]:
    def bits(mask: str) -> int:
        return sum(int(part).bit_count() for part in mask.split("."))

    return {name: f"{one['address']}/{bits(one['netmask'])}" for name, one in plan["end"]["interfaces"].items()
            if one["address"]}


def planned_macs(plan: planning.Plan) -> dict[str, str]:
    """Those that the daemon gives; the others are the kernel's choice."""
    return {name: one["mac"] for name, one in plan["end"]["interfaces"].items() if one["mac"]}


def compare(lab: Lab, plan: planning.Plan) -> None:
    switch = state.switch(lab)
    assert {one["entry"]: (one["vid"], one["members"]) for one in plan["end"]["vlans"] if one["members"]} == {
        entry: (vid, members) for entry, (vid, members, _) in switch["vlans"].items() if members}
    assert {one["port"]: one["pvid"] for one in plan["end"]["ports"]} == switch["pvids"]
    assert planned_devices(plan) == real_devices(lab)
    macs = planned_macs(plan)
    assert macs == {name: one[4] for name, one in state.devices(lab).items() if name in macs} != {}
    static = {name: found[0] for name, found in state.addresses(lab).items() if name != "lo"}
    assert planned_addresses(plan) == static
    assert planned_firewall(plan) == real_firewall(lab)
    # A default route of a WAN, in the table of its number.
    real = {(table, device): gateway for gateway, device, table in re.findall(
        r"default via (\S+) dev (\S+) table (\d+)", "\n".join(state.routes(lab)))}
    assert {tuple(key.split()): gateway for key, gateway in facts(plan, "gateway ").items()} == real
    # Before the rules of WANs the platform library puts one for networks that are connected.
    planned_rules = {int(key.split()[0]) for kind in ("rule ", "policy ") for key in facts(plan, kind)}
    connected = {CONNECTED_FIRST} if facts(plan, "policy ") else set()
    preferences = {int(line.split(":")[0]) for line in state.rules(lab)} - {0, 32766, 32767}
    assert preferences == planned_rules | connected
    rows = facts(plan, "wan ")
    assert set(re.findall(r"\[(\S+)\]", state.rows(lab))) == set(rows)
    for name, row in rows.items():
        assert row.split()[0] in state.rows(lab), name
    for service in ("dhcp", "pppoe"):
        planned = {key.split()[1] for key in facts(plan, "process ") if key.startswith(service)}
        assert set(bus.instances(lab, service)) == planned


@pytest.mark.parametrize("board, config", [("one-cpu", "home"), ("two-cpu", "one-lan"), ("two-wan", "three-lans")])
def test_the_board_has_what_the_plan_says(machine: Machine, board: str, config: str) -> None:
    lab = machine.board(board, config, fresh=True)
    machine.spoiled()
    state.settled(lab)
    words: list[object] = ["--board", paths.LAB / f"boards/{board}.json", "--config", paths.LAB / "configs" / config]
    for port in lab.switch("status")["ports"]:
        if not port["cpu"] and port["link"]:
            words += ["--link", f"{port['port']}=up"]
    compare(lab, planning.plan(*words))
    statuses = []
    for method, fields in REQUESTS:
        words += ["--call", f"ivarode.intf {method} {json.dumps(fields)}"]
        statuses.append(bus.intf(lab, method, **fields)[0])
    plan = planning.plan(*words)
    assert [phase["status"] for phase in plan["phases"] if phase["kind"] == "call"] == statuses
    assert 0 in statuses and any(statuses)
    compare(lab, plan)
