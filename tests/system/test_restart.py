"""Deaths and restarts: of the daemon at any time, and of the bus broker."""

from __future__ import annotations

import time
from typing import Any, TYPE_CHECKING

import pytest

from labctl import checks
from tests.system import state, traffic
from tests.system.daemon import kill_daemon, restart, wait_service
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine


def comparable(found: dict[str, Any]) -> dict[str, Any]:
    """Without the CPU port's own MAC, which is another on each board."""
    devices = {name: value for name, value in found["devices"].items() if name != "eth0"}
    return {**found, "devices": devices}


@pytest.fixture(scope="module")
def undisturbed(machine: Machine) -> dict[str, Any]:
    """What a start leaves that nobody disturbs."""
    return comparable(state.settled(machine.board("one-cpu", "home", fresh=True)))


def test_killed_and_started_again_finds_the_same_state(fresh_home: Lab) -> None:
    before = state.settled(fresh_home)
    kill_daemon(fresh_home)
    # the kernel and the switch go on without it
    assert checks.ping(fresh_home, "pc1", checks.INTERNET)
    restart(fresh_home)
    assert state.settled(fresh_home) == before
    checks.translation(fresh_home, fresh_home.topology)


def test_traffic_goes_on(home: Lab, restarts: range) -> None:
    """The kernel's rules and firewall are left as they were, so the router loses nothing of what reaches it."""
    streams = [traffic.Stream("LAN to WAN", "pc2", checks.INTERNET),
               traffic.Stream("LAN to WAN, connection", "pc4", checks.INTERNET, traffic.ECHO_PORT, rarely=True),
               traffic.Stream("LAN to LAN, router", "pc1", home.topology.address["pc3"], rarely=True),
               traffic.Stream("LAN to LAN, switch", "pc4", home.topology.address["pc1"], rarely=True),
               traffic.Stream("LAN to router", "pc3", home.topology.router[3], rarely=True)]
    before = state.settled(home)
    with home.spawn("router", "ip", "-o", "monitor", "rule", "address", "link") as monitor:
        with traffic.Traffic(home, streams) as through:
            for _ in restarts:
                traffic.killed_and_started(home)
        monitor.kill(15)
        changes = monitor.collect(time.monotonic() + 20 * home.pace).out
    print(through.told())
    through.look_unharmed()
    assert changes == ""
    assert state.everything(home) == before


@pytest.mark.parametrize("text", ["base-mac", "i=0 link"])
def test_killed_in_mid_start(machine: Machine, undisturbed: dict[str, Any], text: str) -> None:
    """Killed when its output has reached a certain line, on a board where nothing has been laid yet."""
    machine.spoiled()
    lab = machine.lab
    lab.raise_board("one-cpu", "home", ["no-daemon"])
    with lab.spawn("router", "sh", "-c",
                   f"while ! grep -q '{text}' /var/log/daemon.log; do :; done; kill -9 $(pidof ivarode)") as killer:
        lab.ok("agent", "start", "daemon")
        assert killer.collect(time.monotonic() + 60 * lab.pace)
    wait_service(lab, "daemon ended signal 9")
    restart(lab)
    found = state.settled(lab)
    for part, value in undisturbed.items():
        assert comparable(found)[part] == value, part


def test_terminated_it_ends_well(fresh_home: Lab) -> None:
    fresh_home.ok("agent", "stop", "daemon", timeout=30)
    wait_service(fresh_home, "daemon ended exit 0")
    restart(fresh_home)
    assert fresh_home.run("router", "ubus", "-S", "call", "ivarode.run", "run").status == 0


def test_broker_killed_and_restarted(fresh_home: Lab) -> None:
    before = fresh_home.ok("router", "ubus", "list").split()
    for _ in range(3):
        fresh_home.ok("agent", "kill", "broker", "9")
        wait_service(fresh_home, "broker ended signal 9")
        fresh_home.ok("agent", "start", "broker")
        began = time.monotonic()
        while not fresh_home.run("router", "ubus", "-S", "-t", "2", "wait_for", "ivarode.intf", "ivarode.route",
                                 "ivarode.pppuser", "ivarode.pppauth", "ivarode.run"):
            assert time.monotonic() - began < 2 * fresh_home.pace
        assert time.monotonic() - began < 2 * fresh_home.pace
        assert fresh_home.run("router", "ubus", "-S", "call", "ivarode.run", "run").status == 0
    fresh_home.run("router", "ubus", "-t", "10", "wait_for", *before, check=True)
    assert "daemon running" in fresh_home.ok("agent", "services")
