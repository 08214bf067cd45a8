"""Fixed paths in folders that everybody may write to: nobody who was there first leads root's programs astray."""

import pathlib

import pytest

from tests.docs import sandbox
from tests.package import common

pytestmark = pytest.mark.skipif(sandbox.missing() is not None, reason=str(sandbox.missing()))

SERVERS = """
mkdir -p /run/ivarode/wan
. /lib/ivarode/wan.sh
wan_dns wan1 dhcp 20001 203.0.113.9
echo "own $(cat /etc/resolv.conf)"
"""


def test_resolvers_folder_of_root_is_used(tmp_path: pathlib.Path) -> None:
    out = sandbox.run("mkdir -m 755 /tmp/resolv.conf.d" + SERVERS + "cat /tmp/resolv.conf.d/resolv.conf.auto", tmp_path)
    assert out == "own \nnameserver 203.0.113.9\n"


@pytest.mark.parametrize("trap", ["mkdir /root/trap; ln -s /root/trap /tmp/resolv.conf.d",
                                  "mkdir /root/trap; mkdir -m 777 /tmp/resolv.conf.d",
                                  "mkdir /root/trap; mkdir -m 775 /tmp/resolv.conf.d",
                                  "mkdir /root/trap; mkdir /tmp/resolv.conf.d; chown 65534 /tmp/resolv.conf.d",
                                  "mkdir /root/trap; echo >/tmp/resolv.conf.d"])
def test_resolvers_folder_of_somebody_else_is_not(tmp_path: pathlib.Path, trap: str) -> None:
    out = sandbox.run(trap + SERVERS + "ls -A /root/trap; ! ls /tmp/resolv.conf.d/*.auto 2>/dev/null", tmp_path)
    assert out == "own nameserver 203.0.113.9\n"


@pytest.mark.parametrize("trap, kept", [("echo secret >/root/file; ln -s /root/file $area", "secret"),
                                        ("echo theirs >$area; chown 65534 $area; ln $area /dev/shm/file", "theirs")])
def test_debug_area_of_somebody_else_is_refused(tmp_path: pathlib.Path, trap: str, kept: str) -> None:
    files = [common.BUILD / "bin/ivarodectl", *(common.BUILD / "lib").glob("*.so")]
    out = sandbox.run(f"""
mount -t tmpfs -o mode=1777 shm /dev/shm
area=/dev/shm/ivarode-debug
export LD_LIBRARY_PATH=/stub
ivarodectl debug on && echo fine; ls -ln $area | cut -c-10; rm $area
{trap}
ivarodectl debug on 2>&1 || echo "status $?"
cat /root/file /dev/shm/file 2>/dev/null || :
""", tmp_path, files=files).splitlines()
    assert out[:2] == ["fine", "-rw-------"]
    assert out[-2].startswith("status ") and out[-1] == kept
