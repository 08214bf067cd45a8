"""One lab for a whole run of these tests; boards are raised in it as the tests need them.

A worker of its own gets a lab of its own. A test leaves the board as it found it, or asks for a fresh one. With
--recorded the daemon of every board is recorded, and what it did is replayed behind each test.
"""

from __future__ import annotations

import os
import time
from collections.abc import Iterator, Sequence

import pytest
from _pytest.terminal import TerminalReporter

from labctl import client, paths, topology
from tests.plan import planning
from tests.system import held_lab, recorded
from tests.system.held_lab import Lab
from tests.system.held_lab import pytest_runtest_makereport  # noqa: F401

READY = "ivarode init success"
SETTLED = 30        # seconds
TALLY = pytest.StashKey[recorded.Tally]()
# Configurations whose plans are compared with the board: each sample on each board, and seeds of random ones.
PLANNED = [*planning.BY_LABEL, *(f"seed {number}" for number in range(1, 41 - len(planning.BY_LABEL)))]


def pytest_configure(config: pytest.Config) -> None:
    config.stash[TALLY] = recorded.Tally()
    Machine.recorded = config.getoption("recorded")


def pytest_terminal_summary(terminalreporter: TerminalReporter, config: pytest.Config) -> None:
    if Machine.recorded:
        terminalreporter.write_line(str(config.stash[TALLY]))


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--restarts", type=int, default=1,
                     help="how often the daemon is killed and started below traffic (default: %(default)s)")
    parser.addoption("--older", metavar="REVISION", help="upgrade from that revision instead of to the same files")
    parser.addoption("--scraped", type=int, metavar="MINUTES", help="watch five routers with Prometheus for so long")
    parser.addoption("--plans", type=int, default=5, choices=range(1, len(PLANNED) + 1), metavar="N",
                     help=f"how many plans to compare with the board, of {len(PLANNED)} (default: %(default)s)")


def pytest_generate_tests(metafunc: pytest.Metafunc) -> None:
    if "planned_case" in metafunc.fixturenames:
        wanted = metafunc.config.getoption("plans")
        metafunc.parametrize("planned_case", [PLANNED[i * len(PLANNED) // wanted] for i in range(wanted)])


class Machine(held_lab.Machine):
    """The lab, and which board is up in it."""

    recorded = False

    def __init__(self) -> None:
        super().__init__("tests" + os.environ.get("PYTEST_XDIST_WORKER", ""),
                         recorded.Lab if self.recorded else Lab)
        self.failed: dict[tuple[str, str, tuple[str, ...]], client.LabError] = {}

    def board(self, board: str, config: str, fresh: bool = False, extra_plan: Sequence[str] = ()) -> Lab:
        wanted = (board, config, tuple(extra_plan))
        if fresh or self.up != wanted:
            self.up = None
            if wanted in self.failed:
                raise self.failed[wanted]       # it will not come up the second time either
            described = self.lab.raise_board(board, config, extra_plan)
            try:
                self.lab.said(READY, 90)
            except client.LabError as error:
                self.failed[wanted] = client.LabError(f"{error}\n{self.log()}")
                raise self.failed[wanted] from error
            self.lab.topology = topology.Topology(described, config)
            self.up = wanted
        return self.lab


MACHINE = pytest.StashKey[Machine]()


@pytest.fixture(scope="session")
def machine(request: pytest.FixtureRequest) -> Iterator[Machine]:
    for machine in held_lab.hold(Machine):
        request.config.stash[MACHINE] = machine
        yield machine


@pytest.fixture(scope="module", autouse=True)
def nothing_to_do(request: pytest.FixtureRequest) -> Iterator[None]:
    """Behind the tests of a file that leaves the board as it found it: a start over the router would change nothing."""
    yield
    machine = request.config.stash.get(MACHINE, None)
    if machine is None or machine.up is None:
        return
    deadline = time.monotonic() + SETTLED * machine.lab.pace
    while changes := planned_changes(machine.lab):
        assert time.monotonic() < deadline, changes


def planned_changes(lab: Lab) -> list[str]:
    return list(lab.run("router", "ivarode-plan", "--from", "now", "--json", timeout=60).json()["changes"])


@pytest.fixture(autouse=True)
def replayed(request: pytest.FixtureRequest, tmp_path_factory: pytest.TempPathFactory) -> Iterator[None]:
    """Behind each test: the daemon does the same on what was recorded of it."""
    used = Machine.recorded and "machine" in request.fixturenames
    lab = request.getfixturevalue("machine").lab if used else None
    yield
    if lab is not None:
        folder = tmp_path_factory.mktemp("recorded")
        tally = request.config.stash[TALLY]
        assert [text for one in lab.take() if (text := tally.replay(one, folder))] == []


@pytest.fixture(scope="session")
def restarts(request: pytest.FixtureRequest) -> range:
    return range(request.config.getoption("restarts"))


@pytest.fixture(scope="session")
def compiler(machine: Machine) -> list[str]:
    """Words of the C++ compiler for the board's processor; none where it is this machine's own."""
    root = paths.cache_dir() / "root/sysroot-mipsel/usr"
    return ["mipsel-linux-gnu-g++", "-isystem", str(root / "include"), "-L", str(root / "lib/mipsel-linux-gnu"),
            "-D_FILE_OFFSET_BITS=64", "-U_TIME_BITS"] if machine.mode == "mips" else []


@pytest.fixture
def home(machine: Machine) -> Lab:
    """One CPU port; LAN 1 over ports 1, 2 and 4, LAN 3 on port 3, a static WAN on port 0."""
    return machine.board("one-cpu", "home")


@pytest.fixture
def fresh_home(machine: Machine) -> Iterator[Lab]:
    """The same, raised for this test alone."""
    yield machine.board("one-cpu", "home", fresh=True)
    machine.spoiled()
