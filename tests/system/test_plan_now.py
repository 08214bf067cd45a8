"""ivarode-plan on a router that runs: a plan from what is there, and what has drifted. That it makes no call that
changes anything is shown in private name spaces (tests/plan/test_now.py)."""

from __future__ import annotations

import json
from collections.abc import Callable
from typing import TYPE_CHECKING, Any

import pytest

from tests.system import bus, state
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine


def plan(lab: Lab, *words: str) -> tuple[int, Any]:
    done = lab.run("router", "ivarode-plan", "--json", *words, timeout=60)
    return done.status, json.loads(done.out)


@pytest.fixture(scope="module")
def lab(machine: Machine) -> Lab:
    lab = machine.board("one-cpu", "home", fresh=True)
    machine.spoiled()
    state.settled(lab)
    return lab


def test_there_is_nothing_to_do_where_all_is_as_configured(lab: Lab) -> None:
    before = state.everything(lab)
    status, told = plan(lab, "--from", "now")
    assert (status, told["ending"], told["changes"]) == (0, "", [])
    assert "nothing to do" in lab.ok("router", "ivarode-plan", "--from", "now")
    # On the way the start takes the VLAN table down and lays it again.
    assert any(operation["changes"] for operation in told["phases"][0]["operations"])
    assert plan(lab, "--diff") == (0, {"version": 1, "status": 0, "differences": []})
    assert lab.ok("router", "ivarode-plan", "--diff") == "as a clean start would make it\n"
    assert state.everything(lab) == before


def test_a_request_is_planned_on_what_is_there(lab: Lab) -> None:
    status, told = plan(lab, "--from", "now", "--call", 'ivarode.intf port_add {"name":"lan2"}')
    assert status == 0 and "device lan2_default = bridge" in told["changes"]
    assert bus.intf(lab, "port_add", name="lan2") == (0, None)
    status, told = plan(lab, "--diff")
    assert status == 4
    assert {one["what"].split(" = ")[0] for one in told["differences"]} >= {"device lan2_default", "device eth0.4092"}
    assert bus.intf(lab, "port_del", name="lan2") == (0, None)


Drift = tuple[str, Callable[[Lab], object], str]


def router(*words: str) -> Callable[[Lab], object]:
    return lambda lab: lab.ok("router", *words)


DRIFTS: list[Drift] = [
    ("a member stolen", router("ip", "link", "set", "eth0.4093", "nomaster"),
     "bridge of eth0.4093 = lan3: is missing"),
    ("an address changed", router("sh", "-c", "ip addr flush dev lan3; ip addr add 192.168.3.9/24 dev lan3"),
     "address of lan3: is 192.168.3.9 instead of 192.168.3.1"),
    ("a device down", router("ip", "link", "set", "eth0.4091", "down"), "up: eth0.4091: is missing"),
    ("a rule removed", router("ip", "rule", "del", "pref", "10000"), "rule 10000 = lookup 10000: is missing"),
    ("a jump removed", router("iptables", "-w", "-D", "FORWARD", "-j", "ipt_fwd_filter_rules_2"),
     "rule of chain filter FORWARD, -j ipt_fwd_filter_rules_2: is missing"),
    ("a rule of a chain removed", router("iptables", "-w", "-F", "input_filter_rules_drop"),
     "rule of chain filter input_filter_rules_drop, -j DROP -i usb+: is missing"),
    ("a row deleted", router("rm", "/var/run/ivarode/wan/wan1"), "row of wan1"),
    ("a default route removed", router("ip", "route", "flush", "table", "20001"),
     "default route of table and WAN 20001"),
    ("a port's VLAN changed over the bus", lambda lab: bus.intf(lab, "port_del", name="lan3"), "switch, against"),
]


def test_each_drift_is_listed(machine: Machine, lab: Lab) -> None:
    known: set[str] = set()
    for name, plant, expected in DRIFTS:
        plant(lab)
        status, told = plan(lab, "--diff")
        found = {one["what"] for one in told["differences"]}
        assert status == 4 and all(one["reason"] for one in told["differences"]), name
        new = found - known
        assert new and any(what.startswith(expected) for what in new), (name, new)
        known = found
    machine.spoiled()
