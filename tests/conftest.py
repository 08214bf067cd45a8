"""What the kinds of tests have in common on the command line."""

import pytest


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--long", action="store_true", help="also what takes minutes")
    parser.addoption("--recorded", action="store_true",
                     help="record the daemon of each board, and replay what it did (tests/system, tests/chaos)")


def pytest_configure(config: pytest.Config) -> None:
    config.addinivalue_line("markers", "long: takes minutes, only in a long run")
    config.addinivalue_line("markers", "sampled: an ordinary run takes some of them")


def pytest_collection_modifyitems(config: pytest.Config, items: list[pytest.Item]) -> None:
    if not config.getoption("--long"):
        for item in items:
            if item.get_closest_marker("long"):
                item.add_marker(pytest.mark.skip(reason="only in a long run"))
