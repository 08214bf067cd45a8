"""Real frames through the emulated switch and the router's kernel."""

from __future__ import annotations

import pytest

from labctl import checks
from labctl.capture import Capture
from tests.system.held_lab import Lab


def test_router_answers_in_each_lan(home: Lab) -> None:
    checks.router_answers(home, home.topology)


def test_same_lan_goes_through_the_switch_alone(home: Lab) -> None:
    checks.same_lan(home, home.topology)


def test_lan_of_its_own_is_reached_only_through_the_router(home: Lab) -> None:
    checks.own_lan(home, home.topology)


def test_internet_through_nat(home: Lab) -> None:
    checks.translation(home, home.topology)


def test_lan_frames_stay_off_the_wan_port(home: Lab) -> None:
    checks.lan_stays_inside(home, home.topology)


def test_router_is_closed_towards_the_wan(home: Lab) -> None:
    assert checks.ping(home, "isp", "203.0.113.2", seconds=2) is None
    with Capture(home, 0) as wan:
        assert not home.run("isp", "busybox", "ping", "-c", "1", "-W", "1", "203.0.113.2", timeout=20)
        # it did get there: the router has answered ARP before it dropped the ping
        assert wan.frames(lambda frames: any(f.kind == "ICMP" and f.ip_dst == "203.0.113.2" for f in frames))


def test_tcp_through_nat_with_its_segment_size_clamped(home: Lab) -> None:
    """The WAN's MTU becomes 1400: a SYN that leaves by it must offer 1360 bytes at most."""
    home.ok("router", "ip", "link", "set", "wan1", "mtu", "1400")
    try:
        with home.spawn("isp", "busybox", "nc", "-l", "-p", "8080", "-e", "echo", "hello from outside") as server, \
                Capture(home, 0) as wan:
            home.shell("isp", "until busybox netstat -ltn | grep -q :8080; do sleep 0.1; done", check=True)
            said = home.run("pc1", "busybox", "nc", "-w", "5", "198.51.100.1", "8080", timeout=20)
            assert said.out == "hello from outside\n"
            frames = wan.frames(lambda fs: any(f.kind == "TCP" and f.ip_dst == "198.51.100.1" for f in fs))
            syn = next(f for f in frames or () if f.kind == "TCP" and f.ip_dst == "198.51.100.1")
            options = syn.payload[20:][20:]
            assert options[:2] == b"\x02\x04" and int.from_bytes(options[2:4], "big") == 1360
            server.kill()
    finally:
        home.ok("router", "ip", "link", "set", "wan1", "mtu", "1500")


@pytest.mark.parametrize("port, host, other", [(2, "pc2", "pc1"), (4, "pc4", "pc2")])
def test_pulled_cable_is_seen_at_both_ends(home: Lab, port: int, host: str, other: str) -> None:
    address = home.topology.address[host]
    assert checks.ping(home, other, address)
    home.link(port, False)
    try:
        home.shell(host, "until [ \"$(cat /sys/class/net/eth0/carrier)\" = 0 ]; do sleep 0.05; done", check=True,
                   timeout=10)
        assert not home.run(other, "busybox", "ping", "-c", "1", "-W", "1", address, timeout=20)
        assert not [p for p in home.switch("status")["ports"] if p["port"] == port][0]["link"]
    finally:
        home.link(port, True)
    assert checks.ping(home, other, address)


def wait_rule(lab: Lab, there: bool) -> None:
    """Waits until the WAN's policy rule is there (or gone)."""
    lab.shell("router", f"for i in $(seq 200); do ip -4 rule | grep -q '^20001:' {'&&' if there else '||'} exit 0; "
                        "sleep 0.1; done; exit 1", check=True, timeout=60)


def test_wan_follows_its_cable(home: Lab) -> None:
    assert checks.ping(home, "pc1", checks.INTERNET)
    for _ in range(3):
        home.link(0, False)
        wait_rule(home, False)
        assert "state DOWN" in home.ok("router", "ip", "link", "show", "wan1")
        home.link(0, True)
        wait_rule(home, True)
        assert checks.ping(home, "pc1", checks.INTERNET)


def test_own_lan_follows_its_cable(home: Lab) -> None:
    home.link(3, False)
    home.shell("router", "until ip link show lan3 | grep -q 'state DOWN'; do sleep 0.1; done", check=True, timeout=30)
    # the first LAN's port counts as linked whatever happens to its cable
    home.link(1, False)
    home.link(1, True)
    home.link(3, True)
    assert checks.ping(home, "pc3", "192.168.3.1")
    assert checks.ping(home, "pc1", "192.168.1.1")
    assert checks.ping(home, "pc1", home.topology.address["pc3"])
