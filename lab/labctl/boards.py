"""Boards and configurations: what lab/boards and lab/configs hold, and the folder that the board is raised from."""

from __future__ import annotations

import json
import pathlib
import shutil
from collections.abc import Sequence
from typing import Any

from . import paths

LAN, WAN = "lan", "wan"


class ConfigError(Exception):
    pass


def find(kind: str, name: str) -> pathlib.Path:
    """A sample by name, or a path of the user's own."""
    for path in (paths.LAB / kind / name, paths.LAB / kind / (name + ".json"), pathlib.Path(name)):
        if path.exists() and (kind == "boards") == path.is_file():
            return path
    have = sorted(p.stem for p in (paths.LAB / kind).iterdir())
    raise ConfigError(f"no {kind[:-1]} is named {name} (there are {', '.join(have)})")


def check(kind: str, name: str) -> None:
    """ConfigError where a board or configuration of the name cannot be raised; nothing has been touched then."""
    path = find(kind, name)
    if kind == "boards":
        Board(name)
    elif not (path / "hosts").is_file():
        raise ConfigError(f"{path}: no file hosts, which says who sits on which port")


class Board:
    """Which switch port serves which LAN and WAN: the same numbering that the router's own library gives them."""

    def __init__(self, name: str) -> None:
        self.path = find("boards", name)
        self.name = self.path.stem
        try:
            data = json.loads(self.path.read_text())
            entries = data["switch"]["switch0"]["ports"]
        except (ValueError, KeyError, TypeError) as error:
            raise ConfigError(f"{self.path}: {error}") from error
        self.cpu_ports = sum(1 for entry in entries if "device" in entry)
        slots = self._slots([entry for entry in entries if "role" in entry and "num" in entry])
        self.lans = {index + 1: port for index, (roles, port) in slots.items() if LAN in roles}
        wans = [port for index, (roles, port) in sorted(slots.items(), reverse=True) if WAN in roles]
        self.wans = {number + 1: port for number, port in enumerate(wans)}

    @staticmethod
    def _slots(entries: list[dict[str, Any]]) -> dict[int, tuple[list[str], int]]:
        """Ethernet index -> (roles, port): LAN-capable ports from 0 up, WAN-only ports from 15 down."""
        slots, low, high = {}, 0, 15
        for entry in entries:
            roles = entry["role"].split(",")
            if "index" in entry:
                index = entry["index"]
            elif LAN in roles:
                index, low = low, low + 1
            else:
                index, high = high, high - 1
            slots[index] = (roles, entry["num"])
        return slots

    def port(self, name: str) -> int | None:
        """Switch port of "lan2" or "wan1"; None when this board has no such port."""
        table = {LAN: self.lans, WAN: self.wans}.get(name[:3], {})
        return table.get(int(name[3:])) if name[3:].isdigit() else None

    def serves(self, port: int) -> list[str]:
        """Names a person knows a port by, such as ["LAN 4", "WAN 2"]."""
        return ([f"LAN {n}" for n, p in self.lans.items() if p == port]
                + [f"WAN {n}" for n, p in self.wans.items() if p == port])


def read_hosts(path: pathlib.Path, board: Board) -> list[str]:
    """Plan lines from a "hosts" file: "NAME PORT-NAME", then indented lines for ip(8) in that host."""
    lines, host = [], None
    for at, text in enumerate(path.read_text().splitlines(), 1):
        words = text.split("#")[0].split()
        if not words:
            continue
        if not text[0].isspace():
            if len(words) != 2:
                raise ConfigError(f"{path}:{at}: expected a host's name and its port")
            port = board.port(words[1])
            host = words[0] if port is not None else None      # this board has no such port: nobody sits there
            if host:
                lines.append(f"host {host} {port}")
        elif host:
            lines.append(f"ip {host} {' '.join(words)}")
    return lines


def write_lab(folder: pathlib.Path, board: Board, config: str, extra_plan: Sequence[str] = ()) -> None:
    """Fills folder with what the board's supervisor raises a lab from; replaces what was there, unless the
    configuration cannot be read."""
    source = find("configs", config)
    plan = [f"# written by lab/lab for board {board.name}, configuration {source.name}",
            f"cpu-ports {2 if board.cpu_ports >= 2 else 1}"]
    plan += read_hosts(source / "hosts", board)
    plan += extra_plan
    shutil.rmtree(folder, ignore_errors=True)
    rootfs = folder / "rootfs"
    shutil.copytree(paths.ROOT / "image/files", rootfs)
    shutil.copytree(paths.LAB / "peers", rootfs / "usr/bin")       # commands for the hosts of the board
    shutil.copy(paths.LAB / "rc/rc.common", rootfs / "etc/rc.common")
    (folder / "root").mkdir()
    shutil.copy(board.path, rootfs / "etc/board.json")
    for sample in (rootfs / "etc/config").iterdir():
        sample.unlink()
    for item in source.iterdir():
        if item.name != "hosts":
            laid = shutil.copy(item, rootfs / "etc/config" / item.name)
            laid.chmod(0o600)       # a PPPoE password may be in it
    (folder / "plan").write_text("\n".join(plan) + "\n")
