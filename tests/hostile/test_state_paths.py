"""The folders of the router's state, taken first by somebody else.

An image in which others may write to /var/run is not what we are made for. A mistake in it still gives nobody a file of
root's to change, to read or to remove."""

import itertools
from pathlib import Path

import pytest

from tests.docs import sandbox
from tests.hostile import world
from tests.hostile.obstacles import FRAME, OBSTACLES, SECRET

pytestmark = pytest.mark.skipif(sandbox.missing() is not None, reason=str(sandbox.missing()))

PLACES = ["/run/ivarode", "/run/ivarode/wan", "/run/ivarode/dns", "/run/ivarode/lease", "/run/ivarode/config"]
SCRIPTS = {
    "lease": world.lease(),
    "no lease": world.lease("deconfig"),
    "link up": world.link("up", "100.64.0.10", "198.51.100.254", DNS1="198.51.100.9"),
    "link down": world.link("down", "100.64.0.10", "198.51.100.254"),
    "login": world.link("up", "10.99.0.1", "10.99.0.2", "pptp", "ppp7", PEERNAME="alice"),
    "clean-up": "/lib/ivarode/cleanup.sh 2>>/root/errors || :\n",
    "start": "/etc/init.d/ivarode start 2>>/root/errors || :\n",
    "stop": "/etc/init.d/ivarode stop 2>>/root/errors || :\n",
}
# Those that would write or remove there; the others need not look.
STATEFUL = {"lease", "no lease", "link up", "link down", "clean-up", "stop"}


@pytest.mark.parametrize("place", PLACES)
def test_nothing_is_done_through_a_folder_that_is_not_roots(tmp_path: Path, place: str) -> None:
    parent = place.rpartition("/")[0]
    script = f"{SECRET}{FRAME}etc >/root/before\n"
    tried = list(itertools.product(OBSTACLES, SCRIPTS))
    for obstacle, name in tried:
        script += f"""
rm -rf /run/ivarode; mkdir -p {parent}; chmod 777 {parent}
{OBSTACLES[obstacle].format(path=place)}
chmod 755 {parent}; ls -lAnR {place} >/root/laid 2>&1
: >/root/calls
{SCRIPTS[name]}
echo "== {obstacle}, {name}"
etc | diff /root/before - && ls -lAnR {place} 2>&1 | diff /root/laid - && echo untouched
cat /root/calls
"""
    found = world.run(script, tmp_path).split("== ")[1:]
    assert len(found) == len(tried)
    for part, (obstacle, name) in zip(found, tried):
        assert "\nuntouched\n" in part and "secret of root" not in part, part
        if name in STATEFUL:
            assert f"daemon.err nothing is done with /var{place}: it is not a folder of root's" in part, part
        assert name != "start" or "ubus call service set " in part, part
