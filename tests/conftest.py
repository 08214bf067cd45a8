"""What the kinds of tests with a virtual board have in common on the command line."""

import pytest


def pytest_addoption(parser: pytest.Parser) -> None:
    parser.addoption("--recorded", action="store_true",
                     help="record the daemon of each board, and replay what it did (tests/system, tests/chaos)")
