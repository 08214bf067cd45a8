"""A WAN of DHCP beside a real server behind the emulated switch: client, event script and server as they ship."""

from __future__ import annotations

from typing import TYPE_CHECKING

import pytest

from labctl import checks
from labctl.capture import Capture, Decoded
from tests.system import bus, peers, state, traffic
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

POOL = [f"203.0.113.{last}" for last in range(50, 61)]
GATEWAY = "203.0.113.1"
MAC = "02:0c:43:10:20:34"       # of the router's first WAN port


@pytest.fixture(scope="module")
def lab(machine: Machine) -> Lab:
    lab = machine.board("one-cpu", "dhcp", fresh=True)
    machine.spoiled()
    return lab


@pytest.fixture
def server(lab: Lab) -> peers.Dhcp:
    """A server that answers, and a WAN that has its lease."""
    server = peers.Dhcp(lab)
    if not lab.run("isp", "sh", "-c", "kill -0 $(cat /run/dhcp-provider.pid)"):
        server.start()
    lab.link(0, True)
    peers.bound(lab, "wan1")
    return server


def look_bound(lab: Lab, address: str) -> None:
    assert address in POOL
    assert peers.address(lab, "wan1") == [address + "/24"]
    assert peers.default_routes(lab, 20001) == [f"default via {GATEWAY} dev wan1 proto 105 metric 20001"]
    assert [rule for rule in state.rules(lab) if rule.startswith(("10001", "20001"))] == [
        "10001: from all lookup main suppress_prefixlength 0", "20001: from all lookup 20001"]
    assert peers.resolvers(lab) == ["198.51.100.53"]
    assert peers.row(lab, "wan1") == {
        "name": "wan1", "proto": "dhcp", "ipaddr": address, "netmask": "255.255.255.0", "gateway": GATEWAY,
        "addr4": "198.51.100.53", "addr5": "0.0.0.0"}


def look_unbound(lab: Lab) -> None:
    assert peers.address(lab, "wan1") == [] and peers.default_routes(lab, 20001) == []
    assert peers.row(lab, "wan1")["ipaddr"] == "0.0.0.0" and peers.row(lab, "wan1")["gateway"] == "0.0.0.0"
    peers.until(lab, "router", "! grep -q nameserver /etc/resolv.conf", 20)


def client_words(lab: Lab) -> list[str]:
    return lab.shell("router", "tr '\\0' ' ' < /proc/$(cat /var/run/udhcpc-wan1.pid)/cmdline", check=True).out.split()


def test_server_silent_and_then_there(lab: Lab) -> None:
    """Without a server the client asks on and on; the WAN has its lease as soon as one answers."""
    look_unbound(lab)
    assert peers.errors(lab) == []
    with Capture(lab, 0) as wan:
        asked = wan.frames(lambda fs: len([f for f in fs if is_request(f)]) >= 3, 60)
        assert asked is not None, "the client has stopped asking"
    requests = [f for f in asked if is_request(f)]
    assert {f.src for f in requests} == {MAC} and {f.ip_src for f in requests} == {"0.0.0.0"}
    # -C of the command line: the MAC is not sent as an identifier of the client (option 61)
    assert all(53 in options(f) and 61 not in options(f) for f in requests)
    server = peers.Dhcp(lab)
    server.start()
    address = peers.bound(lab, "wan1")
    look_bound(lab, address)
    assert [kind for kind, _ in server.messages()][-4:] == ["DISCOVER", "OFFER", "REQUEST", "ACK"]
    assert server.messages()[-1][1] == address


def is_request(frame: Decoded) -> bool:
    return frame.kind == "UDP" and frame.ip_dst == "255.255.255.255" and frame.payload[22:24] == b"\0\x43"


def options(frame: Decoded) -> list[int]:
    """Option numbers of a DHCP message; 20 bytes of IP and 8 of UDP in front, 240 bytes of its own fields."""
    data, found, at = frame.payload[28 + 240:], [], 0
    while at < len(data) and data[at] != 255:
        if data[at] == 0:
            at += 1
            continue
        found.append(data[at])
        at += 2 + data[at + 1]
    return found


def test_client_has_the_words_of_the_daemon(lab: Lab, server: peers.Dhcp) -> None:
    given, running = bus.instances(lab, "dhcp")["wan1"]
    assert running and given == ["/sbin/udhcpc", "-t", "0", "-i", "wan1", "-s", "/lib/ivarode/empty.sh", "-C", "-p",
                                 "/var/run/udhcpc-wan1.pid", "-f", "-m", "20001"]
    # what the wrapper makes of them: the unknown option goes into the environment, the client gives its lease back
    assert client_words(lab) == ["busybox", "udhcpc", "-t", "0", "-i", "wan1", "-s", "/lib/ivarode/empty.sh", "-C",
                                 "-p", "/var/run/udhcpc-wan1.pid", "-f", "-R"]
    environment = lab.shell("router", "tr '\\0' '\\n' < /proc/$(cat /var/run/udhcpc-wan1.pid)/environ", check=True).out
    assert "IVARODE_WAN_NUMBER=20001" in environment.splitlines()
    pid = lab.ok("router", "cat", "/var/run/udhcpc-wan1.pid").strip()
    listed = lab.run("router", "ubus", "call", "service", "list", '{"name":"dhcp"}', check=True).json()
    assert listed["dhcp"]["instances"]["wan1"]["pid"] == int(pid), "the supervisor watches another process"


def test_traffic_takes_the_leased_way(lab: Lab, server: peers.Dhcp) -> None:
    address = peers.row(lab, "wan1")["ipaddr"]
    with Capture(lab, 0) as wan:
        assert checks.ping(lab, "pc1", checks.INTERNET)
        frames = wan.frames(lambda fs: any(f.kind == "ICMP" and f.ip_dst == checks.INTERNET for f in fs))
    assert {f.ip_src for f in frames or () if f.kind == "ICMP" and f.ip_dst == checks.INTERNET} == {address}


def test_enabled_again_renews(lab: Lab, server: peers.Dhcp) -> None:
    """The renewal goes to the server that gave the lease, without a new search."""
    before, acks = server.count("DISCOVER"), server.count("ACK")
    address = peers.row(lab, "wan1")["ipaddr"]
    assert bus.intf(lab, "enable", intf=["wan1"], enable=1) == (0, None)
    server.wait("ACK", acks + 1)
    assert server.count("DISCOVER") == before
    assert server.messages()[-2:] == [("REQUEST", address), ("ACK", address)]
    look_bound(lab, address)


def test_lease_outlives_the_daemon(lab: Lab, server: peers.Dhcp, restarts: range) -> None:
    address, searches = peers.row(lab, "wan1")["ipaddr"], server.count("DISCOVER")
    pid = lab.ok("router", "cat", "/var/run/udhcpc-wan1.pid")
    traffic.restarted_below(lab, "LAN to DHCP WAN", restarts)
    look_bound(lab, address)
    assert lab.ok("router", "cat", "/var/run/udhcpc-wan1.pid") == pid and bus.instances(lab, "dhcp")["wan1"][1]
    assert server.count("DISCOVER") == searches


def test_cable_pulled_releases_and_cable_back_asks_anew(lab: Lab, server: peers.Dhcp) -> None:
    """The daemon takes the address off and has the client let go; with the cable out, or the device down, that stays a
    matter between the two. The server sees it by the client's beginning anew instead of renewing what it held."""
    for _ in range(2):
        seen = len(server.messages())
        lab.link(0, False)
        peers.unbound(lab, "wan1", 60)
        look_unbound(lab)
        assert [line for line in peers.said_by_clients(lab) if line.startswith("[dhcp/wan1]")][-1].endswith(
            "entering released state")
        assert len(server.messages()) == seen
        lab.link(0, True)
        look_bound(lab, peers.bound(lab, "wan1"))
        assert [kind for kind, _ in server.messages()[seen:]] == ["DISCOVER", "OFFER", "REQUEST", "ACK"]
        assert checks.ping(lab, "pc1", checks.INTERNET)


def test_disabled_and_enabled(lab: Lab, server: peers.Dhcp) -> None:
    assert bus.intf(lab, "enable", intf=["wan1"], enable=0) == (0, None)
    peers.unbound(lab, "wan1", 30)
    look_unbound(lab)
    seen = len(server.messages())
    assert bus.intf(lab, "enable", intf=["wan1"], enable=1) == (0, None)
    look_bound(lab, peers.bound(lab, "wan1"))
    assert [kind for kind, _ in server.messages()[seen:]] == ["DISCOVER", "OFFER", "REQUEST", "ACK"]


def test_daemon_ended_in_order_gives_the_lease_back(lab: Lab, server: peers.Dhcp) -> None:
    address = peers.row(lab, "wan1")["ipaddr"]
    lab.ok("agent", "stop", "daemon")
    server.wait("RELEASE", 1, 30)
    assert server.messages()[-1] == ("RELEASE", address)
    peers.unbound(lab, "wan1", 20)
    # the event script has said goodbye; the client itself is on its way out
    peers.until(lab, "router", "! ubus call service list '{\"name\":\"dhcp\"}' | grep -q wan1", 30)
    lab.ok("agent", "start", "daemon")
    look_bound(lab, peers.bound(lab, "wan1"))
    # the client has begun before the daemon's event loop, which looks at the ports for the first time; a cable pulled
    # before that is no change
    lab.said("ivarode init success", 90)
    assert bus.intf(lab, "status")[0] == 0


# Another subscriber of the same provider, with a network of his own: his seat and the router's share the server's.
NEIGHBOUR = """
ip netns add neighbour
ip link add lan type bridge && ip link set lan address $(cat /sys/class/net/eth0/address) && ip link set lan up
ip address del 203.0.113.1/24 dev eth0 && ip link set eth0 master lan && ip address add 203.0.113.1/24 dev lan
ip link add seat type veth peer name station netns neighbour && ip link set seat master lan up
ip -n neighbour link set station up
printf '#!/bin/sh\\n[ "$1" != bound ] || ip address add $ip/24 dev station\\n' > /tmp/lease && chmod 755 /tmp/lease
"""
CLIENT = ["ip", "netns", "exec", "neighbour", "busybox", "udhcpc", "-i", "station", "-f", "-R", "-s", "/tmp/lease"]
APART = """
ip link del seat; ip link del lan; ip netns del neighbour
ip address add 203.0.113.1/24 dev eth0
"""


def test_pool_exhausted_until_the_neighbour_goes(lab: Lab, server: peers.Dhcp) -> None:
    """A pool of one address, and another subscriber of the provider holds it."""
    lab.link(0, False)
    peers.unbound(lab, "wan1", 60)
    server.stop()
    lab.shell("isp", NEIGHBOUR, check=True)
    try:
        server.start(POOL[0], POOL[0], "lan")
        acks, releases = server.count("ACK"), server.count("RELEASE")
        with lab.spawn("isp", *CLIENT) as neighbour:
            server.wait("ACK", acks + 1)
            lab.link(0, True)
            peers.until(lab, "isp",
                        f"[ $(grep -c 'DHCPDISCOVER.*{MAC} no address available' /var/log/dhcp-provider) -ge 2 ]")
            look_unbound(lab)
            assert bus.instances(lab, "dhcp")["wan1"][1]
            neighbour.kill(15)
            server.wait("RELEASE", releases + 1, 30)
        assert peers.bound(lab, "wan1") == POOL[0]
        look_bound(lab, POOL[0])
    finally:
        server.stop()
        lab.shell("isp", APART, check=True)


def test_server_gone_and_back_keeps_the_lease(lab: Lab, server: peers.Dhcp) -> None:
    """The server forgets everything; a renewal of what it does not know is put right by the next answer."""
    address = peers.row(lab, "wan1")["ipaddr"]
    server.stop()
    assert bus.intf(lab, "enable", intf=["wan1"], enable=1) == (0, None)
    assert checks.ping(lab, "pc1", checks.INTERNET), "a lease that cannot be renewed is good until its end"
    server.start()
    acks = server.count("ACK")
    server.wait("ACK", acks + 1)
    look_bound(lab, peers.row(lab, "wan1")["ipaddr"])
    assert peers.row(lab, "wan1")["ipaddr"] == address
