"""Sessions and rights, as the remote-call daemon of a router keeps them: accounts, tokens, access groups."""

from __future__ import annotations

import fnmatch
import hmac
import json
import pathlib
import secrets
import time
from collections.abc import Callable, Sequence
from typing import Any, NamedTuple

NOBODY = "0" * 32
TIMEOUT = 300               # seconds without a request
LOGIN_REFUSED = 6           # the bus's "permission denied"
WRONG_ARGUMENT, NOT_THERE = 2, 3
OPEN = {("session", "login"), ("session", "access"), ("session", "destroy")}

Grants = list[tuple[str, str]]      # patterns of (object, method)


class Groups:
    """Access groups by name, each with the sides "read" and "write", of files as in /usr/share/rpcd/acl.d."""

    def __init__(self, files: Sequence[pathlib.Path]) -> None:
        self.groups: dict[str, dict[str, Any]] = {}
        for file in files:
            self.groups.update(json.loads(file.read_text(encoding="utf-8")))

    def grants(self, group: str, side: str) -> Grants:
        methods = self.groups[group].get(side, {}).get("ubus", {})
        return [(name, method) for name, all_of_it in methods.items() for method in all_of_it]


class Account(NamedTuple):
    name: str
    password: str
    read: Sequence[str]         # groups
    write: Sequence[str]
    more: Sequence[tuple[str, str]] = ()    # grants beside those of groups


class Session:
    def __init__(self, account: Account, groups: Groups, timeout: float, now: float) -> None:
        self.timeout, self.last = timeout, now
        self.sides = {group: [side for side, names in (("read", account.read), ("write", account.write))
                              if group in names] for group in groups.groups}
        self.grants: Grants = [grant for group, sides in self.sides.items() for side in sides
                               for grant in groups.grants(group, side)] + list(account.more)

    def left(self, now: float) -> float:
        return self.last + self.timeout - now if self.timeout else float("inf")

    def allows(self, name: str, method: str) -> bool:
        return any(fnmatch.fnmatchcase(name, one) and fnmatch.fnmatchcase(method, other) for one, other in self.grants)


class Sessions:
    def __init__(self, accounts: Sequence[Account], groups: Groups,
                 clock: Callable[[], float] = time.monotonic) -> None:
        self.accounts, self.groups, self.clock = {one.name: one for one in accounts}, groups, clock
        self.sessions: dict[str, Session] = {}

    def open(self, account: Account, timeout: float = TIMEOUT, token: str = "") -> str:
        token = token or secrets.token_hex(16)
        self.sessions[token] = Session(account, self.groups, timeout, self.clock())
        return token

    def allows(self, token: str, name: str, method: str) -> bool:
        session = self.find(token)
        return (name, method) in OPEN or session is not None and session.allows(name, method)

    def find(self, token: str) -> Session | None:
        """A session that has not ended; it lives on from now."""
        now = self.clock()
        for old in [key for key, session in self.sessions.items() if session.left(now) <= 0]:
            del self.sessions[old]
        session = self.sessions.get(token)
        if session is not None:
            session.last = now
        return session

    def call(self, token: str, method: str, arguments: dict[str, Any]) -> tuple[int, dict[str, Any] | None]:
        """The object "session"."""
        token = str(arguments.get("ubus_rpc_session", token))
        if method == "login":
            return self.login(arguments)
        if method == "access":
            names = [str(arguments.get(key, "")) for key in ("object", "function")]
            return 0, {"access": self.allows(token, *names)}
        if method == "destroy":
            return (0, None) if self.sessions.pop(token, None) else (4, None)
        return NOT_THERE, None

    def login(self, arguments: dict[str, Any]) -> tuple[int, dict[str, Any] | None]:
        name, password = arguments.get("username"), arguments.get("password")
        timeout = arguments.get("timeout", TIMEOUT)
        if not isinstance(name, str) or not isinstance(password, str) or not isinstance(timeout, int):
            return WRONG_ARGUMENT, None
        account = self.accounts.get(name)
        right = account.password if account else secrets.token_hex(16)
        if not hmac.compare_digest(password.encode("utf-8", "replace"), right.encode()) or account is None:
            return LOGIN_REFUSED, None
        token = self.open(account, max(timeout, 1))
        session = self.sessions[token]
        allowed: dict[str, list[str]] = {}
        for thing, method in session.grants:
            allowed.setdefault(thing, []).append(method)
        acls = {"access-group": {group: sides for group, sides in session.sides.items() if sides}, "ubus": allowed}
        return 0, {"ubus_rpc_session": token, "timeout": timeout, "expires": timeout, "acls": acls,
                   "data": {"username": name}}
