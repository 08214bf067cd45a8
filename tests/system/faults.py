"""Faults of a running router: how each is planted on the virtual board, and what the tool is to say first."""

from __future__ import annotations

import re
from collections.abc import Callable
from dataclasses import dataclass

from tests.system import bus, daemon
from tests.system.held_lab import Lab

Act = Callable[[Lab], object]

REGISTERS = 0x10110000
UNTAG_CONTROL = 0x98


@dataclass(frozen=True)
class Fault:
    name: str
    subject: str            # what is explained
    cause: str              # pattern of the first cause
    plant: Act
    repair: Act


def shell(*lines: str) -> Act:
    return lambda lab: lab.shell("router", "set -e\n" + "\n".join(lines), check=True)


def register(lab: Lab, offset: int) -> int:
    words = lab.ok("router", "sh", "-c", f"dd if=/dev/mem bs=4 skip={(REGISTERS + offset) // 4} count=1 2>/dev/null | "
                                         "od -An -tu4")
    return int(words)


def set_field(lab: Lab, offset: int, shift: int, bits: int, value: int) -> None:
    """Of a register of the switch, as somebody does who programs it past the daemon."""
    mask = (1 << bits) - 1
    word = register(lab, offset) & ~(mask << shift) | (value & mask) << shift
    octal = "".join(f"\\{byte:03o}" for byte in word.to_bytes(4, "little"))
    place = f"bs=4 seek={(REGISTERS + offset) // 4} conv=notrunc"
    lab.ok("router", "sh", "-c", f"printf '{octal}' | dd of=/dev/mem {place} 2>/dev/null")


def pvid(port: int, value: int) -> Act:
    return lambda lab: set_field(lab, 0x40 + 4 * (port // 2), 12 * (port % 2), 12, value)


def vid(entry: int, value: int) -> Act:
    return lambda lab: set_field(lab, 0x50 + 4 * (entry // 2), 12 * (entry % 2), 12, value)


def members(entry: int, value: int) -> Act:
    return lambda lab: set_field(lab, 0x70 + 4 * (entry // 4), 8 * (entry % 4), 8, value)


def untag(entry: int, value: int) -> Act:
    return lambda lab: set_field(lab, 0x100 + 4 * (entry // 4), 7 * (entry % 4), 7, value)


def untagging(value: int) -> Act:
    return lambda lab: set_field(lab, UNTAG_CONTROL, 15, 1, value)


def link(port: int, up: bool) -> Act:
    def act(lab: Lab) -> None:
        lab.link(port, up)
        wanted = "true" if up else "false"
        shown = f"ivarodectl switch --json | grep -q '\"port\":{port},\"link\":{wanted}'"
        lab.shell("router", f"until {shown}; do sleep 0.1; done", check=True, timeout=20)
    return act


def both(*acts: Act) -> Act:
    def act(lab: Lab) -> None:
        for one in acts:
            one(lab)
    return act


def config(package: str, *lines: str) -> tuple[Act, Act]:
    """Lines behind a package's, and the package as it was."""
    path = f"/etc/config/{package}"
    text = "\\n".join(line.replace("'", "'\\''") for line in ("", *lines, ""))
    return (shell(f"[ -e /tmp/{package} ] || cp {path} /tmp/{package}", f"printf '{text}' >>{path}"),
            shell(f"cat /tmp/{package} >{path}", f"rm /tmp/{package}"))


def changed(package: str, old: str, new: str) -> tuple[Act, Act]:
    path = f"/etc/config/{package}"
    return (shell(f"cp {path} /tmp/{package}", f"grep -q \"{old}\" {path}", f"sed -i \"s/{old}/{new}/\" {path}"),
            shell(f"cat /tmp/{package} >{path}", f"rm /tmp/{package}"))


def signal(program: str, number: int) -> Act:
    return lambda lab: lab.ok("agent", "kill", program, str(number))


def started(program: str) -> Act:
    return lambda lab: lab.ok("agent", "start", program, timeout=30)


def healthy(lab: Lab) -> None:
    lab.shell("router", "until ivarodectl health >/dev/null; do sleep 0.2; done", check=True, timeout=60)


def start_again(lab: Lab) -> None:
    daemon.restart(lab)
    healthy(lab)


ROUTE = ("option enable '1'", "option line 'auto'", "option dstaddr '10.20.0.0'", "option netmask '255.255.0.0'",
         "option metric '10'")


def route(name: str, *more: str, gateway: str = "192.168.3.13", without: str = "") -> tuple[Act, Act]:
    options = [line for line in (*ROUTE, f"option gateway '{gateway}'", *more) if not without or without not in line]
    return config("route_config", f"config route '{name}'", *options)


INSTALLED = "ip route add 10.20.0.0/16 via 192.168.3.13 metric 10 table 10000"
LAN3 = ("ip link set eth0.4093 master lan3", "ip link set lan3 up",
        "ip -4 -o addr show lan3 | grep -q 192.168.3.1 || ip addr add 192.168.3.1/24 dev lan3")
HOOK = "ipt_fwd_filter_rules_"
IPTABLES = "iptables -w"


def moved_jump(lab: Lab) -> None:
    lab.shell("router", f"{IPTABLES} -D FORWARD -j {HOOK}1 && {IPTABLES} -A FORWARD -j {HOOK}1", check=True)


def port_given_back(lab: Lab) -> None:
    assert bus.intf(lab, "port_del", name="lan3")[0] == 0


def port_taken_again(lab: Lab) -> None:
    assert bus.intf(lab, "port_add", name="lan3")[0] == 0
    assert bus.intf(lab, "config", intf="lan3", old_intf="lan3_default", proto="static", ipaddr="192.168.3.1",
                    netmask="255.255.255.0")[0] == 0


def enabled(name: str, on: int) -> Act:
    return lambda lab: bus.intf(lab, "enable", intf=[name], enable=on)


def full_table(used: bool) -> Act:
    return both(*(act for entry in range(5, 16)
                  for act in (vid(entry, 200 + entry if used else 0), members(entry, 0x48 if used else 0))))


# On the board "one-cpu" with the configuration "home".
HOME = [
    Fault("cable pulled", "port 2", "no link on port 2", link(2, False), link(2, True)),
    Fault("cable of an interface pulled", "lan3", "no link on port 3", link(3, False), link(3, True)),
    Fault("PVID without entry", "port 2", "port 2: PVID 999 is no VLAN of the table: frames are dropped", pvid(2, 999),
          pvid(2, 4091)),
    Fault("PVID of LAN 1 without entry", "lan1", "port 1: PVID 4000 is no VLAN", pvid(1, 4000), pvid(1, 4091)),
    Fault("PVID of another LAN", "port 4", "port 4: PVID 4093 instead of 4091", pvid(4, 4093), pvid(4, 4091)),
    Fault("port missing in the entry", "port 4", "port 4 is no member of VLAN 4091", members(1, 0x46),
          members(1, 0x56)),
    Fault("port of LAN 3 missing in the entry", "lan3", "port 3 is no member of VLAN 4093", members(3, 0x40),
          members(3, 0x48)),
    Fault("CPU port missing in the entry", "lan3", "VLAN 4093 does not lead to the processor", members(3, 0x08),
          members(3, 0x48)),
    Fault("VLAN of the WAN's entry changed", "wan1", "PVID 4090 is no VLAN of the table", vid(0, 3333), vid(0, 4090)),
    Fault("untagging off", "lan1", "untagging is off", untagging(0), untagging(1)),
    Fault("bridge gone", "lan3", "bridge lan3 is missing", shell("ip link del lan3"),
          shell("ip link add lan3 type bridge", *LAN3)),
    Fault("member stolen", "lan3", "lan3 has no member: eth0.4093 is in bridge br9",
          shell("ip link add br9 type bridge", "ip link set eth0.4093 master br9"), shell("ip link del br9", *LAN3)),
    Fault("member taken out", "lan3", "lan3 has no member: eth0.4093 is in no bridge",
          shell("ip link set eth0.4093 nomaster"), shell(*LAN3)),
    Fault("bridge down", "lan3", "lan3 is down", shell("ip link set lan3 down"), shell(*LAN3)),
    Fault("disabled over the bus", "lan3", "lan3 is down: disabled over the bus", enabled("lan3", 0),
          enabled("lan3", 1)),
    Fault("VLAN device down", "lan1", "VLAN device eth0.4091 is down", shell("ip link set eth0.4091 down"),
          shell("ip link set eth0.4091 up")),
    Fault("VLAN device gone", "lan3", "VLAN device eth0.4093 is missing", shell("ip link del eth0.4093"),
          shell("ip link add link eth0 name eth0.4093 type vlan id 4093", "ip link set eth0.4093 up", *LAN3)),
    Fault("address removed", "lan3", "lan3 has no address; its section says 192.168.3.1",
          shell("ip addr flush dev lan3"), shell(*LAN3)),
    Fault("number out of range", "wan1", "defrt_pri 500 of wan1 is not between 10002 and 32765",
          *changed("wan_intf", "20001", "500")),
    Fault("disabled in the section", "wan1", "wan1 is disabled in its section",
          *changed("wan_intf", "enable '1'", "enable '0'")),
    Fault("unknown protocol", "wan1", "option proto is \"dhpc\", and the daemon's start ends there",
          *changed("wan_intf", "static", "dhpc")),
    Fault("bad address", "lan3", "option ipaddr is \"192.168.3.300\"",
          *changed("lan_intf", "192.168.3.1", "192.168.3.300")),
    Fault("LAN that the board lacks", "lan9", "the board has no lan 9",
          *config("lan_intf", "config interface 'lan9'", "option ipaddr '192.168.9.1'")),
    Fault("VLAN that is none", "lan3_x", "option vlanid1 is \"0\"",
          *config("lan_intf", "config interface 'lan3_x'", "option vlanid1 '0'")),
    Fault("name too long", "lan3_a_long_name", "has more than 15 characters",
          *config("lan_intf", "config interface 'lan3_a_long_name'")),
    Fault("twelfth VLAN", "lan3_x", "all eleven entries for VLANs of interfaces are in use",
          both(config("lan_intf", "config interface 'lan3_x'", "option vlanid1 '100'")[0], full_table(True)),
          both(config("lan_intf")[1], full_table(False))),
    Fault("port shared where it should be its own", "lan3", "port 3 is not set up as its own", port_given_back,
          port_taken_again),
    Fault("default route removed", "wan1", "table 20001 has no default route of wan1",
          shell("ip route flush table 20001"),
          shell("ip route add default via 203.0.113.1 dev wan1 metric 20001 proto 105 table 20001")),
    Fault("rule of the WAN removed", "wan1", "wan1 has its default route in table 20001, but no rule leads there",
          shell("ip rule del pref 20001"), shell("ip rule add pref 20001 lookup 20001 proto 105")),
    Fault("rule of the static routes removed", "wan1", "rule 10000 is missing", shell("ip rule del pref 10000"),
          shell("ip rule add pref 10000 lookup 10000 proto 105")),
    Fault("rule of connected networks removed", "wan1", "rule 10001 is missing", shell("ip rule del pref 10001"),
          shell("ip rule add pref 10001 lookup main suppress_prefixlength 0 proto 105")),
    Fault("row removed", "wan1", "wan1 has no row", shell("mv /var/run/ivarode/wan/wan1 /tmp/row"),
          shell("mv /tmp/row /var/run/ivarode/wan/wan1")),
    Fault("jump removed", "lan1", "POSTROUTING of table nat does not jump to ipt_postrt_nat_rules_1",
          shell(f"{IPTABLES} -t nat -D POSTROUTING -j ipt_postrt_nat_rules_1"),
          shell(f"{IPTABLES} -t nat -I POSTROUTING -j ipt_postrt_nat_rules_1")),
    Fault("jump moved", "lan1", f"in FORWARD of table filter, {HOOK}2 comes before {HOOK}1", moved_jump,
          shell(f"{IPTABLES} -D FORWARD -j {HOOK}1", f"{IPTABLES} -I FORWARD 2 -j {HOOK}1")),
    Fault("chain removed", "wan1", "chain pmap_rules_user of table nat is missing",
          shell(f"{IPTABLES} -t nat -D ipt_prert_nat_rules_1 -j pmap_rules_user",
                f"{IPTABLES} -t nat -X pmap_rules_user"),
          shell(f"{IPTABLES} -t nat -N pmap_rules_user",
                f"{IPTABLES} -t nat -A ipt_prert_nat_rules_1 -j pmap_rules_user")),
    Fault("masquerading removed", "wan1", "chain intf_sip_mesquerade of table nat has no rule -j MASQUERADE",
          shell(f"{IPTABLES} -t nat -F intf_sip_mesquerade"),
          shell(f"{IPTABLES} -t nat -A intf_sip_mesquerade -j MASQUERADE")),
    Fault("forwarding off", "lan1", "IPv4 forwarding is off", shell("echo 0 >/proc/sys/net/ipv4/ip_forward"),
          shell("echo 1 >/proc/sys/net/ipv4/ip_forward")),
    Fault("gateway unreachable", "far", "gateway 10.99.99.1 is in no connected network",
          *route("far", gateway="10.99.99.1")),
    Fault("device of a route missing", "far", "its device lan7 is missing",
          *route("far", "option line 'lan7'", without="auto")),
    Fault("route disabled", "far", "route far is disabled in its section",
          *route("far", "option enable '0'", without="'1'")),
    Fault("mask that is none", "far", "option netmask is \"255.0.255.0\", no mask",
          *route("far", "option netmask '255.0.255.0'", without="255.255")),
    Fault("route of a long name", "r" * 32, "has more than 31 characters", *route("r" * 32)),
    Fault("route not installed", "far", "route far is not in table 10000", *route("far")),
    Fault("route hidden", "far", "route far is hidden by near",
          both(route("near")[0], route("far", gateway="192.168.3.14")[0], shell(INSTALLED)),
          both(route("near")[1], shell("ip route flush table 10000"))),
    Fault("account twice", "alice", "alice stands 2 times",
          shell("printf 'alice * x *\\nalice * y *\\n' >/etc/ppp/chap-secrets"),
          shell(": >/etc/ppp/chap-secrets")),
    Fault("broker hangs", "lan1", "the bus broker does not greet within 3 s", signal("broker", 19),
          both(signal("broker", 18), healthy)),
    Fault("broker ended", "lan1", "no bus broker answers", lambda lab: lab.ok("agent", "stop", "broker"),
          both(started("broker"), healthy)),
    Fault("supervisor and sibling hang", "lan1", "ombrine.run, .* does not answer", signal("siblings", 19),
          signal("siblings", 18)),
    Fault("sibling missing", "lan1", "ombrine.run, .* is not on the bus",
          lambda lab: lab.ok("agent", "stop", "siblings"), started("siblings")),
    Fault("daemon hangs", "wan1", "the daemon hangs: it was stopped by a signal", signal("daemon", 19),
          both(signal("daemon", 18), healthy)),
    Fault("daemon not started", "lan1", "the daemon does not run", lambda lab: lab.ok("agent", "stop", "daemon"),
          start_again),
]


def explained(lab: Lab, subject: str) -> tuple[int, str, str]:
    """(status, first cause or "", everything that was said)"""
    done = lab.run("router", "ivarodectl", "explain", *subject.split(" "), timeout=60)
    cause = re.search(r"^first cause: (.*?)^what to do:", done.out, re.M | re.S)
    return done.status, re.sub(r"\s+", " ", cause[1]).strip() if cause else "", done.out + done.err
