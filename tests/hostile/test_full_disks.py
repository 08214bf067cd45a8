"""Disks that are full or cannot be written, and scripts that are killed at each of their steps: a file is old or new,
and whole, and the log says what was not written."""

from pathlib import Path

import pytest

from tests.docs import sandbox
from tests.hostile import world

pytestmark = pytest.mark.skipif(sandbox.missing() is not None, reason=str(sandbox.missing()))

OTHER = {"dns": "198.51.100.7", "ip": "203.0.113.51"}

# A small disk of its own below a folder, with what the folder held.
DISKS = """
disk() {
    mkdir -p "$1" /root/moved && cp -a "$1"/. /root/moved
    mount -t tmpfs -o size=1m small "$1"
    chmod 755 "$1" && cp -a /root/moved/. "$1"
}
full() { dd if=/dev/zero of="$1/filler" bs=4k 2>/dev/null || :; }
frozen() { mount -o remount,ro "$1"; }
"""


spoilt = pytest.mark.parametrize("spoil, reason", [("full", "No space left on device"),
                                                   ("frozen", "Read-only file system")])


@spoilt
def test_state_that_cannot_be_written_stays_and_is_told(tmp_path: Path, spoil: str, reason: str) -> None:
    script = f"""{DISKS}{world.lease()}: >/root/calls
disk /run/ivarode
{spoil} /run/ivarode
{world.lease("renew", **OTHER)}"""
    names = "ls -A /run/ivarode/wan /run/ivarode/dns /run/ivarode/lease >/root/names\n"
    left = world.attacks({"lease": script + names,
                          "names": "cp /root/names /etc/resolv.conf\n"}, tmp_path)
    lease = left["lease"]
    assert lease["wan"] == "203.0.113.51/24" and lease["default"].startswith("default via 203.0.113.1")
    assert lease["resolver"] == "nameserver 198.51.100.9;" and "ipaddr=203.0.113.50;" in lease["row"]
    assert reason in lease["log"] and ": bound" not in lease["log"]
    assert "incomplete, without record resolver row;" in lease["log"]
    assert "ivarode;" not in left["names"]["resolver"], "no half of a file is left"


@spoilt
@pytest.mark.parametrize("where", ["/tmp/resolv.conf.d", "/etc"])
def test_a_resolver_that_cannot_be_written_stays_and_is_told(tmp_path: Path, where: str, spoil: str,
                                                             reason: str) -> None:
    """A full /tmp has emptied it, and the log said that all was well."""
    file = f"{where}/resolv.conf" + (".auto" if where != "/etc" else "")
    step = f"{DISKS}disk {where}\n{world.lease()}: >/root/calls\n{spoil} {where}\n{world.lease('renew', **OTHER)}"
    look = f"cat {file} >/root/calls; ls -A {where} | grep ivarode >>/root/calls || :\n"
    left = world.attacks({"lease": step, "file": look}, tmp_path)
    assert left["file"]["log"] == "nameserver 198.51.100.9;"
    assert f"{file} is not written: " in left["lease"]["log"] and reason in left["lease"]["log"]
    assert "incomplete, without resolver;" in left["lease"]["log"] and "ipaddr=203.0.113.51;" in left["lease"]["row"]


def test_a_resolver_that_is_mounted_into_place_keeps_its_text_on_a_full_disk(tmp_path: Path) -> None:
    step = f"""{DISKS}disk /root/disk
: >/root/disk/resolv.conf
mount --bind /root/disk/resolv.conf /etc/resolv.conf
{world.lease()}cat /etc/resolv.conf >/root/first
full /root/disk
: >/root/calls
{world.lease("renew", dns=" ".join("198.51.100.7" for _ in range(400)))}"""
    left = world.attacks({"lease": step, "first": "cat /root/first >/root/calls\n"}, tmp_path)
    assert left["first"]["log"] == left["lease"]["resolver"] == "nameserver 198.51.100.9;"
    assert "/etc/resolv.conf is not written: " in left["lease"]["log"] and "without resolver;" in left["lease"]["log"]


def test_a_renewal_that_changes_nothing_needs_no_room(tmp_path: Path) -> None:
    step = DISKS + world.lease() + "disk /run/ivarode\nfull /run/ivarode\n: >/root/calls\n" + world.lease("renew")
    left = world.attacks({"lease": step}, tmp_path)["lease"]
    assert left["log"].endswith(": bound;") and left["log"].count("logger") == 1


def test_the_login_database_is_whole_or_not_there(tmp_path: Path) -> None:
    out = world.run(DISKS + """
disk /tmp
full /tmp
/lib/ivarode/database.sh 2>&1 || echo refused
find /tmp -type f ! -name filler
rm /tmp/filler
/lib/ivarode/database.sh
cmp /tmp/calmora/db/net_stat.db /usr/share/ivarode/net_stat.db && echo whole
""", tmp_path)
    assert "/tmp/calmora/db/net_stat.db is not written: " in out and "No space left on device" in out
    assert out.splitlines()[-2:] == ["refused", "whole"]


# Each program that changes something counts its calls, and the one whose turn it is kills all of the script instead.
KILLER = """
: >/root/step
for name in cat chmod mv rm mkdir ip flock; do
    cat >/stub/$name <<END
#!/bin/sh
echo >>/root/step
[ "\\$(/usr/bin/wc -l </root/step)" != "\\$(/usr/bin/cat /root/deadly)" ] || kill -KILL 0
exec /usr/bin/$name "\\$@"
END
    /usr/bin/chmod 755 /stub/$name
done
killed_at() { echo "$1" >/root/deadly; : >/root/step; }
"""


def test_a_script_that_is_killed_at_any_step_leaves_old_or_new(tmp_path: Path) -> None:
    new = world.environment(world.GOOD | OTHER) + " setsid -w /lib/ivarode/empty.sh renew 2>>/root/errors || :\n"
    old = world.lease("renew")
    out = world.run(f"""{KILLER}
killed_at 0
{world.lease()}
: >/root/step
{new}
steps=$(wc -l </root/step)
for step in $(seq $((steps + 1))); do            # the last of them is not reached
    killed_at 0
    {old}
    killed_at $step
    {new}
    echo "$step|$(tr '\\n' ';' </etc/resolv.conf)|$(tr '\\n' ';' </run/ivarode/wan/wan1)|$(cat /run/ivarode/lease/wan1)"
done
killed_at 0
{world.lease("renew", **OTHER)}
show end
find /run/ivarode /etc -name '*.ivarode*'
""", tmp_path)
    rounds, _, end = out.partition("== end\n")
    seen = [line.split("|") for line in rounds.splitlines()]
    assert len(seen) > 15
    rows = {f"name=wan1;proto=dhcp;ipaddr=203.0.113.{host};netmask=255.255.255.0;gateway=203.0.113.1;"
            f"addr4=198.51.100.{server};addr5=0.0.0.0;" for host, server in ((50, 9), (51, 7))}
    for step, resolver, found, held in seen:
        assert resolver in ("nameserver 198.51.100.9;", "nameserver 198.51.100.7;"), step
        assert found in rows and held in ("203.0.113.50/24", "203.0.113.51/24"), step
    assert len({found for _, _, found, _ in seen}) == 2 and len({resolver for _, resolver, _, _ in seen}) == 2
    assert "wan 203.0.113.51/24" in end and "resolver nameserver 198.51.100.7;" in end
    assert end.splitlines()[-1].startswith("log "), "the next writer takes away what was left half done"
