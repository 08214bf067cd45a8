"""lab/lab ubus: the router's own tool, with the status of a call as a name and a number."""

from __future__ import annotations

import re
import sys
from collections.abc import Sequence

from . import client

WITH_VALUE = ("-s", "-t")
# What the tool says where nobody sits at a terminal; for status 2 its own usage follows.
FAILED = re.compile(r"Command failed: (?:ubus call .*\()?([^()\n]+)\)?\n")
ANSWERED = (1, 2, 9)    # by the daemon; the others come of the bus
LOWEST = 236            # the tool shows a status as its negative, cut to a byte


def is_call(words: Sequence[str]) -> bool:
    """Whether the tool is asked to call, and has not been asked to keep silent about what comes of it."""
    at = 0
    while at < len(words) and words[at].startswith("-"):
        if words[at] == "-S":
            return False
        at += 2 if words[at] in WITH_VALUE else 1
    return list(words[at:at + 1]) == ["call"] and len(words) >= at + 3 and "-S" not in words


def reason(status: int, said: str) -> tuple[int, str] | None:
    """The number of a bus status and its name, from how the tool ended; None where it says something else."""
    found = FAILED.match(said)
    if not found:
        return None
    own = re.fullmatch(r"Unknown error: (-?\d+)", found[1])
    if own:
        return int(own[1]), "Unknown error"
    return (256 - status if status >= LOWEST else status), found[1]


def call(lab: client.Lab, words: Sequence[str]) -> int:
    """Runs the call; the exit status is that of the bus."""
    result = lab.run("router", "ubus", *words, timeout=None)
    sys.stdout.write(result.out)
    why = reason(result.status, result.err)
    if result.status == 0 or why is None:
        sys.stderr.write(result.err)
        return result.status
    number, name = why
    logged = (number < 0 or number in ANSWERED) and any(word.startswith("ivarode.") for word in words)
    log = "; the reason is in lab/lab log" if logged else ""
    print(f"lab/lab: ubus answered with status {number} ({name}){log}", file=sys.stderr)
    return number & 0xff
