"""Small reading helpers for the books in docs/."""

from __future__ import annotations

import re
from dataclasses import dataclass

from tests.docs import sandbox

DOCS = sandbox.ROOT / "docs"


def find(pattern: str, where: str, flags: re.RegexFlag = re.S) -> re.Match[str]:
    """The first match, which must be there."""
    found = re.search(pattern, where, flags)
    assert found, pattern
    return found


def text(name: str) -> str:
    return (DOCS / name).read_text()


def tables(markdown: str) -> list[list[list[str]]]:
    """Tables as lists of rows of cells; the ruled line is left out."""
    found, table = [], []
    for line in markdown.splitlines() + [""]:
        if line.startswith("|"):
            cells = [cell.strip() for cell in re.split(r"(?<!\\)\|", line)[1:-1]]
            if not all(re.fullmatch(r":?-+:?", cell) for cell in cells):
                table.append(cells)
        elif table:
            found.append(table)
            table = []
    return found


def code(cell: str) -> list[str]:
    """What a cell shows as code, in order."""
    return re.findall(r"`([^`]*)`", cell)


def sections(markdown: str) -> dict[str, str]:
    """{heading: text below it, up to the next heading of any depth}"""
    parts = re.split(r"^#+ +(.*)$", markdown, flags=re.M)
    return dict(zip(parts[1::2], parts[2::2]))


def examples(book: str) -> list[tuple[int, str, list[str]]]:
    """[(line, command, expected lines)] of a book's console blocks."""
    found: list[tuple[int, str, list[str]]] = []
    inside = False
    for number, line in enumerate(text(book).splitlines(), 1):
        if line.startswith("```"):
            inside = line == "```console"
        elif inside and line.startswith("$ "):
            found.append((number, line[2:], []))
        elif inside:
            found[-1][2].append(line)
    return found


def matcher(expected: list[str]) -> re.Pattern[str]:
    """"..." stands for any number of lines; blanks at the end of a line do not count."""
    pattern = "".join("(?:.*\n)*?" if line == "..." else re.escape(line.rstrip()) + "\n" for line in expected)
    return re.compile(pattern + r"\Z")


@dataclass(frozen=True)
class Method:
    """A row of the bus book."""

    fields: list[tuple[str, str]]   # name, and text, number or array of texts
    statuses: set[int]
    platform: bool                  # also a failing platform call's own result
    changes: bool


def bus_methods() -> dict[str, dict[str, Method]]:
    """{object: {method: its row}}, in the book's order."""
    book = sections(text("bus.md"))
    objects = [code(row[0])[0] for row in tables(text("bus.md"))[0][1:]]
    found: dict[str, dict[str, Method]] = {}
    for name in objects:
        head, *rows = next(table for table in tables(book[f"`{name}`"]) if table[0][0] == "method")
        if head != ["method", "arguments", "statuses", "what it does"]:
            raise ValueError(f"docs/bus.md: the columns of {name}'s methods are {head}")
        found[name] = {code(row[0])[0]: Method(
            re.findall(r"`(\w+)`(?: \[)?[^,;<]*?: (text|number|array of texts)", row[1]),
            {int(status) for status in re.findall(r"-?\d+", row[2])}, "the platform's" in row[2],
            not row[3].endswith("changes nothing")) for row in rows}
    return found


def uci_options() -> dict[str, set[str]]:
    """{package: options read in src}"""
    src = sandbox.ROOT / "src"

    def read(*files: str) -> set[str]:
        text = "".join((src / name).read_text() for name in files)
        return set(re.findall(r'(?:\b(?:options\.)?(?:text|number|vlan|option))\("(\w+)"', text))

    return {"lan_intf": read("netintf/uci_lan.cpp"), "wan_intf": read("netintf/uci_wan.cpp"),
            "route_config": read("route/table.cpp"), "dhcp": read("netintf/dhcp_pool.cpp")}
