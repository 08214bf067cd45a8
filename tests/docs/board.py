"""The one virtual board of the tests of the books, driven by the commands that the books show."""

from __future__ import annotations

import os
import pathlib
import shlex
import subprocess
import time
from collections.abc import Callable

from tests.docs import sandbox

LAB = sandbox.ROOT / "lab/lab"
NAME = "examples"
PATIENCE = 20.0     # seconds for what the kernel or a client does a moment later
PAUSE = 0.3


def run(command: str) -> tuple[int, str, str]:
    """Status, output without blanks at the ends of its lines, and errors of a command as the books write it."""
    words = shlex.split(command)
    assert words[0] == "lab/lab", command
    done = subprocess.run([str(LAB), "--name", NAME, *words[1:]], capture_output=True, text=True, timeout=120)
    shown = "".join(line.rstrip() + "\n" for line in done.stdout.splitlines())
    return done.returncode, shown, done.stderr


def until(check: Callable[[], object], seconds: float = PATIENCE * 3) -> None:
    deadline = time.monotonic() + seconds
    while not check():
        assert time.monotonic() < deadline
        time.sleep(PAUSE)


def built() -> bool:
    build = pathlib.Path(os.environ.get("IVARODE_BUILD", sandbox.ROOT / "build"))
    return os.geteuid() == 0 and (build / "bin/lab-agent").exists()
