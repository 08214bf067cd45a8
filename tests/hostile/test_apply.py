"""ivarodectl apply, killed at each of its steps, with a machine that loses power there, and on a full disk: afterwards
the old or the new configuration is there, whole, and when the time is over the old."""

import re
import subprocess

import pytest

from tests.docs import sandbox
from tests.runners import BUILD, ROOT

pytestmark = [
    pytest.mark.skipif(sandbox.missing() is not None, reason=str(sandbox.missing())),
]

# A router's files on a small disk, what the daemon was started with, and what the operator has made of it: one package
# changed, one new, one gone.
ROUTER = f"""
set -eu
tool={BUILD}/bin/ivarodectl
ivarodectl() {{ "$tool" "$@"; }}
mount -t tmpfs run /run
mount -t tmpfs -o mode=1777 tmp /tmp
mount -t tmpfs -o size=128k disk /etc
mkdir -p /etc/config /etc/init.d /run/ivarode/config /run/old /run/new
cp {ROOT}/lab/boards/one-cpu.json /etc/board.json
old_lan="config interface 'lan1'\\n\\toption ipaddr '192.168.1.1'\\n"
printf "$old_lan" >/run/old/lan_intf
echo "config interface 'wan1'" >/run/old/wan_intf
printf "$old_lan" | sed s/192.168/10.20/ >/run/new/lan_intf
cp /run/old/wan_intf /run/new
: >/run/new/route_config
cp /run/old/* /run/ivarode/config
cp /run/new/* /etc/config
cat >/etc/init.d/ivarode <<'INIT'
#!/bin/sh
echo "$1" >>/run/actions
INIT
chmod 755 /etc/init.d/ivarode
# The service is there, as far as its lock says.
guarded() {{
    flock -o /run/ivarode/guard.lock sleep 120 &
    holder=$!
    until [ -e /run/ivarode/guard.lock ] && ! flock -n /run/ivarode/guard.lock true; do :; done
}}
unguarded() {{ kill $holder; wait $holder 2>/dev/null || :; }}
# Which configuration is there.
which() {{
    for name in old new; do
        ! diff -r /run/$name /etc/config >/dev/null || {{ echo "$name"; return; }}
    done
    echo mixed
    ls -lR /etc/config /etc/ivarode
}}
left() {{ ls -A /etc/ivarode 2>/dev/null | tr '\\n' ' '; }}
# Another run of the machine: its disk is what it was, and nothing else.
reboot() {{
    cat /proc/sys/kernel/random/uuid >/run/boot_id
    umount /proc/sys/kernel/random/boot_id 2>/dev/null || :
    mount --bind /run/boot_id /proc/sys/kernel/random/boot_id
    rm -rf /run/ivarode/apply.* /run/actions
    ivarodectl rollback boot >/dev/null
}}
# The time is over: the service takes back.
expire() {{
    [ ! -e /etc/ivarode/backup ] || sed -i 's/ .*/ 0/' /etc/ivarode/backup/until
    "$tool" guard 2>/run/said &
    guard=$!
    while [ -n "$(ls -A /etc/ivarode 2>/dev/null)" ]; do
        [ -e /proc/$guard ] || {{ cat /run/said; exit 1; }}
    done
    kill $guard
    wait $guard 2>/dev/null || :
}}
again() {{
    rm -rf /etc/ivarode /run/actions
    rm -f /etc/config/*
    cp /run/new/* /etc/config
}}
"""


def run(script: str) -> str:
    command = ["unshare", "--mount", "--net", "--ipc", "--pid", "--fork", "--kill-child", "--mount-proc",
               "--propagation", "private", "sh", "-c", ROUTER + script]
    done = subprocess.run(command, capture_output=True, text=True, timeout=120, check=False)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


def test_an_applied_configuration_stays_when_it_is_confirmed() -> None:
    out = run("""guarded
ivarodectl apply --confirm 20; which; left; cat /run/actions; stat -c '%a %n' /etc/ivarode /etc/ivarode/backup/*
ivarodectl confirm; which; left; echo; ivarodectl confirm || echo "status $?"
reboot; which; unguarded
""")
    assert out == ("good\napplied; goes back in 20 s unless: ivarodectl confirm\nnew\nbackup reload\n"
                   "700 /etc/ivarode\n600 /etc/ivarode/backup/lan_intf\n600 /etc/ivarode/backup/route_config.absent\n"
                   "600 /etc/ivarode/backup/until\n600 /etc/ivarode/backup/wan_intf\n"
                   "confirmed\nnew\n\nstatus 1\nnew\n")


def test_it_goes_back_in_time_and_on_demand_and_at_boot() -> None:
    out = run("""guarded
for way in expire reboot 'ivarodectl rollback'; do
    again; ivarodectl apply >/dev/null
    case $way in expire) unguarded ;; esac
    $way; which; cat /run/actions 2>/dev/null || echo none; left; echo
    case $way in expire) rm /run/ivarode/guard.lock; guarded ;; esac
done
unguarded
""")
    assert out == ("old\nreload\nreload\n\nold\nnone\n\n"
                   "the configuration before the change is back\nold\nreload\nreload\n\n")


def test_a_second_apply_keeps_the_first_way_back() -> None:
    out = run("""guarded
ivarodectl apply >/dev/null
cp /etc/config/* /run/ivarode/config
sed -i s/10.20/10.30/ /etc/config/lan_intf
ivarodectl apply --confirm 500
ivarodectl rollback; which
unguarded
""")
    assert out.splitlines()[1] == "applied; goes back in 500 s unless: ivarodectl confirm"
    assert out.splitlines()[-1] == "old"


@pytest.mark.parametrize("before, reason", [
    ("unguarded; rm /run/ivarode/guard.lock", "nobody would take the change back: start /etc/init.d/ivarode-guard"),
    ("mkdir /tmp/.uci; echo x >/tmp/.uci/lan_intf", "lan_intf has changes that are not committed: uci commit or uci"),
    ("sed -i s/lan1/lan9/ /etc/config/lan_intf", "the daemon would not start; nothing is changed"),
    ("rm -r /run/ivarode/config", "/etc/init.d/ivarode has kept none, restart the daemon by it; nothing is changed"),
    ("mkdir -p /etc/ivarode/rollback", "a change is being taken back; nothing is changed"),
    ("dd if=/dev/zero of=/etc/filler bs=4k 2>/dev/null || :", "no way back can be kept: No space left on device;"),
])
def test_what_it_refuses_changes_nothing(before: str, reason: str) -> None:
    out = run(f"""guarded
{before}
cp -r /etc/config /run/before
ivarodectl apply 2>&1 || echo "status $?"
diff -r /run/before /etc/config && echo same
cat /run/actions 2>/dev/null || echo none
[ ! -e /etc/ivarode/backup ] && echo clean
[ ! -e /run/ivarode/guard.lock ] || unguarded
""")
    assert reason in out
    assert out.endswith("status 1\nsame\nnone\nclean\n")


def test_the_way_back_needs_no_room() -> None:
    out = run("""guarded
ivarodectl apply >/dev/null
dd if=/dev/zero of=/etc/filler bs=4k 2>/dev/null || :
ivarodectl rollback; which; left
unguarded
""")
    assert out == "the configuration before the change is back\nold\n"


def test_a_reload_that_fails_takes_back_at_once() -> None:
    out = run("""guarded
echo '[ "$1" != reload ]' >>/etc/init.d/ivarode
ivarodectl apply 2>&1 || echo "status $?"
which; left; cat /run/actions
unguarded
""")
    assert out == ("ivarodectl: the reload failed with status 1, see /var/run/ivarode/apply.log; the change is taken "
                   "back\n"
                   "good\nnothing is applied\nstatus 1\nold\nreload\nreload\nrestart\n")


# Calls of the kernel that change something, each with its number among those of its name.
CALLS = ("rename", "mkdir", "rmdir", "unlink", "unlinkat", "fsync", "write", "execve")


@pytest.mark.parametrize("command", ["apply", "rollback", "confirm", "rollback boot"])
def test_killed_at_any_step_it_is_the_old_or_the_new(command: str) -> None:
    """Then once the power goes, and once only the time goes by."""
    before = "" if command == "apply" else "ivarodectl apply >/dev/null"
    out = run(f"""
for call in {' '.join(CALLS)}; do
    number=1
    while :; do
        again; guarded; {before}
        case '{command}' in *boot) sed -i 's/^/x/' /etc/ivarode/backup/until ;; esac
        : >/run/trace
        strace -f -o /run/trace -e trace=$call -e inject=$call:signal=KILL:when=$number "$tool" {command} \\
            >/dev/null 2>&1 || :
        unguarded; rm /run/ivarode/guard.lock
        grep -q 'killed by SIGKILL' /run/trace || break
        rm -rf /run/disk; cp -a /etc /run/disk
        echo "$call $number power: $(reboot; which)"
        rm -rf /etc/config /etc/ivarode; cp -a /run/disk/config /etc; cp -a /run/disk/ivarode /etc 2>/dev/null || :
        pending=$(left)
        [ ! -e /etc/ivarode/backup ] && [ ! -e /etc/ivarode/rollback ] || expire
        echo "$call $number time: $(which) of $pending"
        number=$((number + 1))
    done
done
""")
    found = re.findall(r"^(\w+) (\d+) (power|time): (\w+)(.*)$", out, re.M)
    assert len(found) == len(out.splitlines()) and len(found) >= 12, out
    for call, number, event, which, rest in found:
        assert which in ("old", "new"), (call, number, event, rest)
        if event == "time":
            pending = re.search(r"backup |rollback ", rest) is not None
            assert which == "old" if pending else True, (call, number, rest)
    assert {which for *_, which, _ in found} == ({"old", "new"} if command in ("apply", "confirm") else {"old"})
