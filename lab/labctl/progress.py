"""A line on a terminal that says what is waited for, and for how long; gone when the waiting is over."""

from __future__ import annotations

import contextlib
import sys
import threading
import time
from collections.abc import Iterator
from typing import TextIO

STEP = 1.0      # seconds between two pictures of the line


@contextlib.contextmanager
def shown(text: str, stream: TextIO | None = None) -> Iterator[None]:
    """Shows nothing where the stream (default: standard error) is no terminal."""
    out = sys.stderr if stream is None else stream
    if not out.isatty():
        yield
        return
    began, over = time.monotonic(), threading.Event()

    def draw() -> None:
        while True:
            out.write(f"\r{text} ... {time.monotonic() - began:.0f} s")
            out.flush()
            if over.wait(STEP):
                return

    thread = threading.Thread(target=draw, daemon=True)
    thread.start()
    try:
        yield
    finally:
        over.set()
        thread.join()
        out.write("\r\x1b[K")
        out.flush()
