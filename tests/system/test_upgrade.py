"""New files below a running router, older ones as well, by the scripts of the image builder's packages.

--older REVISION: an upgrade from that revision of the tree, whose daemon and platform library are built for it; without
it an ordinary run takes the files that are there for both.
"""

from __future__ import annotations

import pathlib
import subprocess
from collections.abc import Iterator
from typing import TYPE_CHECKING

import pytest

from labctl import checks, paths
from tests.package import common
from tests.system import bus, state, traffic
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

DAEMON, LIBRARY = "/usr/sbin/ivarode", "/usr/lib/libsys.so"
INIT = "PKG_UPGRADE=1 /etc/init.d/ivarode "
Files = dict[str, bytes]


@pytest.fixture(scope="module")
def lab(machine: Machine) -> Iterator[Lab]:
    lab = machine.board("one-cpu", "home", fresh=True)
    machine.spoiled()
    # from the board's own supervisor to that of the router, which runs the package's scripts
    lab.ok("agent", "kill", "daemon", "9")
    lab.ok("router", "/etc/init.d/ivarode", "start")
    ready(lab)
    yield lab
    lab.ok("router", "/etc/init.d/ivarode", "stop", timeout=60)


def ready(lab: Lab) -> None:
    """As soon as it answers, its event loop has looked at the links."""
    lab.ok("router", "ubus", "-t", 90 * lab.pace, "wait_for", "ivarode.run", timeout=100)
    assert bus.call(lab, "ivarode.run", "run")[0] == 0


def built(folder: pathlib.Path) -> Files:
    return {DAEMON: (folder / "bin/ivarode").read_bytes(), LIBRARY: (folder / "lib/libsys.so").read_bytes()}


@pytest.fixture(scope="module")
def here(machine: Machine) -> Files:
    return built(paths.programs_dir(machine.mode))


@pytest.fixture(scope="module")
def older(request: pytest.FixtureRequest, machine: Machine, here: Files,
          tmp_path_factory: pytest.TempPathFactory) -> Files:
    revision = request.config.getoption("older")
    if not revision:
        return here
    if machine.mode == "mips":
        pytest.skip("an older tree is built for this machine alone")
    tree = tmp_path_factory.mktemp("older")
    packed = subprocess.run(["git", "-C", common.ROOT, "archive", revision], capture_output=True, check=True).stdout
    subprocess.run(["tar", "-x", "-C", tree], input=packed, check=True)
    common.run("cmake", "-S", tree, "-B", tree / "build", "-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release")
    common.run("cmake", "--build", tree / "build", "--target", "ivarode", "sys")
    return built(tree / "build")


def processes(lab: Lab) -> list[str]:
    return lab.ok("router", "pidof", "ivarode").split()


def replaced(lab: Lab, files: Files) -> None:
    """As a package manager does: the old files stay for those who have them open."""
    for path, content in files.items():
        lab.put("router", path + ".new", content, 0o755)
        lab.ok("router", "mv", path + ".new", path)


def look_new(lab: Lab, before: list[str]) -> None:
    """Another process, which has nothing open that a package has taken away."""
    ready(lab)
    (now,) = processes(lab)
    assert now not in before
    maps = lab.ok("router", "cat", f"/proc/{now}/maps")
    assert LIBRARY in maps and f"{LIBRARY} (deleted)" not in maps and f"{DAEMON} (deleted)" not in maps


def look_as_it_was(lab: Lab, before: dict[str, object]) -> None:
    assert {part: value for part, value in state.everything(lab).items() if before[part] != value} == {}


def test_upgraded_and_downgraded_below_traffic(lab: Lab, here: Files, older: Files) -> None:
    """Both packages at once, from the older files to these and back, and then the library alone."""
    replaced(lab, older)
    lab.shell("router", INIT + "start", check=True, timeout=120)
    ready(lab)
    before = state.settled(lab)
    streams = [traffic.Stream("LAN to WAN", "pc2", checks.INTERNET, rarely=True),
               traffic.Stream("connection", "pc4", checks.INTERNET, traffic.ECHO_PORT, rarely=True)]
    for files in (here, older):
        old = processes(lab)
        with traffic.Traffic(lab, streams) as through:
            lab.shell("router", INIT + "stop", check=True, timeout=120)
            replaced(lab, files)
            lab.shell("router", INIT + "start", check=True, timeout=120)
            look_new(lab, old)
        print(through.told())
        assert through.figures["connection"].lost == 0
        # what an older library loses, and lets out, when it starts is its own
        assert files is not here or (through.inside == 0 and through.leaked == []), through.told()
        look_as_it_was(lab, before)


def test_a_new_library_alone(lab: Lab, here: Files) -> None:
    replaced(lab, here)
    before, old = state.settled(lab), processes(lab)
    lab.shell("router", "PKG_UPGRADE=1\nexport PKG_UPGRADE\n" + common.library_script(), check=True, timeout=120)
    look_new(lab, old)
    look_as_it_was(lab, before)
