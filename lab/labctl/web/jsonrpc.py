"""JSON-RPC as a router's web server speaks it at /ubus: requests and answers, without a network or a bus.

A request is {"jsonrpc": "2.0", "id": …, "method": "call", "params": [TOKEN, OBJECT, METHOD, {…}]} or has the method
"list"; an answer has "result": [STATUS, {…}] or "error". Requests come alone or as an array of at most BATCH_MAX.
"""

from __future__ import annotations

import json
from collections.abc import Sequence
from typing import Any, NamedTuple, Protocol

from .sessions import Sessions

BATCH_MAX = 16
ERRORS = {"parse": (-32700, "Parse error"), "request": (-32600, "Invalid request"),
          "method": (-32601, "Method not found"), "parameters": (-32602, "Invalid parameters"),
          "internal": (-32603, "Internal error"), "object": (-32000, "Object not found"),
          "access": (-32002, "Access denied"), "timeout": (-32003, "ubus request timed out")}


class Refusal(Exception):
    """A request that is answered by one of ERRORS."""

    def __init__(self, name: str, text: str = "") -> None:
        super().__init__(name)
        code, usual = ERRORS[name]
        self.error = {"code": code, "message": text or usual}


class Answer(NamedTuple):
    """Status of the bus, and the reply; None where there was none."""

    status: int
    data: dict[str, Any] | None = None


class Bus(Protocol):
    def objects(self, patterns: Sequence[str]) -> dict[str, Any]:
        """Objects with the methods and the types of their fields; all where patterns are none."""

    def call(self, name: str, method: str, arguments: dict[str, Any]) -> Answer:
        """Calls a method; Refusal "object" or "timeout" where there is nobody, or no answer."""


class Endpoint:
    def __init__(self, sessions: Sessions, bus: Bus) -> None:
        self.sessions, self.bus = sessions, bus

    def answer(self, body: bytes) -> bytes:
        try:
            asked = json.loads(body)
        except ValueError:
            return encoded({"jsonrpc": "2.0", "id": None, "error": Refusal("parse").error})
        if isinstance(asked, list) and 0 < len(asked) <= BATCH_MAX:
            return encoded([self.one(each) for each in asked])
        return encoded(self.one(asked))

    def one(self, asked: object) -> dict[str, Any]:
        ident = asked.get("id") if isinstance(asked, dict) else None
        head = {"jsonrpc": "2.0", "id": ident if isinstance(ident, (str, int, float)) else None}
        try:
            return {**head, "result": self.result(asked)}
        except Refusal as refusal:
            return {**head, "error": refusal.error}

    def result(self, asked: object) -> Any:
        if not isinstance(asked, dict) or asked.get("jsonrpc") != "2.0" or "id" not in asked:
            raise Refusal("request")
        parameters = asked.get("params", [])
        if not isinstance(parameters, list):
            raise Refusal("parameters")
        if asked.get("method") == "list":
            return self.listed(parameters)
        if asked.get("method") == "call":
            return self.called(parameters)
        raise Refusal("method")

    def listed(self, patterns: list[Any]) -> Any:
        if not all(isinstance(pattern, str) for pattern in patterns):
            raise Refusal("parameters")
        found = self.bus.objects(patterns)
        return found if patterns else list(found)

    def called(self, parameters: list[Any]) -> list[Any]:
        if len(parameters) not in (3, 4) or not all(isinstance(word, str) for word in parameters[:3]):
            raise Refusal("parameters")
        token, name, method = parameters[:3]
        arguments = parameters[3] if len(parameters) == 4 else {}
        if not isinstance(arguments, dict) or "ubus_rpc_session" in arguments and name != "session":
            raise Refusal("parameters")
        if not self.sessions.allows(token, name, method):
            raise Refusal("access")
        if name == "session":
            status, data = self.sessions.call(token, method, arguments)
        else:
            status, data = self.bus.call(name, method, {**arguments, "ubus_rpc_session": token})
        return [status] if data is None else [status, data]


def encoded(answer: object) -> bytes:
    return json.dumps(answer, separators=(",", ":")).encode("utf-8", "surrogatepass")
