"""The worked example of the field book: from a recording of a daemon with a fault to the test that fails on it."""

import os
import pathlib
import re
import shlex
import shutil
import subprocess

import pytest

from tests.conformance.altered import altered_daemon
from tests.conformance.compare import check
from tests.conformance.recording import Board, record, temporary_folder
from tests.conformance.replaying import Recorded
from tests.conformance.scenario import Fixtures, load, load_fixtures

ROOT = pathlib.Path(__file__).resolve().parents[2]
CONFORMANCE = ROOT / "tests/conformance"
BUILD = pathlib.Path(os.environ.get("IVARODE_BUILD", ROOT / "build")).resolve()
FAULT = ("route/address_event.cpp", "if (entry->enable == 1)", "if (entry->enable != 1)")
BOOK = (ROOT / "docs/field.md").read_text(encoding="utf-8")
BLOCKS = re.findall(r"^```\n(.*?)^```$", BOOK, re.M | re.S)


@pytest.fixture(scope="module")
def example(tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    """A folder with the daemon of an image that has a fault, and a recording of it."""
    folder = tmp_path_factory.mktemp("field")
    (folder / "image").mkdir()
    board = Board(BUILD)
    recorded = Recorded(board, folder)
    recorded.daemon = altered_daemon(board.build, *FAULT, folder / "image")
    (scenario,) = load(CONFORMANCE / "story.txt", load_fixtures(CONFORMANCE / "fixtures.txt"))
    record(recorded, scenario, folder)
    shutil.move(recorded.recordings[0], folder / "router.rec")
    return folder


def timeless(text: str) -> str:
    return re.sub(r"\d\d:\d\d:\d\d(\.\d+)?", "TIME", re.sub(r"\d{4}-\d\d-\d\d", "DAY", text)).rstrip()


def test_the_commands_answer_as_the_book_says(example: pathlib.Path) -> None:
    commands = [block for block in BLOCKS if block.startswith("$ ")]
    assert len(commands) == 4
    for block in commands:
        command, _, said = block[2:].partition("\n")
        words = shlex.split(command.replace("lab/lab", str(ROOT / "lab/lab"), 1))
        done = subprocess.run(words, cwd=example, capture_output=True, text=True, check=False)
        assert timeless(done.stdout) == timeless(said), done.stderr
        assert done.returncode == (1 if said.startswith("differs") else 0)


@pytest.mark.parametrize("wanted", [0, 3, 10000])
def test_the_last_lines_alone(example: pathlib.Path, wanted: int) -> None:
    def shown(*words: str) -> list[str]:
        return subprocess.run([ROOT / "lab/lab", "record", "show", "router.rec", *words], cwd=example,
                              capture_output=True, text=True, check=True).stdout.splitlines()

    head, lines = shown()[:2], shown()[2:]
    assert len(lines) > 500 and lines[-1].endswith("the process ends in order")
    assert shown("--last", str(wanted)) == head + lines[max(0, len(lines) - wanted):]


def complaints(daemon: pathlib.Path, scenario: pathlib.Path) -> list[str]:
    board = Board(BUILD)
    board.daemon = daemon
    (one,) = load(scenario, Fixtures())
    with temporary_folder() as folder:
        return check(one, record(board, one, folder))


def test_the_scenario_becomes_the_failing_test(example: pathlib.Path) -> None:
    faulty, repaired = example / "image/ivarode", BUILD / "bin/ivarode"
    written = example / "route.txt"
    assert not complaints(faulty, written)
    wanted = next(block for block in BLOCKS if block.startswith("> address"))
    head, step, _ = written.read_text().rpartition("> address")
    assert step
    written.write_text(head + wanted)
    assert complaints(faulty, written)
    assert not complaints(repaired, written)


def test_a_file_that_is_no_recording_is_told(example: pathlib.Path) -> None:
    whole = (example / "router.rec").read_bytes()
    for content, said in ((b"", "empty"), (whole[:5000], "cut: 5000 of"), (b"text", "no recording"),
                          (whole[:300] + bytes([whole[300] ^ 4]) + whole[301:], "damaged: "),
                          (whole[:16] + b"\2" + whole[17:], "of version 2, not 1")):
        (example / "other.rec").write_bytes(content)
        for words in (["record", "show", "other.rec"], ["replay", "other.rec"]):
            done = subprocess.run([ROOT / "lab/lab", *words], cwd=example, capture_output=True, text=True,
                                  check=False)
            assert (done.returncode, done.stdout) == (2, "") and said in done.stderr, (words, done)


@pytest.mark.parametrize("more, said", [
    ([], "no board file is in it, so it is not of a router"),
    (["--daemon", "image/ivarode"], "--board goes without --daemon and --scenario"),
])
def test_a_recording_without_a_router_is_not_repeated(example: pathlib.Path, more: list[str], said: str) -> None:
    done = subprocess.run([ROOT / "lab/lab", "replay", "router.rec", "--board", *more], cwd=example,
                          capture_output=True, text=True, check=False)
    assert (done.returncode, done.stdout) == (2, "") and said in done.stderr
