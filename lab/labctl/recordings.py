"""Recordings of the daemon: shown to a person, and played back to a daemon.

The file itself is read by build/seam/ivarode-recording, and in a replay by the library below the daemon; what
they say is drawn here.
"""

from __future__ import annotations

import os
import pathlib
import re
import subprocess
import time
from collections.abc import Iterator, Sequence
from typing import NamedTuple

from . import paths, trace

AROUND = 12             # lines before and after each one that is looked for
LED_THERE = 15          # lines before a difference
PATIENCE = 120          # seconds for a replay; a daemon that loops is ended
CUT = "\N{HORIZONTAL ELLIPSIS}"


class RecordingError(Exception):
    """A file that cannot be read or played, or no program to do it."""


class Record(NamedTuple):
    time: float         # since 1970
    kind: str
    place: int          # in the file
    hidden: str         # what a call has brought beside its line
    text: str           # as in a trace, events with "> "


def program(name: str) -> pathlib.Path:
    path = paths.build_dir() / "seam" / name
    if not path.exists():
        raise RecordingError(f"{path} is not built")
    return path


def records(file: pathlib.Path) -> list[Record]:
    done = subprocess.run([program("ivarode-recording"), file], capture_output=True, text=True, errors="replace",
                          check=False)
    if done.returncode != 0:
        raise RecordingError(done.stderr.strip() or f"{file}: cannot be read")
    fields = [line.split("\t", 4) for line in done.stdout.splitlines()]
    return [Record(float(when), kind, int(place), hidden, text) for when, kind, place, hidden, text in fields]


def clock(seconds: float) -> str:
    return time.strftime("%H:%M:%S", time.localtime(seconds)) + f"{seconds % 1:.6f}"[1:]


def remark(record: Record) -> str:
    """What stands for a record that is no line of a trace."""
    if record.kind == "section":
        return f"section {record.text}"
    if record.kind == "file":
        name, _, content = record.text.partition("\t")
        lines = content.count("\\n")
        return f"file {name}: {lines} lines"
    if record.kind == "debug":
        return f"debug word {record.text}"
    if record.kind == "left-out":
        return f"{CUT} {record.text} questions and samples are left out {CUT}"
    if record.kind == "gap":
        return f"{CUT} what was here has been overwritten {CUT}"
    return "the process ends in order"


REMARKED = ("section", "file", "debug", "left-out", "gap", "over")


def drawn(found: list[Record]) -> Iterator[str]:
    """A line for each thing that the daemon did, with its time; before each event its number."""
    lines = [remark(one) if one.kind in REMARKED else one.text for one in found]
    events = 0
    for at, text in trace.drawn_together(lines):
        if found[at].kind == "event":
            events += 1
            yield ""
            yield f"event {events}"
        yield f"{clock(found[at].time)}  {text}"


def head(file: pathlib.Path, found: list[Record]) -> str:
    calls = sum(1 for one in found if one.kind == "call")
    events = sum(1 for one in found if one.kind == "event")
    begun = time.strftime("%Y-%m-%d %H:%M:%S", time.localtime(found[0].time)) if found else "never"
    return f"{file}: begun {begun}, {calls} calls, {events} events"


def show(file: pathlib.Path, last: int | None, around: str | None) -> list[str]:
    found = records(file)
    lines = list(drawn(found))
    if around is not None:
        hits = [at for at, line in enumerate(lines) if around in line]
        if not hits:
            raise RecordingError(f"{file}: nothing says {around!r}")
        lines = list(parts(lines, hits))
    if last is not None:
        lines = lines[-last:] if last else []
    return [head(file, found), "", *lines]


def parts(lines: list[str], hits: list[int]) -> Iterator[str]:
    """The lines around the hits; a line of its own where some are left out."""
    shown_to = 0
    for hit in hits:
        begin = max(hit - AROUND, shown_to)
        if begin > shown_to:
            yield CUT
        end = min(hit + AROUND + 1, len(lines))
        yield from lines[begin:end]
        shown_to = max(shown_to, end)
    if shown_to < len(lines):
        yield CUT


# --- replay ------------------------------------------------------------------------------------------------------
class Verdict(NamedTuple):
    same: bool
    text: str           # for a person


def arguments_of(found: Sequence[Record]) -> list[str]:
    """The words that the daemon was started with."""
    first = next((one.text for one in found if one.text.startswith("outlib_client_init(")), "")
    return [re.sub(r"\\(.)", r"\1", word) for word in re.findall(r'"((?:[^"\\]|\\.)*)"', first)]


def play(file: pathlib.Path, daemon: pathlib.Path | None = None, rules: pathlib.Path | None = None) -> Verdict:
    """Runs a daemon on what a recording answers."""
    daemon = daemon or paths.build_dir() / "bin" / "ivarode"
    if not daemon.exists():
        raise RecordingError(f"{daemon}: there is no such daemon")
    environment = {"PATH": os.environ.get("PATH", ""), "LD_PRELOAD": str(program("libsys.so")),
                   "LD_LIBRARY_PATH": str(paths.build_dir() / "lib"), "IVARODE_REPLAY": str(file.resolve())}
    if rules is not None:
        environment["IVARODE_REPLAY_RULES"] = str(rules)
    try:
        done = subprocess.run([daemon, *arguments_of(records(file))], env=environment, stdin=subprocess.DEVNULL,
                              capture_output=True, text=True, errors="replace", timeout=PATIENCE, check=False)
    except subprocess.TimeoutExpired:
        return Verdict(False, f"the daemon does not come to an end: ended after {PATIENCE} seconds")
    except OSError as error:
        raise RecordingError(f"{daemon}: {error.strerror}") from error
    return verdict(done.stdout.splitlines(), done.returncode, done.stderr)


def verdict(said: list[str], status: int, errors: str) -> Verdict:
    at = next((at for at, line in enumerate(said) if not line.startswith("= ")), None)
    word, *numbers = said[at].split() if at is not None else [""]
    if word == "same":
        return Verdict(True, f"the same, {numbers[0]} calls")
    if word == "gap":
        return Verdict(True, f"the same, {numbers[0]} calls; then older records have been overwritten, and the rest, "
                             f"from {clock(float(numbers[1]))} on, cannot be played without them")
    if word != "differs" or at is None:
        raise RecordingError(f"the replay ended with status {status}: {' '.join(said[-3:])} {errors.strip()}".strip())
    before = trace.collapse([line[2:] for line in said[:at]])[-LED_THERE:]
    where = "the start" if numbers[2] == "0" else f"event {numbers[2]}"
    lines = [f"differs in {where}, after {numbers[0]} calls, at {clock(float(numbers[1]))}"]
    lines += [f"    {line}" for line in before]
    recorded, now = (trace.IOCTL.sub(r"\2", line[2:]) for line in said[at + 1:at + 3])
    return Verdict(False, "\n".join([*lines, f"  recorded: {recorded}", f"  now:      {now}"]))
