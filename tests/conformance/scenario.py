"""Scenario files: how they are read. README.md beside this file describes them for people."""
from __future__ import annotations

import copy
import re
from collections.abc import Iterable, Iterator, Sequence
from pathlib import Path
from typing import NoReturn

from tests.conformance import notation
from tests.conformance.blocks import (NamedBlocks, Numbered, ScenarioError, blocks, expand_each, inserted, named_lines,
                                      repeated, words)
from tests.conformance.filtering import filtered
from tests.conformance.notation import Line

ROLES = {"lan": 1, "wan": 2, "either": 3}
CONTENT_STEPS = ("netdev", "fact")


class Step:
    def __init__(self, title: str, where: str) -> None:
        times = re.fullmatch(r"(\d+) times (.*)", title)
        self.title = times[2] if times else title
        self.times = int(times[1]) if times else 1
        self.where = where
        self.content: list[str] = []
        self.expected: list[str] = []
        self.only: list[str] = []
        self.hide: list[str] = []


class Scenario:
    def __init__(self, name: str, path: Path, line: int) -> None:
        self.name = name
        self.path = path
        self.line = line
        self.row = 0                        # of the block's table
        self.setup: list[Line] = []         # script lines
        self.first: list[Line] = []         # script lines of the first process alone
        self.only: list[str] = []
        self.hide: list[str] = []
        self.steps: list[Step] = []
        self.arguments: list[str] = []      # the daemon's arguments
        self.entry: list[str] = []          # an operation to call instead of running the daemon, with its arguments

    @property
    def where(self) -> str:
        return f"{self.path}:{self.line}"


def escape(value: str | bytes) -> str:
    if isinstance(value, str):
        value = value.encode("utf-8", "surrogateescape")
    out = []
    for byte in value:
        if byte == 0x5C:
            out.append("\\\\")
        elif 0x20 <= byte < 0x7F:
            out.append(chr(byte))
        else:
            out.append(f"\\x{byte:02x}")
    return "".join(out)


def script_text(lines: Iterable[Line]) -> str:
    return "".join("\t".join(escape(field) for field in line) + "\n" for line in lines)


def result_line(text: str, where: str) -> Line:
    """[#N] PATTERN = VALUE [-> OUT]"""
    match = re.fullmatch(r"(?:#(\d+)\s+)?(.+?)\s*=\s*(-?\d+)(?:\s*->\s*(.*))?", text)
    if not match:
        raise ScenarioError(where, f"not a result: {text}")
    nth, pattern, value, out = match.groups()
    return ("result", nth or "0", pattern.strip(), value, out or "")


class Parser:
    def __init__(self, fixtures: Fixtures, scenario: Scenario) -> None:
        self.fixtures = fixtures
        self.scenario = scenario
        self.where = ""

    def fail(self, text: str) -> NoReturn:
        raise ScenarioError(self.where, text)

    def number_of_words(self, line: Sequence[str], count: int) -> None:
        if len(line) != count:
            self.fail(f"{count} words expected: {' '.join(line)}")

    def board(self, content: list[str]) -> None:
        for line in content:
            parts = line.split()
            if parts[0] in ("mac", "cpu"):
                self.number_of_words(parts, 2)
                self.scenario.setup.append(tuple(parts))
            else:
                self.number_of_words(parts, 3)
                role = ROLES.get(parts[1], parts[1])
                self.scenario.setup.append(("port", parts[0].rstrip(":"), str(role), parts[2]))

    def uci(self, package: str, content: list[str]) -> None:
        lines = self.scenario.setup
        lines.append(("package", package))
        for line in content:
            parts = line.split(None, 1)
            if not line.startswith(" "):
                self.number_of_words(parts, 2)
                lines.append(("section", package, parts[0], parts[1].strip()))
            else:
                value = parts[1].strip() if len(parts) > 1 else ""
                quoted = value.startswith('"') and value.endswith('"') and len(value) > 1
                lines.append(("option", parts[0], notation.unquote(value) if quoted else value))

    def use(self, names: str) -> None:
        for name in re.split(r",\s*", names):
            if name not in self.fixtures:
                self.fail(f"no fixture {name!r}")
            fixture = self.fixtures[name]
            for part in ("setup", "first", "only", "hide"):
                getattr(self.scenario, part).extend(copy.copy(getattr(fixture, part)))

    def directive(self, line: str, content: list[str]) -> None:
        word, _, rest = line.partition(" ")
        rest = rest.strip()
        scenario = self.scenario
        if word == "use":
            self.use(rest)
        elif word == "only":
            scenario.only += rest.split()
        elif word == "hide":
            scenario.hide += rest.split()
        elif word == "show":
            scenario.setup.append(("show-" + rest,))
        elif word in ("entry", "arguments"):
            setattr(scenario, word, words(rest))
        elif word == "board":
            self.board(content)
        elif word == "uci":
            self.uci(rest, content)
        elif word == "result":
            scenario.first.append(result_line(rest, self.where))
        elif word == "fact":
            scenario.first += [("fact", text) for text in ([rest] if rest else []) + content]
        elif word in ("ports", "netdev", "netdev-unreadable", "time", "debug", "limit"):
            scenario.setup.append(statement(word, rest, content))
        else:
            self.fail(f"unknown word {word!r}")


def statement(word: str, rest: str, content: list[str]) -> Line:
    if word == "ports":
        return (word, *rest.split())
    if word == "netdev":
        return (word, "".join(line + "\n" for line in content))
    return (word, rest) if rest else (word,)


def step_script(step: Step) -> list[Line]:
    """The script lines of one step inside the event loop."""
    return single_script(step) * step.times


def single_script(step: Step) -> list[Line]:
    word, _, rest = step.title.partition(" ")
    rest = rest.strip()
    if word == "call":
        target = rest.split(None, 2)
        try:
            message = notation.fields(target[2] if len(target) > 2 else "")
        except notation.NotationError as error:
            raise ScenarioError(step.where, error) from error
        return [("call", target[0], target[1]), *message, (".",)]
    if word == "link":
        port, state = rest.split()
        return [("link", port, {"up": "1", "down": "0"}.get(state, state))]
    if word == "address":
        parts = [int(part) for part in rest.split()[0].split(".")]
        return [("address", str(int.from_bytes(bytes(parts), "big")), "1")]
    if word == "result":
        return [result_line(rest, step.where)]
    if word == "fact":
        return [("fact", text) for text in ([rest] if rest else []) + step.content]
    if word in ("timer", "objects", "counter", "forget"):
        return [(word,)]
    if word == "model":
        return [(word, rest)]
    if word in ("ports", "netdev", "netdev-unreadable", "time", "debug"):
        return [statement(word, rest, step.content)]
    raise ScenarioError(step.where, f"unknown step {word!r}")


def indented(lines: list[Numbered], at: int) -> tuple[list[str], int]:
    """The indented lines from `at` on, without their common four blanks, and the index behind them."""
    content = []
    while at < len(lines) and lines[at][1].startswith("    "):
        content.append(lines[at][1][4:])
        at += 1
    return content, at


def expectation(lines: list[Numbered], at: int, scenario: Scenario, named: NamedBlocks, where: str) -> int:
    """One expected line, a repeated group or a named block; the index behind it."""
    text = lines[at][1].strip()
    step = scenario.steps[-1]
    if text.startswith((": only ", ": hide ")):
        setattr(step, text[2:6], text[7:].split())
        return at + 1
    if text.startswith("<<"):
        step.expected += filtered(inserted(text, named, where), *filters(scenario, step))
        return at + 1
    match = re.fullmatch(r"repeat (\d+)", text)
    if match:
        group, after = indented(lines, at + 1)
        if not group:
            raise ScenarioError(where, "nothing to repeat")
        step.expected += [line.strip() for line in group] * int(match[1])
        return after
    step.expected.append(repeated(text))
    return at + 1


def filters(scenario: Scenario, step: Step) -> tuple[list[str], list[str]]:
    """The patterns of lines to show, and of those to hide: the step's own, or the scenario's."""
    return (step.only, step.hide) if step.only or step.hide else (scenario.only, scenario.hide)


class Fixtures(dict[str, Scenario]):
    """What scenarios share: set-ups by name, and named lines."""

    def __init__(self) -> None:
        super().__init__()
        self.named: NamedBlocks = {}


def parse_block(name: str, path: Path, start: int, lines: list[Numbered], fixtures: Fixtures,
                named: NamedBlocks) -> Scenario:
    scenario = Scenario(name, path, start)
    parser = Parser(fixtures, scenario)
    at = 0
    while at < len(lines):
        number, text = lines[at]
        where = parser.where = f"{path}:{number}"
        if text.startswith("> "):
            step = Step(repeated(text[2:].strip()), where)
            scenario.steps.append(step)
            at += 1
            if step.title.split()[0] in CONTENT_STEPS:
                step.content, at = indented(lines, at)
        elif scenario.steps:
            at = expectation(lines, at, scenario, named, where)
        else:
            content, at = indented(lines, at + 1)
            parser.directive(text, content)
    return scenario


def scenario_blocks(path: Path, named: NamedBlocks) -> Iterator[tuple[str, int, list[Numbered]]]:
    """The blocks of a file that are no named lines; those go into `named`, each before it is used."""
    for name, start, lines in blocks(path):
        block = named_lines(path, start, lines)
        if block is None:
            yield name, start, lines
        else:
            named[name] = block


def load(path: Path, fixtures: Fixtures) -> list[Scenario]:
    out = []
    named = dict(fixtures.named)
    for name, start, lines in scenario_blocks(path, named):
        for row, (row_name, row_lines) in enumerate(expand_each(name, lines, path, named)):
            out.append(parse_block(row_name, path, start, row_lines, fixtures, named))
            out[-1].row = row
    return out


def load_fixtures(path: Path) -> Fixtures:
    fixtures = Fixtures()
    for name, start, lines in scenario_blocks(path, fixtures.named):
        fixtures[name] = parse_block(name, path, start, lines, fixtures, fixtures.named)
    return fixtures


def load_all(folder: Path) -> list[Scenario]:
    fixtures = load_fixtures(folder / "fixtures.txt")
    out = []
    for path in sorted((folder / "scenarios").glob("*/*.txt")):
        out += load(path, fixtures)
    return out
