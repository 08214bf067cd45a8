"""A recording as a scenario of tests/conformance: what was configured, each event, and every line that it left.

The simulated world answers most calls as the router did; where it would not, the scenario states the result.
"""

from __future__ import annotations

import pathlib
import re
import tempfile
import time
from collections.abc import Iterator, Sequence

from . import recordings, trace
from .messages import unquoted
from .recordings import Record, RecordingError

ROLES = {"1": "lan", "2": "wan", "3": "either"}
WALK = re.compile(r'ucilib_foreach_section\("(.*)", "(.*)"\) \{$')
OPTION = re.compile(r'ucilib_lookup_option_string\((?P<section>"(?:[^"\\]|\\.)*"), "(?P<name>[^"]*)", '
                    r'(?P<value>"(?:[^"\\]|\\.)*")\)$')
QUOTED = r'"(?:[^"\\]|\\.)*"'
ADDRESS = re.compile(r"0x[0-9a-f]{6,}")
END = "cmdlib_kill_processes() = 0"


def indented(lines: Sequence[str]) -> list[str]:
    return ["    " + line for line in lines]


def board(found: Sequence[Record]) -> list[str]:
    lines = {}
    for record in found:
        if record.text == "sys_bdinfo_macbase_get()":
            lines["mac"] = f"mac {record.hidden}"
        elif record.text == "sys_bdinfo_cpuid_get()":
            lines["cpu"] = f"cpu {record.hidden}"
        elif (port := re.fullmatch(r"sys_bdinfo_ether_get\((\d+)\)", record.text)) and record.hidden:
            role, number = record.hidden.split()
            lines[port[1]] = f"{port[1]}: {ROLES.get(role, role)} {number}"
    return ["board", *indented(list(lines.values()))]


def option_line(value: str) -> str:
    text = value[1:-1]
    return text if re.fullmatch(r"[\w.:/-]+", text) else value


def configuration(found: Sequence[Record]) -> Iterator[str]:
    """The sections in the order in which they were walked, with the options that were looked for and set."""
    package = kind = ""
    packages: dict[str, list[str]] = {}
    for record in found:
        if walk := WALK.match(record.text):
            package, kind = walk[1], walk[2]
            packages.setdefault(package, [])
        elif record.kind == "section":
            packages[package].append(f"{kind} {unquoted(record.text)}")
        elif record.kind == "option" and record.hidden == "0" and (option := OPTION.match(record.text)):
            packages[package].append(f"    {option['name']} {option_line(option['value'])}")
    for name, lines in packages.items():
        yield f"uci {name}"
        yield from indented(lines)


def notation(message: str) -> str:
    """A message as a step writes it, from how a trace shows it."""
    suffixes = {":int64": "L", ":int16": "s", ":int8": "b"}
    if re.search(r":unterminated|not well formed|\?", re.sub(QUOTED, '""', message)):
        raise RecordingError(f"a scenario cannot say this message: {message}")
    return re.sub(rf"({QUOTED})|(:int(?:64|16|8))\b", lambda found: found[1] or suffixes[found[2]], message)


def step(record: Record) -> str:
    head, brace, message = record.text.partition(" {")
    return head + " " + notation("{" + message) if brace else record.text


def event_lines(event: Record, behind: Sequence[Record]) -> Iterator[str]:
    """A step with what it left."""
    table = next((one.hidden for one in behind if one.text.startswith("fopen(")), "")
    if event.text == "> timer" and table:
        yield "> netdev"
        yield from indented(unquoted(table).splitlines())
    yield step(event)
    yield from expected(behind)
    yield from (f"> debug {one.text}" for one in behind if one.kind == "debug")


def expected(found: Sequence[Record]) -> list[str]:
    lines = trace.collapse([one.text for one in found if one.kind in ("call", "line")])
    return [ADDRESS.sub("<pointer>", line) if line.startswith(("ERROR", "INFO", "DEBUG")) else line for line in lines]


def up_to(found: list[Record], last_event: int | None) -> list[Record]:
    """All up to an event, or up to what has been overwritten."""
    end = next((at for at, one in enumerate(found) if one.kind == "gap"), len(found))
    events = [at for at, one in enumerate(found[:end]) if one.kind == "event"]
    return found[:end if last_event is None or last_event >= len(events) else events[last_event]]


def written(file: pathlib.Path, last_event: int | None, daemon: pathlib.Path | None = None) -> str:
    found = recordings.records(file)
    taken = up_to(found, last_event)
    is_over = bool(taken) and taken[-1].kind == "over"
    taken = taken[:-1] if is_over else taken
    events = [at for at, one in enumerate(taken) if one.kind == "event"]
    loop = any(one.text.startswith("uloop_run(") for one in taken)
    if not loop and not is_over:
        raise RecordingError(f"{file}: the daemon did not come to the end of its start")
    # The last call of a process that ends in order is no part of the event before it.
    end = taken.pop() if is_over and loop else None
    begun = time.strftime("%Y-%m-%d %H:%M:%S", time.gmtime(found[0].time))
    lines = [f"=== recorded from {begun} on", *arguments(found), *board(taken), *configuration(taken)]
    lines += [*rules(file, taken, daemon), "> start", *start(taken[:events[0] if events else len(taken)])]
    lines += [] if loop else ["exit -3"]
    for event, following in zip(events, [*events[1:], len(taken)]):
        lines += event_lines(taken[event], taken[event + 1:following])
    if end is not None and end.text != END:
        lines += ["> end", end.text, "exit 0"]
    return "\n".join(lines) + "\n"


def arguments(found: Sequence[Record]) -> list[str]:
    words = recordings.arguments_of(found)
    return [f"arguments {' '.join(words)}"] if words else []


def start(found: Sequence[Record]) -> list[str]:
    """The lines of the start, and the debug word as it was at its end, where somebody has set it meanwhile."""
    words = [one.text for one in found if one.kind == "debug"]
    return expected(found) + [f"> debug {word}" for word in words[1:]]


def rules(file: pathlib.Path, taken: Sequence[Record], daemon: pathlib.Path | None) -> list[str]:
    """The results that the simulated world would not have given."""
    with tempfile.TemporaryDirectory() as folder:
        stated = pathlib.Path(folder) / "rules"
        verdict = recordings.play(file, daemon, stated)
        if not verdict.same:
            raise RecordingError(f"{file}: this daemon does something else\n{verdict.text}")
        said = stated.read_text(encoding="utf-8", errors="surrogateescape").splitlines()
    begin = next((at for at, one in enumerate(taken) if one.kind == "event"), len(taken))
    words = [f"debug {one.text}" for one in taken[:begin] if one.kind == "debug"][:1]
    return words + said
