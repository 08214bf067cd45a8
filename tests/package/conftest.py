"""What only a long run does."""

import pytest


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--long", action="store_true", help="also what takes minutes")


def pytest_collection_modifyitems(config: pytest.Config, items: list[pytest.Item]) -> None:
    if not config.getoption("--long"):
        for item in items:
            if item.get_closest_marker("long"):
                item.add_marker(pytest.mark.skip(reason="only in a long run"))


def pytest_configure(config: pytest.Config) -> None:
    config.addinivalue_line("markers", "long: takes minutes")
