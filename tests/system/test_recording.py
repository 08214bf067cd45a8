"""A daemon that is recorded on the board, and the recording played back on this machine."""

from __future__ import annotations

import pathlib
import re
import time

import pytest

from labctl import cli, recordings, repetition
from tests.system import bus, peers
from tests.system.conftest import Machine
from tests.system.daemon import restart
from tests.system.held_lab import Lab

FILE = "/tmp/ivarode.rec"
RECORDED = ["daemon-preload /usr/lib/libivarode-record.so"]
KEPT = ["/etc/board.json", "/etc/config/lan_intf", "/etc/config/route_config", "/etc/config/wan_intf"]
PASSWORD = "Rumpelstilzchen"


@pytest.fixture(scope="module", autouse=True)
def own_programs(machine: Machine) -> None:
    if machine.mode == "mips":
        pytest.skip("a recording is played by programs of this machine")


def taken(lab: Lab, folder: pathlib.Path, file: str = FILE) -> pathlib.Path:
    """The recording as it is now."""
    copy = folder / "router.rec"
    copy.write_bytes(lab.get("router", file))
    return copy


def must_replay(lab: Lab, folder: pathlib.Path, file: str = FILE) -> list[str]:
    """That the daemon does the same on the recording; its lines."""
    copy = taken(lab, folder, file)
    verdict = recordings.play(copy)
    assert verdict.same and "overwritten" not in verdict.text, verdict.text
    return recordings.show(copy, None, None)


def requests(lab: Lab) -> None:
    bus.intf(lab, "port_add", name="lan3")
    bus.intf(lab, "status")
    bus.intf(lab, "statist")
    bus.route(lab, "add", name="r1", line="lan1", dstaddr="10.9.0.0", netmask="255.255.0.0", gateway="192.168.1.2",
              metric="5")
    bus.call(lab, "ivarode.pppuser", "add", username="bob", provider="isp", password=PASSWORD, ipaddr="10.0.0.9")
    bus.intf(lab, "port_del", name="lan3")


def wait_recorded(lab: Lab, folder: pathlib.Path, line: str) -> None:
    deadline = time.monotonic() + 20 * lab.pace
    while not any(record.text == line for record in recordings.records(taken(lab, folder))):
        assert time.monotonic() < deadline, line


@pytest.mark.parametrize("board, config", [("one-cpu", "home"), ("two-wan", "three-lans"), ("two-cpu", "one-lan")])
def test_what_happened_on_the_board_replays(machine: Machine, tmp_path: pathlib.Path, board: str, config: str) -> None:
    lab = machine.board(board, config, extra_plan=RECORDED)
    requests(lab)
    lines = must_replay(lab, tmp_path)
    assert any("> call ivarode.pppuser add" in line for line in lines)
    assert lab.shell("router", f"ls -l {FILE}").out.startswith("-rw------- ")
    assert PASSWORD.encode() not in lab.get("router", FILE)
    kept = repetition.Kept(tmp_path / "router.rec").files
    assert sorted(kept) == KEPT and kept == {name: lab.get("router", name).decode() for name in KEPT}


def wait_starts(lab: Lab, count: int) -> None:
    lab.shell("router", f"until [ $(grep -c 'ivarode init success' /var/log/messages) = {count} ]; do sleep 0.1; done",
              check=True, timeout=60)


def test_what_the_init_script_starts_is_recorded_and_a_death_replays(machine: Machine, tmp_path: pathlib.Path) -> None:
    """Confined as ever; the supervisor starts it again."""
    machine.spoiled()
    lab = machine.lab
    lab.raise_board("one-cpu", "home", ["no-daemon"])
    lab.ok("router", "sed", "-i", "s/^RECORD=0/RECORD=1/; s/^RECORD_KIB=1024/RECORD_KIB=256/; "
                                  "s/^RECORD_SECRETS=0/RECORD_SECRETS=1/", "/etc/init.d/ivarode")
    lab.ok("router", "/etc/init.d/ivarode", "start")
    wait_starts(lab, 1)
    confined = lab.shell("router", "grep -E '^(CapEff|CapBnd|NoNewPrivs|Seccomp):' /proc/$(pidof ivarode)/status").out
    assert confined.split()[1::2] == ["0000000000023000", "0000000000023000", "1", "2"]
    requests(lab)
    for state in ("down", "up"):
        lab.link(1, state == "up")
        wait_recorded(lab, tmp_path, f"> link 1 {state}")
    recording = lab.get("router", FILE)
    assert len(recording) == 256 * 1024 and PASSWORD.encode() in recording
    lab.shell("router", "kill -9 $(pidof ivarode)", check=True)
    before = must_replay(lab, tmp_path)
    assert not any("ends in order" in line for line in before)
    wait_starts(lab, 2)
    # The one before stays beside the one that is written.
    assert must_replay(lab, tmp_path, FILE + ".1") == before
    must_replay(lab, tmp_path)
    lab.ok("router", "/etc/init.d/ivarode", "stop", timeout=60)
    assert any("ends in order" in line for line in must_replay(lab, tmp_path))
    assert "recording to" not in lab.ok("router", "cat", "/var/log/messages")


def test_questions_in_a_row_are_left_out_and_the_rest_replays(machine: Machine, tmp_path: pathlib.Path) -> None:
    lab = machine.board("one-cpu", "home", extra_plan=RECORDED)
    ask = "for i in $(seq 60); do ubus call ivarode.intf statist >/dev/null; done"
    lab.shell("router", f"{ask}; sleep 7; {ask}", check=True, timeout=120 * lab.pace)
    bus.intf(lab, "port_add", name="lan3")
    bus.intf(lab, "statist")
    lines = must_replay(lab, tmp_path)
    assert any("questions and samples are left out" in line for line in lines)
    bus.intf(lab, "port_del", name="lan3")


def test_it_happens_again_on_a_board(machine: Machine, tmp_path: pathlib.Path,
                                     capsys: pytest.CaptureFixture[str]) -> None:
    lab = machine.board("two-wan", "dhcp-and-pppoe", extra_plan=RECORDED)
    lab.ok("isp", "dhcp-provider", "start", "eth0", "203.0.113.57", "203.0.113.57")
    peers.bound(lab, "wan1")
    requests(lab)
    lab.link(3, False)
    wait_recorded(lab, tmp_path, "> link 3 down")
    # One account that only this router knew.
    lab.put("router", "/etc/ppp/chap-secrets", "eve isp x 10.0.0.8\n", 0o600)
    assert bus.call(lab, "ivarode.pppuser", "del", username="eve", provider="isp")[0] == 0
    lab.ok("router", "ip", "address", "add", "10.77.0.1/24", "dev", "lan1")
    wait_recorded(lab, tmp_path, "> address 10.77.0.1")
    recording = taken(lab, tmp_path)
    assert b"secret2" not in recording.read_bytes()
    assert "option password '*******'" in repetition.Kept(recording).files["/etc/config/wan_intf"]
    events = [one.text for one in recordings.records(recording) if one.kind == "event" and one.text != "> timer"]
    asked = sum(text.startswith("> call ") for text in events)

    machine.spoiled()
    assert cli.main(["--name", lab.name, "replay", str(recording), "--board"]) == 1
    said = capsys.readouterr().out.splitlines()
    assert re.match(r"event \d+ is answered differently: > call ivarode.pppuser del {username: \"eve\"", said[0])
    assert said[1:] == ["  recorded: status 0", "  now:      status 9",
                        f"1 of {asked} answers differ; {len(events) - asked} links and addresses came"]
    assert peers.address(lab, "wan1") == ["203.0.113.57/24"] and "10.77.0.1/24" in peers.address(lab, "lan1")
    assert "bob" in lab.ok("router", "cat", "/etc/ppp/chap-secrets")


def test_what_another_user_has_put_there_is_not_touched(machine: Machine, tmp_path: pathlib.Path) -> None:
    lab = machine.board("one-cpu", "home", extra_plan=RECORDED)
    lab.ok("agent", "stop", "daemon", timeout=30)
    lab.shell("router", f"rm -f {FILE} {FILE}.1; echo mine >{FILE}; chown 65534 {FILE}", check=True)
    restart(lab)
    assert lab.get("router", FILE) == b"mine\n"
    assert f"recording to {FILE}: Operation not permitted" in lab.shell("router", "cat /var/log/messages").out
    machine.spoiled()
