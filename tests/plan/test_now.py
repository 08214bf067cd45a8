"""Plans from what a machine has now, and what has drifted on it: on a real kernel, in private name spaces.

What is planted there is seen, and nothing is changed. With VLAN devices the same is done on the virtual board
(tests/system/test_plan_now.py).
"""

import json
import pathlib
import re

import pytest

from tests.plan import drifts, harmless, machine, planning

pytestmark = pytest.mark.skipif(machine.missing() is not None, reason=str(machine.missing()))

STATE = ("ip -4 addr; ip -4 rule; ip -4 route show table all; ip -br link; iptables-save | grep -v '^#'; "
         "cat /run/ivarode/wan/*; cksum \"$W/memory\"")
VLAN_DEVICE = re.compile(r"(device|up|mac|bridge of) eth0\.40\d\d( = .*)?")


@pytest.fixture(scope="module")
def stage() -> str:
    """The script of a router that is as its configuration says; all its ports have link."""
    links = [word for port in range(5) for word in ("--link", f"{port}=up")]
    return machine.as_planned(planning.plan(*planning.SAMPLE, *links))


def test_only_what_is_not_there_is_to_do(stage: str, tmp_path: pathlib.Path) -> None:
    script = f"{stage}({STATE}) >$W/before\n{machine.program('--from', 'now', '--json')}\n({STATE}) >$W/after\n"
    told = json.loads(machine.run(script, tmp_path))
    assert (told["status"], told["ending"]) == (0, "")
    assert told["changes"] and [fact for fact in told["changes"] if not VLAN_DEVICE.fullmatch(fact)] == []
    assert [phase["kind"] for phase in told["phases"]] == ["start", *["link"] * 5]
    # On the way the start takes the VLAN table down, and fills four chains once more.
    start = told["phases"][0]
    changing = [operation["words"] for operation in start["operations"] if operation["changes"]]
    assert "filter: empty chain input_filter_rules_drop" in changing and "entry 1: ports 1 2 4 CPU out" in changing
    assert not any("new chain" in words or "create bridge" in words for words in changing)
    assert (tmp_path / "before").read_text() == (tmp_path / "after").read_text() != ""


def test_a_person_reads_only_what_changes_something(stage: str, tmp_path: pathlib.Path) -> None:
    text = machine.run(f"{stage}{machine.program('--from', 'now')}\n", tmp_path)
    assert "new chain" not in text and "create bridge" not in text and "wait" not in text
    assert "  kernel    create VLAN device eth0.4091\n" in text
    assert "\nagainst now\n            bridge of eth0.4090 = wan1\n" in text


def test_it_makes_no_call_that_changes_anything(stage: str, tmp_path: pathlib.Path) -> None:
    """Neither the program nor the daemon on its world nor the iptables that lists."""
    traced = f"strace -f -s 200 -o $W/calls {machine.program('--diff')} >/dev/null || test $? = 4\n"
    machine.run(stage + traced, tmp_path)
    assert harmless.calls_in(tmp_path / "calls") > 500


def test_each_drift_is_listed(stage: str, tmp_path: pathlib.Path) -> None:
    """And nothing else that was not there before: only VLAN devices are missing."""
    planted = [drift for drift in drifts.DRIFTS if not drift.on_vlan]
    diff = machine.program("--diff", "--json") + " || test $? = 4"
    known, *found = drifts.listed(machine.run(stage + drifts.script(planted, diff), tmp_path))
    assert [what for what in known if "eth0.4" not in what] == [] and len(found) == 2 * len(planted)
    for drift, after, repaired in zip(planted, found[::2], found[1::2]):
        drifts.check(drift, known, after, repaired)
