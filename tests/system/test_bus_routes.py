"""Static routes over the bus: where they show, which way traffic takes, and what brings them back."""

from __future__ import annotations

from typing import TYPE_CHECKING

import pytest

from labctl import checks
from tests.system import bus
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

TARGET = "192.0.2.1"            # only the second WAN's provider has it
ROUTE = {"line": "wan2", "dstaddr": "192.0.2.0", "netmask": "255.255.255.0", "gateway": "203.0.114.1", "metric": "7"}


@pytest.fixture(scope="module")
def lab(machine: Machine) -> Lab:
    """Two WANs; the route of the configuration is deleted, so that the table is empty."""
    lab = machine.board("two-wan", "three-lans", fresh=True)
    machine.spoiled()
    for number in (1, 2):
        lab.shell("router", f"for i in $(seq 300); do ip -4 rule | grep -q '^2000{number}:' && exit; sleep 0.1; done; "
                            "exit 1", check=True, timeout=60)
    assert bus.route(lab, "del", name=["partner"]) == (0, None)
    assert table(lab) == []
    return lab


def table(lab: Lab) -> list[str]:
    text = lab.run("router", "ip", "-4", "route", "show", "table", "10000").out
    return [" ".join(line.split()) for line in text.splitlines()]


def reached(lab: Lab) -> tuple[int, float] | None:
    return checks.ping(lab, "pc1", TARGET, seconds=5)


def test_a_route_lives(lab: Lab) -> None:
    assert not reached(lab)
    assert bus.route(lab, "add", name="partner", **ROUTE) == (0, None)
    assert len(table(lab)) == 1
    assert table(lab)[0].startswith("192.0.2.0/24 via 203.0.114.1 dev wan2 ") and "metric 7" in table(lab)[0]
    assert reached(lab)
    assert bus.route(lab, "enable", name=["partner"], enable=0) == (0, None)
    assert table(lab) == [] and not reached(lab)
    assert bus.route(lab, "enable", name=["partner"], enable=1) == (0, None)
    assert reached(lab)
    assert bus.route(lab, "edit", name="partner", **{**ROUTE, "netmask": "255.255.255.255", "dstaddr": TARGET,
                                                     "metric": "9", "line": "auto"}) == (0, None)
    assert len(table(lab)) == 1 and table(lab)[0].startswith("192.0.2.1 via 203.0.114.1 dev wan2 ")
    assert reached(lab)
    assert bus.route(lab, "del", name=["partner"]) == (0, None)
    assert table(lab) == [] and not reached(lab)


def test_long_names_are_cut_and_then_not_found(lab: Lab) -> None:
    for length, found in ((31, True), (32, False)):
        name = "n" * length
        assert bus.route(lab, "add", name=name, **ROUTE) == (0, None)
        assert bus.route(lab, "enable", name=[name], enable=0) == ((0, None) if found else (2, None))
        assert bus.route(lab, "del", name=["n" * 31]) == (0, None)
        assert table(lab) == []


def test_a_second_entry_of_a_name_waits_behind_the_first(lab: Lab) -> None:
    assert bus.route(lab, "add", name="twice", **ROUTE) == (0, None)
    assert bus.route(lab, "add", name="twice", **{**ROUTE, "dstaddr": "198.18.0.0"}) == (0, None)
    assert sorted(line.split()[0] for line in table(lab)) == ["192.0.2.0/24", "198.18.0.0/24"]
    assert bus.route(lab, "del", name=["twice"]) == (0, None)
    assert [line.split()[0] for line in table(lab)] == ["198.18.0.0/24"]
    assert bus.route(lab, "del", name=["twice"]) == (0, None)
    assert table(lab) == []
    assert bus.route(lab, "del", name=["twice"]) == (2, None)


def test_a_pulled_cable_takes_a_route_and_its_return_brings_it_back(lab: Lab) -> None:
    assert bus.route(lab, "add", name="partner", **{**ROUTE, "netmask": "255.255.255.0"}) == (0, None)
    try:
        assert reached(lab)
        lab.link(4, False)
        lab.shell("router", "while ip -4 route show table 10000 | grep -q 192.0.2; do sleep 0.1; done", check=True,
                  timeout=30)
        assert not reached(lab)
        lab.link(4, True)
        # the gateway's network is compared with the mask of the destination: this one matches
        lab.shell("router", "until ip -4 route show table 10000 | grep -q 192.0.2; do sleep 0.1; done", check=True,
                  timeout=30)
        assert checks.ping(lab, "pc1", TARGET)
    finally:
        assert bus.route(lab, "del", name=["partner"]) == (0, None)


def test_a_new_address_brings_back_the_first_route_of_its_network_only(lab: Lab) -> None:
    assert bus.route(lab, "add", name="one", **ROUTE) == (0, None)
    assert bus.route(lab, "add", name="two", **{**ROUTE, "dstaddr": "198.18.0.0"}) == (0, None)
    try:
        lab.ok("router", "ip", "route", "flush", "table", "10000")
        assert table(lab) == []
        lab.ok("router", "ip", "addr", "add", "203.0.114.77/24", "dev", "wan2")
        lab.shell("router", "until ip -4 route show table 10000 | grep -q .; do sleep 0.1; done", check=True,
                  timeout=20)
        assert [line.split()[0] for line in table(lab)] == ["192.0.2.0/24"]
    finally:
        lab.ok("router", "ip", "addr", "del", "203.0.114.77/24", "dev", "wan2")
        assert bus.route(lab, "del", name=["one", "two"]) == (0, None)


@pytest.mark.parametrize("lacking", ["name", "line", "dstaddr", "netmask", "gateway"])
def test_what_add_must_be_given(lab: Lab, lacking: str) -> None:
    arguments = {"name": "short", **ROUTE}
    del arguments[lacking]
    assert bus.route(lab, "add", **arguments) == (2, None)
    assert table(lab) == []
