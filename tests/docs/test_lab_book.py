"""The commands of the lab's book and what the porting book says to look at, on the board of the other examples."""

from __future__ import annotations

import json
import pathlib
import re
import shlex
from typing import Any

import pytest

from labctl import client
from tests.docs import board, books

# What each command of the book's table is tried with, and what must be in its output.
TRIED: dict[str, list[tuple[str, str]]] = {
    "up": [("up --board one-cpu --config home", "")],
    "status": [("status", r"board one-cpu, configuration home(.*\n)*.*PVID 4091(.*\n)*.*lan1 +up +192\.168\.1\.1/24")],
    "link": [("link 2 down", ""), ("status", "port 2 .* no link"), ("link 2 up", "")],
    "exec": [("exec pc1 busybox ping -c 1 -W 5 192.168.1.1", "1 packets received")],
    "ubus": [("ubus call ivarode.run run", ""), ("ubus list ivarode.*", "ivarode.intf")],
    "switch": [("switch", r"\n +1 +4091 +\. u u \. u \. t")],
    "routes": [("routes", r"\A(?!(.*\n)*.* table local )(.*\n)*default via 203\.0\.113\.1 dev wan1 table 20001"),
               ("routes local", r"local 192\.168\.1\.1 dev lan1")],
    "rules": [("rules", r"20001:\s+from all lookup 20001")],
    "chains": [("chains", r"nat\n +PREROUTING\n +-j ipt_prert_nat_rules_1"), ("chains filter", r"\Afilter\n")],
    "instances": [("instances", r"\{\s*\}")],
    "log": [("log", "ivarode init success"), ("log --stderr", "notice: ivarode init success"),
            ("log -n 1", r"\A.*\n\Z")],
    "capture": [("capture 1 -c 1", r" > .* bytes\)")],
    "stop": [("stop daemon", ""), ("services", r"(?m)^daemon (?!running)")],
    "start": [("start daemon", "the daemon was ready"), ("services", r"(?m)^daemon running")],
    "restart": [("exec router iptables -t nat -F POSTROUTING", ""), ("chains", "not hooked: "),
                ("exec router sysctl -w net.ipv4.ip_forward=0", "= 0"),
                ("restart daemon", "the daemon was ready"), ("exec router sysctl net.ipv4.ip_forward", "= 1"),
                ("ubus call ivarode.run run", ""),
                ("chains", r"\A(?!(.*\n)*.*not hooked)")],
    "reload": [("reload daemon", "nothing to do")],
    "kill": [("kill -9 daemon", ""), ("services", r"(?m)^daemon (?!running)"), ("start daemon", "")],
    "services": [("services", r"broker running \d+\ndaemon running \d+\nsiblings running \d+")],
    "completion": [("completion", r"complete -F _ivarode_lab lab/lab\n\Z")],
    "record": [],   # these two in test_field_book and in test_recording of the system
    "replay": [],
    "web": [],      # in tests/web
    "down": [],     # the last test
}


def commands() -> list[str]:
    """The names of the commands in the book's table, in order."""
    table = next(t for t in books.tables(books.text("lab.md")) if t[0] == ["command", "what it does"])
    names = []
    for row in table[1:]:
        for code in books.code(row[0]):
            names += re.sub(r"^lab/lab ", "", code).split()[0].split("\\|")
    return names


def test_every_command_of_the_book_is_tried() -> None:
    assert set(commands()) == set(TRIED)


@pytest.mark.parametrize("name", [name for name in TRIED if TRIED[name]])
def test_commands_do_what_the_book_says(lab: None, name: str) -> None:
    for command, wanted in TRIED[name]:
        seen: tuple[int, str, str] = (0, "", "")

        def shown() -> object:
            nonlocal seen
            seen = board.run("lab/lab " + command)
            return seen[0] == 0 and re.search(wanted, seen[1])

        try:
            board.until(shown)
        except AssertionError:
            pytest.fail(f"lab/lab {command}: status {seen[0]}\n{seen[1]}{seen[2]}\nexpected {wanted}")


@pytest.mark.parametrize("command, status, said", [
    ("exec router ivarodectl switch --json", 0, ""),
    ("exec nobody true", 1, r"no host is named nobody \(there are router, pc1, .*isp, agent, machine\)"),
    ("exec pc1 nix", 127, "pc1 has no command nix"),
    ("exec agent nix", 2, "the board's commands are: services, hosts, "),
    ("start daemon", 1, r"\Alab/lab: daemon is running already\n\Z"),
    ("ubus call ivarode.intf port_add {}", 2,
     r"\Alab/lab: ubus answered with status 2 \(Invalid argument\); the reason is in lab/lab log\n\Z"),
    ("ubus call ivarode.intf nix", 3, r"\Alab/lab: ubus answered with status 3 \(Method not found\)\n\Z"),
    ("ubus call nobody nix", 4, r"status 4 \(Not found\)\n\Z"),
    ("--name nolab status", 1, r"\Alab/lab: lab nolab is not up \(lab/lab --name nolab up\)\n\Z"),
])
def test_what_a_command_says_when_it_fails(lab: None, command: str, status: int, said: str) -> None:
    found = board.run("lab/lab " + command)
    assert found[0] == status and re.search(said, found[2]), found


def test_the_log_is_in_lines(lab: None) -> None:
    """As a log daemon has them, without the ends that the texts of the daemon have."""
    assert board.run("lab/lab ubus call ivarode.intf port_add {}")[0] == 2
    status, out, err = board.run("lab/lab log -n 1")
    assert status == 0 and re.fullmatch(r" *[\d.]+ err ivarode\[\d+\]: l3 port add  interface name error\n", out), out


def test_the_examples_of_the_operators_tool(lab: None) -> None:
    for line, command, expected in books.examples("ivarodectl.md"):
        _, out, err = board.run(command)
        assert books.matcher(expected).match(out), f"docs/ivarodectl.md:{line}: {command}\n{out}{err}"


@pytest.mark.parametrize("words", ["--board nix", "--config nix"])
def test_a_board_or_configuration_that_is_not_there_changes_nothing(lab: None, words: str) -> None:
    status, out, err = board.run("lab/lab up " + words)
    assert (status, out) == (1, "") and " is named nix (there are " in err
    assert board.run("lab/lab status")[0] == 0


def test_the_example_of_a_test_passes(lab: None) -> None:
    source = books.find(r"```python\n(.*?)```", books.text("lab.md"))[1]
    names: dict[str, Any] = {}
    exec(compile(source, "docs/lab.md", "exec"), names)
    tests = [value for name, value in names.items() if name.startswith("test_")]
    assert len(tests) == 1
    tests[0](client.Lab(board.NAME))


def test_what_to_look_at_when_something_is_odd(lab: None) -> None:
    table = next(t for t in books.tables(books.text("lab.md")) if t[0] == ["sign", "look at"])
    looks = [code for row in table[1:] for code in books.code(row[1]) if code.startswith("lab/lab ")]
    looks = [code for code in looks if "<" not in code and " -v up" not in code and not code.endswith("capture")]
    assert any("switch.sock status" in code for code in looks) and len(looks) >= 4
    for code in looks:
        status, out, err = board.run(code)
        assert status == 0 and out, (code, err)
    state = client.Lab(board.NAME).state
    names = re.findall(r"`(\w+\.log)`", " ".join(row[1] for row in table))
    assert names and [name for name in names if not (state / name).exists()] == []


def porting(heading: str) -> str:
    return books.sections(books.text("porting.md"))[heading]


def test_the_porting_books_look_at_the_privileges(lab: None) -> None:
    command = books.find(r"```\n(grep .*?)\n```", porting("Privileges"))[1]
    status, out, err = board.run("lab/lab exec router sh -c " + shlex.quote(command))
    assert status == 0, err
    assert out.split() == ["CapEff:", "0000000000023000", "CapBnd:", "0000000000023000", "NoNewPrivs:", "1",
                           "Seccomp:", "2"]


def first_start() -> tuple[list[str], str]:
    """The commands of a first start, with the end of the log that is promised."""
    block = books.find(r"```\n(.*?)```", porting("First start"))[1]
    return [re.split(r"\s{3,}", line)[0] for line in block.splitlines()], books.find(r'ends with "(.*?)"', block)[1]


def test_the_porting_books_first_start(lab: None) -> None:
    steps, promised = first_start()
    # The lab is its own supervisor and keeps its own log.
    here = {"/etc/init.d/ivarode start": "start daemon", "logread -e ivarode": "log"}
    assert set(here) <= set(steps) and len(steps) > len(here)
    assert board.run("lab/lab stop daemon")[0] == 0
    for step in steps:
        command = "lab/lab " + here.get(step, "exec router " + step)
        board.until(lambda: board.run(command)[0] == 0)
        if step.startswith("logread"):
            board.until(lambda: board.run(command)[1].splitlines()[-1].endswith(promised))
    assert board.run("lab/lab exec router ivarodectl debug off")[0] == 0


def test_the_porting_books_board_comes_up(lab: None, tmp_path: pathlib.Path) -> None:
    described = json.loads(books.find(r"```json\n(.*?)```", books.text("porting.md"))[1])
    assert described["ivarode"].pop("gpio")     # lines of a chip that the virtual board has not got
    (tmp_path / "board.json").write_text(json.dumps(described))
    status, out, err = board.run("lab/lab up --config home --board " + shlex.quote(str(tmp_path / "board.json")))
    assert status == 0, out + err
    board.until(lambda: re.search(r"eth1\.\d+@eth1 +UP", board.run("lab/lab exec router ip -br link")[1]))
    device = board.run("lab/lab exec router ip -br link show eth0.4091")[1]
    first, rest = described["system"]["label_macaddr"].split(":", 1)
    assert f"{int(first, 16) + 2:02x}:{rest}" in device


def test_a_lab_that_is_down_is_gone(lab: None) -> None:
    assert board.run("lab/lab down")[0] == 0
    status, out, err = board.run("lab/lab services")
    assert status != 0 and out == "" and "not up" in err
