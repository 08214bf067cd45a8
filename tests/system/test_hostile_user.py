"""A user who is not root and is first with the names that the router uses in folders of everybody."""

from __future__ import annotations

from tests.system import state
from tests.system.held_lab import Lab
from tests.system.daemon import kill_daemon, restart

# As it stands where "nobody" has made it: another address for the WAN and a program for root to run, saved and not
# committed.
ATTACK = """
rm -rf /tmp/.uci /dev/shm/ivarode-debug /dev/shm/ivarode-records
mkdir /tmp/.uci
{
    echo "wan_intf.wan1.ipaddr='203.0.113.99'"
    echo "wan_intf.wan1.username='x plugin /tmp/evil.so'"
    echo "lan_intf.lan1.ipaddr='192.168.99.1'"
} >/tmp/.uci/wan_intf
cp /tmp/.uci/wan_intf /tmp/.uci/lan_intf
: >/dev/shm/ivarode-debug
ln -s /etc/passwd /dev/shm/ivarode-records
chown -R -h 65534:65534 /tmp/.uci /dev/shm/ivarode-debug /dev/shm/ivarode-records
"""


def test_a_start_takes_nothing_from_nobody(fresh_home: Lab) -> None:
    before = state.settled(fresh_home)
    users = fresh_home.get("router", "/etc/passwd")
    kill_daemon(fresh_home)
    fresh_home.shell("router", ATTACK, check=True)
    restart(fresh_home)
    assert state.settled(fresh_home) == before
    assert fresh_home.get("router", "/etc/passwd") == users
    log = fresh_home.ok("router", "cat", "/var/log/messages")
    for name in ("ivarode-debug", "ivarode-records"):
        assert log.count(f"/dev/shm/{name} cannot be used, ivarodectl sees nothing of it: ") == 1


def test_the_configuration_is_roots_alone(home: Lab) -> None:
    shown = home.ok("router", "ls", "-ln", "/etc/config")
    rows = [line.split() for line in shown.splitlines() if line.startswith("-")]
    assert len(rows) == 3 and {(row[0][:10], row[2]) for row in rows} == {("-rw-------", "0")}, shown
