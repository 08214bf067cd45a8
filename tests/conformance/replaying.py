"""The scenarios once more, recorded and replayed.

Between the daemon and the double stands the library that records on a router: what it writes down must be the
double's own trace, line by line, and the daemon must do the same on what was written down. Written as a scenario it
passes as any other.
"""
import re
import subprocess
from collections.abc import Iterator, Mapping, Sequence
from concurrent.futures import Executor
from pathlib import Path

from labctl import recordings, scenarios
from tests.conformance.compare import check
from tests.conformance.recording import Board, Command, Run, key_of, record, temporary_folder
from tests.conformance.scenario import Fixtures, Scenario, load

# Texts without their end; a start that is killed.
CANNOT_BE_SAID = re.compile("a scenario cannot say this message|did not come to the end of its start")
SHOWN = ("model", "objects", "counter")
SILENT = ("section", "option", "file", "debug", "left-out", "over")


def is_compared(line: str) -> bool:
    """Steps are no lines of a trace; a stream is closed for the double as soon as its content is recorded."""
    return not line.startswith("> ") and line != "fclose()"


class Recorded(Board):
    """A board on which the daemon is recorded; a recording for each process, in the order of their start."""

    def __init__(self, board: Board, folder: Path) -> None:
        super().__init__(board.build, board.prefix)
        self.library = self.build / "lib" / "libivarode-record.so"
        self.reader = self.build / "seam" / "ivarode-recording"
        self.folder = folder
        self.recordings: list[Path] = []

    def command(self, script: Path, entry: Sequence[str] = (), arguments: Sequence[str] = ()) -> Command:
        words, environment = super().command(script, entry, arguments)
        self.recordings.append(self.folder / f"{len(self.recordings)}.rec")
        for name in ("LD_PRELOAD", "QEMU_SET_ENV"):     # the emulator hands the latter on
            if name in environment:
                environment[name] = environment[name].replace(str(self.recorder), f"{self.library}:{self.recorder}")
        environment["IVARODE_RECORD"] = str(self.recordings[-1])
        return words, environment

    def lines(self, recording: Path) -> list[str]:
        """What the recording says, without what has no line in a trace."""
        read = subprocess.run([self.reader, recording], capture_output=True, text=True, errors="replace", check=True)
        records = [line.split("\t", 4) for line in read.stdout.splitlines()]
        return [text for _, kind, _, _, text in records if kind not in SILENT and is_compared(text)]


def replay(board: Board, recording: Path, arguments: list[str],
           more: Mapping[str, str] | None = None) -> subprocess.CompletedProcess[str]:
    """Plays a recording to the daemon of a board, with more of an environment."""
    words, environment = board.command(recording, arguments=arguments)
    del environment["IVARODE_SCRIPT"]
    environment.update({"IVARODE_REPLAY": str(recording), **(more or {})})
    return subprocess.run(words, capture_output=True, text=True, errors="replace", check=False, timeout=60,
                          env=environment)


def can_be_replayed(scenario: Scenario) -> bool:
    """Operations alone are no process of the daemon's; memory that is refused is no call at a seam, and what a script
    shows is none of the daemon's."""
    said = [str(field) for line in scenario.setup + scenario.first for field in line]
    steps = [step.title for step in scenario.steps]
    return not scenario.entry and not any(
        text.startswith(("alloc", "limit", "show-")) for text in said) and not any("alloc" in title for title in steps)


def traced(scenario: Scenario, run: Run) -> list[str]:
    """The trace without what a script shows, and without how the process ended."""
    shown = {key_of(scenario, step) for step in scenario.steps if step.title.split()[0] in SHOWN}
    lines = [line for key in run.order if key not in shown for line in run.parts[key]]
    return [line for line in lines if is_compared(line) and not line.startswith(("exit ", "leak: "))]


def same_but_masked(recorded: str, line: str) -> bool:
    return len(recorded) == len(line) and all(one in (other, "*") for one, other in zip(recorded, line))


def complaints_about(board: Board, scenario: Scenario) -> list[str]:
    with temporary_folder() as text:
        recorded = Recorded(board, Path(text))
        runs = record(recorded, scenario, text)
        for (run, _), recording in zip(runs, recorded.recordings):
            lines, trace = recorded.lines(recording), traced(scenario, run)
            for at, (one, other) in enumerate(zip([*lines, "the end"], [*trace, "the end"])):
                if not same_but_masked(one, other):
                    return [f"recorded (line {at + 1}): {one}", f"traced:              {other}"]
            done = replay(board, recording, scenario.arguments)
            if done.returncode != 0:
                return done.stdout.splitlines()[-8:] + done.stderr.splitlines()[-8:]
            if complaints := complaints_as_scenario(board, recording):
                return complaints
    return []


def complaints_as_scenario(board: Board, recording: Path) -> list[str]:
    written = recording.with_suffix(".txt")
    try:
        written.write_text(scenarios.written(recording, None), errors="surrogateescape")
    except recordings.RecordingError as error:
        return [] if CANNOT_BE_SAID.search(str(error)) else [str(error)]
    (scenario,) = load(written, Fixtures())
    with temporary_folder() as folder:
        return check(scenario, record(board, scenario, folder))


def replay_all(board: Board, pool: Executor, scenarios: list[Scenario]) -> Iterator[tuple[Scenario, list[str]]]:
    """Of each table the first row."""
    chosen = [one for one in scenarios if one.row == 0 and can_be_replayed(one)]
    yield from zip(chosen, pool.map(lambda one: complaints_about(board, one), chosen))
