"""Blocks of scenario files: their tables ("each"), and named blocks of expected lines ("lines", "<<")."""
import fnmatch
import re
from collections.abc import Iterator, Mapping
from dataclasses import dataclass
from pathlib import Path

from tests.conformance import notation

Numbered = tuple[int, str]      # a line and its number
WORD = re.compile(r'"(?:[^"\\]|\\.)*"|\S+')
VARIABLE = re.compile(r"\$(?:\{([a-z_]+[0-9]?)\}|([a-z_]+[0-9]?))")
CALLS = re.compile(r"call of (\S+) that changes(?: but (.*))?")


class ScenarioError(ValueError):
    def __init__(self, where: str, text: object) -> None:
        super().__init__(f"{where}: {text}")


@dataclass
class NamedLines:
    """Expected lines that several steps share, with names in them for what differs."""

    where: str
    names: list[str]
    lines: list[str]


NamedBlocks = dict[str, NamedLines]


def words(text: str) -> list[str]:
    return [notation.unquote(word).decode() if word[0] == '"' else word for word in WORD.findall(text)]


def fill(text: str, values: Mapping[str, str]) -> str:
    """With $name and ${name} replaced where the name is known."""
    return VARIABLE.sub(lambda match: values.get(match[1] or match[2], match[0]), text)


def repeated(text: str) -> str:
    """With each "<x*40>" written out as forty characters."""
    return re.sub(r"<(.)\*(\d+)>", lambda match: match[1] * int(match[2]), text)


def blocks(path: Path) -> Iterator[tuple[str, int, list[Numbered]]]:
    """(name, first line number, [(line number, text)]) of each block of a file."""
    name, start = "", 0
    lines: list[Numbered] = []
    for number, text in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
        if text.startswith("#"):
            continue
        if text.startswith("=== "):
            if name:
                yield name, start, lines
            name, start, lines = text[4:].strip(), number, []
        elif name and text.strip():
            lines.append((number, text.rstrip()))
    if name:
        yield name, start, lines


def named_lines(path: Path, start: int, lines: list[Numbered]) -> NamedLines | None:
    """The block as named lines; None for a scenario."""
    if not lines or lines[0][1].split()[0] != "lines":
        return None
    return NamedLines(f"{path}:{start}", lines[0][1].split()[1:], [text.strip() for _, text in lines[1:]])


def inserted(line: str, named: NamedBlocks, where: str) -> list[str]:
    """What "<< NAME ARGUMENT..." stands for."""
    name, *arguments = words(line[2:]) or [""]
    block = named.get(name)
    if block is None:
        raise ScenarioError(where, f"no lines are named {name!r}")
    if len(arguments) != len(block.names):
        raise ScenarioError(where, f"{name} wants {len(block.names)} words: {' '.join(block.names)}")
    out: list[str] = []
    for text in block.lines:
        text = fill(text, dict(zip(block.names, arguments)))
        out += inserted(text, named, block.where) if text.startswith("<<") else [repeated(text)]
    return out


def calls_that_change(name: str, but: str, named: NamedBlocks, where: str) -> list[str]:
    """The calls of named lines that are neither questions nor among the words left out."""
    calls = [line.rpartition(" = ")[0] for line in inserted(f"<< {name}", named, where) if " = " in line]
    left_out = ["*_is_exist", *but.split()]
    return [call for call in calls
            if not any(fnmatch.fnmatchcase(call.partition("(")[0], pattern) for pattern in left_out)]


def table(lines: list[Numbered], at: int, named: NamedBlocks, where: str) -> tuple[list[dict[str, str]], int]:
    """The rows of the table whose head is line `at`, and the index behind it."""
    columns = [column.strip() for column in lines[at][1][5:].split(" | ")]
    rows: list[dict[str, str]] = []
    of_block = CALLS.fullmatch(columns[0])
    if of_block:
        columns[0] = "call"
    end = at + 1
    while end < len(lines) and lines[end][1].startswith(" "):
        cells = [cell.strip() for cell in lines[end][1].strip().split(" | ")]
        if len(cells) != len(columns):
            raise ScenarioError(f"{where}:{lines[end][0]}", f"{len(columns)} cells expected: {lines[end][1].strip()}")
        rows.append(dict(zip(columns, cells)))
        end += 1
    if not of_block:
        return rows, end
    given = {row["call"]: row for row in rows}
    calls = calls_that_change(of_block[1], of_block[2] or "", named, f"{where}:{lines[at][0]}")
    for call in given.keys() - {"*"} - set(calls):
        raise ScenarioError(f"{where}:{lines[at][0]}", f"not a call of {of_block[1]} that changes: {call}")
    return [{**given.get(call, given.get("*", {})), "call": call} for call in calls], end


def fill_lines(lines: list[Numbered], values: dict[str, str]) -> list[Numbered]:
    filled: list[Numbered] = []
    for number, text in lines:
        new = fill(text, values)
        # A cell may hold several lines, or none.
        if text.strip().startswith("$") and text.strip()[1:] in values:
            indent = text[:len(text) - len(text.lstrip())]
            filled += [(number, indent + part.strip()) for part in new.strip().split(" // ")
                       if part.strip() not in ("", "-")]
        else:
            filled.append((number, new))
    return filled


def expand_each(name: str, lines: list[Numbered], where: Path,
                named: NamedBlocks) -> Iterator[tuple[str, list[Numbered]]]:
    """A block with a table ("each A | B" and its indented rows) becomes one block for each row."""
    at = next((i for i, (_, text) in enumerate(lines) if text.startswith("each ")), None)
    if at is None:
        yield name, lines
        return
    rows, end = table(lines, at, named, str(where))
    seen = set()
    for values in rows:
        cells = list(values.values())
        row_name = fill(name, values)
        if row_name == name or row_name in seen:
            first = values.get("call", cells[0])
            row_name += f" [{first}]" if f"{row_name} [{first}]" not in seen else f" [{' | '.join(cells)}]"
        seen.add(row_name)
        yield row_name, fill_lines(lines[:at] + lines[end:], values)
