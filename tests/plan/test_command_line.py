"""Every option, and what is wrong with each: status 2, one line that names it, and nothing on standard output."""

import os
import pathlib
import pty
import subprocess
from typing import Any

import pytest

from tests.plan import planning

NOBODY = 65534
WRONG = {
    ("--frob",): 'unknown option "--frob"',
    ("-x",): 'unknown option "-x"',
    ("--board",): 'a value is missing behind "--board"',
    ("--call",): 'a value is missing behind "--call"',
    ("--json=1",): 'unknown option "--json=1"',
    ("extra",): 'unknown argument "extra"',
    ("--json", "--quiet"): "--json and --quiet exclude each other",
    ("--from", "yesterday"): '--from wants clean, now, or a file with a slash in its name: "yesterday"',
    ("--diff", "--from", "now"): "--diff compares with a clean start: it takes no steps, and no --from but a file",
    ("--diff", "--link", "1=up"): "--diff compares with a clean start: it takes no steps, and no --from but a file",
    ("--link", "5=up"): '--link wants a front port, 0 to 4, and up or down: "5=up"',
    ("--link", "2"): '--link wants a front port, 0 to 4, and up or down: "2"',
    ("--link", "2=on"): '--link wants a front port, 0 to 4, and up or down: "2=on"',
    ("--link", "=up"): '--link wants a front port, 0 to 4, and up or down: "=up"',
    ("--link", "2=up=up"): '--link wants a front port, 0 to 4, and up or down: "2=up=up"',
    ("--address", "1.2.3"): '--address wants an IPv4 address: "1.2.3"',
    ("--address", ""): '--address wants an IPv4 address: ""',
    ("--call", "ivarode.intf"): '--call wants an object, a method and a message in JSON: "ivarode.intf"',
    ("--call", ""): '--call wants an object, a method and a message in JSON: ""',
}
NO_MESSAGES = ['{"a":1', "[]", "5", "{a}", '{"a":1} x', "'", '{"a":}']


@pytest.mark.parametrize("words", WRONG, ids=" ".join)
def test_wrong_usage_is_named(words: tuple[str, ...]) -> None:
    done = planning.run(*planning.SAMPLE, *words)
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr == f"ivarode-plan: {WRONG[words]}; --help tells what there is\n"


@pytest.mark.parametrize("message", NO_MESSAGES)
def test_a_message_that_is_none_is_refused_before_anything_runs(message: str) -> None:
    done = planning.run(*planning.SAMPLE, "--call", f"ivarode.intf port_add {message}")
    assert (done.returncode, done.stdout) == (2, "")
    assert done.stderr.startswith(f'ivarode-plan: --call "ivarode.intf port_add {message}": the message ')
    assert done.stderr.count("\n") == 1


def test_unreadable_input_is_named(tmp_path: pathlib.Path) -> None:
    broken = tmp_path / "broken"
    broken.write_text("{")
    config = tmp_path / "config"
    config.mkdir()
    (config / "wan_intf").write_text("config interface 'wan1\n")
    for words, said in {
            ("--board", tmp_path / "none"): "none: No such file or directory",
            ("--board", broken): "broken: (whole file): ends too early",
            ("--board", tmp_path): "Is a directory",
            ("--config", tmp_path / "none"): "none: No such file or directory",
            ("--config", broken): "broken: Not a directory",
            ("--config", config): "wan_intf: Bad message",
            ("--daemon", tmp_path / "none"): "none: No such file or directory",
            ("--daemon", broken): "broken: Permission denied"}.items():
        done = planning.run(*planning.SAMPLE, *words)
        assert (done.returncode, done.stdout) == (2, ""), words
        assert said in done.stderr, words


def test_a_program_that_is_no_daemon_is_said_to_be_none() -> None:
    done = planning.run(*planning.SAMPLE, "--daemon", "/bin/true")
    assert (done.returncode, done.stdout) == (2, "")
    assert "the daemon made no call" in done.stderr


def test_help_names_every_option_and_status() -> None:
    done = planning.run("--help")
    assert (done.returncode, done.stderr) == (0, "")
    for word in ("--board", "--config", "--daemon", "--from", "--diff", "--call", "--link", "--address", "--json",
                 "--quiet", "0 as wanted", "1 the daemon", "2 wrong usage", "3 ports meet", "4 --diff"):
        assert word in done.stdout, word


def test_the_last_of_an_option_counts() -> None:
    assert planning.plan("--board", "/nowhere", *planning.SAMPLE)["status"] == 0


def test_steps_keep_their_order() -> None:
    told = planning.plan(*planning.SAMPLE, "--link", "2=up", *planning.call("port_add", name="lan2"), "--address",
                         "192.0.2.1", "--link", "2=down")
    assert [phase["kind"] for phase in told["phases"]] == ["start", "link", "call", "address", "link"]
    assert told["phases"][2]["said"] == 'ivarode.intf port_add {"name": "lan2"}'


def test_quiet_says_nothing_where_nothing_is_wrong() -> None:
    done = planning.run(*planning.SAMPLE, "--quiet", *planning.call("port_add", name="lan2"))
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_quiet_says_what_is_wrong() -> None:
    done = planning.run(*planning.SAMPLE, "--quiet", *planning.call("port_add", name="lan9"))
    assert done.returncode == 1
    assert "error: lan 9 get hw port error" in done.stdout and "status 1" in done.stdout
    assert "port_add" in done.stdout and "start" not in done.stdout


def test_colours_are_for_terminals() -> None:
    assert "\033" not in planning.run(*planning.SAMPLE).stdout
    ours, theirs = pty.openpty()
    with open(theirs, "wb") as terminal:
        pid = os.posix_spawn(planning.PROGRAM, [str(word) for word in (planning.PROGRAM, *planning.SAMPLE, "--quiet",
                                                *planning.call("port_add", name="lan9"))], os.environ,
                             file_actions=[(os.POSIX_SPAWN_DUP2, terminal.fileno(), 1)])
        assert os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]) == 1
    assert b"\033[31m" in os.read(ours, 65536)
    os.close(ours)


def test_what_a_terminal_takes_for_a_command_is_shown_as_a_number() -> None:
    done = planning.run(*planning.SAMPLE, *planning.call("port_add", name="lan\x1b[2J"))
    assert "\x1b" not in done.stdout and "lan" in done.stdout
    assert "0x1b[2J" in done.stdout


def test_a_full_disk_is_a_failure() -> None:
    with open("/dev/full", "wb") as full:
        pid = os.posix_spawn(planning.PROGRAM, [str(word) for word in (planning.PROGRAM, *planning.SAMPLE)],
                             os.environ, file_actions=[(os.POSIX_SPAWN_DUP2, full.fileno(), 1)])
        assert os.waitstatus_to_exitcode(os.waitpid(pid, 0)[1]) == 2


def test_it_plans_from_files_without_root() -> None:
    """And says the same."""
    identity: dict[str, Any] = {"user": NOBODY, "group": NOBODY, "extra_groups": []} if os.geteuid() == 0 else {}
    if subprocess.run(["test", "-x", planning.PROGRAM], check=False, **identity).returncode != 0:
        pytest.skip("this folder is closed to others")
    done = planning.run(*planning.SAMPLE, "--json", **identity)
    assert (done.returncode, done.stderr) == (0, "")
    assert done.stdout == planning.run(*planning.SAMPLE, "--json").stdout != ""
