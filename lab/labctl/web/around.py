"""The object "lab" of a virtual board's page: cables, hosts, boards and recordings."""

from __future__ import annotations

import base64
import pathlib
import re
from typing import Any

from labctl import client, paths, recordings

from .player import Player

OK, NO_METHOD, WRONG_ARGUMENT, FAILED = 0, 3, 2, 9
COUNT_MAX, SIZE_MAX = 100, 1400
BUSY = OK, {"error": "a recording is being played"}
ADDRESS = re.compile(r"(?:\d{1,3}\.){3}\d{1,3}")
SIGNATURES = {"about": {}, "link": {"port": "Integer", "up": "Integer"},
              "ping": {"host": "String", "to": "String", "count": "Integer", "size": "Integer"},
              "raise": {"board": "String", "config": "String"}, "play": {"recording": "String"}, "played": {},
              "moment": {"at": "Integer"}}


def samples() -> dict[str, list[str]]:
    return {kind: sorted(path.stem for path in (paths.LAB / kind).iterdir()) for kind in ("boards", "configs")}


class Around:
    def __init__(self, lab: client.Lab) -> None:
        self.lab, self.player = lab, Player(lab)

    def methods(self) -> dict[str, Any]:
        return SIGNATURES

    def call(self, method: str, given: dict[str, Any]) -> tuple[int, dict[str, Any] | None]:
        """Status and reply of a call; arguments are what anybody with the token sends."""
        if method == "about":
            return OK, self.about()
        if method == "link":
            return self.link(given.get("port"), given.get("up"))
        if method == "ping":
            return self.ping(given.get("host"), given.get("to"), given.get("count", 1), given.get("size", 56))
        if method == "raise":
            return self.raise_board(given.get("board"), given.get("config"))
        if method == "play":
            return self.play(given.get("recording"))
        if method == "played":
            return OK, self.player.state()
        if method == "moment":
            return self.moment(given.get("at"))
        return NO_METHOD, None

    def hosts(self) -> dict[str, int]:
        lines = [line.split() for line in self.lab.ok("agent", "hosts").splitlines()]
        return {words[0]: int(words[1]) for words in lines if len(words) == 2}

    def about(self) -> dict[str, Any]:
        hosts = [{"name": name, "port": port, "address": self.address(name)} for name, port in self.hosts().items()]
        return {"board": self.lab.board().name, "config": pathlib.Path(self.lab.config()).name, "hosts": hosts,
                **samples()}

    def address(self, host: str) -> str:
        found = ADDRESS.findall(self.lab.run(host, "ip", "-4", "-o", "address", "show", "scope", "global").out)
        return found[0] if found else ""

    def link(self, port: object, up: object) -> tuple[int, dict[str, Any] | None]:
        if port not in range(5) or up not in (0, 1):
            return WRONG_ARGUMENT, None
        self.lab.link(int(str(port)), bool(up))
        return OK, {}

    def ping(self, host: object, to: object, count: object, size: object) -> tuple[int, dict[str, Any] | None]:
        """Answered in time: of how many, with which ttl of the last one, after how many milliseconds."""
        if not isinstance(host, str) or host not in self.hosts() or not isinstance(to, str) \
                or not ADDRESS.fullmatch(to) or type(count) is not int or not 1 <= count <= COUNT_MAX \
                or type(size) is not int or not 1 <= size <= SIZE_MAX:
            return WRONG_ARGUMENT, None
        done = self.lab.run(host, "busybox", "ping", "-c", count, "-i", "0.02", "-s", size, "-W", "1", "-w", "6", to)
        answers = re.findall(r"ttl=(\d+) time=([\d.]+)", done.out)
        last = {"ttl": int(answers[-1][0]), "ms": float(answers[-1][1])} if answers else {}
        return OK, {"sent": count, "answered": len(answers), **last}

    def raise_board(self, board: object, config: object) -> tuple[int, dict[str, Any] | None]:
        if board not in samples()["boards"] or config not in samples()["configs"]:
            return WRONG_ARGUMENT, None
        if self.player.playing:
            return BUSY
        self.lab.raise_board(str(board), str(config))
        self.lab.said("ivarode init success", 90)
        return OK, {}

    def play(self, recording: object) -> tuple[int, dict[str, Any] | None]:
        """Raises the board of a recording, which comes as base64, and repeats it in the background."""
        if self.player.playing:
            return BUSY
        try:
            self.player.start(base64.b64decode(str(recording), validate=True))
        except (ValueError, recordings.RecordingError) as error:
            return OK, {"error": f"no recording: {error}"}
        return OK, {}

    def moment(self, at: object) -> tuple[int, dict[str, Any] | None]:
        """The picture behind an event that has been repeated."""
        moments = self.player.moments
        return (OK, moments[at]._asdict()) if type(at) is int and 0 <= at < len(moments) else (WRONG_ARGUMENT, None)
