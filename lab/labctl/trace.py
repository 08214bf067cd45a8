"""Traces of the daemon for people: what it does at its seams, a line for each call."""

import re
from collections.abc import Iterator, Sequence

SEVERITIES = {("3", "error"): "ERROR", ("4", "warning"): "WARNING", ("5", "notice"): "NOTICE"}
SOCKET = re.compile(r"socket\(AF_INET, SOCK_DGRAM, 0\) = (\d+)$")
IOCTL = re.compile(r"ioctl\[(\d+)\] (.*)$")
SYSLOG = re.compile(r"syslog\((\d), (.*)\)$", re.S)
OUTLIB = re.compile(r"outlib_(\w+)\((.*)\)$", re.S)


def drawn_together(lines: Sequence[str]) -> Iterator[tuple[int, str]]:
    """Each line for people, and where in the trace it begins: a well-formed switch access, and a report on both
    channels, become one line.

    What is not well formed (a socket left open, a report on one channel only, another text) stays as it is.
    """
    at = 0
    while at < len(lines):
        taken = 1
        line = lines[at]
        opened = SOCKET.match(line)
        access = IOCTL.match(lines[at + 1]) if opened and at + 2 < len(lines) else None
        if opened and access and access[1] == opened[1] and lines[at + 2] == f"close({opened[1]}, socket)":
            line, taken = access[2], 3
        syslog = SYSLOG.match(line)
        said = OUTLIB.match(lines[at + 1]) if syslog and at + 1 < len(lines) else None
        if syslog and said and (syslog[1], said[1]) in SEVERITIES and same_text(syslog[2], said[2]):
            line, taken = f"{SEVERITIES[syslog[1], said[1]]} {said[2]}", 2
        elif (alone := OUTLIB.match(line)) and alone[1] in ("info", "debug"):
            line = f"{alone[1].upper()} {alone[2]}"
        yield at, line
        at += taken


def collapse(lines: Sequence[str]) -> list[str]:
    """The trace for people. A place of the call behind a line is left out."""
    return [text for _, text in drawn_together([line.split("\t@")[0] for line in lines])]


def unescaped_length(quoted: str) -> int:
    return len(re.sub(r"\\x..|\\.", "x", quoted[1:-1]))


def same_text(logged: str, said: str) -> bool:
    """The system log cuts at 1023 characters; the platform's output does not."""
    return logged == said or (unescaped_length(logged) == 1023 and said.startswith(logged[:-1]))
