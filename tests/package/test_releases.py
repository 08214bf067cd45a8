"""What the README promises on a bare Debian: on the releases that this machine is not, a clone installs what it needs,
builds and passes its unit tests there. A long run, which needs root, debootstrap and the archive of this machine."""

import os
import pathlib
import platform
import re
import shutil
import subprocess
from collections.abc import Iterator

import pytest

from tests.docs import sandbox
from tests.package import common

RELEASES = {"bookworm": "12", "trixie": "13"}
MINUTES = 60
INSIDE = """
set -eu
mount --bind "$1" "$1"
mount -t proc proc "$1/proc"
mount --rbind /dev "$1/dev"
exec chroot "$1" /usr/bin/env -i HOME=/root LANG=C.UTF-8 PATH=/usr/sbin:/usr/bin:/sbin:/bin \\
    sh -c "cd /root/ivarode && ./test --only unit"
"""


def archive() -> str:
    """Where this machine has its own packages from."""
    targets = subprocess.run(["apt-get", "indextargets", "--format", "$(ORIGIN) $(COMPONENT) $(REPO_URI)",
                              "Identifier: Packages"], capture_output=True, text=True, check=False).stdout
    found = re.search(r"^Debian main (\S+/debian/?)$", targets, re.M)
    return found[1] if found else ""


def test_the_readme_names_the_releases() -> None:
    assert f"| system | Debian {' or '.join(RELEASES.values())}, " in (common.ROOT / "README.md").read_text()


@pytest.fixture
def root(tmp_path: pathlib.Path) -> Iterator[pathlib.Path]:
    """The folder of a whole system, which is too large to be kept."""
    yield tmp_path / "root"
    shutil.rmtree(tmp_path / "root", ignore_errors=True)


@pytest.mark.long
@pytest.mark.skipif(sandbox.missing() is not None, reason=str(sandbox.missing()))
@pytest.mark.skipif(not shutil.which("debootstrap"), reason="debootstrap is not installed")
@pytest.mark.parametrize("release", [name for name in RELEASES
                                     if name != platform.freedesktop_os_release().get("VERSION_CODENAME")])
def test_a_clone_builds_and_passes_there(release: str, root: pathlib.Path) -> None:
    source = archive()
    if not source:
        pytest.skip("apt knows no archive of Debian here: run apt-get update")
    common.run("debootstrap", "--variant=minbase", "--include=git,ca-certificates", release, root, source)
    shutil.copy("/etc/resolv.conf", root / "etc/resolv.conf")
    common.run("git", "clone", "-q", common.ROOT, root / "root/ivarode")
    out = common.run("unshare", "--mount", "--pid", "--fork", "--kill-child", "sh", "-c", INSIDE, "inside", root,
                     timeout=MINUTES * 60, env=dict(os.environ))
    assert re.search(r"^[1-9]\d* passed, 0 failed, \d+ skipped$", out.splitlines()[-1]), out[-3000:]
