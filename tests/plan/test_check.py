"""ivarodectl check: it says "ends" if and only if the daemon that ships does, and names file, section and option."""

import itertools
import json
import os
import pathlib
import subprocess
from typing import Any

import pytest

from tests.plan import configurations, planning
from tests.plan.scenario_files import Files

TOOL = planning.BUILD / "bin/ivarodectl"
SAMPLE, MANY = 24, 100      # files in the ordinary run; good and broken ones each in a long run

Facts = dict[str, Any]


def run(*words: object, path: str = f"{TOOL.parent}:{os.environ['PATH']}") -> subprocess.CompletedProcess[str]:
    return subprocess.run([str(word) for word in (TOOL, "check", *words)], capture_output=True, text=True, timeout=60,
                          check=False, env={**os.environ, "PATH": path})


def facts(*words: object) -> Facts:
    done = run("--json", *words)
    assert done.stderr == "", done.stderr
    told: Facts = json.loads(done.stdout)
    clean = told["starts"] and not told["problems"] and not told.get("daemon", {"says": []})["says"]
    assert done.returncode == (0 if clean else 1)
    return told


def agrees(folder: pathlib.Path, files: Files) -> bool:
    """Whether the daemon starts, for both of them."""
    folder.mkdir()
    told = facts(*files.write(folder))
    assert told["starts"] == told["daemon"]["starts"], (files, told)
    assert told["starts"] != any(problem["effect"] == "ends" for problem in told["problems"])
    return bool(told["starts"])


def test_it_says_ends_where_the_daemon_does(tmp_path: pathlib.Path, request: pytest.FixtureRequest) -> None:
    if not request.config.getoption("--long"):
        outcomes = {agrees(tmp_path / str(seed), files) for seed, files in enumerate(configurations.some(SAMPLE))}
        assert outcomes == {True, False}
        return
    good = broken = 0
    for seed in itertools.count(SAMPLE):
        if agrees(tmp_path / str(seed), configurations.Generator(seed).files()):
            good += 1
        else:
            broken += 1
        if min(good, broken) >= MANY:
            return


@pytest.mark.parametrize("config", planning.CONFIGS, ids=lambda config: config.name)
def test_the_samples_are_good(config: pathlib.Path) -> None:
    told = facts("--board", planning.ROOT / "lab/boards/two-wan.json", "--config", config)
    assert told["problems"] == [] and told["starts"]


LAN = "config interface 'lan1'\n\toption ipaddr '192.168.1.1'\n\toption netmask '255.255.255.0'\n"
VLANS = "".join(f"config interface 'lan2_{n}'\n\toption vlanid1 '{100 + n}'\n" for n in range(12))


def lan(option: str, value: str) -> tuple[str, str]:
    return "lan_intf", f"config interface 'lan2'\n\toption ipaddr '10.0.0.1'\n\toption {option} '{value}'\n"


def wan(option: str, value: str, proto: str = "static") -> tuple[str, str]:
    protocol = f"\toption proto '{proto}'\n" if option != "proto" else ""
    return "wan_intf", f"config interface 'wan1'\n{protocol}\toption {option} \"{value}\"\n"


def route(option: str, value: str) -> tuple[str, str]:
    good = {"enable": "1", "line": "auto", "dstaddr": "10.20.0.0", "netmask": "255.255.0.0", "gateway": "192.168.1.2"}
    lines = "".join(f"\toption {name} '{text}'\n" for name, text in (good | {option: value}).items())
    return "route_config", "config route 'r1'\n" + lines


# Package and text, the section and option that are named, the effect.
MISTAKES = [
    (lan("ipaddr", "192.168.1"), "lan2", "ipaddr", "ends"),
    (lan("netmask", "255.0.255.0"), "lan2", "netmask", "ends"),
    (("lan_intf", "config interface 'lan2'\n\toption netmask '255.0.0.0'\n"), "lan2", "netmask", "ends"),
    (lan("vlanid1", "0"), "lan2", "vlanid1", "ends"),
    (lan("vlanid1", "4095"), "lan2", "vlanid1", "ends"),
    (lan("vlanid1", "4092"), "lan2", "vlanid1", "broken"),
    (lan("vlanid1", "65636"), "lan2", "vlanid1", "taken"),
    (lan("vlanid1", "70"), None, None, ""),
    (lan("vlanid2", "7"), "lan2", "vlanid2", "ignored"),
    (lan("mac", "03:00:5e:00:53:01"), "lan2", "mac", "ends"),
    (lan("mac", "2:0:5e"), "lan2", "mac", "taken"),
    (lan("enable", "yes"), "lan2", "enable", "taken"),
    (lan("gateway", "10.0.0.2"), "lan2", "gateway", "ignored"),
    (("lan_intf", LAN + "\tlist mac '02:00:5e:00:53:01'\n"), "lan1", "mac", "ignored"),
    (("lan_intf", LAN.replace("lan1", "lan9")), "lan9", None, "ends"),
    (("lan_intf", LAN.replace("lan1", "lan1_a_long_name")), "lan1_a_long_name", None, "ends"),
    (("lan_intf", LAN.replace("lan1", "guest")), "guest", None, "ignored"),
    (("lan_intf", LAN.replace("interface", "device")), "lan1", None, "ignored"),
    (("lan_intf", LAN + LAN.replace("lan1", "lan1_b")), "lan1_b", None, "ends"),
    (("lan_intf", VLANS), "lan2_11", "vlanid1", "ends"),
    (("lan_intf", "config interface 'lan2\n"), None, None, "ends"),
    (wan("proto", "l2tp"), "wan1", "proto", "ends"),
    (wan("ipaddr", "10.0.0.300"), "wan1", "ipaddr", "ends"),
    (wan("gateway", "10.0.0.1 x"), "wan1", "gateway", "ends"),
    (wan("gateway", "there"), "wan1", "gateway", "broken"),
    (wan("defrt_pri", "500"), "wan1", "defrt_pri", "broken"),
    (wan("username", "it's", "pppoe"), "wan1", "username", "ends"),
    (wan("username", "a b", "pppoe"), "wan1", "username", "broken"),
    (wan("gateway", "10.0.0.1", "dhcp"), "wan1", "gateway", "ignored"),
    (("wan_intf", "config interface 'wan1_a_longer_'\n\toption proto 'pppoe'\n"), "wan1_a_longer_", None, "ends"),
    (("wan_intf", "config interface 'wan2'\n"), "wan2", None, "ends"),
    (("wan_intf", "package\n"), None, None, "ends"),
    (route("enable", "2"), "r1", "enable", "broken"),
    (route("line", "a-device-of-16-c"), "r1", "line", "broken"),
    (route("dstaddr", "10.20.0.1"), "r1", "dstaddr", "broken"),
    (route("gateway", "here"), "r1", "gateway", "broken"),
    (route("metric", "ten"), "r1", "metric", "taken"),
    (("route_config", "config route 'r1'\n\toption enable '1'\n"), "r1", "line", "broken"),
    (("route_config", "config\n"), None, None, "broken"),
]


@pytest.mark.parametrize("package, section, option, effect", MISTAKES, ids=range(len(MISTAKES)))
def test_a_mistake_is_named_where_it_is(package: tuple[str, str], section: str | None, option: str | None, effect: str,
                                        tmp_path: pathlib.Path) -> None:
    config = {"lan_intf": LAN, "wan_intf": "", "route_config": ""} | dict([package])
    for name, text in config.items():
        (tmp_path / name).write_text(text)
    told = facts("--board", planning.BOARD, "--config", tmp_path)
    found = [(problem["file"], problem.get("section"), problem.get("option"), problem["effect"])
             for problem in told["problems"]]
    if not effect:
        assert found == []
    else:
        assert (str(tmp_path / package[0]), section, option, effect) in found
    assert told["starts"] == (effect != "ends")
    assert "daemon" not in told or told["daemon"]["starts"] == told["starts"]


@pytest.mark.parametrize("package, effect", [("lan_intf", "ends"), ("wan_intf", "ends"), ("route_config", "broken")])
def test_a_missing_package(package: str, effect: str, tmp_path: pathlib.Path) -> None:
    for name in {"lan_intf", "wan_intf", "route_config"} - {package}:
        (tmp_path / name).write_text("")
    told = facts("--board", planning.BOARD, "--config", tmp_path)
    problem, = told["problems"]
    assert (problem["file"], problem["effect"]) == (str(tmp_path / package), effect)
    assert problem["what"] == "the file is missing"
    assert told["starts"] == told["daemon"]["starts"] == (effect != "ends")


PORT = {"num": 1, "role": "lan"}


@pytest.mark.parametrize("ports, key", [
    (None, "switch.switch0.ports"),
    ([], "switch.switch0.ports"),
    ([{"num": 1, "role": "dmz"}], "switch.switch0.ports[0].role"),
    ([PORT, PORT], "switch.switch0.ports[1].num"),
    ([PORT, {"num": 9, "role": "lan"}], "switch.switch0.ports[1].num"),
    ([{"num": 6, "role": "lan"}], "switch.switch0.ports"),
], ids=str)
def test_a_broken_board_file(ports: object, key: str, tmp_path: pathlib.Path) -> None:
    board = {"system": {"label_macaddr": "00:0c:43:10:20:30"}, "switch": {"switch0": {"ports": ports}}}
    told = facts(*Files(board, {"lan_intf": "", "wan_intf": "", "route_config": ""}).write(tmp_path))
    assert (str(tmp_path / "board.json"), key) in [(one["file"], one.get("section")) for one in told["problems"]]
    assert not told["starts"]


@pytest.mark.parametrize("words, said", [
    (("--config",), "nothing stands behind --config"),
    (("--config", planning.CONFIG, "--board", "/nowhere/board.json"), "/nowhere/board.json: No such file or directory"),
    (("--config", "/nowhere"), "/nowhere: No such file or directory"),
    (("--config", "/" + "x" * 1000), "xxx"),
    (("now",), "\"now\" is neither"),
    (("--boards", "x"), "unknown option \"--boards\""),
], ids=str)
def test_what_cannot_be_read_is_one_line_and_status_2(words: tuple[object, ...], said: str) -> None:
    done = run(*words)
    assert (done.returncode, done.stdout) == (2, "")
    assert said in done.stderr
    assert done.stderr.startswith("ivarodectl: ") and done.stderr.count("\n") == 1


def test_in_words(tmp_path: pathlib.Path) -> None:
    (tmp_path / "lan_intf").write_text(LAN.replace("lan1", "lan9"))
    (tmp_path / "wan_intf").write_text("")
    (tmp_path / "route_config").write_text("")
    broken = run("--board", planning.BOARD, "--config", tmp_path)
    assert broken.returncode == 1
    assert broken.stdout.splitlines()[0] == f"{tmp_path}/lan_intf, lan9: the board has no lan 9: the start ends here"
    assert "the daemon says: lan 9 get hw port error" in broken.stdout
    assert broken.stdout.splitlines()[-1] == "the daemon would not start"
    good = run("--board", planning.BOARD, "--config", planning.CONFIG)
    assert (good.returncode, good.stdout) == (0, "good, and the daemon starts with it\n")
    alone = run("--board", planning.BOARD, "--config", planning.CONFIG, path="/nowhere")
    assert (alone.returncode, alone.stdout) == (0, "good\n")
