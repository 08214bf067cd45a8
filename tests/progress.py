"""How far a runner is, and how long its tests took: for ./test in the file that the environment names, else for a
terminal, as one line that renews itself. Any number of processes may say so at once.
"""

from __future__ import annotations

import os
import sys
from pathlib import Path

from labctl import terminal

PLACE = "IVARODE_PROGRESS"


def say(*words: object) -> bool:
    """Whether there is a file to say it in. One write, so lines of several processes stay whole."""
    if place := os.environ.get(PLACE):
        line = " ".join(str(word) for word in words).replace("\n", " ") + "\n"
        with open(place, "ab", buffering=0) as file:
            file.write(line.encode(errors="replace"))
    return place is not None


def at(done: int, total: int, name: str = "") -> None:
    """So many tests are done; one is running, or the last to be done."""
    if not say("at", done, total, name) and terminal.is_able(sys.stdout):
        line = f"{done}/{total} {name}"[:terminal.size(sys.stdout).columns - 1]
        print(f"\x1b[K{line if done < total else ''}", end="\r", flush=True)


def took(seconds: float, name: str) -> None:
    """A test has ended."""
    say("took", f"{seconds:.3f}", name)


class Heard:
    """What the processes of one kind have said so far."""

    def __init__(self, place: Path) -> None:
        self.file = open(place, "a+b")
        self.last: tuple[int, int, str] | None = None
        self.times: list[tuple[float, str]] = []
        self.rest = b""

    def look(self) -> None:
        *lines, self.rest = (self.rest + self.file.read()).split(b"\n")
        for line in lines:
            verb, first, rest = line.decode(errors="replace").split(" ", 2)
            if verb == "at":
                total, _, name = rest.partition(" ")
                self.last = int(first), int(total), name
            else:
                self.times.append((float(first), rest))
