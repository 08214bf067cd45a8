"""The examples of the books, run on the virtual board from top to bottom as a reader would."""

from __future__ import annotations

import pathlib
import re
import shlex
import shutil
import time
from collections.abc import Callable

import pytest

from tests.docs import books, sandbox
from tests.docs.board import LAB, PATIENCE, PAUSE, run, until


def test_the_comparison_can_fail() -> None:
    assert books.matcher(["a", "...", "d"]).match("a\nb\nc\nd\n")
    assert books.matcher(["a", "..."]).match("a\n")
    assert not books.matcher(["a", "...", "d"]).match("a\nb\nd\ne\n")
    assert not books.matcher([]).match("a\n")


def test_the_bus_book(lab: None) -> None:
    for line, command, expected in books.examples("bus.md"):
        wanted = books.matcher(expected)
        deadline = time.monotonic() + PATIENCE
        while True:
            status, out, err = run(command)
            if status == 0 and wanted.match(out):
                break
            # A request is made once; what it leads to may be looked at until it shows.
            once = " ubus call " in command and not re.search(r" (statist|status)\b", command)
            if once or time.monotonic() > deadline:
                pytest.fail("\n".join([f"docs/bus.md:{line}: {command}", f"status {status}", out + err, "expected",
                                       *expected]))
            time.sleep(PAUSE)


STATE = ("ip -br -4 addr; ip -4 rule; ip -4 route show table all | grep -v 'table local'; "
         "for t in filter nat mangle; do iptables -w -t $t -S; done")


def state() -> list[str]:
    status, out, err = run("lab/lab exec router sh -c " + shlex.quote(STATE))
    assert status == 0, err
    lines = re.sub(r"@\S+|fe80\S*", "", out).splitlines()
    rules = [line for line in lines if line.startswith("-")]        # whose order counts
    return sorted(line for line in lines if line not in rules) + rules


def test_clean_up_leaves_a_bare_router_and_a_start_lays_the_same_again(lab: None) -> None:
    assert run("lab/lab restart daemon")[0] == 0
    until(lambda: run("lab/lab ubus call ivarode.run run")[0] == 0 and any("20001:" in line for line in state()))
    before = state()
    assert run("lab/lab stop daemon")[0] == 0
    status, out, err = run("lab/lab exec router /lib/ivarode/cleanup.sh")
    assert (status, out, err) == (0, "", "")
    looked = "ip -br link show type bridge; ip -br link show type vlan"
    left = run("lab/lab exec router sh -c " + shlex.quote(looked))[1]
    bare = [line for line in state() if not line.startswith("-P ")]
    assert left == "" and [line for line in bare if re.search(r"lan|wan|\b(10000|10001|20001)\b|^-[NA]", line)] == []
    assert run("lab/lab start daemon")[0] == 0
    until(lambda: run("lab/lab ubus call ivarode.run run")[0] == 0 and state() == before)


def book_configuration(folder: pathlib.Path) -> None:
    """The packages that the configuration book gives as examples."""
    for package in ("lan_intf", "wan_intf", "route_config"):
        section = books.sections(books.text("configuration.md"))[f"Package `{package}`"]
        (folder / package).write_text(books.find(r"```\n(config .*?)```", section)[1])


def image_configuration(folder: pathlib.Path) -> None:
    for path in (sandbox.IMAGE / "etc/config").iterdir():
        shutil.copy(path, folder)


def outcome(command: str) -> str:
    return run("lab/lab " + command)[1]


@pytest.mark.parametrize("source, wanted", [
    (book_configuration, {
        "exec router ip -br -4 addr": r"lan1 +UP +192\.168\.1\.1/24 *\n(.*\n)*lan2_guest +UP +192\.168\.100\.1/24",
        "switch": r"\n +5 +100 +\. \. t \. \. \. t",
        "instances": r'"pppoec,20001"(.*\n)*.*"user@provider"',
        "exec router ip route show table 10000": r"10\.20\.0\.0/16 via 192\.168\.1\.254 dev lan1 proto 105 metric 10"}),
    (image_configuration, {
        "exec router ip -br -4 addr": r"lan1 +UP +192\.168\.1\.1/24",
        "instances": r'"/sbin/udhcpc"(.*\n)*.*"20001"',
        "exec router cat /var/run/ivarode/wan/wan1": r"name=wan1\nproto=dhcp"}),
], ids=["configuration book", "image"])
def test_sample_configurations_bring_up_the_board(lab: None, tmp_path: pathlib.Path,
                                                  source: Callable[[pathlib.Path], None],
                                                  wanted: dict[str, str]) -> None:
    source(tmp_path)
    shutil.copy(LAB.parent / "configs/one-lan/hosts", tmp_path)
    status, out, err = run("lab/lab up --board one-cpu --config " + shlex.quote(str(tmp_path)))
    assert status == 0, out + err
    for command, pattern in wanted.items():
        deadline = time.monotonic() + PATIENCE
        while not re.search(pattern, outcome(command)):
            assert time.monotonic() < deadline, (command, pattern, outcome(command))
            time.sleep(PAUSE)
