"""Ports made LANs of their own and given back, with frames that prove it; link states over the bus."""

from __future__ import annotations

import itertools
import time
from collections.abc import Iterator
from typing import Any, TYPE_CHECKING

import pytest

from labctl import checks
from tests.system import bus, state
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

PORTS = {"lan2": 2, "lan3": 3, "lan4": 4}
SHARED = 4091


@pytest.fixture(scope="module")
def lab(machine: Machine) -> Lab:
    lab = machine.board("one-cpu", "one-lan", fresh=True)
    machine.spoiled()
    return lab


def together(lab: Lab, name: str) -> tuple[int, float] | None:
    """Whether the PC on a port and the one on LAN 1 hear each other."""
    host = "pc" + name[3:]
    return checks.ping(lab, "pc1", lab.topology.address[host], seconds=10)


def apart(lab: Lab, name: str) -> bool:
    address = lab.topology.address["pc" + name[3:]]
    lab.run("pc1", "ip", "neigh", "flush", "all")
    return not lab.run("pc1", "busybox", "ping", "-c", "1", "-W", "1", address, timeout=20)


@pytest.mark.parametrize("order", list(itertools.permutations(PORTS)), ids="-".join)
def test_ports_leave_and_return_in_every_order(lab: Lab, order: tuple[str, ...]) -> None:
    before = state.switch(lab)
    left = []
    for name in order:
        assert together(lab, name)
        assert bus.intf(lab, "port_add", name=name) == (0, None)
        left.append(PORTS[name])
        found = state.switch(lab)
        assert found["pvids"][PORTS[name]] == 4090 + PORTS[name]
        assert found["vlans"][PORTS[name]][:2] == (4090 + PORTS[name], [PORTS[name], 6])
        assert found["vlans"][1][:2] == (SHARED, sorted({1, 2, 3, 4, 6} - set(left)))
        assert apart(lab, name)
    devices = state.devices(lab)
    for name, port in PORTS.items():
        assert devices[f"eth0.{4090 + port}"][3] == name + "_default"
        # the bridge has the port's MAC as the board counts it, its member two more in the first byte
        assert devices[name + "_default"][4] == f"00:0c:43:10:20:3{port - 1}"
        assert devices[f"eth0.{4090 + port}"][4] == f"02:0c:43:10:20:3{port - 1}"
    for name in order:
        assert bus.intf(lab, "port_del", name=name) == (0, None)
        left.remove(PORTS[name])
        assert together(lab, name)
        for other in left:
            assert apart(lab, f"lan{other}")
    assert state.switch(lab) == before
    assert not [name for name in state.devices(lab) if name.endswith("_default")]


def test_port_dump_lists_what_is_on_a_port(lab: Lab) -> None:
    assert bus.intf(lab, "port_add", name="lan3") == (0, None)
    try:
        lab.ok("router", "sh", "-c", ": > /var/log/daemon.log")
        assert bus.intf(lab, "port_dump", port=3) == (0, None)
        text = lab.ok("router", "cat", "/var/log/daemon.log")
        lines = [line.partition(": ")[2] for line in text.splitlines() if " vid1=" in line]
        assert lines == ["lan3 vid1=0 vid2=0", "lan3_default vid1=65535 vid2=65535"]
    finally:
        assert bus.intf(lab, "port_del", name="lan3") == (0, None)


@pytest.mark.parametrize("name, status", [("lan10", 1), ("lan", 1), ("lan9", 1), ("dmz1", 1), ("", 1)])
def test_names_that_are_no_port(lab: Lab, name: str, status: int) -> None:
    before = state.switch(lab)
    assert bus.intf(lab, "port_add", name=name) == (status, None)
    assert state.switch(lab) == before


def wait_status(lab: Lab, wanted: list[int], seconds: float = 15) -> Any:
    deadline = time.monotonic() + seconds * lab.pace
    while True:
        status, reply = bus.intf(lab, "status")
        if reply and reply["link"] == wanted:
            return reply
        assert time.monotonic() < deadline, (status, reply)


def test_status_follows_the_cables(lab: Lab) -> None:
    reply = wait_status(lab, [1, 1, 1, 1, 1, 0, 0, 0])
    assert reply["speed"] == [1, 1, 1, 1, 1, 0, 0, 0]       # 1: 100 Mbit/s
    assert reply["duplex"] == [1, 1, 1, 1, 1, 0, 0, 0]
    for port in (2, 4, 0):
        lab.link(port, False)
        wait_status(lab, [int(p != port) for p in range(5)] + [0, 0, 0])
        lab.link(port, True)
        wait_status(lab, [1, 1, 1, 1, 1, 0, 0, 0])
    lab.switch("link", 3, "up", "10", "half")
    reply = wait_status(lab, [1, 1, 1, 1, 1, 0, 0, 0])
    assert (reply["speed"][3], reply["duplex"][3]) == (0, 0)
    lab.switch("link", 3, "up", "100", "full")


def samples(lab: Lab, name: str) -> Iterator[tuple[int, ...]]:
    """(received, sent, receive rate, send rate) of each new sample of an interface."""
    last: tuple[int, ...] = ()
    while True:
        status, reply = bus.intf(lab, "statist")
        assert status == 0
        label, *words = reply[name]
        assert label == name
        figures = tuple(int(word) for word in words)
        if figures != last:
            last = figures
            yield figures


def test_statistics_under_a_steady_stream(lab: Lab) -> None:
    """Totals are the kernel's own at the time of a sample; a rate is a third of what came in since the one before."""
    with lab.spawn("pc1", "busybox", "ping", "-i", "0.2", "-s", "900", "192.168.1.1") as stream:
        taken = samples(lab, "lan1")
        first = next(taken)
        for _ in range(3):
            low = int(lab.ok("router", "cat", "/sys/class/net/lan1/statistics/rx_bytes"))
            second = next(taken)
            high = int(lab.ok("router", "cat", "/sys/class/net/lan1/statistics/rx_bytes"))
            assert second[0] > first[0] and second[1] > first[1]
            assert second[2] == (second[0] - first[0]) // 3
            assert second[3] == (second[1] - first[1]) // 3
            assert low <= second[0] <= high
            first = second
        stream.kill()
    # at rest the totals stand still, and are exactly the kernel's
    deadline = time.monotonic() + 20 * lab.pace
    while True:
        script = ("cat /sys/class/net/lan1/statistics/rx_bytes; ubus -S call ivarode.intf statist; cat "
                  "/sys/class/net/lan1/statistics/rx_bytes")
        before, reply, after = lab.shell("router", script, check=True).out.splitlines()
        if before == after and f'"{before}"' in reply:
            break
        assert time.monotonic() < deadline, (before, reply, after)
