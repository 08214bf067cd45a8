"""Fixed names in folders that everybody may write to, taken first by somebody else: as a file, a link, a folder, a
pipe. Nothing of root's is changed, nothing is read into a log, and every program works or says why it does not."""

import os
import subprocess
from pathlib import Path

import pytest

from tests.docs import sandbox
from tests.hostile import world
from tests.hostile.obstacles import FRAME, OBSTACLES, SECRET
from tests.runners import BUILD

pytestmark = pytest.mark.skipif(sandbox.missing() is not None, reason=str(sandbox.missing()))

obstacles = pytest.mark.parametrize("obstacle", OBSTACLES)


@obstacles
def test_the_resolvers_file_is_not_written_through_anybodys_path(tmp_path: Path, obstacle: str) -> None:
    out = world.run(f"""{SECRET}
ln -sf /tmp/resolv.conf /etc/resolv.conf
{OBSTACLES[obstacle].format(path="/tmp/resolv.conf")}
etc >/root/before
{world.lease()}
etc | diff /root/before - && echo untouched
ls -lAn /tmp; cat /root/calls /root/errors
ip -4 route show table 20001
""", tmp_path)
    assert "untouched\n" in out and "ivarode." not in out and "secret of root" not in out
    assert "/tmp/resolv.conf is not written: what is in its place is not a file of root's" in out
    assert "incomplete, without resolver" in out and "default via 203.0.113.1" in out


@pytest.mark.parametrize("leads", ["", "echo >/tmp/resolv.conf", "rm -r /var; ln -s tmp /var; ln -s /run /tmp/run"])
def test_the_resolvers_file_is_written_where_root_has_led_it(tmp_path: Path, leads: str) -> None:
    path = "/var/resolv.conf" if "var" in leads else "/tmp/resolv.conf"
    out = world.run(f"""{leads}
ln -sf {path} /etc/resolv.conf
{world.lease()}cat /root/calls /tmp/resolv.conf
""", tmp_path)
    assert out.endswith(": bound\nnameserver 198.51.100.9\n")


@obstacles
def test_no_part_of_the_way_to_the_resolvers_file_is_anybodys(tmp_path: Path, obstacle: str) -> None:
    out = world.run(f"""{SECRET}
ln -sf /tmp/way/resolv.conf /etc/resolv.conf
{OBSTACLES[obstacle].format(path="/tmp/way")}
etc >/root/before
{world.lease()}
etc | diff /root/before - && echo untouched
find /tmp -name '*resolv*'
cat /root/calls
""", tmp_path)
    assert "untouched\n" in out and "incomplete, without resolver" in out
    assert "/tmp/way/resolv.conf is not written: others could lead it elsewhere" in out
    assert "\n/tmp/way/resolv.conf\n" not in out


@obstacles
def test_a_caching_resolvers_folder_counts_only_when_it_is_roots(tmp_path: Path, obstacle: str) -> None:
    out = world.run(f"""{SECRET}
{OBSTACLES[obstacle].format(path="/tmp/resolv.conf.d")}
etc | grep -v resolv.conf >/root/before
{world.lease()}
etc | grep -v resolv.conf | diff /root/before - && echo untouched
find /tmp -name '*auto*'; tail -n 1 /root/calls; cat /etc/resolv.conf
""", tmp_path)
    assert out.startswith("untouched\n") and "auto" not in out
    assert out.endswith(": bound\nnameserver 198.51.100.9\n")


@obstacles
@pytest.mark.parametrize("part", ["/tmp/calmora", "/tmp/calmora/db", "/tmp/calmora/db/net_stat.db"])
def test_the_login_database_is_not_laid_on_anybodys_path(tmp_path: Path, obstacle: str, part: str) -> None:
    way = f"nobody mkdir -p {os.path.dirname(part)}\n" if part != "/tmp/calmora" else ""
    out = world.run(f"""{SECRET}{way}{OBSTACLES[obstacle].format(path=part)}
etc >/root/before
/lib/ivarode/database.sh 2>/root/said && echo laid || echo refused
etc | diff /root/before - && echo untouched
cat /root/said
""", tmp_path)
    assert out.startswith("refused\nuntouched\nivarode: /tmp/calmora")


@obstacles
def test_the_init_script_frees_the_names_of_the_debug_objects(tmp_path: Path, obstacle: str) -> None:
    out = world.run(f"""{SECRET}{FRAME}
{OBSTACLES[obstacle].format(path="/dev/shm/ivarode-debug")}
echo mine >/dev/shm/ivarode-records
etc >/root/before
/etc/init.d/ivarode start
etc | diff /root/before - && echo untouched
ls -A /dev/shm | tr '\\n' ' '; echo; cat /dev/shm/ivarode-records; cat /root/calls
""", tmp_path)
    left = "ivarode-debug ivarode-records" if obstacle == "full folder" else "ivarode-records"
    assert out.startswith(f"untouched\n{left} \nmine\n")
    assert "daemon.err /dev/shm/ivarode-debug is in the way, and not a file of root's" in out
    assert "ubus call service set " in out, "the start goes on"


# The programs themselves, in their own mounts; no bus is there, so that the daemon ends with its third step.
NAKED = """
set -e
mount -t tmpfs -o mode=1777 shm /dev/shm
mount -t tmpfs run /run
mount -t tmpfs -o mode=1777 tmp /tmp
nobody() { setpriv --reuid=65534 --regid=65534 --clear-groups -- "$@"; }
mkdir /run/etc
echo 'secret of root' >/run/etc/secret
"""


def programs(script: str) -> str:
    command = ["unshare", "--mount", "--net", "--ipc", "--pid", "--fork", "--kill-child", "--propagation", "private",
               "sh", "-c", NAKED + script]
    done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)
    assert done.returncode == 0, done.stdout + done.stderr
    return done.stdout


@obstacles
@pytest.mark.parametrize("name", ["ivarode-debug", "ivarode-records"])
def test_the_daemon_does_without_the_debug_objects(obstacle: str, name: str) -> None:
    lay = OBSTACLES[obstacle].format(path=f"/dev/shm/{name}").replace("/etc", "/run/etc")
    out = programs(f"""{lay}
ls -lAn /dev/shm /run/etc >/run/before
{BUILD}/bin/ivarode 2>&1 || echo "status $?"
{BUILD}/bin/ivarodectl debug on 2>&1 || echo "status $?"
nobody {BUILD}/bin/ivarodectl debug on 2>&1 || echo "status $?"
cat /run/etc/secret
ls -lAn /run/etc
""")
    assert f"warning: /dev/shm/{name} cannot be used, ivarodectl sees nothing of it: " in out
    assert "debug init failed" not in out and "status 253" in out, "the next step is reached: there is no bus"
    assert f"ivarodectl: /dev/shm/{name}: " in out
    assert out.count("secret of root") == 1 and "made" not in out


def test_another_users_tool_leaves_nothing_in_the_daemons_way() -> None:
    out = programs(f"""nobody {BUILD}/bin/ivarodectl debug on 2>&1 || echo "status $?"
ls -A /dev/shm
{BUILD}/bin/ivarode 2>&1 || true
""")
    assert "status 1" in out and "warning" not in out
