"""Bus calls as any program makes them."""

from __future__ import annotations

import json
from typing import Any

from tests.system.held_lab import Lab


def call(lab: Lab, name: str, method: str, /, **arguments: Any) -> tuple[int, Any]:
    """(status, reply or None) of a method; the status as the method gave it."""
    result = lab.run("router", "ubus", "-S", "-t", 10 * lab.pace, "call", name, method, json.dumps(arguments),
                     timeout=20)
    return result.status, json.loads(result.out) if result.out.strip() else None


def intf(lab: Lab, method: str, /, **arguments: Any) -> tuple[int, Any]:
    return call(lab, "ivarode.intf", method, **arguments)


def route(lab: Lab, method: str, /, **arguments: Any) -> tuple[int, Any]:
    return call(lab, "ivarode.route", method, **arguments)


def instances(lab: Lab, service: str) -> dict[str, tuple[list[str], bool]]:
    """Instance name -> its words and whether it runs, as the supervisor lists them."""
    listed = lab.run("router", "ubus", "call", "service", "list", json.dumps({"name": service}), check=True).json()
    return {name: (instance["command"], instance["running"])
            for name, instance in listed.get(service, {}).get("instances", {}).items()}
