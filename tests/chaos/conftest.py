"""Rounds of kills, flaps and requests in flight on one board.

--rounds N: how many. IVARODE_SEED=N: the rounds of that seed; else a seed is drawn, and printed at the end. The same
seed brings the same rounds; what the daemon was just doing when a kill came is up to the machine.
"""

from __future__ import annotations

import os
import random
from _pytest.terminal import TerminalReporter
from collections.abc import Iterator

import pytest

from labctl import topology
from tests.chaos import havoc, snapshot
from tests.chaos.story import SEED, STORY
from tests.system import held_lab, recorded
from tests.system.held_lab import pytest_runtest_makereport  # noqa: F401

SHORT_SLEEP = "/usr/lib/short-sleep.so"


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--rounds", type=int, default=25, help="how many rounds (default: %(default)s)")


def pytest_configure(config: pytest.Config) -> None:
    config.stash[SEED] = int(os.environ.get("IVARODE_SEED") or random.SystemRandom().randrange(1 << 32))
    config.stash[STORY] = list[str]()
    Machine.recorded = config.getoption("recorded")


def pytest_generate_tests(metafunc: pytest.Metafunc) -> None:
    if "turn" in metafunc.fixturenames:
        metafunc.parametrize("turn", range(1, metafunc.config.getoption("rounds") + 1))


def pytest_terminal_summary(terminalreporter: TerminalReporter, config: pytest.Config) -> None:
    for line in config.stash[STORY]:
        terminalreporter.write_line(line)
    terminalreporter.write_line(f"{len(config.stash[STORY])} rounds, IVARODE_SEED={config.stash[SEED]}")


class Machine(held_lab.Machine):
    """One lab for all rounds; a board that a round has failed on is raised anew."""

    recorded = False

    def __init__(self) -> None:
        super().__init__("chaos")
        self.clean: snapshot.Facts | None = None

    def ready(self) -> havoc.Board:
        if self.up is None:
            plan = [recorded.PRELOAD + SHORT_SLEEP]
            plan = recorded.in_front(plan) if self.recorded else plan
            described = self.lab.raise_board("two-wan", "three-lans", plan)
            self.lab.said(havoc.READY, havoc.LIMIT)
            self.lab.topology = topology.Topology(described, "three-lans")
            self.clean = snapshot.first(self.lab)
            self.up = havoc.Board(self.lab)
        return self.up


@pytest.fixture(scope="session")
def machine() -> Iterator[Machine]:
    yield from held_lab.hold(Machine)
