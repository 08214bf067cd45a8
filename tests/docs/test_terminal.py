"""What ./run, ./test and lab/lab show on a terminal of 24 lines of 80 columns, and what without one."""

from __future__ import annotations

import os
import pathlib
import re
import subprocess
import sys
from collections.abc import Callable, Sequence

import pytest

from labctl import paths, tour
from tests.docs import board, sandbox, screen

LAB = [board.LAB, "--name", board.NAME]
PYTHON = {"PYTHONPATH": f"{sandbox.ROOT}:{paths.LAB}"}
NO_PAGER = {"PAGER": "nothing-that-is-there"}


@pytest.fixture(scope="module")
def one_lan(lab: None) -> None:
    """What other books have left of the board is theirs."""
    status, out, err = board.run("lab/lab up --board one-cpu --config one-lan")
    assert status == 0, out + err


def python(script: str) -> list[str]:
    return [sys.executable, "-B", "-c", script]


def without_terminal(words: Sequence[object], env: dict[str, str]) -> subprocess.CompletedProcess[str]:
    return subprocess.run([str(word) for word in words], cwd=sandbox.ROOT, env={**os.environ, **env},
                          stdin=subprocess.DEVNULL, capture_output=True, text=True, timeout=120, check=False)


@pytest.mark.parametrize("columns, rows", [(80, 24), (120, 40)])
def test_the_status_stands_on_one_screen(one_lan: None, columns: int, rows: int) -> None:
    seen = screen.run([*LAB, "status"], columns, rows)
    assert (seen.status, seen.screen.wraps) == (0, [])
    assert len(seen.screen.lines) <= rows, seen.text
    text = "\n".join(seen.screen.lines)
    assert re.search(r"│ +port 0 +│ │ +port 1 +│(.*\n)+└.*\n +isp +pc1 +pc2 +pc3 +pc4\n", text), text
    assert re.search(r"\nwan1 +up +203\.0\.113\.2/24 +static .*eth0\.4090, via 203\.0\.113\.1\n", text), text
    assert ("02:0c:43" in text) == (columns >= 120) and "\x1b[32m" in seen.text


def test_the_status_without_terminal_colour_or_a_clever_terminal(one_lan: None) -> None:
    status, out, _ = board.run("lab/lab status")
    assert status == 0 and "\x1b" not in out and "cables: isp on port 0, pc1 on port 1" in out
    for env in ({"NO_COLOR": "1"}, {"TERM": "dumb"}):
        seen = screen.run([*LAB, "status"], env=env)
        assert "\x1b" not in seen.text and "port 0" in seen.text, env


@pytest.mark.parametrize("words", [["routes"], ["chains"], ["chains", "filter"], ["rules"], ["services"], ["--help"],
                                   ["up", "--help"], ["capture", "--help"]], ids=" ".join)
def test_no_line_of_the_lab_is_cut(one_lan: None, words: list[str]) -> None:
    seen = screen.run([*LAB, *words], env=NO_PAGER)
    assert (seen.status, seen.screen.wraps) == (0, []) and seen.text


@pytest.mark.parametrize("words", [["./run", "--help"], ["./test", "--help"], ["./test", "--list"]], ids=" ".join)
def test_no_line_of_the_entries_is_cut(words: list[str]) -> None:
    seen = screen.run(words, env=NO_PAGER)
    assert (seen.status, seen.screen.wraps) == (0, [])
    assert len(seen.screen.lines) <= seen.screen.rows or words == ["./test", "--list"]


def test_what_is_higher_than_the_terminal_goes_through_the_pager(one_lan: None) -> None:
    pager = {"PAGER": "sed -n s/^filter$/paged/p"}
    assert screen.run([*LAB, "chains"], env=pager).screen.lines == ["paged", ""]
    assert screen.run([*LAB, "chains"], rows=400, env=pager).screen.lines[0] == "mangle"
    assert without_terminal([*LAB, "chains"], pager).stdout.startswith("mangle\n")


SHOWN = f"""
import sys, time
from labctl import client, terminal, tour
with terminal.Live(sys.stdout) as live:
    report = tour.Report(live)
    report.line(True, "a check of which there is more to say than a line of eighty columns can hold, by far")
    tour.show(client.Lab({board.NAME!r}), report, time.monotonic(), whole=False, stay=True)
"""


def test_a_run_ends_with_the_board_and_hints(one_lan: None) -> None:
    seen = screen.run(python(SHOWN), env=PYTHON)
    assert (seen.status, seen.screen.wraps) == (0, []), seen.text
    assert any("Drawing the board" in line for line in seen.screen.seen)
    last = "\n".join(seen.screen.last())
    assert "Drawing" not in "\n".join(seen.screen.lines)
    verdict = r"1 checks passed, 0 failed, \d+ s after the build\.\n"
    assert re.search(r"┌──(.*\n)+ +isp +pc1 (.*\n)+wan1 (.*\n)+" + verdict, last), last
    assert last.endswith("\n" + tour.HINTS + "\n") and "lab/lab web " in tour.HINTS
    assert seen.screen.lines[1].startswith("     ")


def fake(folder: pathlib.Path, **programs: str) -> dict[str, str]:
    """An environment in which these programs are shell scripts."""
    (folder / "fakes").mkdir()
    for name, script in programs.items():
        place = folder / "fakes" / name.replace("_", "-")
        place.write_text("#!/bin/bash\n" + script)
        place.chmod(0o755)
    return {"PATH": f"{folder / 'fakes'}:{os.environ['PATH']}", "IVARODE_BUILD": str(folder / "build"), **PYTHON}


BUILD = [sys.executable, "-B", "-m", "labctl.building"]
COMPILES = """case $1 in -S) exit 0 ;; esac
for n in {1..60}; do echo "[$n/90] Building CXX object some/rather/long/folder/of/objects/file-$n.cpp.o"; done
"""
FAILS = COMPILES + """echo "FAILED: some/file-61.cpp.o"
for n in {1..70}; do echo "file-61.cpp:$n: error: number $n"; done
echo "[62/90] Building CXX object another.o"
echo "ninja: build stopped: subcommand failed."
exit 1
"""


@pytest.mark.parametrize("where", [lambda words, env: screen.run(words, env=env).text.replace("\r", ""),
                                   lambda words, env: "".join(without_terminal(words, env).stderr)],
                         ids=["terminal", "none"])
def test_a_build_that_fails_shows_all_that_the_compiler_said(
        tmp_path: pathlib.Path, where: Callable[[Sequence[object], dict[str, str]], str]) -> None:
    text = where(BUILD, fake(tmp_path, cmake=FAILS))
    said = "".join(f"file-61.cpp:{n}: error: number {n}\n" for n in range(1, 71))
    assert f"FAILED: some/file-61.cpp.o\n{said}ninja: build stopped" in text
    log = (tmp_path / "build/build.log").read_text()
    assert said in log and log.count("[") == 61


def test_a_build_shows_how_far_it_is(tmp_path: pathlib.Path) -> None:
    seen_it = tmp_path / "seen"
    env = fake(tmp_path, cmake=COMPILES + f'[ $1 != --build ] || until [ -e {seen_it} ]; do sleep 0.1; done\n')

    def said(text: str) -> bytes:
        if "60/90" in text:
            seen_it.touch()
        return b""

    seen = screen.run(BUILD, env=env, said=said)
    assert seen.status == 0 and all(str(tmp_path) in line for line in seen.screen.wraps)
    assert any(re.match("Building  █{13}░{7}  60/90  .* Building CXX", line) for line in seen.screen.seen), seen.text
    assert [re.sub(str(tmp_path), "", line) for line in seen.screen.lines if "Building into" not in line] == [
        "The first build takes some minutes; what it says is in /build/build.log", ""]


def test_a_build_without_terminal_is_silent_but_for_its_log(tmp_path: pathlib.Path) -> None:
    env = fake(tmp_path, cmake=COMPILES)
    done = without_terminal(BUILD, env)
    assert (done.returncode, done.stderr) == (0, "") and "\x1b" not in done.stdout and "\r" not in done.stdout
    assert len(done.stdout.splitlines()) == 2
    assert screen.run(BUILD, env={**env, "TERM": "dumb"}).text.count("\x1b") == 0


def test_an_interrupted_build_leaves_an_empty_line(tmp_path: pathlib.Path) -> None:
    runs = tmp_path / "runs"
    env = fake(tmp_path, cmake=f"[ $1 != --build ] || {{ touch {runs}; exec sleep 100; }}\n")
    typed: list[str] = []

    def said(text: str) -> bytes:
        if typed or not runs.exists():
            return b""
        typed.append(text)
        return b"\x03"

    seen = screen.run(BUILD, env=env, said=said)
    assert seen.status == 130 and seen.screen.lines[-1] == "" and seen.screen.column == 0, seen.text
    assert "Traceback" not in seen.text


INSTALL = ["bash", "-uc", ". tools/packages.sh; need_packages one two"]
APT = """case $* in
*install*)
    echo 'dlstatus:1:40.5:Retrieving file 1 of 2'
    echo 'Selecting previously unselected package one.'
    echo 'pmstatus:one:80.0:Installing one'
    exit STATUS ;;
esac
"""


@pytest.mark.parametrize("status", [0, 100])
def test_packages_show_how_far_they_are(tmp_path: pathlib.Path, status: int) -> None:
    env = fake(tmp_path, apt_get=APT.replace("STATUS", str(status)), dpkg_query="exit 1\n", sudo='exec "$@"\n')
    said = ["packages: installing one two", *(["packages: could not be installed: one two"] if status else [])]
    seen = screen.run(INSTALL, env=env)
    assert (seen.status, seen.screen.lines) == (1 if status else 0, [*said, ""])
    assert "packages: fetching  ████████░░░░░░░░░░░░  40 %" in seen.screen.seen
    assert "packages: installing  ████████████████░░░░  80 %" in seen.screen.seen
    done = without_terminal(INSTALL, env)
    assert (done.returncode, done.stdout + done.stderr) == (seen.status, "\n".join(said) + "\n")


def test_kinds_of_tests_show_how_far_they_are() -> None:
    script = """
import sys, threading
from labctl import terminal
from tests import driver, progress
from tests.runners import Counts

both = threading.Barrier(3)

def runner(*words, out, env, **_):
    kind = words[5]
    if kind == "unit":
        print("[3/4] Building CXX object", file=out)
    with open(env[progress.PLACE], "a") as file:
        if kind == "docs":
            print("at 5 10 test_with_a_name_that_is_far_longer_than_the_room_there_is_" + "x" * 40, file=file)
        print(f"took {1.5 if kind == 'unit' else 200} one of {kind} {'x' * 100}", file=file)
    both.wait()
    both.wait()
    return Counts(passed=2)

driver.counting_runner = runner
with terminal.Live(sys.stdout, rows=4) as live:
    report = driver.Report(live, alone=False)
    go = threading.Thread(target=driver.run_beside, args=(report, ["unit", "docs"], False))
    go.start()
    both.wait()
    live._renew()
    both.wait()
    go.join()
print("\\n".join(report.longest()))
print(report.total)
"""
    seen = screen.run(python(script), env=PYTHON)
    assert (seen.status, seen.screen.wraps) == (0, []), seen.text
    shown = "\n".join(seen.screen.seen)
    assert re.search("unit +█{15}░{5}  3/4 ", shown) and re.search("docs +█{10}░{10}  5/10 .* test_with_a_name", shown)
    lines = seen.screen.lines
    assert not [line for line in lines if "█" in line] and lines[-2:] == ["4 passed, 0 failed, 0 skipped", ""]
    at = lines.index("longest tests:")
    assert lines[at - 3] == "longest kinds:" and re.match(r" +200\.0 s  docs +one of docs x+$", lines[at + 1])
    assert re.match(r" +1\.5 s  unit +one of unit x+$", lines[at + 2])
    plain = without_terminal(python(script), PYTHON).stdout
    assert "\x1b" not in plain and "█" not in plain and "x" * 100 in plain and "longest tests:\n" in plain
