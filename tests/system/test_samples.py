"""Every sample configuration brings up a board as it is: those of the lab, and the one that goes into an image."""

from __future__ import annotations

import pathlib
import re
import shutil
from collections.abc import Iterable
from typing import TYPE_CHECKING

import pytest

from labctl import paths
from tests.system import peers, state
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

# Those with WANs that need somebody at the other end are raised beside him: test_dhcp, test_pppoe, test_two_wans_live.
SAMPLES = sorted(path.name for path in (paths.LAB / "configs").iterdir()
                 if not re.search(r"proto '(dhcp|pppoe)'", (path / "wan_intf").read_text()))
IMAGE = paths.ROOT / "image/files/etc/config"


def sections(text: str) -> dict[str, dict[str, str]]:
    """Name -> its options, of the sections that are not commented out."""
    found: dict[str, dict[str, str]] = {}
    options: dict[str, str] = {}
    for line in text.splitlines():
        if match := re.match(r"config \w+ '?(\w+)'?$", line):
            options = found.setdefault(match.group(1), {})
        elif match := re.match(r"\toption (\w+) '?([^']*)'?$", line):
            options[match.group(1)] = match.group(2)
    return found


def loaded(lab: Lab, files: Iterable[pathlib.Path]) -> int:
    """The board has the files unchanged, and an address on each interface that they give one."""
    there = state.addresses(lab)
    given = 0
    for path in files:
        assert lab.get("router", "/etc/config/" + path.name) == path.read_bytes()
        if path.name == "route_config":
            continue
        for name, options in sections(path.read_text()).items():
            assert options["enable"] == "1" and name in state.devices(lab)
            if "ipaddr" in options:
                given += 1
                assert any(address.startswith(options["ipaddr"] + "/") for address in there[name]), (name, there)
    return given


@pytest.mark.parametrize("name", SAMPLES)
def test_sample_of_the_lab(machine: Machine, name: str) -> None:
    folder = paths.LAB / "configs" / name
    second = "wan2" in sections((folder / "wan_intf").read_text())
    lab = machine.board("two-wan" if second else "one-cpu", name)
    assert loaded(lab, [path for path in folder.iterdir() if path.name != "hosts"]) >= 2
    errors = [line for line in lab.ok("router", "cat", "/var/log/messages").splitlines()
              if " ivarode[" in line and line.split()[1] in ("err", "warning")]
    assert errors == []


HOSTS = """pc1 lan1
    address add 192.168.1.11/24 dev eth0
    route add default via 192.168.1.1
isp wan1
    address add 203.0.113.1/24 dev eth0
    address add 198.51.100.1/32 dev lo
"""


def test_sample_of_the_image(machine: Machine, tmp_path: pathlib.Path) -> None:
    """Its WAN asks for an address: it gets one, a way out and a resolver."""
    shutil.copytree(IMAGE, tmp_path / "image")
    (tmp_path / "image/hosts").write_text(HOSTS)
    lab = machine.board("one-cpu", str(tmp_path / "image"), fresh=True)
    machine.spoiled()
    assert loaded(lab, sorted(IMAGE.iterdir())) == 1
    with lab.spawn("isp", "dnsmasq", "--keep-in-foreground", "--port=0", "--bind-interfaces", "--interface=eth0",
                   "--leasefile-ro",
                   "--dhcp-range=203.0.113.50,203.0.113.50,255.255.255.0,600", "--dhcp-option=3,203.0.113.1",
                   "--dhcp-option=6,203.0.113.9", "--dhcp-authoritative", "--user=root", "--group=root",
                   "--conf-file=/dev/null", "--pid-file=") as server:
        peers.bound(lab, "wan1")
        server.kill()
    assert state.addresses(lab)["wan1"] == ["203.0.113.50/24"]
    assert "via 203.0.113.1 dev wan1" in lab.ok("router", "ip", "-4", "route", "get", "198.51.100.1")
    assert lab.ok("router", "cat", "/etc/resolv.conf") == "nameserver 203.0.113.9\n"
    assert loaded(lab, sorted(IMAGE.iterdir())) == 1
