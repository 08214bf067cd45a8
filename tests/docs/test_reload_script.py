"""What reload takes away, on real devices, rules and chains: a double of ivarode-plan says what is to go. The whole of
it is tested on the virtual board (tests/system/test_reload.py)."""

from __future__ import annotations

import pathlib
import re

import pytest

from tests.docs import sandbox
from tests.hostile.obstacles import FRAME

pytestmark = pytest.mark.skipif(sandbox.missing() is not None, reason=str(sandbox.missing()))
NEEDS_IPTABLES = pytest.mark.skipif(sandbox.lacks_nat(), reason="iptables has no nat table here")

RELOAD = "/lib/ivarode/reload.sh"


def planned(lines: str, status: int = 4, of_old: str = "") -> str:
    """ivarode-plan says this; and that, of the configuration that the daemon was started with."""
    return f"""
cat >/stub/ivarode-plan <<'PLAN'
#!/bin/sh
case "$*" in
--leftovers) cat <<'LINES'
{lines.strip()}
LINES
exit {status} ;;
"--leftovers --config /var/run/ivarode/config") cat <<'LINES'
{of_old.strip()}
LINES
exit 4 ;;
esac
exit 2
PLAN
chmod 755 /stub/ivarode-plan
"""


LAID = sandbox.SUPERVISOR + """
mkdir -p /run/ivarode/wan /run/ivarode/lease /run/ivarode/dns
ip link set lo up
for name in lan1 lan7 wan1; do ip link add $name type bridge; ip link set $name up; done
ip link add eth0.300 type veth peer name far1; ip link set eth0.300 master lan7
ip link add eth0.4092 type veth peer name far2; ip link set eth0.4092 master lan7
ip addr add 192.168.1.1/24 dev lan1; ip addr add 203.0.113.2/24 dev wan1
ip route add 10.9.0.0/16 via 192.168.1.11 metric 5 table 10000 proto 105
ip route add 10.9.0.0/16 via 192.168.1.11 metric 6 table 10000 proto 105
ip route add default via 203.0.113.1 dev wan1 table 20001 metric 20001
for number in 20001 20002; do ip rule add pref $number lookup $number; done
echo proto=dhcp >/run/ivarode/wan/wan1; echo proto=dhcp >/run/ivarode/wan/wan2
echo 203.0.113.2/24 >/run/ivarode/lease/wan1; echo nameserver 192.0.2.53 >/run/ivarode/dns/20001.dhcp.wan1
"""
STATE = """
echo STATE; ip -br -4 addr; ip -br link; ip -4 rule; ip -4 route show table all; ls /run/ivarode/*; cat /etc/resolv.conf
"""
LINES = """
added client dhcp wan1
added route 10000 10.9.0.0/255.255.0.0 via 192.168.1.11 metric 5
added default 20001 wan1
added rule 20001
changed address wan1
changed member eth0.4092
added device lan7
added device eth0.300
added row wan1
"""


def test_it_takes_away_what_is_listed_and_nothing_else(tmp_path: pathlib.Path) -> None:
    out = sandbox.run(f"{LAID}{planned(LINES)}{RELOAD}; echo status $?{STATE}grep delete /root/calls", tmp_path)
    said, state = out.split("STATE\n")
    listed = [line.split(" ", 1)[1] for line in LINES.splitlines() if line]
    assert said.splitlines() == [*("removes " + one for one in listed), "status 0"]
    for gone in ("lan7", "eth0.300", "metric 5", "default via", "20001:", "203.0.113.2/24"):
        assert gone not in state, gone
    for kept in ("lan1", "eth0.4092", "metric 6", "20002:", "192.168.1.1/24"):
        assert kept in state, kept
    assert "/run/ivarode/wan:\nwan2\n" in state and "/run/ivarode/lease:\n\n" in state
    assert "20001.dhcp.wan1" not in state and "192.0.2.53" not in state
    assert 'call service delete {"name":"dhcp","instance":"wan1"}' in state
    assert re.search(r"/run/ivarode/config:\nlan_intf\nroute_config\nwan_intf\n", state), "what the daemon starts with"


def test_what_went_with_another_is_no_failure(tmp_path: pathlib.Path) -> None:
    again = planned(LINES.replace("added client dhcp wan1\n", ""))
    out = sandbox.run(f"{LAID}{again}{RELOAD} >/dev/null; {RELOAD} >/dev/null; echo status $?", tmp_path)
    assert out == "status 0\n"


def test_a_step_that_fails_is_reported_and_the_next_run_does_the_rest(tmp_path: pathlib.Path) -> None:
    out = sandbox.run(f"{LAID}{planned('added device lo' + LINES)}{RELOAD} 2>/root/errors || echo status $?\n"
                      f"cat /root/errors; grep reload: /root/calls{STATE}{planned('added device lan1')}{RELOAD}; "
                      "echo status $?", tmp_path)
    assert "\nstatus 1\n" in out and "reload: device lo stays: " in out
    assert "logger -t ivarode-wan -p daemon.err reload: device lo stays: " in out
    assert "removes device lo\n" not in out and "removes row wan1\n" in out
    assert out.endswith("removes device lan1\nstatus 0\n")


def test_what_was_added_over_the_bus_is_kept(tmp_path: pathlib.Path) -> None:
    """It is in neither configuration; what the old one named goes, and what is in the way."""
    of_old = "added device lan7\nadded route 10000 10.9.0.0/255.255.0.0 via 192.168.1.11 metric 5\nadded device lan9"
    out = sandbox.run(f"{LAID}. /lib/ivarode/laid.sh; config_keep{planned(LINES, of_old=of_old)}{RELOAD} --keep; "
                      f"echo status $?{STATE}", tmp_path)
    kept = [line for line in out.splitlines() if line.startswith("keeps ")]
    assert kept == ["keeps route 10000 10.9.0.0/255.255.0.0 via 192.168.1.11 metric 5", "keeps device lan7"]
    state = out.split("STATE\n")[1]
    assert "lan7" in state and "metric 5" in state and "eth0.300" not in state and "20001:" not in state


def test_a_configuration_that_would_not_start_changes_nothing(tmp_path: pathlib.Path) -> None:
    out = sandbox.run(f"{LAID}{STATE}{planned('', status=1)}{RELOAD} 2>&1 || echo status $?{STATE}", tmp_path)
    _, before, after = out.split("STATE\n")
    assert before.replace("reload: nothing is changed\nstatus 1\n", "") == after


@pytest.mark.parametrize("words", ["--all", "--keep now", "keep"])
def test_wrong_usage_is_told_apart(tmp_path: pathlib.Path, words: str) -> None:
    out = sandbox.run(f"{LAID}{planned(LINES)}{RELOAD} {words} 2>&1 || echo status $?{STATE}{RELOAD} --help", tmp_path)
    assert out.startswith("Usage: reload [--keep]\n") and "\nstatus 2\n" in out and "lan7" in out


def test_without_the_plan_it_restarts(tmp_path: pathlib.Path) -> None:
    script = FRAME + LAID + "/etc/init.d/ivarode reload; echo status $?; cat /root/calls\n"
    out = sandbox.run(script + "/etc/init.d/ivarode reload --keep 2>&1 || echo status $?\n" + STATE, tmp_path)
    assert "ivarode-plan is not installed: everything is removed and laid again, as by restart\nstatus 0\n" in out
    calls = re.findall(r"ubus call service (\w+) \{\"name\":\"ivarode\"", out)
    assert calls == ["delete", "set"], "the stop action, then a start"
    assert "nothing tells what to keep, and nothing is done\nstatus 1\n" in out
    assert "lan1" not in out.split("STATE\n")[1]


@NEEDS_IPTABLES
def test_chains_that_lost_their_jump_go_and_those_of_others_stay(tmp_path: pathlib.Path) -> None:
    lay = """
for chain in ipt_input_filter_rules_3 input_filter_rules_drop ipt_input_filter_rules_2 theirs; do
    iptables -w -N $chain
done
iptables -w -A INPUT -j theirs; iptables -w -A INPUT -j ipt_input_filter_rules_2
iptables -w -A ipt_input_filter_rules_3 -j input_filter_rules_drop
iptables -w -A input_filter_rules_drop -i usb+ -j DROP
iptables -w -A FORWARD -m conntrack --ctstate RELATED,ESTABLISHED -j ACCEPT
"""
    lines = """
changed chain filter FORWARD ACCEPT
changed chain filter ipt_input_filter_rules_3 input_filter_rules_drop
changed chain filter INPUT ipt_input_filter_rules_3
"""
    out = sandbox.run(f"{LAID}{lay}{planned(lines)}{RELOAD} >/dev/null; iptables -w -S", tmp_path)
    assert [line for line in out.splitlines() if not line.startswith("-P")] == [
        "-N ipt_input_filter_rules_2", "-N theirs", "-A INPUT -j theirs", "-A INPUT -j ipt_input_filter_rules_2"]
