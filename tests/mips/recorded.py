"""Recordings made on a MIPS processor: read and replayed there and on this machine, and the other way around."""

from __future__ import annotations

import tempfile
from collections.abc import Sequence
from pathlib import Path

from labctl import recordings
from tests.conformance.recording import Board, record
from tests.conformance.replaying import Recorded, replay
from tests.conformance.scenario import Scenario, load, load_fixtures

CONFORMANCE = Path(__file__).resolve().parents[1] / "conformance"


def taken(board: Board, scenario: Scenario, folder: Path) -> Path:
    folder.mkdir()
    recorded = Recorded(board, folder)
    record(recorded, scenario, folder)
    return recorded.recordings[0]


def shown(recording: Path) -> list[tuple[str, str]]:
    """Without times and places."""
    return [(one.kind, one.text) for one in recordings.records(recording)]


def complaints(build: Path, emulated: Path, emulator: Sequence[str]) -> list[str]:
    """What differs in the life of a daemon that is recorded on both; build is that of this machine."""
    (scenario,) = load(CONFORMANCE / "story.txt", load_fixtures(CONFORMANCE / "fixtures.txt"))
    there, here = Board(emulated, emulator), Board(build)
    with tempfile.TemporaryDirectory() as text:
        boards = {"there": there, "here": here}
        files = {name: taken(board, scenario, Path(text) / name) for name, board in boards.items()}
        lines = {name: shown(file) for name, file in files.items()}
        pairs = zip(lines["there"], lines["here"])
        out = [f"recorded {one} there, {other} here" for one, other in pairs if one != other]
        out += [] if len(lines["there"]) == len(lines["here"]) > 500 else ["not the same number of records"]
        verdict = f"same {sum(kind == 'call' for kind, _ in lines['here'])}"
        for name, file in files.items():
            for place, board in boards.items():
                done = replay(board, file, scenario.arguments)
                if done.stdout.splitlines()[-1:] != [verdict]:
                    out.append(f"recorded {name}, replayed {place}: {done.stdout[-600:]}{done.stderr[-600:]}")
    return out[:10]
