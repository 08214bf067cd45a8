"""The suites that prove the daemon, run on the mutated tree: which test reaches which statement, and which fails."""
from __future__ import annotations

import os
import subprocess
import tempfile
from collections.abc import Iterable, Sequence
from dataclasses import dataclass
from pathlib import Path

from tests.conformance.compare import check
from tests.conformance.recording import Board, Command, record
from tests.conformance.scenario import Scenario, load_all

PROCESSOR_SECONDS = 2              # of a scenario, which takes some hundredths
PROCESSOR_SECONDS_IN_PROCESS = 30  # of a program of tests, which takes one or two
WAITING_SECONDS = 60               # nothing waits for a clock; only what hangs comes to it
SHORT_MODEL = {"MODEL_SEEDS": "10", "MODEL_RUNS": "8", "MODEL_ROUNDS": "100"}


@dataclass
class Test:
    """One test and what is known of it."""
    name: str
    reached: frozenset[int]


@dataclass
class Outcome:
    killed: bool
    by: str = ""
    hung: bool = False             # it waited for too long, which a busy machine may do as well


def settings(mutant: int, seconds: int, reached: Path | None = None) -> dict[str, str]:
    out = {"IVARODE_MUTANT": str(mutant), "IVARODE_MUTANT_SECONDS": str(seconds)}
    if reached:
        out["IVARODE_MUTANT_REACHED"] = str(reached)
    return out


def temporary_folder() -> tempfile.TemporaryDirectory[str]:
    return tempfile.TemporaryDirectory(prefix="mutation-")


class ReachMap:
    """The file in which a program notes the statements that it reaches."""

    def __init__(self, folder: str, size: int) -> None:
        self.path, self.size = Path(folder) / "reached", size

    def clear(self) -> None:
        self.path.write_bytes(bytes(self.size))

    def read(self) -> frozenset[int]:
        return frozenset(at for at, byte in enumerate(self.path.read_bytes()) if byte)


class MutatedBoard(Board):
    """What is run, with the mutant chosen."""

    def __init__(self, build: Path, chosen: dict[str, str]) -> None:
        super().__init__(build)
        self.chosen = chosen

    def command(self, script: Path, entry: Sequence[str] = (), arguments: Sequence[str] = ()) -> Command:
        command, environment = super().command(script, entry, arguments)
        return command, {**environment, **self.chosen}


class Scenarios:
    """The daemon driven whole, through the scenarios of the mutated tree."""
    name = "conformance"

    def __init__(self, root: Path, build: Path) -> None:
        self.build = build
        self._all: dict[str, Scenario] = {}
        for one in load_all(root / "tests" / "conformance"):
            name = f"{one.path.parent.name}/{one.path.stem}: {one.name}"
            while name in self._all:
                name += "'"
            self._all[name] = one

    def names(self) -> list[str]:
        return list(self._all)

    def scenario(self, name: str) -> Scenario:
        return self._all[name]

    def _run(self, name: str, build: Path, environment: dict[str, str]) -> tuple[list[str], bool]:
        board = MutatedBoard(build, environment)
        with temporary_folder() as folder:
            runs = record(board, self._all[name], folder, timeout=WAITING_SECONDS)
            return check(self._all[name], runs), any(run.exit == "timeout" for run, _ in runs)

    def learn(self, name: str, statements: int) -> tuple[Test, list[str]]:
        with temporary_folder() as folder:
            reach = ReachMap(folder, statements)
            reach.clear()
            complaints, _ = self._run(name, self.build, settings(0, PROCESSOR_SECONDS, reach.path))
            return Test(name, reach.read()), complaints

    def judge(self, mutant: int, names: Iterable[str], build: Path | None = None) -> Outcome:
        for name in names:
            complaints, hung = self._run(name, build or self.build, settings(mutant, PROCESSOR_SECONDS))
            if complaints:
                return Outcome(True, name, hung)
        return Outcome(False)


class Programs:
    """The daemon's parts in process: programs made with GoogleTest."""

    def __init__(self, name: str, program: Path) -> None:
        self.name, self.program = name, program

    def _run(self, names: list[str], environment: dict[str, str], fast: bool = True) -> tuple[bool, str, bool]:
        options = ["--gtest_filter=" + ":".join(names), "--gtest_brief=1", *(["--gtest_fail_fast"] if fast else [])]
        with temporary_folder() as folder:
            try:
                done = subprocess.run([self.program, *options], cwd=folder, stdin=subprocess.DEVNULL,
                                      stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, errors="replace",
                                      env={**os.environ, **SHORT_MODEL, **environment},
                                      timeout=5 * WAITING_SECONDS, check=False)
            except subprocess.TimeoutExpired:
                return False, "", True
        return done.returncode == 0, done.stdout, False

    def names(self) -> list[str]:
        listed = subprocess.run([self.program, "--gtest_list_tests"], stdout=subprocess.PIPE, text=True, check=True)
        out, suite = [], ""
        for line in listed.stdout.splitlines():
            word = line.split("#")[0].rstrip()
            if word.endswith(".") and not word.startswith(" "):
                suite = word
            elif word.startswith("  "):
                out.append(suite + word.strip())
        return out

    def learn(self, name: str, statements: int) -> tuple[Test, list[str]]:
        with temporary_folder() as folder:
            reach = ReachMap(folder, statements)
            reach.clear()
            good, said, _ = self._run([name], settings(0, PROCESSOR_SECONDS_IN_PROCESS, reach.path))
            return Test(name, reach.read()), [] if good else [said[-2000:] or "hangs"]

    def judge(self, mutant: int, names: Iterable[str], build: Path | None = None) -> Outcome:
        chosen = list(names)
        if not chosen or build:
            return Outcome(False)
        good, said, hung = self._run(chosen, settings(mutant, PROCESSOR_SECONDS_IN_PROCESS))
        if good:
            return Outcome(False)
        failed = [line.split("] ")[1].split(",")[0].split(" (")[0] for line in said.splitlines()
                  if line.startswith("[  FAILED  ] ")]
        return Outcome(True, failed[0] if failed else "it ends early", hung)


Suite = Scenarios | Programs
