"""Plans from what a machine has now, and what has drifted on it: on a real kernel, in private name spaces.

What is planted there is seen, and nothing is changed. With VLAN devices the same is done on the virtual board
(tests/system/test_plan_now.py).
"""

import json
import pathlib
import re

import pytest

from tests.plan import harmless, machine, planning

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


JUMP = "iptables -w -t filter -{} FORWARD -j ipt_fwd_filter_rules_2"
# What is planted, and the difference that it makes.
DRIFTS = {
    "ip link del wan1": "device wan1 = bridge: is missing",
    "ip link add lan7 type bridge forward_delay 0": "device lan7 = bridge: is too many",
    "ip link set lan3 down": "up: lan3: is missing",
    "ip addr flush dev lan3; ip addr add 192.168.3.9/24 dev lan3":
        "address of lan3: is 192.168.3.9 instead of 192.168.3.1",
    "ip addr flush dev lan1": "address of lan1 = 192.168.1.1: is missing",
    "ip addr flush dev lan3; ip addr add 192.168.3.1/16 dev lan3":
        "netmask of lan3: is 255.255.0.0 instead of 255.255.255.0",
    "ip rule del pref 10000": "rule 10000 = lookup 10000: is missing",
    "ip rule del pref 10000; ip rule add pref 10000 lookup 9": "rule 10000: is lookup 9 instead of lookup 10000",
    "ip rule del pref 20001": "rule of WAN 20001 wan1: is missing",
    "ip route flush table 20001": "default route of table and WAN 20001 wan1 = 203.0.113.1: is missing",
    "ip route replace default via 203.0.113.9 dev wan1 metric 20001 table 20001":
        "default route of table and WAN 20001 wan1: is 203.0.113.9 instead of 203.0.113.1",
    "ip route add 10.0.0.0/8 via 192.168.1.9 metric 5 table 10000":
        "route 10000 10.0.0.0/255.0.0.0 via 192.168.1.9 metric 5: is too many",
    JUMP.format("D"): "rule of chain filter FORWARD, -j ipt_fwd_filter_rules_2: is missing",
    "iptables -w -F input_filter_rules_drop":
        "rule of chain filter input_filter_rules_drop, -j DROP -i usb+: is missing",
    "iptables -w -t nat -F intf_sip_mesquerade":
        "rule of chain nat intf_sip_mesquerade, -j MASQUERADE: is missing",
    "iptables -w -t nat -D ipt_prert_nat_rules_1 -j pmap_rules_user; iptables -w -t nat -X pmap_rules_user":
        "chain nat pmap_rules_user: is missing",
    "iptables -w -t mangle -F PREROUTING": "rule of chain mangle PREROUTING, -j ipt_prert_mangle_rules_1: is missing",
    "rm /run/ivarode/wan/wan1":
        "row of wan1 = static 203.0.113.2 255.255.255.0 203.0.113.1 0.0.0.0 0.0.0.0: is missing",
    "echo proto=dhcp >/run/ivarode/wan/wan9": "row of wan9 = dhcp - - - - -: is too many",
    "$B/bin/ubus call service add '" '{"name":"dhcp","instances":{"wan9":{"command":["/bin/sleep","99"]}}}' "'":
        "client dhcp wan9 = /bin/sleep 99: is too many",
    machine.poked(0x44, 0x00ffbffb): "switch, against a clean start: port 3: PVID 4091 (was 4093)",
    machine.poked(0x98, 0): "switch, against a clean start: untagging off",
    machine.poked(0x58, 0x00064ffe): "switch, against a clean start: entry 5: VLAN 100 (was 0)",
}


@pytest.mark.parametrize("plant", DRIFTS, ids=lambda plant: DRIFTS[plant][:40])
def test_a_drift_is_listed(stage: str, tmp_path: pathlib.Path, plant: str) -> None:
    """And nothing else that was not there before, but for what goes with it."""
    diff = machine.program("--diff", "--json") + " || test $? = 4\n"
    before, after = machine.run(f"{stage}{diff}echo ====\n{plant}\n{diff}", tmp_path).split("====\n")
    known, found = ({one["what"]: one["reason"] for one in json.loads(text)["differences"]} for text in (before, after))
    assert {what for what in known if "eth0.4" not in what} == set(), "only VLAN devices are missing before"
    assert DRIFTS[plant] in found and all(found.values())
    more = set(found) - set(known) - {DRIFTS[plant]}
    assert all(goes_with(plant, what) for what in more), more


def goes_with(plant: str, what: str) -> bool:
    """A device takes its addresses and routes along; a chain is emptied rule by rule."""
    return ("wan1" in what and plant == "ip link del wan1" or "203.0.113" in what and "wan1" in plant
            or "20001" in what and plant.startswith("ip r") or plant.startswith("ip addr flush") and "lan" in what
            or "-F" in plant and what.startswith("rule of chain") or "-X" in plant and "pmap_rules_user" in what
            or "lan7" in what and "lan7" in plant)
