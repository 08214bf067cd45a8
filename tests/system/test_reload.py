"""Reload on the board: what it takes away, what it leaves alone, and that its end is the one of a clean start.

The pairs of configurations are random: two, in a long run twenty. IVARODE_SEED=N chooses others, RELOAD_PAIRS=N how
many.
"""

from __future__ import annotations

import os
import pathlib
import random
import re
import time
from typing import TYPE_CHECKING

import pytest

from tests.chaos import additions, snapshot
from tests.plan import harmless, pairs, planning
from tests.system import state
from tests.system.daemon import LIMIT, RELOAD, reload, restart, start_if_ended, until
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

SEED = int(os.environ.get("IVARODE_SEED", "1"))
BOARD = planning.ROOT / "lab/boards/two-wan.json"
LINKS = [word for port in range(5) for word in ("--link", f"{port}=up")]
SHORT_SLEEP = "/usr/lib/short-sleep.so"


def pytest_generate_tests(metafunc: pytest.Metafunc) -> None:
    if "turn" in metafunc.fixturenames:
        usual = "20" if metafunc.config.getoption("long") else "2"
        metafunc.parametrize("turn", range(int(os.environ.get("RELOAD_PAIRS", usual))))


@pytest.fixture(scope="module")
def lab(machine: Machine) -> Lab:
    machine.spoiled()
    lab = machine.board("two-wan", "three-lans", fresh=True, extra_plan=["daemon-preload " + SHORT_SLEEP])
    machine.spoiled()
    state.settled(lab)
    return lab


def comparable(facts: snapshot.Facts) -> snapshot.Facts:
    """Without PVIDs of ports that are in no VLAN with it, and whether a client without a server runs just now."""
    vlans = {vid: members for kind, *rest in facts if kind == "vlan" for _, vid, members, _ in [rest]}
    out = snapshot.only(facts, lambda fact: fact[0] != "pvid" or fact[1] in vlans.get(fact[2], ()))
    for fact in [fact for fact in out if fact[0] == "client"]:
        kind, service, name, _, command = fact
        out[kind, service, name, command] = out.pop(fact)
    return out


# --- without a change -------------------------------------------------------------------------------------------------

def test_without_a_change_nothing_is_written(lab: Lab, tmp_path: pathlib.Path) -> None:
    """No file, nothing in kernel, firewall and switch, no signal; also with a cable pulled since the start."""
    before = lab.ok("router", "pidof", "ivarode"), lab.ok("router", "ip", "-o", "link")
    said = lab.ok("router", "strace", "-f", "-s", "200", "-o", "/tmp/calls", "/etc/init.d/ivarode", "reload",
                  timeout=LIMIT)
    assert said == "nothing to do\n"
    (tmp_path / "calls").write_bytes(lab.get("router", "/tmp/calls"))
    assert harmless.calls_in(tmp_path / "calls") > 1000
    lab.link(3, False)
    until(lab, lambda: ",UP" not in lab.ok("router", "ip", "-o", "link", "show", "lan3"))
    assert reload(lab) == ["nothing to do"]
    assert lab.ok("router", "pidof", "ivarode") == before[0]
    lab.link(3, True)
    until(lab, lambda: lab.ok("router", "ip", "-o", "link") == before[1])


# --- one change -------------------------------------------------------------------------------------------------------

def test_a_changed_interface_leaves_the_others_alone(lab: Lab) -> None:
    """Nothing of theirs is taken away for a moment: neither device, address, route nor rule."""
    lab.shell("router", "sed -i s/192.168.2.1/192.168.22.1/ /etc/config/lan_intf", check=True)
    with lab.spawn("router", "ip", "-4", "monitor", "link", "address", "route", "rule") as watch:
        assert reload(lab) == []
        state.settled(lab)
        lab.ok("router", "sh", "-c", "ip link add last type bridge; ip link del last")
        heard = b""
        for _, data in watch.frames():
            heard += data
            if re.search(rb"Deleted.* last", heard):
                break
        watch.kill(15)
    gone = [line for line in heard.decode().splitlines() if line.startswith("Deleted") and " last" not in line]
    assert gone and [line for line in gone if "192.168.2." not in line] == []
    assert state.addresses(lab)["lan2"] == ["192.168.22.1/24"]
    assert lab.ok("router", "ivarode-plan", "--diff") == "as a clean start would make it\n"


# --- what the bus added -----------------------------------------------------------------------------------------------

def test_what_the_bus_added_is_kept_or_goes(lab: Lab) -> None:
    before = comparable(snapshot.take(lab))
    made = [additions.lan(7, 2), additions.wan(8), additions.route(9)]
    said = lab.shell("router", "\n".join(one.command() for one in made), timeout=LIMIT).out
    assert re.findall(r"^\S+ (\d+)$", said, re.M) == ["0"] * 3
    daemon = lab.ok("router", "pidof", "ivarode")
    expected = {"client dhcp wan1_n8", "device lan2_n7", "device wan1_n8", "device eth0.307", "device eth0.308",
                "row wan1_n8", "route 10000 10.0.9.0/255.255.255.0 via 192.168.1.11 metric 5"}
    *kept, last = reload(lab, "--keep")
    assert ({*kept}, last) == ({f"keeps {one}" for one in expected}, "nothing to do")
    assert lab.ok("router", "pidof", "ivarode") == daemon
    assert {*reload(lab)} == {f"removes {one}" for one in expected}
    state.settled(lab)
    assert not (found := comparable(snapshot.take(lab)) - before), snapshot.show(found)
    assert not (found := before - comparable(snapshot.take(lab))), snapshot.show(found)
    lab.shell("router", "sed -i s/192.168.22.1/192.168.2.1/ /etc/config/lan_intf", check=True)
    lab.ok("router", "ubus", "call", "ivarode.route", "add", made[2].call[2])
    assert f"keeps {next(one for one in expected if one.startswith('route'))}" in reload(lab, "--keep")
    assert "10.0.9.0/24" in lab.ok("router", "ip", "route", "show", "table", "10000")


# --- random configurations --------------------------------------------------------------------------------------------

def configure(lab: Lab, folder: pathlib.Path) -> None:
    for package in ("lan_intf", "wan_intf", "route_config"):
        lab.put("router", "/etc/config/" + package, (folder / package).read_bytes(), 0o600)


def good_configuration(folder: pathlib.Path, dice: random.Random) -> pathlib.Path:
    """One with which the daemon starts on this board."""
    for number in range(1000):
        made = pairs.written(folder / str(number), dice.randrange(1 << 31))
        if planning.run("--board", BOARD, "--config", made, "--quiet").returncode != 1:
            return made
    raise AssertionError("no configuration is good")


def clean_start(lab: Lab, folder: pathlib.Path) -> snapshot.Facts:
    """Behind the image's stop action."""
    configure(lab, folder)
    lab.ok("agent", "stop", "daemon", timeout=LIMIT)
    lab.ok("router", "/etc/init.d/ivarode", "stop", timeout=LIMIT)
    restart(lab)
    planned = pairs.facts_of(planning.plan("--board", BOARD, "--config", folder, *LINKS))
    numbers = {key.split()[1] for key in planned if key.startswith("policy ")}
    until(lab, lambda: all(f"{one}: from all lookup {one}" in state.rules(lab) for one in numbers))
    return comparable(snapshot.take(lab))


def cut_short(lab: Lab, dice: random.Random) -> None:
    """Killed somewhere in its work; the daemon starts all the same, as under a supervisor."""
    moment = dice.choice((0.5, 1, 2, 3, 4, 6))
    lab.shell("router", f"{RELOAD} >/dev/null 2>&1 & sleep {moment}; kill -9 $!; :", timeout=LIMIT)
    start_if_ended(lab)


def test_the_end_is_that_of_a_clean_start(lab: Lab, turn: int, tmp_path: pathlib.Path) -> None:
    """Whatever was configured before, and where the reload was killed and done once more."""
    dice = random.Random(f"{SEED}/{turn}")
    before, after = (good_configuration(tmp_path / name, dice) for name in ("before", "after"))
    wanted = clean_start(lab, after)
    configure(lab, before)
    reload(lab)
    configure(lab, after)
    if turn % 2 == 1:
        cut_short(lab, dice)
    reload(lab)
    deadline = time.monotonic() + 60 * lab.pace
    while (found := comparable(snapshot.take(lab))) != wanted:
        assert time.monotonic() < deadline, (f"lacks\n{snapshot.show(wanted - found)}\nholds beyond\n"
                                             f"{snapshot.show(found - wanted)}")
