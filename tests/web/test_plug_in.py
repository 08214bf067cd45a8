"""The plug-in and the access groups of the image, as the remote-call daemon of a router uses them: programs of the
router are replaced by ones that say what they were called with."""

from __future__ import annotations

import json
import os
import pathlib
import subprocess
from collections.abc import Sequence
from typing import Any

import pytest

from labctl import paths
from labctl.web import pages
from labctl.web.jsonrpc import Answer, Endpoint
from labctl.web.sessions import NOBODY, Account, Groups, Sessions

PLUG_IN = paths.ROOT / "image/files/usr/libexec/rpcd/ivarode.view"
SAYS_ITS_WORDS = """#!/bin/sh
printf '{ "program": "%s", "words": [' "${0##*/}"
for word; do printf '%s"%s"' "$comma" "$(printf %s "$word" | sed 's/[\\\\"]/\\\\&/g')"; comma=,; done
echo '] }'
"""
FAILS = """#!/bin/sh
echo "ivarodectl: no \\"bus\\"" >&2
exit 1
"""


class Daemon:
    """The object "ivarode.view": methods are those that the plug-in lists; a call goes to its standard input."""

    def __init__(self, folder: pathlib.Path) -> None:
        self.folder = folder
        for name in ("ivarodectl", "ivarode-plan"):
            self.program(name, SAYS_ITS_WORDS)
        self.methods = json.loads(self.run("list").stdout)

    def program(self, name: str, text: str) -> None:
        path = self.folder / name
        path.write_text(text)
        path.chmod(0o755)

    def run(self, *words: str, given: bytes = b"") -> subprocess.CompletedProcess[bytes]:
        environment = {"PATH": f"{self.folder}:/usr/bin:/bin"}
        return subprocess.run([PLUG_IN, *words], input=given, capture_output=True, env=environment, check=False)

    def objects(self, _: Sequence[str]) -> dict[str, Any]:
        return {"ivarode.view": self.methods}

    def call(self, name: str, method: str, arguments: dict[str, Any]) -> Answer:
        if name != "ivarode.view" or method not in self.methods:
            return Answer(3)
        done = self.run("call", method, given=json.dumps(arguments).encode())
        return Answer(0, json.loads(done.stdout)) if done.returncode == 0 else Answer(9)


@pytest.fixture
def daemon(tmp_path: pathlib.Path) -> Daemon:
    return Daemon(tmp_path)


@pytest.fixture
def endpoint(daemon: Daemon) -> Endpoint:
    groups = Groups([pages.RIGHTS])
    return Endpoint(Sessions([Account("guest", "look", ["ivarode"], [])], groups), daemon)


def call(endpoint: Endpoint, token: str, *words: object) -> Any:
    request = {"jsonrpc": "2.0", "id": 1, "method": "call", "params": [token, *words]}
    said = json.loads(endpoint.answer(json.dumps(request).encode()))
    return said.get("result", said.get("error"))


@pytest.fixture
def token(endpoint: Endpoint) -> str:
    return call(endpoint, NOBODY, "session", "login", {"username": "guest", "password": "look"})[1]["ubus_rpc_session"]


def words(endpoint: Endpoint, token: str, method: str, **arguments: object) -> list[str]:
    status, said = call(endpoint, token, "ivarode.view", method, arguments)
    assert status == 0
    return [said["program"], *said["words"]]


def test_who_may_look_may_call_what_the_plug_in_lists(endpoint: Endpoint, daemon: Daemon, token: str) -> None:
    granted = {method for group in Groups([pages.RIGHTS]).groups.values()
               for method in group.get("read", {}).get("ubus", {}).get("ivarode.view", [])}
    assert granted == set(daemon.methods)
    assert call(endpoint, NOBODY, "ivarode.view", "status", {})["code"] == -32002
    assert call(endpoint, token, "ivarode.view", "reboot", {})["code"] == -32002
    assert call(endpoint, token, "ivarode.intf", "port_add", {"name": "lan2"})["code"] == -32002


def test_status(endpoint: Endpoint, token: str) -> None:
    assert words(endpoint, token, "status") == ["ivarodectl", "status", "--json"]


@pytest.mark.parametrize("name, said", [("lan1", ["lan1"]), ("port 2", ["port", "2"]), ("port 22", ["port 22"]),
                                        ("a b", ["a b"]), ("*", ["*"])])
def test_explain(endpoint: Endpoint, token: str, name: str, said: list[str]) -> None:
    assert words(endpoint, token, "explain", name=name) == ["ivarodectl", "explain", "--json", *said]


@pytest.mark.parametrize("text", [
    "$(touch struck)", "`touch struck`", "'; touch struck; '", '"; touch struck; "', "\\", "&&", "name=x", "caf\u00e9",
    "a/b", "{\"name\":\"lan2\"}", "x" * 1000])
def test_words_reach_the_programs_as_they_are(endpoint: Endpoint, daemon: Daemon, token: str, text: str) -> None:
    known = text.isascii()      # json.dumps writes others as \\u, which the bus's own library does not
    for method, argument in (("explain", {"name": text}), ("plan", {"calls": [text, text]})):
        status, said = call(endpoint, token, "ivarode.view", method, argument)
        assert status == 0
        assert (said["words"][-1] == text) if known else said == {"error": "arguments that are none"}
    assert not list(daemon.folder.rglob("struck")) and not os.path.exists("struck")


def test_plan(endpoint: Endpoint, token: str) -> None:
    calls = ['ivarode.intf port_add {"name":"lan2"}', "ivarode.run run {}"]
    assert words(endpoint, token, "plan", calls=calls) == \
        ["ivarode-plan", "--from", "now", "--json", "--call", calls[0], "--call", calls[1]]
    assert call(endpoint, token, "ivarode.view", "plan", {"calls": ["x"] * 17})[1] == {"error": "at most 16 calls"}


@pytest.mark.parametrize("name", ["", "-v", "--json"])
def test_options_are_no_names(endpoint: Endpoint, token: str, name: str) -> None:
    assert call(endpoint, token, "ivarode.view", "explain", {"name": name})[1] == {"error": "explain what?"}


@pytest.mark.parametrize("given", [b"", b"[]", b"{", b'{"name":"a\\nb"}', b'{"name":"a\nb"}', b'{"name":"\\u0007"}',
                                   b'{"name":"a"} x', b'{"name":{"a":1}}', b'{"name=x":"a"}', b'{"name":"\x7f"}',
                                   b'{"name":"' + b"x" * 9000 + b'"}'])
def test_input_that_is_none(daemon: Daemon, given: bytes) -> None:
    done = daemon.run("call", "explain", given=given)
    assert (done.returncode, json.loads(done.stdout)) == (0, {"error": "arguments that are none"})


def test_what_a_program_complains_of_is_said(endpoint: Endpoint, daemon: Daemon, token: str) -> None:
    daemon.program("ivarodectl", FAILS)
    assert call(endpoint, token, "ivarode.view", "status", {})[1] == {"error": 'ivarodectl: ivarodectl: no "bus"'}
    (daemon.folder / "ivarode-plan").unlink()
    assert call(endpoint, token, "ivarode.view", "plan", {})[1] == {"error": "ivarode-plan is not installed"}


def test_log(endpoint: Endpoint, daemon: Daemon, token: str) -> None:
    daemon.program("logread", "#!/bin/sh\nprintf 'one \"quoted\"\\ttab\\\\n\\ntwo \\007\\n'\n")
    if not os.path.exists("/var/log/messages"):
        assert call(endpoint, token, "ivarode.view", "log", {})[1] == {"lines": ['one "quoted" tab\\n', "two ?"]}
    else:
        assert isinstance(call(endpoint, token, "ivarode.view", "log", {})[1]["lines"], list)


def test_messages_are_those_of_the_book(endpoint: Endpoint, token: str) -> None:
    rows = call(endpoint, token, "ivarode.view", "messages", {})[1]["messages"]
    assert len(rows) > 90 and all(text and advice for text, advice in rows)


@pytest.mark.parametrize("arguments", [[], ["call"], ["call", "reboot"], ["run"]])
def test_wrong_use(daemon: Daemon, arguments: list[str]) -> None:
    done = daemon.run(*arguments, given=b"{}")
    assert done.returncode != 0 and done.stdout == b""
