"""Faults for the ways out of docs/behaviour.md: how each comes about on the virtual board, by what one knows it, and by
what one sees that the book's commands have healed it."""

from __future__ import annotations

from dataclasses import dataclass, field

from tests.docs.ways_out import Step, call

# A look at the router: a command, and what must be in its output; behind "!", what must not.
Look = tuple[str, str]

STDERR = "tail -n 6 /var/log/daemon.log"
LOG = "tail -n 4 /var/log/messages"
MEMBERS = "ip -br link show master "
SWITCH = "ivarodectl switch"
RULES = "ip -4 rule"
GONE = "pidof ivarode || echo gone"
LAN2 = {"ipaddr": "192.168.2.1", "netmask": "255.255.255.0"}
GUEST = {"ipaddr": "192.168.100.1", "netmask": "255.255.255.0"}
WAN = {"proto": "static", "defrt_pri": "20001", "ipaddr": "203.0.113.2", "netmask": "255.255.255.0",
       "gateway": "203.0.113.1"}
WAN_TV = {**WAN, "ipaddr": "198.18.0.2", "gateway": "198.18.0.1"}
ROUTE = {"line": "auto", "dstaddr": "10.20.0.0", "netmask": "255.255.0.0", "gateway": "192.168.50.254", "metric": "10"}
DEVICE_OF_ANOTHER_KIND = "ip tuntap add dev {} mode tap"


@dataclass(frozen=True)
class Fault:
    heading: str                        # of the section
    into: list[Step | str | Look]       # a text is a command that succeeds, "link N up" moves a cable; a look waits
    sign: list[Look]
    healed: list[Look]                  # after the first block; the last one may be a restart, which heals everything
    back: list[Step | str] | None = None    # from there to the router as it was; None: a restart
    after: list[Step | str | Look] = field(default_factory=list)    # the first block, to see that it has helped
    blocks: tuple[int, ...] = (0,)      # of the section, one after the other
    board: str = "one-cpu"

    @property
    def name(self) -> str:
        return f"{self.heading} {self.blocks[0]}" if self.blocks[0] else self.heading


def port_add(name: str = "lan2", status: int = 0) -> Step:
    return call("port_add", status, name=name)


def port_del(name: str = "lan2", status: int = 0) -> Step:
    return call("port_del", status, name=name)


def delete(name: str, status: int = 0) -> Step:
    return call("del", status, intf=[name])


NOTHING_IS_ROLLED_BACK = [
    Fault("Nothing is rolled back",
          [port_add(), DEVICE_OF_ANOTHER_KIND.format("lan2_guest"),
           call("add", 1, intf="lan2_guest", vlanid1=100, **GUEST),
           "ip link del lan2_guest", delete("lan2_guest", 1)],
          [(LOG, "veth init failed, master_intf=eth0.100 veth_intfname=lan2_guest")],
          [(MEMBERS + "lan2_guest", "eth0.100")],
          [delete("lan2_guest"), port_del()]),
    Fault("A port_add that failed must be cleared before it is repeated",
          [DEVICE_OF_ANOTHER_KIND.format("eth0.4092"), port_add("lan2", 1), "ip link del eth0.4092",
           port_del("lan2", 1)],
          [("grep -c 'netintf_ubus_port_add 3123' /var/log/messages", "1"), (STDERR, "lan del err,intf=lan2_default")],
          [(MEMBERS + "lan2_default", "eth0.4092")], [port_del()]),
    Fault("A port_add that failed must be cleared before it is repeated",
          [DEVICE_OF_ANOTHER_KIND.format("lan2_default"), port_add("lan2", 1), "ip link del lan2_default",
           port_del("lan2", 1)],
          [("grep -c 'netintf_ubus_port_add 3129' /var/log/messages", "1"), (STDERR, "lan del err,intf=lan2_default")],
          [(MEMBERS + "lan2_default", "eth0.4092")], [port_del()], blocks=(1,)),
    Fault("port_add of a port that has its default interface already",
          [port_add(), port_add(), port_del("lan2", 1)],
          [(STDERR, "lan del err,intf=lan2_default")], [(SWITCH, r"\n +2 +100 Mbit/s full +4091")], []),
    Fault("A config that fails leaves the interface without its device",
          [port_add(), call("config", 2, intf="lan2_office", old_intf="lan2_default", **LAN2),
           call("config", 9, intf="lan2_office", old_intf="lan2_office", proto="static", **LAN2)],
          [(LOG, "net config user old intf exit error")],
          [(MEMBERS + "lan2_office", "eth0.4092"), ("ip -br -4 addr show lan2_office", r"192\.168\.2\.1/24")],
          blocks=(0, 1)),
    Fault("A gateway of 0.0.0.0 is not taken for a new gateway",
          [call("config", intf="wan1", old_intf="wan1", **{**WAN, "gateway": "0.0.0.0"}),
           call("enable", intf=["wan1"], enable=1)],
          [("ip route show table 20001", r"default via 203\.0\.113\.1")],
          [("ip route show table 20001 | wc -l", r"\A0\n"), ("ip -br -4 addr show wan1", r"203\.0\.113\.2/24")],
          [call("enable", intf=["wan1"], enable=1), delete("wan1"), call("add", intf="wan1", **WAN)]),
    Fault("A LAN's config should say static",
          [port_add("lan3"), call("config", 2, intf="lan3", old_intf="lan3_default", proto="pppoe", **LAN2),
           call("config", 9, intf="lan3", old_intf="lan3", proto="static", **LAN2)],
          [(MEMBERS + "lan3_pe", r"eth0\.4093")],
          [(MEMBERS + "lan3", r"eth0\.4093"), ("ip -br -4 addr show lan3", r"192\.168\.3\.1/24")], [port_del("lan3")]),
]

VLANS = [
    Fault("The first interface of a port is never counted",
          [call("add", intf="lan2_guest", vlanid1=100, **GUEST), delete("lan2_guest", 1)],
          [("ip -br link", r"eth0\.100@"), (SWITCH, r"\n +5 +100 ")], []),
    Fault("A port that carries VLANs is not given back at once",
          [port_add(), call("add", intf="lan2_guest", vlanid1=100, **GUEST), port_del("lan2", 1)],
          [("ip -br link", r"eth0\.100@"), (SWITCH, r"\n +2 +100 Mbit/s full +4092")], []),
    Fault("Interfaces of one port that share an outer VLAN leave it together",
          [port_add(), call("add", intf="lan2_a", vlanid1=100, vlanid2=7, **LAN2),
           call("add", intf="lan2_b", vlanid1=100, vlanid2=8, **GUEST), delete("lan2_a")],
          [("ip -br link", r"lan2_b "), (SWITCH, r"!\n +5 +100 +\. \. t")],
          [(SWITCH, r"\n +5 +100 +\. \. t \. \. \. t")], blocks=(0, 1)),
    Fault("The switch has room for eleven VLANs",
          [port_add(), *(call("add", intf=f"lan2_v{vlan}", vlanid1=vlan, ipaddr=f"192.168.{vlan}.1",
                              netmask="255.255.255.0") for vlan in range(100, 111)),
           call("add", 1, intf="lan2_v111", vlanid1=111, **GUEST), delete("lan2_v111", 1)],
          [(SWITCH, r"\n +15 +110 ")], [(SWITCH, r"\n +5 +112 "), (MEMBERS + "lan2_v112", r"eth0\.112")]),
    Fault("An interface without VLAN needs its own port",
          [call("add", 1, intf="lan2_guest", **LAN2)],
          [(LOG, "veth init failed, master_intf=eth0.4092 veth_intfname=lan2_guest")],
          [(MEMBERS + "lan2_guest", r"eth0\.4092"), ("ip -br -4 addr show lan2_guest", r"192\.168\.2\.1/24")],
          [port_del()]),
    Fault("A VLAN carries one interface",
          [port_add(), port_add("lan3"), call("add", intf="lan2_guest", vlanid1=100, **GUEST),
           "ip -br link show lan2_guest > /tmp/before", call("add", 1, intf="lan3_guest", vlanid1=100, **LAN2)],
          [(SWITCH, r"\n +5 +100 +\. \. t t"),
           ("ip -br link show lan2_guest | cmp -s - /tmp/before || echo the MAC is another", "is another")],
          [(SWITCH, r"\n +5 +100 +\. \. t \. \. \. t"), (MEMBERS + "lan2_guest", r"eth0\.100")], blocks=(0, 1)),
    Fault("The VLAN IDs of the ports are not kept apart",
          [port_add(), call("add", 1, intf="lan2_tv", vlanid1=4092, **GUEST), delete("lan2_tv")],
          [("ip -br link", r"!eth0\.4092")], [(MEMBERS + "lan2_default", r"eth0\.4092")]),
    Fault("port_del gives every port back to LAN 1",
          [port_del("lan1")], [(SWITCH, r"\n +1 +4091 +\. \. u u u \. \.")],
          [(SWITCH, r"\n +1 +4091 +\. u u u u \. t"), ("ip -br link", "lan1_default +UP")]),
]

LINKS = [
    Fault("On a board whose LAN 1 is switch port 0, ports without set-up ignore link events",
          [port_add(), call("add", intf="lan3_guest", vlanid1=100, **GUEST), "link 2 down", "link 1 down"],
          [("ip -br link show lan2_default", "![<,]UP"), ("ip -br link show lan3_guest", "[<,]UP")],
          [("ip -br link show lan3_guest", "![<,]UP")],
          after=["ip link set lan3_guest down", "link 2 up", ("ip -br link show lan3_guest", "[<,]UP"), "link 2 down"],
          board="lan-on-port-0"),
    Fault("A WAN added over the bus to a port without set-up does not follow the link",
          [call("add", intf="wan2_tv", vlanid1=200, **{**WAN_TV, "defrt_pri": "20002"}),
           "link 4 down", "link 0 down"],
          [(RULES, "!20001"), (RULES, "20002")], [(RULES, "!20002")],
          after=["link 4 up", (RULES, "20002"), "link 4 down"], board="two-wan"),
    Fault("enable looks at the link of the first name",
          [port_add(), port_add("lan3"), "link 2 down", ("ip -br link show lan2_default", "![<,]UP"),
           call("enable", intf=["lan2_default", "lan3_default"], enable=1)],
          [("ip -br link show lan3_default", "![<,]UP")], [("ip -br link show lan3_default", "[<,]UP")],
          ["link 2 up", port_del(), port_del("lan3")]),
    Fault("config keeps the port and the kind",
          [port_add(), port_add("lan3"),
           call("config", intf="lan3_guest", old_intf="lan2_default", proto="static", **GUEST),
           delete("lan3_guest", 1)],
          [(MEMBERS + "lan3_guest", r"eth0\.4092")], [], []),
    Fault("A WAN on a VLAN of a board with two CPU ports",
          [call("add", 1, intf="wan1_tv", vlanid1=7, **WAN_TV)],
          [(LOG, r"veth init failed, master_intf=eth1\.7 ")], [], board="two-cpu"),
    Fault("statist asks for a link until it gets an answer",
          [port_add("lan3"), call("config", intf="lan9", old_intf="lan3_default", proto="static", **LAN2),
           "ubus -t 1 call ivarode.intf statist; test $? -ne 0"],
          [(LOG, "lan 9 get hw port error"), ("ubus -t 1 -S call ivarode.run run || echo silent", "silent")], []),
]

WANS = [
    Fault("The numbers of a WAN outside 10002 to 32765",
          [call("config", intf="wan1", old_intf="wan1", **{**WAN, "defrt_pri": "500"}),
           "ip rule del pref 20001"],
          [(STDERR, "WAN priority 500 is not between"), (RULES, "!(?m)^500:")],
          [("ip route show table 20001", r"default via 203\.0\.113\.1 dev wan1"), (RULES, "20001")], []),
    Fault("A WAN's row takes plain words only",
          [delete("wan1"), call("add", -1, intf="wan1", **{**WAN, "proto": "dhcp x"})],
          [(LOG, "wan info db insert error")], [("cat /var/run/ivarode/wan/wan1", "proto=static")], []),
    Fault("The rule of a deleted WAN stays", [delete("wan1")], [(RULES, "20001")], [(RULES, "!20001")],
          [call("add", intf="wan1", **WAN), call("enable", intf=["wan1"], enable=1)]),
    Fault("Blanks and quotes in a PPPoE user or password",
          [call("config", intf="wan1", old_intf="wan1", proto="pppoe", defrt_pri="20001", username="user",
                password="two words")],
          [("ubus call service list", r'"two",\s+"words"')], [("ubus call service list", '"two words"')],
          [call("config", intf="wan1", old_intf="wan1", **WAN)]),
    Fault("A lease may be refused",
          ["isp ip address add 192.168.1.99/24 dev eth0", "isp dhcp-provider start eth0 192.168.1.50 192.168.1.60",
           call("config", intf="wan1", old_intf="wan1", proto="dhcp", defrt_pri="20001")],
          [("grep 'is refused' /var/log/messages", r"wan1 .*192\.168\.1\.\d+/24 is refused")],
          [("ip -br -4 addr show wan1", r"192\.168\.1\.")]),
    Fault("A PPPoE peer that has gone without a word",
          [call("config", intf="wan1_tv", old_intf="wan1", proto="pppoe", defrt_pri="20001", username="user1",
                password="secret1")],
          [("ls /etc/ppp", "!options.wan1_tv_pe")], [("cat /etc/ppp/options.wan1_tv_pe", "lcp-echo-interval")]),
]

STARTS = [
    Fault("Changes count when they are committed",
          ["mkdir -p /tmp/.uci", "echo \"lan_intf.lan1.ipaddr='192.168.9.1'\" > /tmp/.uci/lan_intf"],
          [("cat /etc/config/lan_intf", r"192\.168\.1\.1")],
          [("ip -br -4 addr show lan1", r"192\.168\.9\.1/24")],
          ["sed -i s/192.168.9.1/192.168.1.1/ /etc/config/lan_intf", "/etc/init.d/ivarode restart"]),
    Fault("SIGTERM is heard in the event loop only",
          ["kill -STOP $(pidof ivarode)", "kill $(pidof ivarode)"],
          [("pidof ivarode", r"\d")], [], []),
    Fault("Other signals end the daemon without clean-up",
          ["kill -HUP $(pidof ivarode)"], [(GONE, "gone"), ("ip -br link", "lan1 +UP")], []),
    Fault("A failed start leaves things behind",
          ["kill -9 $(pidof ivarode)"], [("ip -br link", "lan1 +UP")], [("ip -br link", "!lan1")]),
    Fault("A port's device in another bridge ends the start",
          [call("config", intf="wan1_x", old_intf="wan1", **WAN), "kill -9 $(pidof ivarode)",
           "/etc/init.d/ivarode start"],
          [(LOG, "veth init failed, master_intf=eth0.4090 veth_intfname=wan1"), (GONE, "gone")], []),
    Fault("One broken section ends the start",
          [r"printf 'config interface lan7\n\toption enable 1\n' >> /etc/config/lan_intf"],
          [("tail -n 2 /etc/config/lan_intf", "lan7")], [("ivarodectl check", "lan7")],
          ["sed -i /lan7/,+1d /etc/config/lan_intf"]),
    Fault("A start joins all LAN ports for a moment", [], [], [], []),
    Fault("Jumps are not restored",
          ["iptables -D FORWARD -j ipt_fwd_filter_rules_2", "kill -9 $(pidof ivarode)", "/etc/init.d/ivarode start"],
          [("iptables -S FORWARD", "!ipt_fwd_filter_rules_2")], []),
    Fault("Status 0 does not mean that the route is there",
          [call("ivarode.route.add", name="first", **{**ROUTE, "dstaddr": "10.30.0.0"}),
           call("ivarode.route.enable", name=["first"], enable=0), call("ivarode.route.add", name="branch", **ROUTE),
           "ip addr add 192.168.50.1/24 dev lan1"],
          [("ip route show table 10000; echo", r"!10\.20")],
          [("ip route show table 10000", r"10\.20\.0\.0/16 via 192\.168\.50\.254")],
          [call("ivarode.route.del", name=["branch", "first"]), "ip addr del 192.168.50.1/24 dev lan1"]),
]

OTHERS = [
    # the low byte of the register that holds the PVID of port 2, which becomes 4071
    Fault("A port has another PVID", [r"printf '\347' | dd of=/dev/mem bs=1 seek=$((0x10110044)) conv=notrunc"],
          [(SWITCH, r"\n +2 +100 Mbit/s full +4071")], []),
    Fault("The rule of a WAN is gone", ["ip rule del pref 20001"], [(RULES, "!20001")], [(RULES, "20001")], []),
    Fault("A bridge has lost its member", ["ip link set eth0.4091 nomaster"], [("ip link show lan1", "NO-CARRIER")],
          [(MEMBERS + "lan1", r"eth0\.4091")], []),
    Fault("Forwarding is off", ["sysctl -w net.ipv4.ip_forward=0"],
          [("cat /proc/sys/net/ipv4/ip_forward", "0")], [("cat /proc/sys/net/ipv4/ip_forward", "1")], []),
]

FAULTS = [*NOTHING_IS_ROLLED_BACK, *VLANS, *LINKS, *WANS, *STARTS, *OTHERS]

# Sections that give no commands.
ADVICE = {
    "A lease is let go without the server's knowing": "nothing is to be done",
    "Only the first packet of a connection is clamped": "what other boxes are to let through",
    "Nobody answers a DHCP client": "the fault is in front of the router",
    "Values of ivarode.pppauth notify go into SQL as they come": "who may call",
}
