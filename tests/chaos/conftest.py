"""Rounds of kills, flaps and requests in flight on one board.

--rounds N: how many. IVARODE_SEED=N: the rounds of that seed; else a seed is drawn, and printed at the end. The same
seed brings the same rounds; what the daemon was just doing when a kill came is up to the machine.
"""

import os
import pathlib
import random
import sys

import pytest

HERE = pathlib.Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parent / "system"), str(HERE.parents[1] / "lab/board")]
from labctl import client, topology  # noqa: E402

import havoc  # noqa: E402
import snapshot  # noqa: E402

PRELOAD = "/usr/lib/short-sleep.so"


def pytest_addoption(parser):
    parser.addoption("--rounds", type=int, default=25, help="how many rounds (default: %(default)s)")


def pytest_configure(config):
    config.seed = int(os.environ.get("IVARODE_SEED") or random.SystemRandom().randrange(1 << 32))
    config.story = []


def pytest_generate_tests(metafunc):
    if "turn" in metafunc.fixturenames:
        metafunc.parametrize("turn", range(1, metafunc.config.getoption("rounds") + 1))


def pytest_terminal_summary(terminalreporter, config):
    for line in config.story:
        terminalreporter.write_line(line)
    terminalreporter.write_line("%d rounds, IVARODE_SEED=%d" % (len(config.story), config.seed))


class Machine:
    """One lab for all rounds; a board that a round has failed on is raised anew."""

    def __init__(self):
        self.lab = client.Lab("chaos")
        if self.lab.alive():
            self.lab.stop()
        self.lab.start(os.environ.get("IVARODE_LAB_MODE", ""), tied=True)
        self.board = self.clean = None

    def ready(self):
        if self.board is None:
            described = self.lab.raise_board("two-wan", "three-lans", ["daemon-preload " + PRELOAD])
            self.lab.said(havoc.READY, havoc.LIMIT)
            self.lab.topology = topology.Topology(described, "three-lans")
            havoc.prepare(self.lab)
            self.clean = snapshot.first(self.lab)
            self.board = havoc.Board(self.lab)
        return self.board

    def spoiled(self):
        self.board = None


@pytest.fixture(scope="session")
def machine():
    try:
        held = Machine()
    except client.LabError as error:
        pytest.fail("the lab does not come up: %s" % error)
    yield held
    held.lab.stop()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """The router's log beside a failure."""
    outcome = yield
    report = outcome.get_result()
    held = item.funcargs.get("machine") if hasattr(item, "funcargs") else None
    if report.failed and call.when == "call" and held is not None:
        held.spoiled()
        try:
            log = held.lab.shell("router", "tail -n 40 /var/log/messages /var/log/daemon.log", timeout=10).out
        except client.LabError as error:
            log = str(error)
        report.sections.append(("the router's log", log))
