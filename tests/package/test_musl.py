"""Daemon and platform library on musl, the C library of most images: they compile without a warning, daemon and bus
libraries link against it, and the daemon answers there on the bus, byte for byte as the one of this machine."""

import concurrent.futures
import os
import pathlib
import shutil
import subprocess

import pytest

from tests.docs import sandbox
from tests.package import common, musl

pytestmark = pytest.mark.skipif(not musl.AVAILABLE, reason="musl-tools is not installed")

WORLD = """
set -eu
mount -t tmpfs none /run
mount -t tmpfs none /dev/shm
mount --bind "$folder/etc" /etc
[ ! -e /dev/log ] || mount --bind /dev/null /dev/log
PATH=$folder/bin:/usr/sbin:/usr/bin:/sbin:/bin
mkdir -p /run/ubus
"$programs/ubusd" &
"$programs/small-peer" serve &
"$programs/small-peer" call ombrine.run run >/dev/null
"$daemon" 2>"$folder/said" &
while read -r line; do
    eval "\\"$programs/small-peer\\" call $line" || { cat "$folder/said" >&2; exit 1; }
done <"$folder/calls"
"""
# A call, and its status.
CALLS = [("ivarode.run run", 0), ("ivarode.intf status", 0), ("ivarode.intf statist", 0),
         ("ivarode.intf port_dump 'port#2'", 0), ("ivarode.intf port_dump 'port#9'", 2),
         ("ivarode.intf port_add name=lan2", 0), ("ivarode.intf port_add", 2), ("ivarode.intf port_add name=wan7", 1),
         ("ivarode.intf add intf=lan2_guest vlanid1#100 ipaddr=192.168.100.1 netmask=255.255.255.0", 0),
         ("ivarode.intf enable intf+lan2_guest 'enable#0'", 0), ("ivarode.intf del intf+lan2_guest", 0),
         ("ivarode.route add name=r1 line=wan1 dstaddr=192.0.2.0 netmask=255.255.255.0 gateway=10.0.0.1 metric=9", 0),
         ("ivarode.route del name+r1", 0), ("ivarode.route add name=r2", 2),
         ("ivarode.pppuser add username=alice 'provider=*' 'password=s3 cret' ipaddr=10.99.0.2", 0),
         ("ivarode.pppuser del username=alice 'provider=*'", 0), ("ivarode.intf status", 0)]


@pytest.fixture(scope="module")
def words(tmp_path_factory: pytest.TempPathFactory) -> list[str]:
    return musl.compiler(tmp_path_factory.mktemp("others"))


def test_every_source_compiles(words: list[str], tmp_path: pathlib.Path) -> None:
    line = musl.Linker(tmp_path, words, []).words
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        done = list(pool.map(lambda path: subprocess.run([*line, "-fsyntax-only", path], capture_output=True,
                                                         text=True), common.SOURCES))
    failed = [f"{path.relative_to(common.ROOT)}\n{result.stderr[:2000]}"
              for path, result in zip(common.SOURCES, done) if result.returncode]
    assert not failed, "\n".join(failed)


def test_the_recording_compiles(words: list[str]) -> None:
    folders = [common.ROOT / "src", common.RECORDING, common.RECORDING.parent, *common.BUS_HEADERS]
    sources = [*common.RECORDING.glob("*.cpp"), *common.RECORDING.parent.glob("calls/*.cpp")]
    common.run(*words, *common.FLAGS, *(f"-I{folder}" for folder in folders), "-fsyntax-only", *sources)


@pytest.fixture(scope="module")
def linked(words: list[str], tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    """A folder with daemon, bus libraries, platform library on a small board, broker and its peer."""
    linker = musl.Linker(tmp_path_factory.mktemp("musl"), words, ["musl-gcc"])
    linker.stand_ins()
    daemon = linker.daemon()
    linker.platform(musl.asked_for(daemon))
    linker.link("ivarode", daemon, ("sys", "ubus", "ubox"))
    linker.broker()
    linker.peer()
    return linker.folder


@pytest.fixture(scope="module")
def usual(linked: pathlib.Path, tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    """The same platform library and peer on the C library of this machine, beside the bus libraries of the build."""
    linker = musl.Linker(tmp_path_factory.mktemp("usual"), ["g++"], ["gcc"])
    for name in musl.STANDINS:
        (linker.folder / name).symlink_to(common.BUILD / "lib" / name)
    linker.platform(musl.asked_for([linked / "ivarode"]))
    linker.peer()
    (linker.folder / "ubusd").symlink_to(common.BUILD / "bin/ubusd")
    return linker.folder


def test_nothing_of_another_c_library_is_asked_for(linked: pathlib.Path) -> None:
    for name in ("ivarode", "libsys.so", *musl.STANDINS, "ubusd", "small-peer"):
        assert set(common.needed(linked / name)) <= {"libc.so", "libsys.so", *musl.STANDINS}, name
    for name in ("ivarode", "ubusd", "small-peer"):
        assert str(musl.LOADER) in common.run("readelf", "-l", linked / name)


def answers(programs: pathlib.Path, daemon: pathlib.Path, folder: pathlib.Path) -> list[str]:
    """What the daemon answers, each as bytes and status, with a private bus, network and configuration."""
    shutil.copytree(common.ROOT / "lab/configs/home", folder / "etc/config")
    for name in ("etc/ppp", "bin"):
        (folder / name).mkdir()
    (folder / "etc/passwd").write_text("root:x:0:0:root:/root:/bin/sh\n")
    (folder / "etc/group").write_text("root:x:0:\n")
    iptables = folder / "bin/iptables"
    iptables.write_text('#!/bin/sh\ncase "$*" in *-S*) echo "-P PREROUTING ACCEPT" ;; esac\n')
    iptables.chmod(0o755)
    (folder / "calls").write_text("".join(f"{call}\n" for call, _ in CALLS))
    said = common.run("unshare", "--mount", "--net", "--ipc", "--pid", "--fork", "--kill-child", "sh", "-c", WORLD,
                      env={**os.environ, "folder": str(folder), "programs": str(programs), "daemon": str(daemon),
                           "LD_LIBRARY_PATH": str(programs)}, timeout=120)
    return said.splitlines()


@pytest.mark.skipif(sandbox.missing() is not None, reason=str(sandbox.missing()))
def test_the_daemon_answers_there_as_here(linked: pathlib.Path, usual: pathlib.Path, tmp_path: pathlib.Path) -> None:
    there = answers(linked, linked / "ivarode", tmp_path / "there")
    here = answers(usual, common.BUILD / "bin/ivarode", tmp_path / "here")
    assert [(call, answer.rpartition(" ")[2]) for (call, _), answer in zip(CALLS, here)] == \
        [(call, str(status)) for call, status in CALLS]
    assert there == here
    assert b"link" in bytes.fromhex(here[1].split()[0]), "a question is among them"
