"""The other boards: two WANs, and a WAN on a CPU port of its own."""

from __future__ import annotations

from typing import TYPE_CHECKING

import pytest

from labctl import checks
from tests.system import state
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine


@pytest.fixture
def two_wan(machine: Machine) -> Lab:
    """Three LANs of their own, WANs on ports 0 and 4."""
    return machine.board("two-wan", "three-lans")


@pytest.fixture
def two_cpu(machine: Machine) -> Lab:
    """One LAN over four ports; the WAN reaches the CPU by eth1."""
    return machine.board("two-cpu", "one-lan")


def test_two_wans_switch_layout(two_wan: Lab) -> None:
    found = state.switch(two_wan)
    assert found["pvids"] == {0: 4090, 1: 4091, 2: 4092, 3: 4093, 4: 4094}
    assert [found["vlans"][entry][:2] for entry in range(5)] == [
        (4090 + port, [port, 6]) for port in range(5)]


def test_two_wans_devices(two_wan: Lab) -> None:
    found = state.devices(two_wan)
    # numbers of the ports: LANs by their place, a WAN-only port from the top down
    for name, vlan, last in (("lan1", 4091, 0x40), ("lan2", 4092, 0x41), ("lan3", 4093, 0x42),
                             ("wan1", 4090, 0x44), ("wan2", 4094, 0x43)):
        assert found[f"eth0.{vlan}"][3:5] == (name, f"02:0c:43:10:20:{last:02x}")
        assert found[name][0] == "bridge"


def test_two_wans_lans_are_apart(two_wan: Lab) -> None:
    names = ["pc1", "pc2", "pc3"]
    checks.router_answers(two_wan, two_wan.topology)
    checks.own_lan(two_wan, two_wan.topology)
    for one in names:
        for other in names:
            if one != other:
                answer = checks.ping(two_wan, one, two_wan.topology.address[other])
                assert answer and answer[0] == 63


def test_two_wans_routing(two_wan: Lab) -> None:
    state.settled(two_wan)
    assert [line for line in state.rules(two_wan) if line.startswith("2000")] == [
        "20001: from all lookup 20001", "20002: from all lookup 20002"]
    assert checks.ping(two_wan, "pc1", checks.INTERNET)
    checks.lan_stays_inside(two_wan, two_wan.topology)


def test_static_route_from_configuration(two_wan: Lab) -> None:
    state.settled(two_wan)
    text = two_wan.ok("router", "ip", "-4", "route", "show", "table", "10000")
    assert text.startswith("192.0.2.0/24 via 203.0.114.1 dev wan2 ") and "metric 10" in text
    assert checks.ping(two_wan, "pc3", "192.0.2.1")


def test_first_wan_gone_second_takes_over(two_wan: Lab) -> None:
    state.settled(two_wan)
    two_wan.link(0, False)
    try:
        two_wan.shell("router", "while ip -4 rule | grep -q '^20001:'; do sleep 0.1; done", check=True, timeout=30)
        # another network than the first WAN's own: reached by the way out that is left
        assert checks.ping(two_wan, "pc1", "192.0.2.1")
        assert "dev wan2" in two_wan.ok("router", "ip", "-4", "route", "get", "198.51.100.7")
    finally:
        two_wan.link(0, True)
    state.settled(two_wan)
    assert "dev wan1" in two_wan.ok("router", "ip", "-4", "route", "get", "198.51.100.7")


def test_two_cpu_ports(two_cpu: Lab) -> None:
    found = state.switch(two_cpu)
    assert found["vlans"][0][:2] == (4090, [0, 5])
    assert found["vlans"][1][:2] == (4091, [1, 2, 3, 4, 6])
    devices = state.devices(two_cpu)
    assert devices["eth1.4090"][:4] == ("vlan", 4090, "eth1", "wan1")
    assert devices["eth0.4091"][:4] == ("vlan", 4091, "eth0", "lan1")
    assert devices["eth1"][5]


def test_two_cpu_ports_traffic(two_cpu: Lab) -> None:
    checks.same_lan(two_cpu, two_cpu.topology)
    checks.translation(two_cpu, two_cpu.topology)
    checks.lan_stays_inside(two_cpu, two_cpu.topology)
    ports = {p["name"]: p for p in two_cpu.switch("status")["ports"]}
    assert ports["eth1"]["rx_frames"] > 0 and ports["eth1"]["tx_frames"] > 0
