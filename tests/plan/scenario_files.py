"""Scenarios of tests/conformance as ivarode-plan takes them: files, and words of the command line.

Left out is what files or a command line cannot say: results that are demanded, facts, ports of other roles, sections
with names that are none, messages with broken fields. A scenario is taken up to its first such step.
"""

import json
import pathlib
import re
import struct
from dataclasses import dataclass, field

from tests.conformance import notation
from tests.conformance.scenario import Scenario, Step, single_script

ROLES = {"1": "lan", "2": "wan", "3": "lan,wan"}
LOOKING = ("model", "objects", "counter", "start")
SECOND_PORT = ("fact", "device eth1 = port")


@dataclass
class Files:
    board: dict[str, object]
    packages: dict[str, str] = field(default_factory=dict)

    def write(self, folder: pathlib.Path) -> list[object]:
        """Lays the files; the words that name them."""
        (folder / "config").mkdir()
        (folder / "board.json").write_text(json.dumps(self.board))
        for name, text in self.packages.items():
            (folder / "config" / name).write_text(text)
        return ["--board", folder / "board.json", "--config", folder / "config"]


def files_of(scenario: Scenario) -> Files | None:
    mac, cpu = "00:00:00:00:00:00", "0"
    ports: list[dict[str, object]] = [{"num": 5, "device": "eth1"}] if SECOND_PORT in scenario.first else []
    numbers: list[int] = []
    packages: dict[str, str] = {}
    current, names = "", set()
    if scenario.entry or any(line != SECOND_PORT for line in scenario.first):
        return None
    for line in scenario.setup:
        word, *rest = (str(part) for part in line)
        if word == "mac":
            mac = rest[0]
        elif word == "cpu":
            cpu = f"{int(rest[0], 0):x}"
        elif word == "port":
            if rest[1] not in ROLES or int(rest[2]) > 7 or int(rest[2]) in numbers:
                return None
            numbers.append(int(rest[2]))
            ports.append({"index": int(rest[0]), "role": ROLES[rest[1]], "num": numbers[-1]})
        elif word == "package":
            packages[rest[0]] = ""
        elif word == "section":
            current, name = rest[0], rest[2]
            if not re.fullmatch(r"\w+", name) or (current, name) in names:
                return None
            names.add((current, name))
            packages[current] += f"config {rest[1]} '{name}'\n"
        elif word == "option":
            if not re.fullmatch(r"[ -&(-~]*", rest[1]) or not re.fullmatch(r"\w+", rest[0]):
                return None
            packages[current] += f"\toption {rest[0]} '{rest[1]}'\n"
    board = {"system": {"label_macaddr": mac}, "switch": {"switch0": {"ports": ports}}, "ivarode": {"cpuid": cpu}}
    return Files(board, packages)


def value(kind: int, data: bytes) -> object:
    if kind == notation.STRING and data.endswith(b"\0") and re.fullmatch(rb"[ -~]*", data[:-1]):
        return data[:-1].decode()
    if kind == notation.INT32 and len(data) == 4:
        return struct.unpack(">i", data)[0]
    raise ValueError("no value of JSON")


def message(lines: list[notation.Line]) -> dict[str, object]:
    """Of texts, numbers and lists of them; ValueError for others and for a name that comes twice."""
    out: dict[str, object] = {}
    open_list: list[object] | None = None
    for word, kind, name, data in lines:
        key, number = (name if isinstance(name, bytes) else str(name).encode()).decode(), int(kind)
        if word == "close":
            open_list = None
        elif word == "open":
            if number != notation.ARRAY or open_list is not None or key in out:
                raise ValueError("no simple list")
            open_list = []
            out[key] = open_list
        else:
            one = value(number, data if isinstance(data, bytes) else str(data).encode())
            if open_list is not None:
                open_list.append(one)
            elif key in out:
                raise ValueError("a name comes twice")
            else:
                out[key] = one
    return out


def words_of(step: Step) -> list[str] | None:
    """None where a command line cannot say it."""
    title = step.title.split(None, 2)
    if title[0] == "call":
        try:
            lines = single_script(step)[1:-1]
            return ["--call", f"{title[1]} {title[2].split(None, 1)[0]} {json.dumps(message(lines))}"]
        except (ValueError, UnicodeDecodeError):
            return None
    if title[0] == "link" and title[1] in ("0", "1", "2", "3", "4"):
        return ["--link", f"{title[1]}={title[2]}"] if title[2] in ("up", "down") else None
    if title[0] == "address":
        return ["--address", title[1]]
    return None


def steps_of(scenario: Scenario) -> tuple[list[str], list[int | None]]:
    """Words of the steps, and of each the status that the scenario expects, if it says one."""
    words: list[str] = []
    statuses: list[int | None] = []
    for step in scenario.steps:
        if step.title.split()[0] in LOOKING:
            continue
        more = words_of(step)
        if more is None:
            break
        said = [int(line.split()[1]) for line in step.expected if re.fullmatch(r"(status|returned) -?\d+", line)]
        words += more * step.times
        statuses += [None] * (step.times - 1) + [said[-1] if said else None]
    return words, statuses
