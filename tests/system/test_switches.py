"""The switches that choose what the board runs on, without a board."""

from __future__ import annotations

import os
import pathlib
import shutil
import subprocess
import sys
import time
from collections.abc import Sequence
from typing import Any

import pytest

from labctl import client, commands, paths, tour
from tests.system.held_lab import Lab

UP = [str(paths.LAB / "lab"), "up"]
RUN = ["env", f"PYTHONPATH={paths.LAB}", sys.executable, "-m", "labctl.tour", "--check"]
TEST = [str(paths.ROOT / "tests/python"), "tests.driver"]


@pytest.mark.parametrize("words, mode", [([], None), (["--vm"], "vm"), (["--mips"], "mips"), (["--native"], "native")])
def test_what_is_asked_for(words: list[str], mode: str) -> None:
    assert tour.options(words).mode == mode
    assert commands.parse(["up", *words]).mode == mode


@pytest.mark.parametrize("command, said", [
    ([*RUN, "--mips", "--vm"], "not allowed with"), ([*UP, "--native", "--mips"], "not allowed with"),
    ([*TEST, "--mips", "--vm"], "not allowed with"),
    ([*TEST, "--mips", "--only", "unit"], "--mips is for system and chaos, not for unit")])
def test_what_does_not_go_together(command: list[str], said: str) -> None:
    done = subprocess.run(command, capture_output=True, text=True, timeout=60, check=False)
    assert done.returncode == 2 and said in done.stderr, done


@pytest.fixture
def elsewhere(tmp_path: pathlib.Path) -> dict[str, str]:
    """A build folder with programs in name only, a state folder and a cache that is empty, as environment."""
    for folder in ("build/bin", "build/mipsel/bin"):
        (tmp_path / folder).mkdir(parents=True)
        (tmp_path / folder / "lab-agent").touch()
    return {**os.environ, "IVARODE_BUILD": str(tmp_path / "build"), "IVARODE_LAB_STATE": str(tmp_path / "state"),
            "IVARODE_LAB_CACHE": str(tmp_path / "cache")}


CUT_OFF = ["unshare", "--net", *(["--map-root-user"] if os.geteuid() != 0 else [])]


@pytest.mark.parametrize("mode, packages",
                         [("--vm", "qemu-x86 (qemu-system-x86)"), ("--mips", "qemu-mips (qemu-system-mips)")])
@pytest.mark.parametrize("command", [UP, RUN], ids=["lab-up", "run"])
def test_without_network_and_cache_it_is_told_what_is_missing(elsewhere: dict[str, str], command: list[str], mode: str,
                                                              packages: Any) -> None:
    done = subprocess.run([*CUT_OFF, *command, mode], env=elsewhere, capture_output=True, text=True, timeout=300,
                          check=False)
    assert done.returncode == 1, done
    told = [line for line in (done.stdout + done.stderr).splitlines() if line.startswith(("FAIL", "lab/lab: "))]
    assert len(told) == 1 and packages in told[0] and elsewhere["IVARODE_LAB_CACHE"] in told[0], done


def test_without_network_and_cache_nothing_is_built_for_mips(elsewhere: dict[str, str], tmp_path: pathlib.Path) -> None:
    done = subprocess.run([*CUT_OFF, str(paths.LAB / "vm/cross-build.sh"), str(tmp_path / "new")], env=elsewhere,
                          capture_output=True, text=True, timeout=300, check=False)
    assert done.returncode == 125 and "sysroot-mipsel (libmnl-dev libjson-c-dev)" in done.stderr, done


@pytest.mark.parametrize("mode, command", [("--vm", "./run does"), ("--mips", "./run --mips does")])
def test_a_board_that_was_not_built_for_is_told(elsewhere: dict[str, str], mode: str, command: str) -> None:
    shutil.rmtree(elsewhere["IVARODE_BUILD"])
    done = subprocess.run([*UP, mode], env=elsewhere, capture_output=True, text=True, timeout=60, check=False)
    assert done.returncode == 1 and command in done.stderr, done


@pytest.mark.parametrize("outcomes, status", [([True, True], 0), ([True, False], 1), ([False], 1), ([], 1)])
def test_run_succeeds_only_when_every_check_held(monkeypatch: pytest.MonkeyPatch, outcomes: tuple[bool, ...],
                                                 status: int) -> None:
    def tour_of(_lab: Lab, _args: object, report: tour.Report, _colour: bool) -> None:
        for good in outcomes:
            report.line(good, "a check")

    monkeypatch.setattr(tour, "tour", tour_of)
    assert tour.main(["--check", "--mips", "--name", "no-such-lab"]) == status


def test_limits_of_time_grow_with_the_machine(monkeypatch: pytest.MonkeyPatch) -> None:
    asked: list[tuple[tuple[object, ...], float | None, float]] = []

    class Recorded(client.Command):
        def __init__(self, lab: Lab, host: str, words: Sequence[object], timeout: float | None = None) -> None:
            self.words = list(words)
            self.limit = timeout

        def end_input(self) -> None:
            pass

        def close(self) -> None:
            pass

        def collect(self, deadline: float | None = None) -> client.Result:
            asked.append((tuple(self.words), self.limit, (deadline or 0) - time.monotonic()))
            return client.Result(self.words, 0, b'{"mode": "mips"}' if self.words == ["info"] else b"1.5 line", b"")

    monkeypatch.setattr(client, "Command", Recorded)
    lab = client.Lab("no-such-lab")
    lab.run("router", "true", timeout=20)
    assert lab.said("ready", 90) == (1.5, "line")
    assert lab.pace == 3
    assert [(words, limit) for words, limit, _ in asked[1:]] == [(("true",), 60), (("wait", 270, "ready"), 300)]
    assert asked[1][2] > 60 and asked[2][2] > 300
