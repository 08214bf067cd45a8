"""What is planted on a router that is as its configuration says, all that ivarode-plan --diff lists then, and how it is
taken back. The router has the configuration "home" on the board "one-cpu", and link on all its ports.
"""

from __future__ import annotations

import json
from collections.abc import Iterable
from typing import NamedTuple

from tests.plan import machine

CHAINS = "iptables-restore -w </run/chains"
RULE = "ip rule add pref 10000 lookup 10000"
DEFAULT = "ip route replace default via 203.0.113.{} dev wan1 metric 20001 table 20001"
WAN_ROW, ROW = "/run/ivarode/wan/wan1", "static {} 255.255.255.0 203.0.113.1 0.0.0.0 0.0.0.0"
MEMBER = "ip link set eth0.4093 "
SWITCH = "switch, against a clean start: "


class Drift(NamedTuple):
    name: str
    plant: str
    repair: str
    found: list[str]
    on_vlan: bool = False       # of a VLAN device


def address(one: str) -> str:
    return f"ip addr flush dev lan3; ip addr add {one} dev lan3"


def without(table: str, chain: str, *rules: str) -> list[str]:
    return [f"rule of chain {table} {chain}, {rule}: is missing" for rule in rules]


HOME = address("192.168.3.1/24")
DRIFTS = [
    Drift("member stolen", MEMBER + "nomaster", MEMBER + "master lan3",
          ["bridge of eth0.4093 = lan3: is missing"], True),
    Drift("member moved", MEMBER + "master lan1", MEMBER + "master lan3",
          ["bridge of eth0.4093: is lan1 instead of lan3"], True),
    Drift("port's device down", MEMBER + "down", MEMBER + "up", ["up: eth0.4093: is missing"], True),
    Drift("port's device gone", "cat /sys/class/net/eth0.4093/address >/run/mac; ip link del eth0.4093",
          f"ip link add link eth0 name eth0.4093 address $(cat /run/mac) type vlan id 4093; {MEMBER}master lan3 up",
          ["bridge of eth0.4093 = lan3: is missing", "device eth0.4093 = vlan of eth0: is missing",
           "up: eth0.4093: is missing"], True),
    Drift("VLAN device too many", "ip link add link eth0 name eth0.77 type vlan id 77", "ip link del eth0.77",
          ["device eth0.77 = vlan of eth0: is too many"], True),
    Drift("bridge too many", "ip link add lan7 type bridge forward_delay 0", "ip link del lan7",
          ["device lan7 = bridge: is too many"]),
    Drift("bridge down", "ip link set lan3 down", "ip link set lan3 up", ["up: lan3: is missing"]),
    Drift("address changed", address("192.168.3.9/24"), HOME,
          ["address of lan3: is 192.168.3.9 instead of 192.168.3.1"]),
    Drift("address removed", "ip addr flush dev lan3", HOME,
          ["address of lan3 = 192.168.3.1: is missing"]),
    Drift("mask changed", address("192.168.3.1/16"), HOME,
          ["netmask of lan3: is 255.255.0.0 instead of 255.255.255.0"]),
    Drift("rule of static routes removed", "ip rule del pref 10000", RULE, ["rule 10000 = lookup 10000: is missing"]),
    Drift("rule of static routes changed", "ip rule del pref 10000; ip rule add pref 10000 lookup 9",
          "ip rule del pref 10000; " + RULE, ["rule 10000: is lookup 9 instead of lookup 10000"]),
    Drift("rule of a WAN removed", "ip rule del pref 20001", "ip rule add pref 20001 lookup 20001",
          ["rule of WAN 20001 wan1: is missing"]),
    Drift("default route removed", "ip route flush table 20001", DEFAULT.format(1),
          ["default route of table and WAN 20001 wan1 = 203.0.113.1: is missing"]),
    Drift("default route changed", DEFAULT.format(9), DEFAULT.format(1),
          ["default route of table and WAN 20001 wan1: is 203.0.113.9 instead of 203.0.113.1"]),
    Drift("static route too many", "ip route add 10.0.0.0/8 via 192.168.1.9 metric 5 table 10000",
          "ip route del 10.0.0.0/8 table 10000",
          ["route 10000 10.0.0.0/255.0.0.0 via 192.168.1.9 metric 5: is too many"]),
    Drift("jump removed", "iptables -w -D FORWARD -j ipt_fwd_filter_rules_2", CHAINS,
          without("filter", "FORWARD", "-j ipt_fwd_filter_rules_2")),
    Drift("chain emptied", "iptables -w -F input_filter_rules_drop", CHAINS,
          without("filter", "input_filter_rules_drop", "-j DROP -i wan+", "-j DROP -i default_br+", "-j DROP -i usb+")),
    Drift("masquerading removed", "iptables -w -t nat -F intf_sip_mesquerade", CHAINS,
          without("nat", "intf_sip_mesquerade", "-j MASQUERADE")),
    Drift("chain removed", "iptables -w -t nat -F ipt_prert_nat_rules_1; iptables -w -t nat -X pmap_rules_user", CHAINS,
          ["chain nat pmap_rules_user: is missing", *without("nat", "ipt_prert_nat_rules_1", "-j pmap_rules_user")]),
    Drift("row removed", f"mv {WAN_ROW} /run/row", f"mv /run/row {WAN_ROW}",
          [f"row of wan1 = {ROW.format('203.0.113.2')}: is missing"]),
    Drift("row edited", f"cp {WAN_ROW} /run/row; sed -i s/113.2/113.7/ {WAN_ROW}", f"mv /run/row {WAN_ROW}",
          [f"row of wan1: is {ROW.format('203.0.113.7')} instead of {ROW.format('203.0.113.2')}"]),
    Drift("row too many", "echo proto=dhcp >/run/ivarode/wan/wan9", "rm /run/ivarode/wan/wan9",
          ["row of wan9 = dhcp - - - - -: is too many"]),
    Drift("client too many",
          "ubus call service add '" '{"name":"dhcp","instances":{"wan9":{"command":["/bin/sleep","99"]}}}' "'",
          "ubus call service delete '" '{"name":"dhcp","instance":"wan9"}' "'",
          ["client dhcp wan9 = /bin/sleep 99: is too many"]),
    Drift("port in another VLAN", machine.poked(0x44, 0x00ffbffb), machine.poked(0x44, 0x00ffdffb),
          [SWITCH + "port 3: PVID 4091 (was 4093)"]),
    Drift("untagging off", machine.poked(0x98, 0), machine.poked(0x98, 0x8000), [SWITCH + "untagging off"]),
    Drift("VLAN too many", machine.poked(0x58, 0x00064ffe), machine.poked(0x58, 0x00000ffe),
          [SWITCH + "entry 5: VLAN 100 (was 0)"]),
]


def script(drifts: Iterable[Drift], diff: str) -> str:
    """Before the first and around each repair, what the command lists."""
    lines = ["iptables-save >/run/chains", diff]
    for drift in drifts:
        lines += [drift.plant, diff, drift.repair, diff]
    return "".join(f"{line}\n" for line in lines)


def listed(output: str) -> list[dict[str, str]]:
    """Each time, the differences and their likely reasons."""
    decoder, found, at = json.JSONDecoder(), [], 0
    while output[at:].strip():
        told, length = decoder.raw_decode(output[at:].lstrip())
        at = output.index("{", at) + length
        found.append({one["what"]: one["reason"] for one in told["differences"]})
    return found


def check(drift: Drift, known: dict[str, str], planted: dict[str, str], repaired: dict[str, str]) -> None:
    """All that it makes is listed, and nothing else; nothing is left behind the repair."""
    found = sorted(planted.keys() - known.keys())
    assert found == sorted(drift.found), f"{drift.name}: {found}"
    assert all(planted.values()), drift.name
    assert repaired == known, f"{drift.name}, repaired: {sorted(repaired.keys() ^ known.keys())}"
