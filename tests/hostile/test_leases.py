"""DHCP servers and PPP peers that name what they should not: nothing of it is believed."""

import shlex
from pathlib import Path

import pytest

from tests.docs import sandbox
from tests.hostile import world

pytestmark = pytest.mark.skipif(sandbox.missing() is not None, reason=str(sandbox.missing()))

HOST = "it is not the address of a host"
REFUSED: dict[str, tuple[dict[str, str], str]] = {
    "loopback": ({"ip": "127.0.0.1", "mask": "8"}, HOST),
    "this network": ({"ip": "0.1.2.3"}, HOST),
    "multicast": ({"ip": "224.0.0.5"}, HOST),
    "class E": ({"ip": "240.1.1.1"}, HOST),
    "broadcast": ({"ip": "255.255.255.255"}, HOST),
    "nothing": ({"ip": ""}, HOST),
    "a name": ({"ip": "lan1"}, HOST),
    "three parts": ({"ip": "203.0.113"}, HOST),
    "five parts": ({"ip": "203.0.113.5.6"}, HOST),
    "octal": ({"ip": "0203.0.113.5"}, HOST),
    "too large": ({"ip": "203.0.113.256"}, HOST),
    "an option of ip": ({"ip": "203.0.113.5 dev lan1"}, HOST),
    "half of everything": ({"mask": "1"}, "its mask is shorter than 8"),
    "everything": ({"mask": "0"}, "its mask is shorter than 8"),
    "mask too long": ({"mask": "33"}, "its mask is none"),
    "mask below 0": ({"mask": "-1"}, "its mask is none"),
    "mask with a hole": ({"mask": "", "subnet": "255.0.255.0"}, "its mask is none"),
    "mask of words": ({"mask": "", "subnet": "$(id)"}, "its mask is none"),
    "the whole network": ({"ip": "203.0.113.0"}, "it is that of its whole network"),
    "all of the network": ({"ip": "203.0.113.255"}, "it is that of its whole network"),
    "a part of the LAN": ({"ip": "192.168.1.77", "mask": "25"}, "it overlaps 192.168.1.1/24 on lan1"),
    "a station of the LAN": ({"ip": "192.168.1.77", "mask": "32"}, "it overlaps 192.168.1.1/24 on lan1"),
    "the router itself": ({"ip": "192.168.1.1", "mask": "32"}, "it overlaps 192.168.1.1/24 on lan1"),
    "more than a LAN": ({"ip": "10.200.0.1", "mask": "8"}, "it overlaps 10.1.2.1/24 on lan2"),
}


# That of busybox may know no powers; one that fails at the checks must not be a way around them.
AWKS = {"the system's": "", "busybox's": 'exec busybox awk "$@"',
        "failing": 'case "$*" in *hosts*) exit 2 ;; esac; exec /usr/bin/awk "$@"'}


def awk(kind: str) -> str:
    return AWKS[kind] and f"printf '#!/bin/sh\\n%s\\n' {shlex.quote(AWKS[kind])} >/stub/awk; chmod 755 /stub/awk\n"


@pytest.mark.parametrize("kind", ["the system's", "busybox's"])
def test_a_lease_that_no_host_can_have_or_that_another_device_has_is_refused(tmp_path: Path, kind: str) -> None:
    steps = {name: world.lease(**changed) for name, (changed, _) in REFUSED.items()}
    for name, left in world.attacks(steps, tmp_path, before=awk(kind)).items():
        assert left["wan"] == left["default"] == left["resolver"] == "", name
        assert left["row"] == world.EMPTY_ROW and left["lans"] == world.LANS, name
        assert f"is refused: {REFUSED[name][1]};" in left["log"] and ": bound" not in left["log"], name
        assert "daemon.err" in left["log"], name


def test_a_renewal_that_is_refused_takes_the_lease_back(tmp_path: Path) -> None:
    steps = {"taken": world.lease(), "renewed": world.lease("renew", ip="192.168.1.77", mask="25")}
    left = world.attacks(steps, tmp_path)
    assert left["taken"]["wan"] == "203.0.113.50/24" and ": bound" in left["taken"]["log"]
    renewed = left["renewed"]
    assert renewed["wan"] == renewed["default"] == renewed["resolver"] == "" and renewed["row"] == world.EMPTY_ROW


TAKEN: dict[str, tuple[dict[str, str], str]] = {
    "usual": ({}, "203.0.113.50/24"),
    "host only": ({"mask": "32", "subnet": "255.255.255.255"}, "203.0.113.50/32"),
    "of a link": ({"ip": "203.0.113.0", "mask": "31"}, "203.0.113.0/31"),
    "mask alone": ({"mask": "", "subnet": "255.255.254.0"}, "203.0.113.50/23"),
    "no mask": ({"mask": "", "subnet": ""}, "203.0.113.50/24"),
    "shortest mask": ({"ip": "11.0.0.1", "mask": "8", "subnet": "255.0.0.0"}, "11.0.0.1/8"),
    "beside a LAN": ({"ip": "192.168.2.1"}, "192.168.2.1/24"),
}


def test_a_lease_that_cannot_be_checked_is_refused(tmp_path: Path) -> None:
    steps = {"mask given": world.lease(), "no length": world.lease(mask="")}
    left = world.attacks(steps, tmp_path, before=awk("failing"))
    for name, reason in (("mask given", "it cannot be compared with those of other devices"),
                         ("no length", "its mask is none")):
        assert left[name]["wan"] == "" and f"is refused: {reason};" in left[name]["log"], name


@pytest.mark.parametrize("kind", ["the system's", "busybox's"])
def test_an_honest_lease_is_taken(tmp_path: Path, kind: str) -> None:
    steps = {name: world.lease(**changed) for name, (changed, _) in TAKEN.items()}
    for name, left in world.attacks(steps, tmp_path, before=awk(kind) + world.lease("deconfig")).items():
        assert left["wan"] == TAKEN[name][1] and left["default"].startswith("default via 203.0.113.1 dev wan1"), name
        assert left["log"].endswith(": bound;"), name


GATEWAYS = ["203.0.113.50", "127.0.0.1", "0.0.0.0", "224.0.0.1", "255.255.255.255", "default", "$(touch /root/hit)"]


@pytest.mark.parametrize("changed", [{"IVARODE_WAN_NUMBER": "254"}, *({"router": gateway} for gateway in GATEWAYS)],
                         ids=lambda changed: next(iter(changed.values())))
def test_a_way_out_that_cannot_be_is_an_error_in_log_and_row(tmp_path: Path, changed: dict[str, str]) -> None:
    left = world.attacks({"lease": world.lease(**changed)}, tmp_path)["lease"]
    assert left["wan"] == "203.0.113.50/24" and left["default"] == ""
    assert "ipaddr=203.0.113.50;" in left["row"] and "gateway=0.0.0.0;" in left["row"]
    assert "no default route" in left["log"] and "incomplete, without route;" in left["log"]
    assert ": bound" not in left["log"]


def test_a_route_that_the_kernel_refuses_is_an_error_in_log_and_row(tmp_path: Path) -> None:
    left = world.attacks({"lease": "ip link set wan1 down\n" + world.lease()}, tmp_path)["lease"]
    assert left["default"] == "" and "gateway=0.0.0.0;" in left["row"]
    assert "no default route via 203.0.113.1: " in left["log"]
    assert "incomplete, without route;" in left["log"] and ": bound" not in left["log"]


def test_only_addresses_become_resolvers(tmp_path: Path) -> None:
    named = "198.51.100.9 127.0.0.1 evil * $(id) 198.51.100.8 255.255.255.255"
    left = world.attacks({"lease": world.lease(dns=named)}, tmp_path)
    assert left["lease"]["resolver"] == "nameserver 198.51.100.9;nameserver 198.51.100.8;"


LINKS: dict[str, tuple[str, str, str]] = {
    "local is the router": ("192.168.1.1", "100.64.0.1", "it overlaps 192.168.1.1/24 on lan1"),
    "peer is a station": ("100.64.0.7", "192.168.1.77", "it overlaps 192.168.1.1/24 on lan1"),
    "peer is loopback": ("100.64.0.7", "127.0.0.1", HOST),
    "local is none": ("0.0.0.0", "100.64.0.1", HOST),
    "local is a command": ("$(touch /root/hit)", "100.64.0.1", HOST),
    "peer is multicast": ("100.64.0.7", "224.0.0.1", HOST),
}


def test_a_link_that_takes_another_devices_traffic_is_refused(tmp_path: Path) -> None:
    before = "row pppoe; ip addr flush dev wan1; ip addr add 100.64.0.7 peer 192.168.1.77/32 dev wan1\n"
    steps = {name: world.link("up", local, remote, DNS1="198.51.100.9") for name, (local, remote, _) in LINKS.items()}
    for name, left in world.attacks(steps, tmp_path, before).items():
        assert left["wan"] == left["default"] == left["resolver"] == "", name
        assert left["row"] == world.EMPTY_ROW.replace("dhcp", "pppoe") and left["lans"] == world.LANS, name
        assert f"is refused: {LINKS[name][2]};" in left["log"] and ": bound" not in left["log"], name


def test_two_links_may_have_one_peer(tmp_path: Path) -> None:
    """An access concentrator often has one address for all of its links."""
    before = """row pppoe; ip addr flush dev wan1; ip addr add 100.64.0.7 peer 100.64.0.1/32 dev wan1
ip link add wan2 type bridge; ip addr add 100.64.0.9 peer 100.64.0.1/32 dev wan2
"""
    left = world.attacks({"link": world.link("up", "100.64.0.7", "100.64.0.1")}, tmp_path, before)["link"]
    assert left["log"].endswith(": bound;") and left["default"].startswith("default dev wan1")
