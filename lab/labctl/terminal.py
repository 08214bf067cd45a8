"""What a person at a terminal sees: how large it is, whether it takes colours, and lines at its end that renew
themselves. Nothing here writes a control character to what is no terminal, or a dumb one."""

from __future__ import annotations

import contextlib
import os
import re
import shutil
import subprocess
import sys
import textwrap
import threading
import time
from collections.abc import Callable, Iterator
from typing import TextIO

TICK = 1.0          # seconds between two pictures of the lines
BAR = 20
USUAL = os.terminal_size((80, 24))
HOW_FAR = re.compile(r"\[(\d+)/(\d+)\] ?(.*)")         # of ninja


def is_able(out: TextIO) -> bool:
    """Whether lines can be renewed there."""
    return out.isatty() and os.environ.get("TERM", "dumb") != "dumb"


def has_colours(out: TextIO) -> bool:
    return is_able(out) and not os.environ.get("NO_COLOR")


def size(out: TextIO) -> os.terminal_size:
    """Columns and rows; the usual ones of what has none."""
    with contextlib.suppress(OSError, ValueError):
        found = os.get_terminal_size(out.fileno())
        if found.columns and found.lines:
            return found
    return USUAL


def fits(text: str, out: TextIO, below: int = 0) -> bool:
    """Whether a text stands on the terminal as a whole, above so many lines and the cursor's."""
    return not out.isatty() or text.count("\n") + 1 + below < size(out).lines


def painted(code: int, text: str, out: TextIO) -> str:
    return f"\x1b[{code}m{text}\x1b[0m" if has_colours(out) else text


def wrapped(text: str, out: TextIO, indent: int) -> str:
    """Lines cut between words at the width of a terminal, what follows indented; unchanged where there is none."""
    if not out.isatty():
        return text
    wrapper = textwrap.TextWrapper(size(out).columns, subsequent_indent=" " * indent, break_on_hyphens=False)
    return "\n".join(wrapper.fill(line) for line in text.split("\n"))


def show(text: str, out: TextIO | None = None) -> None:
    """Prints a text; one that is higher than the terminal, by the pager that there is."""
    out = out or sys.stdout
    words = (os.environ.get("PAGER") or "less").split()
    if is_able(out) and not fits(text, out) and words and shutil.which(words[0]):
        out.flush()
        subprocess.run(words, input=text.encode() + b"\n", env={"LESS": "FRX", **os.environ}, check=False)
    else:
        print(text, file=out, flush=True)


class Step:
    """One thing that is being done, as a line: what it is, how far it has come, for how long."""

    def __init__(self, what: str, seconds: float = 0.0, look: Callable[[Step], None] | None = None) -> None:
        """seconds: how long it usually takes; look: asked how far it is before each picture."""
        self.what, self.seconds, self.look = what, seconds, look
        self.done, self.total, self.note = 0, 0, ""
        self.began, self.since = time.monotonic(), time.time()

    def at(self, done: int, total: int, note: str = "") -> None:
        self.done, self.total, self.note = done, total, note

    def heard(self, line: str) -> bool:
        """Whether a line of a program's output said how far it is."""
        found = HOW_FAR.match(line)
        if found:
            self.at(int(found[1]), int(found[2]), found[3].rstrip())
        return found is not None

    def shown(self, columns: int) -> str:
        if self.look:
            self.look(self)
        gone = time.monotonic() - self.began
        if self.total:
            part, figures = self.done / self.total, f"{self.done}/{self.total}  {gone:.0f} s  {self.note}"
        elif self.seconds:
            part, figures = gone / self.seconds, f"{gone:.0f} s, usually {self.seconds:.0f}"
        else:
            return f"{self.what} ... {gone:.0f} s  {self.note}".rstrip()[:columns - 1]
        full = int(BAR * min(part, 1.0))
        return f"{self.what}  {'█' * full}{'░' * (BAR - full)}  {figures}".rstrip()[:columns - 1]


class Live:
    """A stream above the lines of what is being done, which renew themselves; a plain one where that cannot be.

    rows: how many steps are shown, of those that go on the last that began.
    """

    def __init__(self, out: TextIO, rows: int = 1) -> None:
        self.out, self.able, self.rows = out, is_able(out), rows
        self.steps: list[Step] = []
        self.drawn, self.rest = 0, ""
        self.lock, self.over = threading.RLock(), threading.Event()

    def write(self, text: str) -> int:
        with self.lock:
            if not self.able:
                return self.out.write(text)
            whole, newline, self.rest = (self.rest + text).rpartition("\n")
            if newline:
                self._erase()
                self.out.write(whole + newline)
                self._draw()
        return len(text)

    def flush(self) -> None:
        self.out.flush()

    @contextlib.contextmanager
    def doing(self, what: str | Step, seconds: float = 0.0) -> Iterator[Step]:
        """Shows a step below what is written, until it is over."""
        step = what if isinstance(what, Step) else Step(what, seconds)
        with self.lock:
            self.steps.append(step)
            self._renew()
        try:
            yield step
        finally:
            with self.lock:
                self.steps.remove(step)
                self._renew()

    def __enter__(self) -> Live:
        if self.able:
            threading.Thread(target=self._tick, daemon=True).start()
        return self

    def __exit__(self, *_: object) -> None:
        self.over.set()
        with self.lock:
            self.steps.clear()
            if self.rest:
                self.write("\n")
            self._renew()

    def _tick(self) -> None:
        while not self.over.wait(TICK):
            with self.lock:
                if not self.over.is_set():
                    self._renew()

    def _renew(self) -> None:
        if self.able:
            self._erase()
            self._draw()

    def _erase(self) -> None:
        if self.drawn:
            self.out.write((f"\x1b[{self.drawn - 1}A" if self.drawn > 1 else "") + "\r\x1b[J")
            self.drawn = 0

    def _draw(self) -> None:
        columns, lines = size(self.out)
        shown = [step.shown(columns) for step in self.steps[-min(self.rows, lines - 1):]]
        self.out.write("\n".join(shown))
        self.out.flush()
        self.drawn = len(shown)


@contextlib.contextmanager
def doing(what: str, seconds: float = 0.0, out: TextIO | None = None) -> Iterator[Live]:
    """One step, shown while it goes on; what is written to the result stands above it."""
    with Live(sys.stderr if out is None else out) as live, live.doing(what, seconds):
        yield live
