"""The event scripts, the client's wrapper and the clean-up of image/files, run on real devices and rules."""

from __future__ import annotations

import pathlib
import re

import pytest

from tests.docs import books, sandbox
from tests.facts import daemon

pytestmark = pytest.mark.skipif(sandbox.missing() is not None, reason=str(sandbox.missing()))
NEEDS_IPTABLES = pytest.mark.skipif(sandbox.lacks_nat(), reason="iptables has no nat table here")

# A WAN "wan1" with a DHCP server behind it: address 203.0.113.x, gateway and resolver .1
WAN = """
ip link set lo up
ip netns add isp
ip link add wan1 type veth peer name eth0 netns isp
ip link set wan1 up
ip -n isp link set lo up
ip -n isp link set eth0 up
ip -n isp addr add 203.0.113.1/24 dev eth0
mkdir -p /run/ivarode/wan
row() { printf 'name=%s\\nproto=%s\\nipaddr=0.0.0.0\\nnetmask=0.0.0.0\\ngateway=0.0.0.0\\naddr4=0.0.0.0\\naddr5=0.0.0.0\\n' \\
    "$1" "$2" >/run/ivarode/wan/"$1"; }
until_true() { for _ in $(seq 100); do ! eval "$1" >/dev/null 2>&1 || return 0; sleep 0.1; done; echo "never: $1"; cat /root/calls; return 1; }
"""
SERVER = """
ip netns exec isp dnsmasq --keep-in-foreground --port=0 --bind-interfaces --interface=eth0 --leasefile-ro \\
    --dhcp-range=203.0.113.50,203.0.113.50,255.255.255.0,120 --dhcp-option=3,203.0.113.1 \\
    --dhcp-option=6,203.0.113.1,203.0.113.9 --dhcp-authoritative --user=root --group=root --conf-file=/dev/null \\
    --pid-file= 2>/root/server &
"""
# The daemon's very words.
CLIENT = "/sbin/udhcpc  -t 0 -i wan1 -s /lib/ivarode/empty.sh -C -p /var/run/udhcpc-wan1.pid -f -m 20001"

SHOW = """
echo "address $(ip -4 -o addr show dev wan1 | awk '{print $4}' | tr '\\n' ' ')"
echo "default $(ip -4 route show table 20001 2>/dev/null | tr '\\n' ';')"
echo "rules $(ip -4 rule show | sed 's/:\\t/ /' | grep ^[12]0 | tr '\\n' ';')"
echo "resolver $(tr '\\n' ';' </etc/resolv.conf)"
echo "row $(tr '\\n' ';' </run/ivarode/wan/wan1)"
"""


def facts(output: str) -> dict[str, str]:
    return dict(line.partition(" ")[::2] for line in output.splitlines() if " " in line)


def test_lease_is_taken_given_back_and_taken_again(tmp_path: pathlib.Path) -> None:
    out = sandbox.run(WAN + SERVER + """
row wan1 dhcp
""" + CLIENT + """ >/root/client 2>&1 &
until_true 'grep -q bound /root/calls'
pid=$(cat /run/udhcpc-wan1.pid)
tr '\\0' ' ' <"/proc/$pid/cmdline"; echo
echo "exe $(readlink /proc/$pid/exe)"
""" + SHOW + """
echo ==
kill -USR2 "$pid"
until_true 'grep -q "no lease" /root/calls && ! ip -4 -o addr show dev wan1 | grep -q inet && ! grep -q nameserver /etc/resolv.conf'
until_true 'grep -q "has no lease" /root/calls; test $(grep -c "has no lease" /root/calls) = 2'
""" + SHOW + """
echo ==
kill -USR1 "$pid"
until_true 'test $(grep -c bound /root/calls) = 2'
""" + SHOW + """
echo ==
kill "$pid"
until_true '! kill -0 '$pid
""" + SHOW, tmp_path)
    first, released, again, ended = (facts(part) for part in out.split("==\n"))
    assert "-p /var/run/udhcpc-wan1.pid" in out.splitlines()[0]
    assert first["exe"].endswith("busybox")
    for lease in (first, again):
        assert lease["address"].split() == ["203.0.113.50/24"]
        assert lease["default"].startswith("default via 203.0.113.1 dev wan1 proto 105 metric 20001")
        assert lease["rules"] == ("10001 from all lookup main suppress_prefixlength 0;20001 from all lookup 20001;")
        assert lease["resolver"] == "nameserver 203.0.113.1;nameserver 203.0.113.9;"
        assert lease["row"] == ("name=wan1;proto=dhcp;ipaddr=203.0.113.50;netmask=255.255.255.0;gateway=203.0.113.1;"
                                "addr4=203.0.113.1;addr5=203.0.113.9;")
    for gone in (released, ended):
        assert gone["address"] == "" and gone["default"] == "" and gone["resolver"] == ""
        assert "ipaddr=0.0.0.0;netmask=0.0.0.0;gateway=0.0.0.0;" in gone["row"]


LEASE = "interface=wan1 ip=203.0.113.50 mask=24 subnet=255.255.255.0 router='203.0.113.1 203.0.113.2' dns=%s lease=60 "


def event(name: str, number: int | str = 20001, dns: str = "198.51.100.9", device: str = "wan1") -> str:
    return (LEASE % dns).replace("wan1", device) + f"IVARODE_WAN_NUMBER={number} /lib/ivarode/empty.sh {name}\n"


def test_renewal_with_another_address_keeps_the_routes_through_the_device(tmp_path: pathlib.Path) -> None:
    out = sandbox.run(WAN + "row wan1 dhcp\n" + event("bound") + "ip route add 10.9.0.0/16 via 203.0.113.7 dev wan1\n"
                      + event("renew").replace(".50", ".51") + SHOW + "ip route show 10.9.0.0/16", tmp_path)
    assert facts(out)["address"].split() == ["203.0.113.51/24"]
    assert "10.9.0.0/16 via 203.0.113.7" in out


def test_a_gateway_outside_the_network_is_reached_on_the_link(tmp_path: pathlib.Path) -> None:
    out = sandbox.run(WAN + "row wan1 dhcp\n" + event("bound").replace("mask=24", "mask=32") + SHOW, tmp_path)
    assert "via 203.0.113.1 dev wan1 proto 105 metric 20001 onlink" in facts(out)["default"]


def test_a_late_lease_does_not_touch_a_wan_of_another_protocol(tmp_path: pathlib.Path) -> None:
    out = sandbox.run(WAN + "row wan1 static; ip addr add 192.0.2.2/24 dev wan1\n" + event("bound") + SHOW, tmp_path)
    got = facts(out)
    assert got["address"].split() == ["192.0.2.2/24"] and got["default"] == "" and got["rules"] == ""
    assert "proto=static;ipaddr=0.0.0.0" in got["row"]


def test_the_end_of_a_client_does_not_undo_what_a_new_protocol_has_set(tmp_path: pathlib.Path) -> None:
    out = sandbox.run(WAN + "row wan1 dhcp\n" + event("bound") + "row wan1 static\n" + event("deconfig") + SHOW,
                      tmp_path)
    got = facts(out)
    assert got["address"].split() == ["203.0.113.50/24"] and "default via" in got["default"]
    assert got["resolver"] == ""


def test_a_client_without_a_lease_takes_nothing_back(tmp_path: pathlib.Path) -> None:
    """Its first event may come so late that the daemon has given the WAN to another protocol already."""
    static = """
ip addr add 192.0.2.2/24 dev wan1
ip route add default via 192.0.2.1 dev wan1 metric 20001 table 20001 proto 105
ip rule add pref 20001 lookup 20001
"""
    out = sandbox.run(WAN + "row wan1 dhcp\n" + static + event("deconfig") + SHOW, tmp_path)
    got = facts(out)
    assert got["address"].split() == ["192.0.2.2/24"] and got["default"].startswith("default via 192.0.2.1")
    assert "20001 from all lookup 20001" in got["rules"]


def test_a_deleted_wan_is_not_brought_back(tmp_path: pathlib.Path) -> None:
    out = sandbox.run(WAN + event("bound") + "ls -A /run/ivarode/wan; ip -4 rule show", tmp_path)
    assert "wan1" not in out and "20001" not in out


def test_two_wans_may_share_a_number_and_the_first_carries_the_traffic(tmp_path: pathlib.Path) -> None:
    second = """
ip link add wan2 type veth peer name eth1 netns isp
ip link set wan2 up
ip -n isp link set eth1 up
row wan2 dhcp
"""
    lease2 = event("bound", dns="198.51.100.8", device="wan2").replace("203.0.113", "203.0.114")
    out = sandbox.run(WAN + second + "row wan1 dhcp\n" + event("bound") + lease2 + SHOW + "echo ==\n" + event("deconfig")
                      + SHOW + "echo ==\n" + event("deconfig", device="wan2") + SHOW, tmp_path)
    both, one, none = (facts(part) for part in out.split("==\n"))
    assert re.match(r"default via 203\.0\.113\.1 dev wan1 [^;]*;default via 203\.0\.114\.1 dev wan2", both["default"])
    assert both["resolver"] == "nameserver 198.51.100.9;nameserver 198.51.100.8;"
    assert one["default"].startswith("default via 203.0.114.1 dev wan2") and "20001" in one["rules"]
    assert none["default"] == "" and none["resolver"] == ""


@pytest.mark.parametrize("number", [0, 254, 10001, 32766, 99999])
def test_no_table_of_the_system_is_touched(tmp_path: pathlib.Path, number: str) -> None:
    out = sandbox.run(WAN + "row wan1 dhcp; ip -4 rule show >/root/before\n" + event("bound", number)
                      + "ip -4 rule show | diff /root/before - && ip -4 route show table all | grep default || echo "
                        "none", tmp_path)
    assert "none" in out


def test_resolvers_are_in_the_order_of_the_wans_numbers(tmp_path: pathlib.Path) -> None:
    out = sandbox.run(WAN + "ip link add wan2 type veth peer name eth1 netns isp; ip link set wan2 up; row wan2 dhcp; "
                            "row wan1 dhcp\n"
                      + event("bound", 20002) + event("bound", 20001, dns="198.51.100.8",
                                                      device="wan2").replace("203.0.113", "203.0.114")
                      + "tr '\\n' ';' </etc/resolv.conf", tmp_path)
    assert "nameserver 198.51.100.8;nameserver 198.51.100.9;" in out


@pytest.mark.parametrize("words, handed_on, number", [
    ("-i wan1 -m 20001", "-i wan1 -R", "20001"),
    ("-m20003 -f", "-f -R", "20003"),
    ("-i wan1 -f", "-i wan1 -f", ""),
    ("-x 'hostname:a b' -m 10002", "-x hostname:a b -R", "10002"),
])
def test_wrapper_takes_the_number_out(tmp_path: pathlib.Path, words: str, handed_on: str, number: str) -> None:
    out = sandbox.run("printf '#!/bin/sh\\necho \"$*|$IVARODE_WAN_NUMBER|$#\"\\n' >/stub/busybox; chmod 755 "
                      "/stub/busybox; /sbin/udhcpc "
                      + words, tmp_path)
    assert out == f"udhcpc {handed_on}|{number}|{len(handed_on.replace('a b', 'ab').split()) + 1}\n"


@pytest.mark.parametrize("words", ["-i wan1 -m", "-m x", "-m 1x"])
def test_wrapper_refuses_a_missing_or_malformed_number(tmp_path: pathlib.Path, words: str) -> None:
    assert "status 1" in sandbox.run(f"/sbin/udhcpc {words} || echo status $?", tmp_path)


PPP = WAN + "ip link del wan1; ip link add wan1 type veth peer name eth1 netns isp; ip link set wan1 up\n"


def ppp(script: str, param: str, environment: str = "") -> str:
    return f"{environment} /etc/ppp/ip-{script} wan1 /dev/pts/9 0 100.64.0.7 100.64.0.1 '{param}'\n"


def test_a_dialled_wan_gets_route_resolver_and_row_and_loses_them(tmp_path: pathlib.Path) -> None:
    up = ppp("up", "pppoec,20005", "DNS1=198.51.100.9 DNS2=198.51.100.8")
    show = SHOW.replace("table 20001", "table 20005")
    out = sandbox.run(PPP + "row wan1 pppoe\n" + up + show + "echo ==; ip link del wan1\n" + ppp("down", "pppoec,20005")
                      + show.replace("echo \"address", "true \"address"), tmp_path)
    there, gone = (facts(part) for part in out.split("==\n"))
    assert there["default"].startswith("default dev wan1 proto 105") and "20005 from all lookup 20005" in there["rules"]
    assert there["resolver"] == "nameserver 198.51.100.9;nameserver 198.51.100.8;"
    assert "ipaddr=100.64.0.7;netmask=255.255.255.255;gateway=100.64.0.1;" in there["row"]
    assert gone["default"] == "" and gone["resolver"] == "" and "ipaddr=0.0.0.0" in gone["row"]


def test_a_link_that_ends_late_leaves_the_servers_of_the_next_protocol(tmp_path: pathlib.Path) -> None:
    dialled = ppp("up", "pppoec,20001", "DNS1=198.51.100.9")
    gone = ppp("down", "pppoec,20001")
    out = sandbox.run(PPP + "row wan1 pppoe\n" + dialled + "row wan1 dhcp\n" + event("bound",
                                                                                     dns="203.0.113.1") + SHOW + "echo ==\n" + gone + SHOW
                      + "echo ==\nrow wan1 pppoe\n" + dialled + event("deconfig") + SHOW, tmp_path)
    lease, late, again = (facts(part)["resolver"] for part in out.split("==\n"))
    assert lease == late == "nameserver 203.0.113.1;"
    assert again == "nameserver 198.51.100.9;"


def test_a_login_and_a_logout_are_reported(tmp_path: pathlib.Path) -> None:
    out = sandbox.run(WAN + ppp("up", "pptp,192.0.2.33", "PEERNAME=alice@home MACREMOTE=02:00:00:00:00:09")
                      + ppp("down", "pptp,192.0.2.33", "PEERNAME=alice@home") + "cat /root/calls", tmp_path)
    up, down = (line for line in out.splitlines() if line.startswith("ubus"))
    assert up == ('ubus -t 5 call ivarode.pppauth notify {"type":"pptp","username":"alice@home","action":"up",'
                  '"ipaddr":"100.64.0.1","dial_mac":"02:00:00:00:00:09","dial_ip":"192.0.2.33"}')
    assert '"action":"down"' in down and '"dial_mac":""' in down


def test_a_link_without_an_authenticated_peer_is_nobodys_login(tmp_path: pathlib.Path) -> None:
    assert sandbox.run(WAN + ppp("up", "") + "cat /root/calls", tmp_path) == ""


@pytest.mark.parametrize("name", ["o'brien", 'a"b', "a\\\\b", "a b", "x;y"])
def test_a_name_that_could_change_the_record_is_not_reported(tmp_path: pathlib.Path, name: str) -> None:
    quoted = sandbox.quoted([name])
    out = sandbox.run(WAN + ppp("up", "pptp", "PEERNAME=" + quoted).rstrip() + " || :\ncat /root/calls", tmp_path)
    assert "ubus" not in out and "no up record" in out


def test_the_database_is_put_into_place_once(tmp_path: pathlib.Path) -> None:
    out = sandbox.run("/lib/ivarode/database.sh; ls -l /tmp/calmora/db/net_stat.db; ls -A /tmp/calmora/db; "
                      "echo x >>/tmp/calmora/db/net_stat.db; sum=$(cksum /tmp/calmora/db/net_stat.db); "
                      "/lib/ivarode/database.sh; "
                      "test \"$sum\" = \"$(cksum /tmp/calmora/db/net_stat.db)\" && echo same", tmp_path)
    assert out.startswith("-rw-------") and out.split()[-2:] == ["net_stat.db", "same"]


@pytest.mark.parametrize("obstacle", ["ln -s /root /tmp/calmora", "mkdir -p /tmp/calmora; ln -s /root /tmp/calmora/db",
                                      "mkdir -p /tmp/calmora/db; ln -s /root/x /tmp/calmora/db/net_stat.db",
                                      "mkdir -p -m 777 /tmp/calmora", "mkdir /tmp/calmora; chown 65534 /tmp/calmora",
                                      "echo >/tmp/calmora"])
def test_the_database_is_not_put_where_others_could_lead_it(tmp_path: pathlib.Path, obstacle: str) -> None:
    out = sandbox.run(obstacle + "; /lib/ivarode/database.sh || echo refused; ls -A /root", tmp_path)
    assert out.split() == ["refused", "calls"]


def listed_chains(function: str) -> list[tuple[str, ...]]:
    """The rows of one of the lists in the image's laid.sh."""
    script = (sandbox.IMAGE / "lib/ivarode/laid.sh").read_text()
    rows = books.find(rf"^{function}\(\) {{\n    cat <<'CHAINS'\n(.*?)^CHAINS$", script, re.M | re.S)[1]
    return [tuple(row.split()) for row in rows.splitlines()]


def test_clean_up_knows_every_chain_in_the_reverse_order() -> None:
    assert len(daemon.facts().hooks) > 25
    assert listed_chains("chains") == daemon.facts().hooks[::-1], ("laid.sh: chains() is the skeleton's, from the "
                                                                   "last to the first")


def test_clean_up_knows_the_chains_that_the_daemon_fills() -> None:
    assert listed_chains("own_chains") == daemon.facts().refilled, ("laid.sh: own_chains() is what each start "
                                                                    "empties and fills")


LAY = """
iptables -w -t filter -A FORWARD -m conntrack --ctstate RELATED,ESTABLISHED -j ACCEPT
iptables -w -t filter -N theirs; iptables -w -t filter -A FORWARD -j theirs
"""


def lay_chains() -> str:
    lines = [LAY]
    for table, parent, chain in daemon.facts().hooks:
        lines.append(f"iptables -w -t {table} -N {chain}; iptables -w -t {table} -A {parent} -j {chain}")
    lines.append("iptables -w -A input_filter_rules_drop -j DROP -i wan+")
    lines.append("iptables -w -t nat -A intf_sip_mesquerade -j MASQUERADE")
    return "\n".join(lines) + "\n"


DUMP = "for t in filter nat mangle; do iptables -w -t $t -S; done\n"


@NEEDS_IPTABLES
def test_clean_up_leaves_nothing_of_the_daemon(tmp_path: pathlib.Path) -> None:
    out = sandbox.run(WAN + "ip link del wan1; iptables -w -t nat -S >/dev/null; iptables -w -t mangle -S >/dev/null\n" + """
ip link add lan1 type bridge; ip link add default_br0 type bridge; ip link set lan1 up
ip addr add 192.168.1.1/24 dev lan1
ip rule add pref 10000 lookup 10000; ip rule add pref 10001 lookup main suppress_prefixlength 0; ip rule add pref 20001 lookup 20001
ip rule add pref 20500 lookup main
ip route add 10.0.0.0/8 via 192.168.1.2 table 10000 proto 105; ip route add 11.0.0.0/8 via 192.168.1.2 proto static
ip route add default via 192.168.1.2 dev lan1 metric 20001 table 20001 proto 105
row wan1 dhcp
""" + sandbox.SUPERVISOR + lay_chains() + "/lib/ivarode/cleanup.sh\n" + DUMP + "ip -4 rule show; ip -br link; ls "
                                                                               "/run/ivarode/wan; cat /root/calls",
                                                                               tmp_path)
    assert [line for line in out.splitlines() if line.startswith(("-N", "-A"))] == ["-N theirs", "-A FORWARD -j theirs"]
    assert "20001" not in out and "10000" not in out and "10001:" not in out and "20500:" in out
    assert "lan1" not in out and "default_br0" in out
    deleted = re.findall(r"call service delete (.*)", out)
    assert deleted == ['{"name":"dhcp","instance":"wan1"}', '{"name":"dhcp","instance":"wan1_n2"}',
                       '{"name":"pppoe","instance":"wan2"}'], "with a row or without, and nobody else's"
    assert not re.search(r"^wan1$", out, re.M)


@NEEDS_IPTABLES
def test_clean_up_keeps_a_chain_that_others_use_and_the_way_to_it(tmp_path: pathlib.Path) -> None:
    out = sandbox.run(WAN + lay_chains() + "iptables -w -t nat -A pmap_rules_user -p tcp --dport 80 -j ACCEPT\n"
                      + "/lib/ivarode/cleanup.sh; /lib/ivarode/cleanup.sh\n" + DUMP, tmp_path)
    kept = [line for line in out.splitlines() if line.startswith(("-N", "-A")) and "theirs" not in line]
    assert kept == ["-N ipt_prert_nat_rules_1", "-N pmap_rules_user", "-A PREROUTING -j ipt_prert_nat_rules_1",
                    "-A ipt_prert_nat_rules_1 -j pmap_rules_user",
                    "-A pmap_rules_user -p tcp -m tcp --dport 80 -j ACCEPT"]


@NEEDS_IPTABLES
def test_clean_up_keeps_a_chain_that_others_call_and_their_accept_rules(tmp_path: pathlib.Path) -> None:
    out = sandbox.run(WAN + lay_chains() + """
iptables -w -A theirs -j ipt_fwd_filter_mac
iptables -w -t nat -A PREROUTING -m conntrack --ctstate RELATED,ESTABLISHED -j ACCEPT
/lib/ivarode/cleanup.sh
""" + DUMP, tmp_path)
    kept = [line for line in out.splitlines() if line.startswith(("-N", "-A"))]
    assert sorted(kept) == sorted([
        "-N theirs", "-A FORWARD -j theirs", "-A theirs -j ipt_fwd_filter_mac",
        "-N ipt_fwd_filter_rules_2", "-N ipt_fwd_filter_mac", "-A FORWARD -j ipt_fwd_filter_rules_2",
        "-A ipt_fwd_filter_rules_2 -j ipt_fwd_filter_mac",
        "-A PREROUTING -m conntrack --ctstate RELATED,ESTABLISHED -j ACCEPT"])
