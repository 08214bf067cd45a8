"""The ways out of docs/behaviour.md: the blocks of commands behind "What to do", as a reader would type them."""

from __future__ import annotations

import json
import re
from dataclasses import dataclass

from tests.docs import books

WAY = "*What to do:*"


@dataclass(frozen=True)
class Step:
    """A command on the router; status: what the bus answers to a call, else that of the command."""

    command: str
    status: int = 0


@dataclass(frozen=True)
class Pointer:
    """The command that shows a surprise, and words of its output where the example is that of the way out."""

    command: str
    words: str = ""


def step(line: str) -> Step:
    """A line of the book; behind a command that is refused stands the status."""
    command, _, remark = line.partition("    # status ")
    return Step(command, int(remark or 0))


def call(method: str, status: int = 0, /, **fields: object) -> Step:
    """A call of the daemon; object and method, or a method of ivarode.intf."""
    name, _, own = method.rpartition(".")
    return Step(f"ubus call {name or 'ivarode.intf'} {own} '{json.dumps(fields)}'", status)


def sections() -> dict[str, str]:
    """{heading: what stands behind "What to do"}, in the book's order."""
    return {heading: text.partition(WAY)[2] for heading, text in books.sections(books.text("behaviour.md")).items()
            if WAY in text}


def ways() -> dict[str, list[list[Step]]]:
    """{heading: its blocks of commands}"""
    return {heading: [[step(line) for line in block.splitlines()]
                      for block in re.findall(r"^```sh\n(.*?)^```", text, re.M | re.S)]
            for heading, text in sections().items()}


def pointers() -> dict[str, list[Pointer]]:
    """{heading: the commands that show it}, of the surprises, in the book's order."""
    book = books.text("behaviour.md")
    surprises = re.findall("^### (.*)$", book, re.M)
    line = re.compile(r"^\*Seen with:\* `([^`]*)`(?:: `([^`]*)`\.$)?", re.M)
    return {heading: [Pointer(*found) for found in line.findall(books.sections(book)[heading])]
            for heading in surprises}
