"""Small reading helpers for the books in docs/."""

import re

from tests.docs import sandbox

DOCS = sandbox.ROOT / "docs"


def text(name):
    return (DOCS / name).read_text()


def tables(markdown):
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


def code(cell):
    """What a cell shows as code, in order."""
    return re.findall(r"`([^`]*)`", cell)


def sections(markdown):
    """{heading: text below it, up to the next heading of any depth}"""
    parts = re.split(r"^#+ +(.*)$", markdown, flags=re.M)
    return dict(zip(parts[1::2], parts[2::2]))
