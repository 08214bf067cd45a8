"""The init script, run by a stand-in of the frame that runs service scripts, in a root and network of its own."""

import json
import pathlib
import re

import pytest

from tests.docs import sandbox
from tests.package import common

pytestmark = pytest.mark.skipif(sandbox.missing() is not None, reason=str(sandbox.missing()))

FRAME = common.ROOT / "lab/rc/rc.common"
# "sysctl" is not on every machine that runs this.
PREPARE = f"""
cat >/etc/rc.common <<'END-OF-FRAME'
{FRAME.read_text()}
END-OF-FRAME
printf '#!/bin/sh\\necho "sysctl $*" >>/root/calls\\n' >/stub/sysctl
chmod 755 /stub/sysctl
init=/etc/init.d/ivarode
"""


def run(script: str, tmp_path: pathlib.Path) -> str:
    return sandbox.run(PREPARE + script, tmp_path)


def calls(output: str, command: str) -> list[str]:
    return [line[len(command) + 1:] for line in output.splitlines() if line.startswith(command + " ")]


def test_start_hands_one_instance_to_the_supervisor(tmp_path: pathlib.Path) -> None:
    out = run("$init start; cat /root/calls", tmp_path)
    requests = calls(out, "ubus")
    assert len(requests) == 1 and requests[0].startswith("call service set ")
    service = json.loads(requests[0].removeprefix("call service set "))
    assert service == {"name": "ivarode", "script": "/etc/init.d/ivarode", "instances": {"instance1": {
        "command": ["/usr/sbin/ivarode"], "respawn": ["3600", "5", "0"], "stderr": False, "no_new_privs": True,
        "capabilities": "/etc/capabilities/ivarode.json", "seccomp": "/etc/seccomp/ivarode.json",
        "jail": {"name": "ivarode", "mount": {}}}}}


def test_the_daemon_is_recorded_when_asked(tmp_path: pathlib.Path) -> None:
    ask = "sed -i 's/^RECORD=0/RECORD=1/; s/^RECORD_KIB=.*/RECORD_KIB=256/' $init; $init start; cat /root/calls"
    out = run(ask, tmp_path)
    missing = "-t ivarode -p daemon.warning is not recorded: /usr/lib/libivarode-record.so is not installed"
    assert missing in calls(out, "logger") and '"command":["/usr/sbin/ivarode"]' in calls(out, "ubus")[0]
    out = run("sed -i s,/usr/lib/libivarode,/tmp/libivarode, $init; : >/tmp/libivarode-record.so; " + ask, tmp_path)
    assert not any("recorded" in line for line in calls(out, "logger"))
    assert ('"command":["/lib/ivarode/record.sh","/usr/sbin/ivarode","/tmp/libivarode-record.so","256","0"]'
            in calls(out, "ubus")[0])


def test_the_recording_comes_before_what_is_preloaded(tmp_path: pathlib.Path) -> None:
    out = run("printf '#!/bin/sh\\nenv\\n' >/tmp/daemon; chmod 755 /tmp/daemon\n"
              "record='/lib/ivarode/record.sh /tmp/daemon /none/record.so 64 1'\n"
              "env -i $record 2>/dev/null; echo ==; env -i LD_PRELOAD=/none/other.so $record 2>/dev/null", tmp_path)
    alone, behind = ({word for word in part.split()} for part in out.split("==\n"))
    assert {"LD_PRELOAD=/none/record.so", "IVARODE_RECORD_SIZE=64", "IVARODE_RECORD_SECRETS=1"} <= alone
    assert "LD_PRELOAD=/none/record.so:/none/other.so" in behind


def test_start_prepares_forwarding_and_the_login_database(tmp_path: pathlib.Path) -> None:
    out = run("$init start; cat /root/calls; ls -ln /tmp/calmora/db/net_stat.db", tmp_path)
    assert calls(out, "sysctl") == ["-qw net.ipv4.ip_forward=1"]
    assert "\n-rw------- 1 0 0 " in out


def test_start_warns_and_goes_on_where_nothing_confines_it(tmp_path: pathlib.Path) -> None:
    warning = "-t ivarode -p daemon.warning runs with all privileges: the supervisor's jail helper is not installed"
    out = run("$init start; cat /root/calls", tmp_path)
    assert warning in calls(out, "logger") and len(calls(out, "ubus")) == 1
    out = run("cp /bin/true /sbin/ujail; $init start; cat /root/calls", tmp_path)
    assert not calls(out, "logger") and len(calls(out, "ubus")) == 1


def test_start_goes_on_without_the_database(tmp_path: pathlib.Path) -> None:
    out = run("ln -s /root /tmp/calmora; $init start 2>&1; cat /root/calls; ls -A /root", tmp_path)
    assert any("PPP logins cannot be recorded" in line for line in calls(out, "logger"))
    assert len(calls(out, "ubus")) == 1 and out.endswith("\ncalls\n")


def test_stop_ends_the_service_and_removes_what_it_laid(tmp_path: pathlib.Path) -> None:
    out = run(sandbox.SUPERVISOR + """
ip link add lan1 type bridge; ip link set lan1 up; ip addr add 192.168.1.1/24 dev lan1
ip rule add pref 10000 lookup 10000; ip route add 10.0.0.0/8 via 192.168.1.2 table 10000 proto 105
mkdir -p /run/ivarode/wan; echo proto=static >/run/ivarode/wan/wan1
$init start; $init stop
cat /root/calls; echo ==; ip -4 rule; ip -br link; ls /run/ivarode/wan
""", tmp_path)
    said, left = out.split("==\n")
    requests = calls(said, "ubus")
    assert requests[1] == 'call service delete {"name":"ivarode"}'
    # clients of a daemon that was killed, after the daemon itself
    assert '-t 5 -S call service delete {"name":"dhcp","instance":"wan1"}' in requests[2:]
    assert "lan1" not in left and "10000" not in left and "wan1" not in left


# Something in the daemon's place, and things that it has laid.
RUNNING = """
cp -a /usr/sbin /tmp/sbin; cp /bin/sleep /tmp/sbin/ivarode; mount --bind /tmp/sbin /usr/sbin
stand_in() { /usr/sbin/ivarode 1000 & pid=$!; until readlink /proc/$pid/exe | grep -q ivarode; do sleep 0.1; done; }
stand_in
ip link add lan1 type bridge; ip rule add pref 10000 lookup 10000
"""


def test_an_upgrade_takes_nothing_away(tmp_path: pathlib.Path) -> None:
    out = run(RUNNING + """
export PKG_UPGRADE=1
$init stop; echo "stop $?"; wait $pid || echo "ended by $?"
stand_in
rm /usr/sbin/ivarode
$init start; wait $pid || echo "ended by $?"
cat /root/calls; echo ==; ip -4 rule; ip -br link
""", tmp_path)
    said, left = out.split("==\n")
    assert re.findall(r"^(?:stop|ended by) \d+$", said, re.M) == ["stop 0", "ended by 137", "ended by 137"]
    # neither ended nor cleaned up after; the supervisor is handed the service once
    assert [request.split("{")[0] for request in calls(said, "ubus") if "list" not in request] == ["call service set "]
    assert "lan1" in left and "10000:" in left


@pytest.mark.parametrize("environment, running, started", [
    ("PKG_UPGRADE=1", True, True), ("PKG_UPGRADE=1", False, False), ("PKG_UPGRADE=", True, False),
    ("PKG_UPGRADE=1 IPKG_INSTROOT=/image", True, False)])
def test_a_new_library(tmp_path: pathlib.Path, environment: str, running: bool, started: bool) -> None:
    listed = '{ "ivarode": { "instances": { "instance1": { "running": true } } } }' if running else "{ }"
    stub = f"""#!/bin/sh
echo "ubus $*" >>/root/calls
case "$*" in *list*) echo '{listed}' ;; esac
"""
    out = run(f"cat >/stub/ubus <<'END'\n{stub}END\ncat >/tmp/postinst <<'END'\n{common.library_script()}END\n"
              f"{environment} sh /tmp/postinst; echo status $?; cat /root/calls", tmp_path)
    assert "status 0" in out and any(line.startswith("call service set ") for line in calls(out, "ubus")) == started


def test_stop_twice_and_without_a_start(tmp_path: pathlib.Path) -> None:
    assert "fine" in run("$init stop; $init stop; echo fine", tmp_path)


def test_restart_is_a_stop_and_a_start(tmp_path: pathlib.Path) -> None:
    requests = calls(run("$init restart; cat /root/calls", tmp_path), "ubus")
    asked = [request.split("call service ")[1].split()[0] for request in requests]
    assert asked == ["delete", "list", "list", "set"], "the lists are for clients that a killed daemon has left"


def test_starts_before_whatever_needs_a_network(tmp_path: pathlib.Path) -> None:
    assert run("$init enable; ls /etc/rc.d", tmp_path).split() == ["K90ivarode", "S20ivarode"]


def test_output_goes_to_the_log_only_when_asked(tmp_path: pathlib.Path) -> None:
    out = run("sed -i 's/^OUTPUT_TO_LOG=0/OUTPUT_TO_LOG=1/' $init; $init start; cat /root/calls", tmp_path)
    assert '"stderr":true' in calls(out, "ubus")[0]


PLUGIN = common.ROOT / "image/sibling/usr/libexec/rpcd/ombrine.run"


def test_the_siblings_plug_in_answers() -> None:
    assert json.loads(common.run(PLUGIN, "list")) == {"run": {}}
    assert json.loads(common.run(PLUGIN, "call", "run", input="{}")) == {}
    with pytest.raises(AssertionError):
        common.run(PLUGIN, "call", "other", input="{}")
    with pytest.raises(AssertionError):
        common.run(PLUGIN)
