"""What only a long run does."""

import pytest


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--long", action="store_true", help="also what takes minutes")
