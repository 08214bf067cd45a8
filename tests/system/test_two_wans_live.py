"""Two WANs at once, each with its provider: which one carries the traffic, what happens when it goes and comes back."""

from __future__ import annotations

import itertools
from functools import partial
from typing import Any, TYPE_CHECKING

import pytest

from labctl import checks
from labctl.capture import Capture, Decoded
from tests.system import bus, peers, state
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

PORTS = {"wan1": 0, "wan2": 4}
HOSTS = {"wan1": "isp", "wan2": "isp2"}
NETWORKS = {"wan1": "203.0.113", "wan2": "203.0.114"}
nobodies = itertools.count(100)     # looked for once each: a second time nothing may be sent
STATIC = {"proto": "static", "ipaddr": "203.0.113.2", "netmask": "255.255.255.0", "gateway": "203.0.113.1"}
PPPOE = {"proto": "pppoe", "username": "user2", "password": "secret2", "server": "isp"}


@pytest.fixture(scope="module")
def lab(machine: Machine) -> Lab:
    """WAN 1 by DHCP and number 20001, WAN 2 by PPPoE and 20002."""
    lab = machine.board("two-wan", "dhcp-and-pppoe", fresh=True)
    machine.spoiled()
    peers.Dhcp(lab).start()
    peers.Pppoe(lab, "isp2").start()
    peers.bound(lab, "wan1")
    peers.bound(lab, "wan2")
    return lab


@pytest.fixture
def both(lab: Lab) -> Lab:
    """Both cables in, both WANs up."""
    for name, port in PORTS.items():
        lab.link(port, True)
        peers.bound(lab, name)
    return lab


def pings(frames: list[Decoded]) -> int:
    """Pings for the internet, as they are or inside of a PPPoE session."""
    target = bytes(int(part) for part in checks.INTERNET.split("."))
    packets = [f.payload if f.ethertype == 0x0800 else f.payload[8:] if f.ethertype == 0x8864 else b"" for f in frames]
    return len([p for p in packets if len(p) >= 28 and p[9] == 1 and p[16:20] == target and p[20] == 8])


def asks_for(host: str, frames: list[Decoded]) -> bool:
    """Whether somebody looks for a host; for none: true."""
    return not host or any(f.kind == "ARP" and f.ip_dst == host for f in frames)


def ways_taken(lab: Lab) -> set[str]:
    """The WANs that a ping of the internet leaves by. Each provider looks for somebody afterwards, who is not there:
    what is before that in the capture of its port is all there was."""
    with Capture(lab, PORTS["wan1"]) as first, Capture(lab, PORTS["wan2"]) as second:
        assert checks.ping(lab, "pc1", checks.INTERNET, 60), "the internet is out of reach"
        found = set()
        for name, capture in (("wan1", first), ("wan2", second)):
            nobody = ""                         # without a cable there is nobody to be seen
            if plugged(lab, PORTS[name]):
                nobody = f"{NETWORKS[name]}.{next(nobodies)}"
                lab.run(HOSTS[name], "busybox", "ping", "-c", "1", "-W", "1", nobody)
            frames = capture.frames(partial(asks_for, nobody))
            assert frames is not None, f"the capture of {name}'s port shows nothing"
            if pings(frames):
                found.add(name)
    return found


def plugged(lab: Lab, port: int) -> bool:
    return [p for p in lab.switch("status")["ports"] if p["port"] == port][0]["link"]


def carried_by(lab: Lab, name: str) -> None:
    """Waits until traffic takes this way, and this way alone."""
    peers.until(lab, "router", f"ip -4 route get 198.51.100.1 | grep -q 'dev {name} '")
    assert ways_taken(lab) == {name}


def lost(lab: Lab, name: str) -> None:
    lab.link(PORTS[name], False)
    peers.until(lab, "router", f"! ip -4 route show table all | grep -q 'default.* dev {name} '")


def back(lab: Lab, name: str) -> None:
    lab.link(PORTS[name], True)
    peers.until(lab, "router", f"ip -4 route show table all | grep -q 'default.* dev {name} '")


def config(lab: Lab, name: str, number: int, arguments: Any) -> None:
    assert bus.intf(lab, "config", intf=name, old_intf=name, defrt_pri=str(number), **arguments) == (0, None)
    peers.bound(lab, name)
    peers.until(lab, "router", f"ip -4 route show table {number} | grep -q 'default.* dev {name} '")


def wan_rules(lab: Lab) -> list[str]:
    return [rule for rule in state.rules(lab) if rule.startswith("2000")]


def test_each_wan_has_its_own_way(both: Lab) -> None:
    assert peers.errors(both) == []
    assert wan_rules(both) == ["20001: from all lookup 20001", "20002: from all lookup 20002"]
    assert peers.default_routes(both, 20001) == ["default via 203.0.113.1 dev wan1 proto 105 metric 20001"]
    assert peers.default_routes(both, 20002) == ["default dev wan2 proto 105 scope link metric 20002"]
    # the servers of the first choice come first
    assert peers.resolvers(both) == ["198.51.100.53", "198.51.100.53", "198.51.100.54"]
    rows = {name: peers.row(both, name) for name in PORTS}
    assert rows["wan1"]["proto"] == "dhcp" and rows["wan2"]["proto"] == "pppoe"
    assert rows["wan1"]["ipaddr"].startswith("203.0.113.") and rows["wan2"]["ipaddr"].startswith("100.64.0.")
    carried_by(both, "wan1")


def test_second_choice_lost_disturbs_nobody(both: Lab) -> None:
    lost(both, "wan2")
    carried_by(both, "wan1")
    back(both, "wan2")
    carried_by(both, "wan1")


def test_first_choice_lost_and_back(both: Lab) -> None:
    lost(both, "wan1")
    carried_by(both, "wan2")
    back(both, "wan1")
    carried_by(both, "wan1")


def first_carries_until_it_goes(both: Lab) -> None:
    """Two WANs of one number, from a start in which wan1 came first."""
    carried_by(both, "wan1")
    lost(both, "wan1")
    # the rule serves both, and stays for the one that is left
    assert "20001: from all lookup 20001" in wan_rules(both)
    carried_by(both, "wan2")
    back(both, "wan1")
    carried_by(both, "wan2")
    lost(both, "wan2")
    carried_by(both, "wan1")
    back(both, "wan2")
    assert "20001: from all lookup 20001" in wan_rules(both)


def test_equal_numbers_the_first_carries_until_it_goes(both: Lab) -> None:
    config(both, "wan2", 20001, PPPOE)
    assert [route.split(" dev ")[1].split()[0] for route in peers.default_routes(both, 20001)] == ["wan1", "wan2"]
    first_carries_until_it_goes(both)


def test_static_and_pppoe(both: Lab) -> None:
    """The daemon itself lays and removes what belongs to a static WAN, the event scripts what belongs to the other."""
    config(both, "wan1", 20001, STATIC)
    config(both, "wan2", 20002, PPPOE)
    carried_by(both, "wan1")
    both.link(PORTS["wan1"], False)
    peers.until(both, "router", "! ip -4 rule | grep -q '^20001:'")
    carried_by(both, "wan2")
    both.link(PORTS["wan1"], True)
    peers.until(both, "router", "ip -4 rule | grep -q '^20001:'")
    carried_by(both, "wan1")


def test_static_and_pppoe_with_equal_numbers(both: Lab) -> None:
    config(both, "wan1", 20001, STATIC)
    config(both, "wan2", 20001, PPPOE)
    first_carries_until_it_goes(both)
