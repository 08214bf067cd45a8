"""The bus of a virtual board: its broker by the router's own client, the page's plug-in as a router starts it, and
the object "lab", which drives what is around the router."""

from __future__ import annotations

import json
from collections.abc import Sequence
from typing import Any

from labctl import client

from .around import Around
from .jsonrpc import Answer, Refusal

PLUG_IN = "/usr/libexec/rpcd/ivarode.view"
VIEW, LAB = "ivarode.view", "lab"
NO_BUS = 255                # how the client ends that finds no broker; also a status of -1
TIMED_OUT = 7
NO_DATA, UNKNOWN = 5, 9
PATIENCE = 30               # seconds for a call at pace 1


def status_of(exit_status: int) -> int:
    """What a method returned: some of the daemon's are negative."""
    return exit_status - 256 if exit_status > 127 else exit_status


def replies(text: str) -> dict[str, Any] | None:
    """The last reply; None where there is none."""
    found = None
    for line in text.splitlines():
        try:
            value = json.loads(line)
        except ValueError:
            continue
        found = value if isinstance(value, dict) else found
    return found


class Router:
    def __init__(self, lab: client.Lab) -> None:
        self.lab, self.around = lab, Around(lab)

    def objects(self, patterns: Sequence[str]) -> dict[str, Any]:
        asked = self.run("ubus", "-v", "list")
        if asked.status:
            raise Refusal("internal", "the bus is away")
        found: dict[str, Any] = {}
        for line in asked.out.splitlines():
            name = line.partition("'")[2].partition("'")[0] if line.startswith("'") else ""
            if name:
                found[name] = {}
            elif found and line.strip():
                found[list(found)[-1]].update(json.loads("{" + line.strip().rstrip(",") + "}"))
        found[VIEW] = replies(self.plug_in("list").out) or {}
        found[LAB] = self.around.methods()
        return {name: found[name] for name in found if not patterns or name in patterns}

    def call(self, name: str, method: str, arguments: dict[str, Any]) -> Answer:
        try:
            if name == LAB:
                return Answer(*self.around.call(method, arguments))
            if name == VIEW:
                return self.view(method, arguments)
            return self.bus(name, method, {key: value for key, value in arguments.items() if key != "ubus_rpc_session"})
        except client.LabError as error:
            raise Refusal("internal", f"the board is away: {error}") from error
        except TimeoutError as error:
            raise Refusal("timeout") from error

    def view(self, method: str, arguments: dict[str, Any]) -> Answer:
        done = self.plug_in("call", method, stdin=json.dumps(arguments, ensure_ascii=False))
        if done.status:
            return Answer(done.status if done.status < 32 else UNKNOWN)
        said = replies(done.out.replace("\n", " "))
        return Answer(0, said) if said is not None else Answer(NO_DATA)

    def bus(self, name: str, method: str, arguments: dict[str, Any]) -> Answer:
        done = self.run("ubus", "-S", "call", name, method, json.dumps(arguments, ensure_ascii=False))
        if done.status == NO_BUS and self.run("ubus", "-S", "list").status == NO_BUS:
            raise Refusal("internal", "the bus is away")
        if done.status == TIMED_OUT:
            raise Refusal("timeout")
        return Answer(status_of(done.status), replies(done.out))

    def plug_in(self, *words: str, stdin: str = "{}") -> client.Result:
        return self.run(PLUG_IN, *words, stdin=stdin)

    def run(self, *words: str, stdin: str | None = None) -> client.Result:
        return self.lab.run("router", *words, stdin=stdin, timeout=PATIENCE)
