"""What the kinds of tests have in common on the command line."""

from __future__ import annotations

import os

import pytest

from tests import progress


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--long", action="store_true", help="also what takes minutes")
    parser.addoption("--recorded", action="store_true",
                     help="record the daemon of each board, and replay what it did (tests/system, tests/chaos)")


def pytest_configure(config: pytest.Config) -> None:
    config.addinivalue_line("markers", "long: takes minutes, only in a long run")
    config.addinivalue_line("markers", "sampled: an ordinary run takes some of them")
    if progress.PLACE in os.environ:
        config.pluginmanager.register(HowFar())


def pytest_collection_modifyitems(config: pytest.Config, items: list[pytest.Item]) -> None:
    if not config.getoption("--long"):
        for item in items:
            if item.get_closest_marker("long"):
                item.add_marker(pytest.mark.skip(reason="only in a long run"))


class HowFar:
    """Says which test runs, of how many."""

    def __init__(self) -> None:
        self.done, self.total = 0, 0

    def pytest_collection_finish(self, session: pytest.Session) -> None:
        self.total = len(session.items)

    def pytest_runtest_logstart(self, nodeid: str) -> None:
        progress.at(self.done, self.total, nodeid.split("/", 1)[-1])

    def pytest_runtest_logfinish(self) -> None:
        self.done += 1
