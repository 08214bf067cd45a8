"""The page's web server: its protocol, sessions and rights, and what it refuses; without a board."""

from __future__ import annotations

import http.client
import json
import pathlib
import threading
from collections.abc import Iterator, Sequence
from typing import Any

import pytest

from labctl.web import pages
from labctl.web.jsonrpc import BATCH_MAX, Answer, Endpoint, Refusal
from labctl.web.server import BODY_MAX, POLICY, Server
from labctl.web.sessions import NOBODY, Account, Groups, Sessions

READER, ROOT = "a" * 32, "b" * 32


class FakeBus:
    """Answers with what it was asked; "gone" is an object that nobody offers."""

    def __init__(self) -> None:
        self.calls: list[tuple[str, str, dict[str, Any]]] = []

    def objects(self, patterns: Sequence[str]) -> dict[str, Any]:
        return {name: {"call": {"x": "String"}} for name in ("one", "two") if not patterns or name in patterns}

    def call(self, name: str, method: str, arguments: dict[str, Any]) -> Answer:
        self.calls.append((name, method, arguments))
        if method == "run":
            raise Refusal("object")
        return Answer(2) if method == "port_add" else Answer(0, {"got": arguments})


class Clock:
    now = 1000.0

    def __call__(self) -> float:
        return self.now


class Bench:
    def __init__(self) -> None:
        self.bus, self.clock = FakeBus(), Clock()
        groups = Groups([pages.RIGHTS])
        everything = list(groups.groups)
        root = Account("root", "secret", everything, everything)
        reader = Account("reader", "look", everything, [])
        self.sessions = Sessions([root, reader], groups, self.clock)
        self.sessions.open(root, token=ROOT)
        self.sessions.open(reader, token=READER)
        self.endpoint = Endpoint(self.sessions, self.bus)

    def ask(self, asked: object) -> Any:
        return json.loads(self.endpoint.answer(json.dumps(asked).encode()))

    def call(self, token: str, *words: object) -> Any:
        said = self.ask({"jsonrpc": "2.0", "id": 1, "method": "call", "params": [token, *words]})
        assert said["jsonrpc"] == "2.0" and said["id"] == 1
        return said.get("result", said.get("error"))


@pytest.fixture
def bench() -> Bench:
    return Bench()


DENIED = {"code": -32002, "message": "Access denied"}


def test_a_call_and_its_answer(bench: Bench) -> None:
    assert bench.call(ROOT, "ivarode.intf", "add", {"intf": "lan2_x"}) == \
        [0, {"got": {"intf": "lan2_x", "ubus_rpc_session": ROOT}}]
    assert bench.call(ROOT, "ivarode.intf", "port_add") == [2]
    assert bench.call(ROOT, "ivarode.run", "run", {})["code"] == -32000


@pytest.mark.parametrize("token", [NOBODY, "", "c" * 32, ROOT[:-1], ROOT.upper()])
def test_nobody_calls_anything_but_a_login(bench: Bench, token: str) -> None:
    assert bench.call(token, "ivarode.intf", "status", {}) == DENIED
    assert bench.call(token, "session", "login", {"username": "root", "password": "secret"})[0] == 0
    assert bench.bus.calls == []


def test_rights_are_those_of_the_groups(bench: Bench) -> None:
    assert bench.call(READER, "ivarode.intf", "status", {})[0] == 0
    assert bench.call(READER, "ivarode.intf", "port_add", {}) == DENIED
    assert bench.call(ROOT, "ivarode.pppauth", "notify", {}) == DENIED
    assert bench.call(ROOT, "service", "list", {}) == DENIED
    assert [bench.call(token, "session", "access", {"object": "ivarode.intf", "function": "port_add"})[1]
            for token in (READER, ROOT, NOBODY)] == [{"access": False}, {"access": True}, {"access": False}]


@pytest.mark.parametrize("name, password", [("root", ""), ("root", "look"), ("nobody", "secret"), ("", ""),
                                            ("root", "s\u00e9cret\ud800")])
def test_a_wrong_password_is_status_6(bench: Bench, name: str, password: str) -> None:
    assert bench.call(NOBODY, "session", "login", {"username": name, "password": password}) == [6]


def test_a_session_begins_with_a_login_and_ends_in_silence(bench: Bench) -> None:
    status, data = bench.call(NOBODY, "session", "login", {"username": "reader", "password": "look", "timeout": 10})
    token = data["ubus_rpc_session"]
    assert status == 0 and len(token) == 32 and (data["timeout"], data["expires"]) == (10, 10)
    assert data["acls"]["access-group"]["ivarode"] == ["read"]
    assert bench.call(NOBODY, "session", "login", {"username": "root"}) == [2]
    bench.clock.now += 9
    assert bench.call(token, "ivarode.intf", "status", {})[0] == 0
    bench.clock.now += 9
    assert bench.call(token, "ivarode.intf", "status", {})[0] == 0
    bench.clock.now += 10
    assert bench.call(token, "ivarode.intf", "status", {}) == DENIED


def test_a_session_is_destroyed(bench: Bench) -> None:
    assert bench.call(READER, "session", "destroy", {}) == [0]
    assert bench.call(READER, "ivarode.intf", "status", {}) == DENIED
    assert bench.call(READER, "session", "destroy", {}) == [4]


def test_what_is_on_the_bus(bench: Bench) -> None:
    assert bench.ask({"jsonrpc": "2.0", "id": 7, "method": "list", "params": []})["result"] == ["one", "two"]
    assert bench.ask({"jsonrpc": "2.0", "id": 7, "method": "list", "params": ["two"]})["result"] == \
        {"two": {"call": {"x": "String"}}}


REQUEST: dict[str, Any] = {"jsonrpc": "2.0", "id": 1, "method": "call",
                           "params": [ROOT, "ivarode.intf", "status", {}]}


CHANGES: list[tuple[dict[str, object], int]] = [
    ({"jsonrpc": "1.0"}, -32600), ({"method": "run"}, -32601), ({"method": None}, -32601), ({"params": {}}, -32602),
    ({"params": [ROOT, "ivarode.intf"]}, -32602), ({"params": [ROOT, "ivarode.intf", 1, {}]}, -32602),
    ({"params": [ROOT, "ivarode.intf", "status", []]}, -32602),
    ({"params": [ROOT, "ivarode.intf", "status", {"ubus_rpc_session": READER}]}, -32602),
    ({"method": "list", "params": [1]}, -32602)]


@pytest.mark.parametrize("change, code", CHANGES)
def test_requests_that_are_none(bench: Bench, change: dict[str, object], code: int) -> None:
    assert bench.ask({**REQUEST, **change})["error"]["code"] == code
    assert bench.bus.calls == []


@pytest.mark.parametrize("body, code", [(b"", -32700), (b"{", -32700), (b"\xff", -32700), (b"1", -32600),
                                        (b"[]", -32600), (b"null", -32600), (b"{}", -32600)])
def test_bodies_that_are_none(bench: Bench, body: bytes, code: int) -> None:
    assert json.loads(bench.endpoint.answer(body))["error"]["code"] == code


def test_batches(bench: Bench) -> None:
    batch: list[object] = [{**REQUEST, "id": 1}, {**REQUEST, "id": "b", "method": "x"}, 5]
    answers = bench.ask(batch)
    assert [(one["id"], "result" in one) for one in answers] == [(1, True), ("b", False), (None, False)]
    assert len(bench.ask([REQUEST] * BATCH_MAX)) == BATCH_MAX
    assert bench.ask([REQUEST] * (BATCH_MAX + 1))["error"]["code"] == -32600


# --- over the network --------------------------------------------------------------------------------------------


@pytest.fixture
def server(bench: Bench, tmp_path: pathlib.Path) -> Iterator[Server]:
    (tmp_path / "index.html").write_text("<!doctype html>")
    (tmp_path / "app.js").write_text("export {};")
    (tmp_path / "notes.txt").write_text("not for anybody")
    with Server(0, [tmp_path], bench.endpoint) as running:
        thread = threading.Thread(target=running.serve_forever, args=[0.02])
        thread.start()
        yield running
        running.shutdown()
        thread.join()


def send(server: Server, method: str, path: str, body: bytes | None = None, headers: dict[str, str] | None = None
         ) -> tuple[int, bytes, http.client.HTTPMessage]:
    connection = http.client.HTTPConnection("127.0.0.1", server.server_address[1], timeout=10)
    connection.request(method, path, body, headers or {})
    answer = connection.getresponse()
    data = answer.read()
    connection.close()
    return answer.status, data, answer.msg


def post(server: Server, **headers: str) -> int:
    named = {"Content-Type": "application/json", **{name.replace("_", "-"): text for name, text in headers.items()}}
    return send(server, "POST", "/ubus", json.dumps(REQUEST).encode(), named)[0]


def test_it_listens_on_this_machine_alone(server: Server) -> None:
    assert server.server_address[0] == "127.0.0.1"


def test_files(server: Server) -> None:
    status, data, headers = send(server, "GET", "/ivarode/")
    assert (status, data) == (200, b"<!doctype html>") and headers["Content-Type"].startswith("text/html")
    assert headers["Content-Security-Policy"] == POLICY and "unsafe" not in POLICY
    assert headers["X-Content-Type-Options"] == "nosniff" and headers["Referrer-Policy"] == "no-referrer"
    assert send(server, "GET", "/ivarode/app.js")[2]["Content-Type"].startswith("text/javascript")
    assert send(server, "HEAD", "/ivarode/app.js")[1] == b""
    status, _, headers = send(server, "GET", "/")
    assert (status, headers["Location"]) == (302, "/ivarode/")


@pytest.mark.parametrize("path", ["/ivarode/notes.txt", "/ivarode/../index.html", "/ivarode/%2e%2e/x.js", "/etc/passwd",
                                  "/ivarode", "/ubus", "/ivarode/app.js/"])
def test_nothing_else_is_served(server: Server, path: str) -> None:
    assert send(server, "GET", path)[0] == 404


def test_requests(server: Server) -> None:
    port = server.server_address[1]
    assert post(server) == 200
    assert post(server, Origin=f"http://127.0.0.1:{port}") == 200
    assert post(server, Host=f"localhost:{port}", Origin=f"http://localhost:{port}") == 200
    assert send(server, "PUT", "/ubus", b"{}")[0] == 501 and send(server, "OPTIONS", "/ubus")[0] == 501


@pytest.mark.parametrize("headers", [
    {"Host": "router.example:80"}, {"Host": "127.0.0.1"}, {"Host": "127.0.0.1:1"}, {"Host": ""},
    {"Origin": "null"}, {"Origin": "http://evil.example"}, {"Origin": "https://127.0.0.1"}, {"Origin": ""}])
def test_other_hosts_and_origins_are_refused(server: Server, bench: Bench, headers: dict[str, str]) -> None:
    assert post(server, **headers) == 403
    assert send(server, "GET", "/ivarode/", headers=headers)[0] == 403
    assert bench.bus.calls == []


def test_bodies_that_are_refused(server: Server, bench: Bench) -> None:
    assert post(server, Content_Type="text/plain") == 415
    assert post(server, Content_Length=str(BODY_MAX + 1)) == 413
    assert post(server, Content_Length="-1") == 411
    assert bench.bus.calls == []
