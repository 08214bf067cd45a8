"""LAN interfaces on VLANs of a port: added, reached with tagged frames, reconfigured, switched, deleted."""

from __future__ import annotations

from typing import TYPE_CHECKING

import pytest

from labctl import checks
from tests.system import bus, state
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

LAN2 = 2                    # switch port
MASK = "255.255.255.0"


@pytest.fixture(scope="module")
def lab(machine: Machine) -> Lab:
    """Two interfaces on port 2. The first of a port's list is never counted, so the second is the one to play with."""
    lab = machine.board("one-cpu", "one-lan", fresh=True)
    machine.spoiled()
    assert bus.intf(lab, "add", intf="lan2.90", ipaddr="192.168.90.1", netmask=MASK, vlanid1=90) == (0, None)
    assert bus.intf(lab, "add", intf="lan2.100", ipaddr="192.168.100.1", netmask=MASK, vlanid1=100) == (0, None)
    return lab


def tagged(lab: Lab, host: str, address: str, *vlans: int) -> None:
    """Gives a host an address behind VLAN tags, outermost first."""
    below = "eth0"
    lines = []
    for vlan in vlans:
        name = f"{below}.{vlan}"
        lines.append(f"ip link show {name} >/dev/null 2>&1 || ip link add link {below} name {name} type vlan id {vlan}")
        lines.append(f"ip link set {name} up")
        below = name
    lines.append(f"ip addr replace {address}/24 dev {below}")
    lab.shell(host, " && ".join(lines), check=True)


def user_vlans(lab: Lab) -> dict[int, list[int]]:
    """VLAN ID -> members of the entries that users' VLANs live in."""
    return {vid: members for entry, (vid, members, _) in state.switch(lab)["vlans"].items() if entry >= 5 and members}


def test_tagged_frames_reach_the_new_interface(lab: Lab) -> None:
    assert user_vlans(lab) == {90: [LAN2, 6], 100: [LAN2, 6]}
    found = state.devices(lab)
    assert found["eth0.100"][:4] == ("vlan", 100, "eth0", "lan2.100")
    assert found["lan2.100"][0] == "bridge"
    # the port's MAC, two added to its first byte; the bridge without "mac" takes it over
    assert found["eth0.100"][4] == found["lan2.100"][4] == "02:0c:43:10:20:31"
    tagged(lab, "pc2", "192.168.100.12", 100)
    tagged(lab, "pc2", "192.168.90.12", 90)
    assert checks.ping(lab, "pc2", "192.168.100.1")
    assert checks.ping(lab, "pc2", "192.168.90.1")
    assert checks.ping(lab, "pc2", "192.168.1.1"), "the untagged network of the port is gone"


def test_tagged_frames_of_another_port_do_not(lab: Lab) -> None:
    tagged(lab, "pc4", "192.168.100.14", 100)
    try:
        assert not lab.run("pc4", "busybox", "ping", "-c", "2", "-W", "1", "192.168.100.1", timeout=20)
        assert not lab.run("pc4", "busybox", "ping", "-c", "1", "-W", "1", "192.168.100.12", timeout=20)
        drops = lab.switch("status")["ports"]
        assert [p for p in drops if p["port"] == 4][0]["drops"] != [p for p in drops if p["port"] == 3][0]["drops"]
    finally:
        lab.ok("pc4", "ip", "link", "del", "eth0.100")


def test_inner_vlan(lab: Lab) -> None:
    assert bus.intf(lab, "add", intf="lan4.7", ipaddr="192.168.7.1", netmask=MASK, vlanid1=101, vlanid2=7) == (0, None)
    found = state.devices(lab)
    assert found["eth0.101"][:3] == ("vlan", 101, "eth0")
    assert found["eth0.101.7"][:4] == ("vlan", 7, "eth0.101", "lan4.7")
    tagged(lab, "pc4", "192.168.7.14", 101, 7)
    assert checks.ping(lab, "pc4", "192.168.7.1")


def test_switched_off_and_on(lab: Lab) -> None:
    tagged(lab, "pc2", "192.168.100.12", 100)
    assert bus.intf(lab, "enable", intf=["lan2.100"], enable=0) == (0, None)
    assert not state.devices(lab)["lan2.100"][5]
    assert not lab.run("pc2", "busybox", "ping", "-c", "1", "-W", "1", "192.168.100.1", timeout=20)
    assert bus.intf(lab, "enable", intf=["lan2.100"], enable=1) == (0, None)
    assert checks.ping(lab, "pc2", "192.168.100.1")


def test_renamed_and_readdressed(lab: Lab) -> None:
    assert bus.intf(lab, "config", intf="lan2.150", old_intf="lan2.100", proto="static", ipaddr="192.168.150.1",
                    netmask=MASK, vlanid1=150) == (0, None)
    assert user_vlans(lab) == {90: [LAN2, 6], 101: [4, 6], 150: [LAN2, 6]}
    found = state.devices(lab)
    assert "eth0.100" not in found and "lan2.100" not in found
    assert found["eth0.150"][3] == "lan2.150"
    assert state.addresses(lab)["lan2.150"] == ["192.168.150.1/24"]
    tagged(lab, "pc2", "192.168.150.12", 150)
    assert checks.ping(lab, "pc2", "192.168.150.1")


def test_deleted(lab: Lab) -> None:
    assert bus.intf(lab, "del", intf=["lan2.150"]) == (0, None)
    assert "eth0.150" not in state.devices(lab) and "lan2.150" not in state.devices(lab)
    assert 150 not in user_vlans(lab)
    assert not lab.run("pc2", "busybox", "ping", "-c", "1", "-W", "1", "192.168.150.1", timeout=20)
    assert bus.intf(lab, "del", intf=["lan2.150"]) == (1, None)


def test_the_first_interface_of_a_port_cannot_be_deleted_whole(lab: Lab) -> None:
    """It is never counted as a user of its VLAN: its bridge goes, its VLAN device and switch entry stay."""
    assert bus.intf(lab, "del", intf=["lan2.90"]) == (1, None)
    found = state.devices(lab)
    assert "lan2.90" not in found and "eth0.90" in found
    assert user_vlans(lab)[90] == [LAN2, 6]
