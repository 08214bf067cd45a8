"""A bus that answers as a test wants: a router with four LANs and a WAN, as ivarodectl tells of it."""

from __future__ import annotations

import copy
from collections.abc import Sequence
from typing import Any

from labctl.web import pages
from labctl.web.jsonrpc import Answer, Endpoint, Refusal
from labctl.web.server import Server
from labctl.web.sessions import Account, Groups, Sessions

TOKEN = "f" * 32


def port(number: int, serves: str, pvid: int) -> dict[str, Any]:
    return {"port": number, "link": True, "speed": 1000, "full_duplex": True, "pvid": pvid, "serves": [serves]}


def interface(name: str, on: int, device: str, address: str, **more: Any) -> dict[str, Any]:
    return {"name": name, "port": on, "proto": "static", "state": "up", "addresses": [address],
            "members": [device], "mac": "02:00:00:00:00:01", "rx_bytes": 1000, "tx_bytes": 2000, **more}


def vlan(entry: int, vid: int, *members: int) -> dict[str, Any]:
    return {"entry": entry, "vid": vid, "members": [*members, 6], "untag": [0, 1, 2, 3, 4, 5] if entry < 5 else []}


STATUS: dict[str, Any] = {
    "version": 1, "untagging": True,
    "ports": [port(0, "WAN 1", 4090), port(1, "LAN 1", 4091), port(2, "LAN 2", 4091), port(3, "LAN 3", 4093),
              port(4, "LAN 4", 4091)],
    "vlans": [vlan(0, 4090, 0), vlan(1, 4091, 1, 2, 4), vlan(3, 4093, 3), vlan(5, 100, 3)],
    "interfaces": [interface("lan1", 1, "eth0.4091", "192.168.1.1/24"),
                   interface("lan3", 3, "eth0.4093", "192.168.3.1/24"),
                   interface("lan3_guest", 3, "eth0.100", "192.168.100.1/24"),
                   interface("wan1", 0, "eth0.4090", "203.0.113.2/24", number=20001, enabled=True,
                             way_out={"gateway": "203.0.113.1", "table": 20001, "rule": True})],
    "routes": [{"table": 20001, "destination": "0.0.0.0/0", "gateway": "203.0.113.1", "device": "wan1", "metric": 1}],
    "rules": [{"preference": 20001, "table": 20001}],
    "chains": {"filter": [{"chain": "INPUT", "policy": "ACCEPT", "rules": [
        {"rule": "-j inner", "target": "inner", "packets": 3, "bytes": 180}]},
        {"chain": "inner", "rules": [{"rule": "-j DROP", "target": "DROP", "packets": 0, "bytes": 0}]}]},
    "static_routes": [{"name": "branch", "line": "auto", "enabled": True, "destination": "10.0.0.0/8",
                       "gateway": "192.168.1.254", "metric": 5, "state": "missing"}],
    "ppp_users": [{"name": "alice", "provider": "*", "address": "*"}], "health": {"state": "up"}, "problems": []}


class Router:
    """answers: what a call gets instead of status 0 and nothing; an answer may be a Refusal."""

    def __init__(self) -> None:
        self.status = copy.deepcopy(STATUS)
        self.asked: list[tuple[str, str]] = []
        self.planned: list[dict[str, Any]] = []
        self.calls: list[tuple[str, str, dict[str, Any]]] = []
        self.answers: dict[tuple[str, str], Answer | Refusal] = {
            ("ivarode.view", "plan"): Answer(0, {"phases": []}), ("ivarode.view", "log"): Answer(0, {"lines": []}),
            ("ivarode.view", "explain"): Answer(0, {"checks": []})}

    def objects(self, _: Sequence[str]) -> dict[str, Any]:
        return {}

    def links(self) -> dict[str, Any]:
        ports = self.status.get("ports") or []
        link = [int(one.get("link", False)) for one in ports]
        return {"link": link, "speed": [2] * len(ports), "duplex": [1] * len(ports)}

    def call(self, name: str, method: str, arguments: dict[str, Any]) -> Answer:
        self.asked.append((name, method))
        if method == "plan":
            self.planned.append(arguments)
        said = self.answers.get((name, method))
        if isinstance(said, Refusal):
            raise said
        if said is not None:
            return said
        if (name, method) == ("ivarode.view", "status"):
            return Answer(0, self.status)
        if (name, method) == ("ivarode.intf", "status"):
            return Answer(0, self.links())
        if name != "ivarode.view":
            self.calls.append((name, method, {k: v for k, v in arguments.items() if k != "ubus_rpc_session"}))
        return Answer(0)


def server(router: Router, lab: bool = False) -> Server:
    """Of the page as a router serves it, or as the lab does. Accounts root and, for looking only, guest."""
    groups = Groups([pages.RIGHTS])
    every = list(groups.groups)
    root = Account("root", "secret", every, every, [("lab", "*")] if lab else [])
    sessions = Sessions([root, Account("guest", "look", every, [])], groups)
    sessions.open(root, timeout=0, token=TOKEN)
    return Server(0, pages.FILES[:1 + lab], Endpoint(sessions, router))
