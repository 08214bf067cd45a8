"""What a start leaves: switch, devices, addresses, firewall, rules, bus."""

from __future__ import annotations

import re

from tests.system import state
from tests.system.held_lab import Lab

LAN1, LAN3, WAN1 = 4091, 4093, 4090
ALL_PORTS_UNTAGGED = [0, 1, 2, 3, 4, 5]


def test_says_that_it_is_ready_and_nothing_worse(home: Lab) -> None:
    log = home.ok("router", "cat", "/var/log/messages")
    daemon = [line for line in log.splitlines() if " ivarode[" in line]
    assert [line.split()[1] for line in daemon] == ["notice"]
    assert daemon[0].endswith("ivarode init success")


def test_switch_layout(home: Lab) -> None:
    found = state.switch(home)
    assert found["untag_enabled"]
    assert found["pvids"] == {0: WAN1, 1: LAN1, 2: LAN1, 3: LAN3, 4: LAN1}
    members = {entry: (vid, ports) for entry, (vid, ports, _) in found["vlans"].items()}
    assert members[0] == (WAN1, [0, 6])
    assert members[1] == (LAN1, [1, 2, 4, 6])
    assert members[2] == (4092, [])
    assert members[3] == (LAN3, [3, 6])
    assert members[4] == (4094, [])
    assert all(members[entry] == (0, []) for entry in range(5, 16))
    assert all(found["vlans"][entry][2] == ALL_PORTS_UNTAGGED for entry in range(5))


def test_devices_and_bridges(home: Lab) -> None:
    found = state.devices(home)
    assert found["eth0"][5]
    for name, vlan, mac in (("lan1", LAN1, "02:0c:43:10:20:30"), ("lan3", LAN3, "02:0c:43:10:20:32"),
                            ("wan1", WAN1, "02:0c:43:10:20:34")):
        assert found[f"eth0.{vlan}"] == ("vlan", vlan, "eth0", name, mac, True)
        assert found[name] == ("bridge", None, None, None, mac, True)
    assert set(found) == {"lo", "eth0", "eth0.4090", "eth0.4091", "eth0.4093", "lan1", "lan3", "wan1"}


def test_addresses(home: Lab) -> None:
    assert state.addresses(home) == {"lo": ["127.0.0.1/8"], "lan1": ["192.168.1.1/24"], "lan3": ["192.168.3.1/24"],
                                     "wan1": ["203.0.113.2/24"]}


def test_policy_rules_and_wan_route(home: Lab) -> None:
    state.settled(home)
    assert state.rules(home) == [
        "0: from all lookup local", "10000: from all lookup 10000",
        "10001: from all lookup main suppress_prefixlength 0", "20001: from all lookup 20001",
        "32766: from all lookup main", "32767: from all lookup default"]
    way_out = home.ok("router", "ip", "-4", "route", "show", "table", "20001")
    assert re.match(r"default via 203\.0\.113\.1 dev wan1 proto \S+ metric 20001\s*$", way_out)


def test_wan_row(home: Lab) -> None:
    text = state.rows(home)
    assert text.startswith("[wan1]\n")
    for part in ("static", "203.0.113.2", "255.255.255.0", "203.0.113.1"):
        assert part in text


def test_forwarding_is_on(home: Lab) -> None:
    assert home.ok("router", "cat", "/proc/sys/net/ipv4/ip_forward") == "1\n"


ESTABLISHED = "-m conntrack --ctstate RELATED,ESTABLISHED -j ACCEPT"
CHAINS = {
    "mangle": {
        "PREROUTING": [ESTABLISHED] + [f"-j ipt_prert_mangle_rules_{n}" for n in (1, 2, 3)],
        "ipt_prert_mangle_rules_1": ["-j urlctrl_prert_mangle_rule", "-j wanload_prert_mangle_rule"],
        "ipt_prert_mangle_rules_2": [], "ipt_prert_mangle_rules_3": [],
        "urlctrl_prert_mangle_rule": [], "wanload_prert_mangle_rule": [],
        "FORWARD": [ESTABLISHED, "-j ipt_fwd_mangle_rules_1"],
        "ipt_fwd_mangle_rules_1": ["-j ipt_fwd_mangle_rules_def"],
        "ipt_fwd_mangle_rules_def": ["-p tcp -m tcp --tcp-flags SYN,RST SYN -j TCPMSS --clamp-mss-to-pmtu"],
        "POSTROUTING": ["-j ipt_postrt_mangle_rules_1"], "ipt_postrt_mangle_rules_1": [],
        "INPUT": [], "OUTPUT": []},
    "nat": {
        "PREROUTING": [f"-j ipt_prert_nat_rules_{n}" for n in (1, 2, 3)],
        "ipt_prert_nat_rules_1": ["-j pmap_rules_user"], "ipt_prert_nat_rules_2": [], "ipt_prert_nat_rules_3": [],
        "pmap_rules_user": [],
        "POSTROUTING": [f"-j ipt_postrt_nat_rules_{n}" for n in (1, 2, 3)],
        "ipt_postrt_nat_rules_1": ["-j intf_sip_mesquerade"], "ipt_postrt_nat_rules_2": [],
        "ipt_postrt_nat_rules_3": [], "intf_sip_mesquerade": ["-j MASQUERADE"],
        "INPUT": [], "OUTPUT": []},
    "filter": {
        "FORWARD": [ESTABLISHED] + [f"-j ipt_fwd_filter_rules_{n}" for n in (1, 2, 3)],
        "ipt_fwd_filter_rules_1": [], "ipt_fwd_filter_rules_3": [],
        "ipt_fwd_filter_rules_2": ["-j ipt_fwd_filter_rules_all", "-j ipt_fwd_filter_mac",
                                   "-j acl_fwd_filter_rules_user"],
        "ipt_fwd_filter_rules_all": [], "ipt_fwd_filter_mac": [], "acl_fwd_filter_rules_user": [],
        "INPUT": [f"-j ipt_input_filter_rules_{n}" for n in (1, 2, 3)],
        "ipt_input_filter_rules_1": [], "ipt_input_filter_rules_2": ["-j ipt_input_filter_rules_all"],
        "ipt_input_filter_rules_all": [ESTABLISHED, "-p tcp -m tcp --dport 7547 -j ACCEPT"],
        "ipt_input_filter_rules_3": ["-j acl_input_filter_rules_user", "-j input_filter_rules_drop"],
        "acl_input_filter_rules_user": [],
        "input_filter_rules_drop": ["-i wan+ -j DROP", "-i default_br+ -j DROP", "-i usb+ -j DROP"],
        "OUTPUT": []},
}


def test_firewall_tree(home: Lab) -> None:
    found = state.firewall(home)
    for table, chains in CHAINS.items():
        for chain, rules in chains.items():
            assert found[table].get(chain) == rules, f"{table} {chain}"
        assert set(found[table]) == set(chains), table


def test_bus_objects_and_their_answer(home: Lab) -> None:
    names = home.ok("router", "ubus", "list").split()
    assert [n for n in names if n.startswith("ivarode.")] == [
        "ivarode.intf", "ivarode.pppauth", "ivarode.pppuser", "ivarode.route", "ivarode.run"]
    answer = home.run("router", "ubus", "-S", "call", "ivarode.run", "run")
    assert (answer.status, answer.out) == (0, "")


def test_phys_are_powered_and_linked(home: Lab) -> None:
    for port in home.switch("status")["ports"]:
        if not port["cpu"]:
            assert port["power"] and port["link"], port
