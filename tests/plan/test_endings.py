"""What a plan says of a daemon that refuses, ends, falls or never ends; and the status that goes with it."""

import pathlib

import pytest

from tests.plan import planning

DOUBLES = {
    "repeats": "the daemon repeats its calls for ever, and was ended",
    "turns": "the daemon stood still or looped, and was ended",
    "stands": "the daemon stood still or looped, and was ended",
    "falls": "the daemon was ended by signal 11 (Segmentation fault)",
}


@pytest.mark.parametrize("behaviour", DOUBLES)
def test_a_daemon_that_never_ends_or_falls_is_status_1(behaviour: str) -> None:
    double = planning.BUILD / f"seam/daemon-that-{behaviour}"
    told = planning.plan(*planning.SAMPLE, "--daemon", double, *planning.call("status"))
    assert (told["status"], told["ending"]) == (1, DOUBLES[behaviour])
    assert told["not_reached"] == ["ivarode.intf status {}"]
    assert [phase["refused"] for phase in told["phases"]] == [True]


def test_a_start_that_ends_is_status_1_and_says_where_it_got(tmp_path: pathlib.Path) -> None:
    """Without wan_intf the LANs are there already, and nothing behind them."""
    for name in ("lan_intf", "route_config"):
        (tmp_path / name).write_bytes((planning.CONFIG / name).read_bytes())
    words = ("--board", planning.BOARD, "--config", tmp_path, "--link", "1=up")
    told = planning.plan(*words)
    start, = told["phases"]
    assert (told["status"], told["ending"]) == (1, "the daemon ended with status -3")
    assert planning.errors(start) == ["net interface wan  init err", "ivarode interface init  failed"]
    assert told["not_reached"] == ["link of port 1 up"]
    assert "lan3" in told["end"]["interfaces"] and "wan1" not in told["end"]["interfaces"]
    said = planning.run(*words).stdout
    assert "the daemon ended with status -3\nnot reached: link of port 1 up\n" in said


@pytest.mark.parametrize("words, status, changes", [
    (planning.call("port_add", name="lan9"), 1, []),
    (("--call", "ivarode.intf port_add"), 2, []),
    (("--call", "ivarode.intf port_add {\"name\": 5}"), 2, []),
    (("--call", "ivarode.intf frob"), 3, []),
    (("--call", "ombrine.run run"), 4, []),
    (planning.call("add", intf="lan2.x", ipaddr="192.168.7.1", netmask="255.255.255.0"), 1,
     ["device lan2.x = bridge", "up lan2.x"]),
], ids=str)
def test_a_refused_call_is_status_1_and_says_what_stays(words: tuple[str, ...], status: int,
                                                        changes: list[str]) -> None:
    told = planning.plan(*planning.SAMPLE, *words, *planning.call("status"))
    _, refused, asked = told["phases"]
    assert (told["status"], told["ending"], told["not_reached"]) == (1, "", [])
    assert (refused["refused"], refused["status"], refused["changes"]) == (True, status, changes)
    assert (asked["refused"], asked["status"]) == (False, 0), "the next request is served"
    said = planning.run(*planning.SAMPLE, *words).stdout
    for change in changes or ["nothing is changed"]:
        assert change in said[said.index("  stays"):]


def test_ports_of_a_lan_and_a_wan_on_one_vlan_are_status_3() -> None:
    lan = planning.call("add", intf="lan2_guest", vlanid1=100, ipaddr="192.168.7.1", netmask="255.255.255.0")
    wan = planning.call("add", intf="wan1_tv", vlanid1=100, proto="dhcp", defrt_pri="20002")
    told = planning.plan(*planning.SAMPLE, *lan, *wan)
    meeting, = told["phases"][2]["meetings"]
    assert told["status"] == 3 and told["phases"][1]["meetings"] == []
    assert meeting["ports"] == [0, 2]
    assert meeting["lan_and_wan"] and meeting["lasts"] and not meeting["by_layout"]
    done = planning.run(*planning.SAMPLE, "--quiet", *lan, *wan)
    assert done.returncode == 3
    assert "ports 0 (WAN 1) and 2 (LAN 2) meet, one a WAN's: ivarode.intf add" in done.stdout
    assert "and it stays so" in done.stdout


def test_ports_that_meet_outrank_a_refusal() -> None:
    wan = planning.call("add", intf="wan1_tv", vlanid1=100, proto="dhcp", defrt_pri="20002")
    lan = planning.call("add", intf="lan2_guest", vlanid1=100, ipaddr="192.168.7.1", netmask="255.255.255.0")
    told = planning.plan(*planning.SAMPLE, *wan, *lan)
    assert told["phases"][2]["refused"] and told["status"] == 3
