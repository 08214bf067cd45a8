"""A terminal to run a program on: a pseudo-terminal of some size, and what a person sees on it."""

from __future__ import annotations

import fcntl
import os
import pty
import re
import signal
import struct
import subprocess
import termios
import threading
from collections.abc import Callable, Mapping, Sequence

from tests.docs import sandbox

PIECE = re.compile(r"\x1b\[(\d*)([A-Za-z])|(\x1b)|([\r\n\b])|([^\x1b\r\n\b]+)")
LIMIT = 120.0


class Screen:
    """What the bytes of a program leave on a terminal, as far as our own programs use one."""

    def __init__(self, columns: int, rows: int) -> None:
        self.columns, self.rows = columns, rows
        self.lines = [""]           # those that have scrolled away, too
        self.row = self.column = 0
        self.wraps: list[str] = []  # lines that did not fit
        self.seen: list[str] = []   # each that stood on the screen when the cursor left it or it was erased

    def take(self, text: str) -> None:
        for number, verb, odd, move, plain in PIECE.findall(text):
            assert not odd, text
            if verb:
                self.command(verb, int(number or 0))
            elif move == "\n":
                self.seen.append(self.lines[self.row])
                self.row += 1
                self.lines += [""] * (self.row + 1 - len(self.lines))
            elif move:
                self.column = 0 if move == "\r" else max(self.column - 1, 0)
            else:
                line = self.lines[self.row].ljust(self.column)
                self.lines[self.row] = line[:self.column] + plain + line[self.column + len(plain):]
                self.column += len(plain)
                if self.column > self.columns:
                    self.wraps.append(self.lines[self.row])

    def command(self, verb: str, number: int) -> None:
        if verb == "A":
            self.row -= number or 1
            assert self.row >= len(self.lines) - self.rows, "above the top"
        elif verb in "JK":
            below = self.lines[self.row + 1:] if verb == "J" else []
            self.seen += [self.lines[self.row], *below]
            self.lines[self.row] = self.lines[self.row][:self.column]
            del self.lines[len(self.lines) - len(below):]
        else:
            assert verb == "m", verb

    def last(self) -> list[str]:
        """The lines that can be seen at the end."""
        return self.lines[-self.rows:]


class Ended:
    def __init__(self, status: int, text: str, screen: Screen) -> None:
        self.status, self.text, self.screen = status, text, screen


def settle() -> None:
    """In the program, before it begins: the terminal is its own, and Ctrl-C means what it means to a person."""
    signal.signal(signal.SIGINT, signal.SIG_DFL)
    fcntl.ioctl(0, termios.TIOCSCTTY, 0)


def run(words: Sequence[object], columns: int = 80, rows: int = 24, env: Mapping[str, str] | None = None,
        said: Callable[[str], bytes] = lambda _: b"") -> Ended:
    """Runs a program with a terminal of its own; said gets all of its output so far and gives what is typed."""
    ours, theirs = pty.openpty()
    fcntl.ioctl(theirs, termios.TIOCSWINSZ, struct.pack("HHHH", rows, columns, 0, 0))
    plain = {key: value for key, value in os.environ.items() if key not in ("NO_COLOR", "PAGER", "COLUMNS", "LINES")}
    process = subprocess.Popen([str(word) for word in words], stdin=theirs, stdout=theirs, stderr=theirs,
                               cwd=sandbox.ROOT, env={**plain, "TERM": "xterm", "LC_ALL": "C.UTF-8", **(env or {})},
                               start_new_session=True, preexec_fn=settle)
    os.close(theirs)
    late = threading.Timer(LIMIT, process.kill)
    late.start()
    raw = b""
    try:
        while True:
            try:
                more = os.read(ours, 65536)
            except OSError:         # its last process has closed it
                break
            if not more:
                break
            raw += more
            if typed := said(raw.decode(errors="ignore")):
                os.write(ours, typed)
        status = process.wait()
    finally:
        late.cancel()
        process.kill()
        os.close(ours)
    screen = Screen(columns, rows)
    screen.take(raw.decode())
    return Ended(status, raw.decode(), screen)
