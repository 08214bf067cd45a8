"""ivarode-plan on a router that runs: a plan from what is there, and what has drifted; and that it changes nothing."""

from __future__ import annotations

import json
import pathlib
from typing import TYPE_CHECKING, Any

import pytest

from tests.plan import drifts, harmless
from tests.system import bus, state
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine


def plan(lab: Lab, *words: str) -> tuple[int, Any]:
    done = lab.run("router", "ivarode-plan", "--json", *words, timeout=60)
    return done.status, json.loads(done.out)


@pytest.fixture(scope="module")
def lab(machine: Machine) -> Lab:
    lab = machine.board("one-cpu", "home", fresh=True)
    machine.spoiled()
    state.settled(lab)
    return lab


def test_there_is_nothing_to_do_where_all_is_as_configured(lab: Lab) -> None:
    before = state.everything(lab)
    status, told = plan(lab, "--from", "now")
    assert (status, told["ending"], told["changes"]) == (0, "", [])
    assert "nothing to do" in lab.ok("router", "ivarode-plan", "--from", "now")
    # On the way the start takes the VLAN table down and lays it again.
    assert any(operation["changes"] for operation in told["phases"][0]["operations"])
    assert plan(lab, "--diff") == (0, {"version": 1, "status": 0, "differences": []})
    assert lab.ok("router", "ivarode-plan", "--diff") == "as a clean start would make it\n"
    assert state.everything(lab) == before


def test_a_request_is_planned_on_what_is_there(lab: Lab) -> None:
    status, told = plan(lab, "--from", "now", "--call", 'ivarode.intf port_add {"name":"lan2"}')
    assert status == 0 and "device lan2_default = bridge" in told["changes"]
    assert bus.intf(lab, "port_add", name="lan2") == (0, None)
    status, told = plan(lab, "--diff")
    assert status == 4
    assert {one["what"].split(" = ")[0] for one in told["differences"]} >= {"device lan2_default", "device eth0.4092"}
    assert bus.intf(lab, "port_del", name="lan2") == (0, None)


def test_it_makes_no_call_that_changes_anything(lab: Lab, tmp_path: pathlib.Path) -> None:
    """Neither the program nor the daemon on its world nor the iptables that lists."""
    lab.ok("router", "strace", "-f", "-s", "200", "-o", "/tmp/calls", "ivarode-plan", "--diff", timeout=120)
    (tmp_path / "calls").write_bytes(lab.get("router", "/tmp/calls"))
    assert harmless.calls_in(tmp_path / "calls") > 500


def test_each_drift_is_listed(machine: Machine, lab: Lab) -> None:
    """And nothing else."""
    machine.spoiled()
    script = drifts.script(drifts.DRIFTS, "ivarode-plan --diff --json || test $? = 4")
    known, *found = drifts.listed(lab.shell("router", script, check=True, timeout=300).out)
    assert known == {} and len(found) == 2 * len(drifts.DRIFTS)
    for drift, planted, repaired in zip(drifts.DRIFTS, found[::2], found[1::2]):
        drifts.check(drift, known, planted, repaired)
