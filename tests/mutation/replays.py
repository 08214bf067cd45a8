"""Mutants found by a replay: a scenario is recorded as the daemon is, and played back to the mutant.

The replay must name the line at which the mutant's trace of the scenario differs first. What no trace shows (what a
script prints of the double, how the process ends) is nothing that it could find.
"""
from __future__ import annotations

import re
import subprocess
from collections.abc import Callable, Iterable, Sequence
from itertools import zip_longest
from pathlib import Path
from typing import Any

from tests.conformance.recording import Run, key_of, record
from tests.conformance.replaying import Recorded, replay, same_but_masked
from tests.conformance.scenario import Scenario
from tests.mutation.suites import PROCESSOR_SECONDS, WAITING_SECONDS, MutatedBoard, settings, temporary_folder

EVENTS = ("call", "link", "address", "timer")
SHOWN = ("model", "objects", "counter")
ALL_OPTIONS = ("show-options",)
COMPARED = ("event", "call", "line", "option")
Spread = Callable[[Callable[[Any], str], Sequence[Any], int], Iterable[str]]
ADDRESS = re.compile(r"0x[0-9a-f]{6,}")
DESCRIPTOR = re.compile(r"^ioctl\[\d+\] ")
DIFFERS = re.compile(r"differs (\d+) ")


def comparable(line: str) -> str:
    """Addresses of memory in a report are others in each process."""
    return ADDRESS.sub("0x", line) if line.startswith(("syslog(", "outlib_")) else line


def traced(scenario: Scenario, run: Run) -> list[str]:
    """What a recording holds of a trace: events, which stand as an empty line here, and what each led to."""
    titles = {key_of(scenario, step): step.title.split()[0] for step in scenario.steps}
    out: list[str] = []
    for key in run.order:
        word = titles.get(key, "")
        out += [""] if word in EVENTS else []
        if word not in SHOWN:
            out += [comparable(line) for line in run.parts[key] if not line.startswith(("exit ", "leak: "))]
    return out


class Replayed:
    """A scenario as the daemon takes it, recorded."""

    def __init__(self, build: Path, scenario: Scenario, folder: Path) -> None:
        self.build, self.scenario = build, scenario
        self.board = MutatedBoard(build, settings(0, PROCESSOR_SECONDS))
        self.traces = self.trace(self.board)
        recorded = Recorded(self.board, folder)
        with temporary_folder() as text:
            record(recorded, scenario, text, timeout=WAITING_SECONDS)
        self.recordings = recorded.recordings
        self.records = [self.read(recorded.reader, one) for one in self.recordings]

    def trace(self, board: MutatedBoard) -> list[list[str]]:
        with temporary_folder() as text:
            runs = record(board, self.scenario, text, extra=[ALL_OPTIONS], timeout=WAITING_SECONDS)
        return [traced(self.scenario, run) for run, _ in runs]

    @staticmethod
    def read(reader: Path, recording: Path) -> list[tuple[str, str]]:
        """(kind, text) of each record that a replay compares."""
        said = subprocess.run([reader, recording], capture_output=True, text=True, errors="replace", check=True).stdout
        records = [line.split("\t", 4) for line in said.splitlines()]
        return [(kind, text) for _, kind, _, _, text in records if kind in COMPARED]

    def complaint(self, number: int) -> str:
        """What is wrong with how a mutant is found; empty for nothing."""
        mutant = MutatedBoard(self.build, settings(number, PROCESSOR_SECONDS))
        # Twice, since a mutant may show what happens to be in memory.
        twice = zip(self.trace(mutant), self.trace(mutant))
        for at, (recording, before, (now, again)) in enumerate(zip(self.recordings, self.traces, twice)):
            texts = [text for _, text in self.records[at]]
            if unlike := first_unlike(texts, before):
                return f"the recording is not the trace: {unlike}"
            place = next((i for i, pair in enumerate(zip_longest(before, now)) if pair[0] != pair[1]), None)
            done = replay(mutant, recording, self.scenario.arguments, mutant.chosen)
            said = [line for line in done.stdout.splitlines() if not line.startswith("= ")]
            if place is None and done.returncode == 0:
                continue
            if place is None:
                return f"the traces are the same, but the replay says {said}"
            calls = sum(kind == "call" for kind, _ in self.records[at][:place])
            there = texts[place] if place < len(texts) else "the end of the process"
            steady = now[place:place + 1] == again[place:place + 1]
            return wrong(said, calls, there, now[place] if place < len(now) and steady else "", done.returncode)
        return ""


def first_unlike(recorded: Sequence[str], trace: Sequence[str]) -> str:
    for at, (one, other) in enumerate(zip_longest(recorded, trace, fillvalue="the end")):
        if not (one.startswith("> ") if other == "" else same_but_masked(comparable(one), other)):
            return f"line {at + 1}: {one} for {other}"
    return ""


def wrong(said: Sequence[str], calls: int, recorded: str, now: str, status: int) -> str:
    """How a replay's verdict is not the wanted one. A mutant that loops is ended by its limit of processor time."""
    wanted = f"after {calls} calls: {recorded} -> {now or 'anything'}"
    found = DIFFERS.match(said[0]) if len(said) == 3 else None
    if found is None:
        return "" if status < 0 and not now else f"ended with {status} {said}, wanted {wanted}"
    # Of a call that comes instead its name and arguments; stars may stand for some of them.
    made, line = comparable(said[2][2:]), DESCRIPTOR.sub("", now)
    if int(found[1]) != calls or said[1][2:] != recorded or not (line == "" or same_but_masked(made, line[:len(made)])):
        return f"{said}, wanted {wanted}"
    return ""


def find_all(build: Path, chosen: Sequence[tuple[str, int, Scenario]], spread: Spread, jobs: int) -> list[str]:
    """Complaints about mutants, each with the scenario that it was killed by."""
    def look(one: tuple[str, int, Scenario]) -> str:
        name, number, scenario = one
        with temporary_folder() as folder:
            complaint = Replayed(build, scenario, Path(folder)).complaint(number)
        return f"{name}, in {scenario.name}: {complaint}" if complaint else ""

    return [text for text in spread(look, chosen, jobs) if text]
