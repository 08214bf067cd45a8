"""The lab's own tools, without a board."""

from __future__ import annotations

import json
import pathlib
import random
import subprocess
from typing import Any

import pytest

from labctl import boards, bus, capture, commands, completion, frames, messages, repetition, topology


def test_frames_survive_any_cut() -> None:
    rng = random.Random(7)
    sent = [(rng.randrange(1, 20), rng.randrange(1 << 32),
             rng.randbytes(rng.choice([0, 1, 9, 5000]))) for _ in range(200)]
    stream = b"".join(frames.pack(*item) for item in sent)
    reader = frames.Reader()
    received: list[tuple[int, int, bytes]] = []
    while stream:
        size = rng.choice([1, 3, 8, 9, 10, 4096])
        received += reader.feed(stream[:size])
        stream = stream[size:]
    assert received == sent


def test_a_frame_that_claims_too_much_is_refused() -> None:
    with pytest.raises(ValueError):
        list(frames.Reader().feed(frames.HEADER.pack(frames.PAYLOAD_MAX + 1, 1, 1)))
    with pytest.raises(ValueError):
        frames.words("a\0b")


@pytest.mark.parametrize("name, lans, wans, cpu_ports", [
    ("one-cpu", {1: 1, 2: 2, 3: 3, 4: 4}, {1: 0}, 1),
    ("two-wan", {1: 1, 2: 2, 3: 3, 4: 4}, {1: 0, 2: 4}, 1),
    ("two-cpu", {1: 1, 2: 2, 3: 3, 4: 4}, {1: 0}, 2),
])
def test_numbers_of_the_sample_boards(name: str, lans: dict[int, int], wans: dict[int, int], cpu_ports: int) -> None:
    board = boards.Board(name)
    assert (board.lans, board.wans, board.cpu_ports) == (lans, wans, cpu_ports)


def test_a_board_may_number_its_ports_itself(tmp_path: pathlib.Path) -> None:
    path = tmp_path / "own.json"
    ports = [{"num": 4, "role": "lan", "index": 2}, {"num": 3, "role": "lan"}, {"num": 0, "role": "wan", "index": 7},
             {"num": 1, "role": "wan"}, {"num": 6, "device": "eth0"}]
    path.write_text(json.dumps({"switch": {"switch0": {"ports": ports}}}))
    board = boards.Board(str(path))
    assert board.lans == {3: 4, 1: 3}
    assert board.wans == {1: 1, 2: 0}
    assert board.port("lan3") == 4 and board.port("wan2") == 0 and board.port("lan2") is None
    assert board.serves(4) == ["LAN 3"]


@pytest.mark.parametrize("text", ["", "{", "{}", '{"switch": 1}'])
def test_a_bad_board_file_is_named(tmp_path: pathlib.Path, text: str) -> None:
    path = tmp_path / "bad.json"
    path.write_text(text)
    with pytest.raises(boards.ConfigError, match="bad.json"):
        boards.Board(str(path))


def test_an_unknown_sample_is_told_with_those_there_are() -> None:
    with pytest.raises(boards.ConfigError, match="one-cpu, two-cpu, two-wan"):
        boards.Board("three-cpu")


def test_who_shares_a_lan() -> None:
    about = topology.Topology(boards.Board("one-cpu"), "home")
    assert about.lans == {1: ["pc1", "pc2", "pc4"], 3: ["pc3"]}
    assert about.same_lan() == ("pc1", "pc2") and about.two_lans() == ("pc1", "pc3")
    assert about.wans == {1: "isp"} and about.wan_address == {1: "203.0.113.2"}
    assert about.router == {1: "192.168.1.1", 3: "192.168.3.1"}
    apart = topology.Topology(boards.Board("two-wan"), "three-lans")
    assert apart.lans == {1: ["pc1"], 2: ["pc2"], 3: ["pc3"]} and apart.same_lan() is None
    assert apart.wans == {1: "isp", 2: "isp2"}


def test_a_double_tagged_frame_is_read() -> None:
    frame = bytes.fromhex("ffffffffffff" "021a00000001" "81000064" "81000007" "0806" "0001080006040001"
                          "021a00000001c0a80701" "000000000000c0a80702")
    seen = capture.Decoded(frame)
    assert (seen.vlans, seen.kind, seen.ip_src, seen.ip_dst) == ([100, 7], "ARP", "192.168.7.1", "192.168.7.2")
    assert "vlan 100 vlan 7 ARP who-has" in str(seen)


@pytest.mark.parametrize("size", range(0, 60, 7))
def test_a_cut_frame_is_read_as_far_as_it_goes(size: int) -> None:
    frame = (bytes(12) + b"\x81\x00\x00\x01\x08\x00\x45" + bytes(60))[:size]
    str(capture.Decoded(frame))


DHCP_REQUEST = bytes.fromhex("ffffffffffff" "021a00000001" "0800" "4500001c" "00000000" "4011" "0000" "00000000"
                             "ffffffff" "0044" "0043" "0008" "0000")


def test_a_frame_says_which_service_it_is_for() -> None:
    assert " UDP 0.0.0.0:68 > 255.255.255.255:67 DHCP (" in str(capture.Decoded(DHCP_REQUEST))
    later = bytearray(DHCP_REQUEST)
    later[21] = 1       # a later fragment has no ports
    assert " UDP 0.0.0.0 > 255.255.255.255 (" in str(capture.Decoded(bytes(later)))


@pytest.mark.parametrize("line, expected", [
    ("-v ubus -v list", {"verbose": True, "command": "ubus", "words": ["-v", "list"]}),
    ("--name x switch --json", {"name": "x", "command": "switch", "words": ["--json"]}),
    ("exec pc1 ls -la", {"host": "pc1", "words": ["ls", "-la"]}),
    ("kill -9 daemon", {"signal": 9, "what": "daemon"}),
    ("--name x kill broker", {"signal": 15, "what": "broker"}),
])
def test_command_lines(line: str, expected: Any) -> None:
    args = vars(commands.parse(line.split()))
    assert {key: args[key] for key in expected} == expected


@pytest.mark.parametrize("shown, said", [
    ('{name: "lan2", vlanid1: 100, intf: ["a", "b"]}', {"name": "lan2", "vlanid1": 100, "intf": ["a", "b"]}),
    (r'{a: "x\n\"\\ \xc3\xa4", b: 1:int8, c: null, d: {}, e: []}',
     {"a": 'x\n"\\ \u00e4', "b": True, "c": None, "d": {}, "e": []}),
    ("{low: -2147483648, high: 2147483648:int64}", {"low": -2147483648, "high": 2147483648}),
    ('{lan1: ["lan1", rx_bytes: "300"]}', {"lan1": ["lan1", "300"]}),
])
def test_a_message_as_json(shown: str, said: object) -> None:
    assert json.loads(messages.in_json(shown)) == said


@pytest.mark.parametrize("shown", [
    "{a: 5:int64}", "{a: 5:int16}", "{a: 2:int8}", '{a: "x":unterminated}', "{a: 1, a: 2}", r'{a: "\xff"}', "{a: ?}",
    "{a: 1", "{a: 1} more", "a message that is not well formed", "a text of 70000 bytes"])
def test_a_message_that_json_cannot_say(shown: str) -> None:
    with pytest.raises(messages.MessageError):
        messages.in_json(shown)


@pytest.mark.parametrize("line, expected", [
    ("call ivarode.run run", True), ("-t 5 call ivarode.run run {}", True), ("-S call ivarode.run run", False),
    ("call ivarode.run run -S", False), ("call", False), ("list call x", False), ("", False),
])
def test_which_words_are_a_call(line: str, expected: bool) -> None:
    assert bus.is_call(line.split()) == expected


@pytest.mark.parametrize("status, said, expected", [
    (254, "Command failed: ubus call a b {} (Invalid argument)\nUsage: ubus\n", (2, "Invalid argument")),
    (4, "Command failed: Not found\n", (4, "Not found")),
    (1, "Command failed: ubus call a b {} (Unknown error: -1)\n", (-1, "Unknown error")),
    (255, "Failed to connect to ubus\n", None),
])
def test_how_a_call_ended(status: int, said: str, expected: tuple[int, str] | None) -> None:
    assert bus.reason(status, said) == expected


def test_help_and_complaints_fit_a_terminal(capsys: pytest.CaptureFixture[str],
                                            monkeypatch: pytest.MonkeyPatch) -> None:
    monkeypatch.setenv("COLUMNS", "80")
    for words in (["--help"], ["no-such-command"]):
        with pytest.raises(SystemExit):
            commands.parser().parse_args(words)
        said = capsys.readouterr()
        lines = (said.out + said.err).splitlines()
        assert "capture" in said.out + said.err and max(map(len, lines)) < 80, max(lines, key=len)


@pytest.mark.parametrize("board, config, lines", [
    ("one-cpu", "home", []),
    ("one-cpu", "dhcp", ["nobody answers on WAN 1 yet; who does is started by",
                         "  lab/lab exec isp dhcp-provider start eth0 203.0.113.50 203.0.113.60"]),
])
def test_who_must_answer_a_wan(board: str, config: str, lines: list[str]) -> None:
    assert topology.Topology(boards.Board(board), config).unanswered() == lines


def test_a_configuration_without_hosts_is_refused_before_anything_is_touched(tmp_path: pathlib.Path) -> None:
    (tmp_path / "lan_intf").touch()
    with pytest.raises(boards.ConfigError, match="no file hosts"):
        boards.check("configs", str(tmp_path))


@pytest.mark.parametrize("line, expected", [
    ("st", "start status stop"), ("link 2 ", "down up"), ("exec i", "isp isp2"), ("chains ", "filter mangle nat"),
    ("--name x restart --no-wait d", "daemon"), ("up --config p", "pppoe"), ("log --s", "--stderr"), ("up --name ", ""),
    ("exec pc1 ", ""),
])
def test_words_are_completed(line: str, expected: str, tmp_path: pathlib.Path) -> None:
    words = ["lab/lab", *line.split(" ")]
    call = f"COMP_WORDS=({' '.join(repr(word) for word in words)}); COMP_CWORD={len(words) - 1}; _ivarode_lab"
    done = subprocess.run(["bash", "-uc", completion.script() + call + '; echo "${COMPREPLY[@]}"'], cwd=tmp_path,
                          capture_output=True, text=True, check=True)
    assert " ".join(sorted(done.stdout.split())) == expected and done.stderr == ""


def test_a_kept_configuration_may_be_broken() -> None:
    found = repetition.sections("config\nconfig interface 'lan1' # first\n\toption ipaddr \"192.168.1.1\"\n\toption\n"
                                "\toption netmask '255\nconfig interface\n\toption ipaddr 'none'\n")
    assert [(one.kind, one.name, one.options) for one in found] == [
        ("interface", "lan1", {"ipaddr": "192.168.1.1"}), ("interface", "", {"ipaddr": "none"})]
    assert [repetition.address_of(one.options, "ipaddr") for one in found] == ["192.168.1.1", ""]
