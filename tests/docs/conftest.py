"""One lab for all books: a board is raised again in it where a book has another configuration."""

from __future__ import annotations

from collections.abc import Iterator

import pytest

from tests.docs import board


@pytest.fixture(scope="session")
def lab() -> Iterator[None]:
    if not board.built():
        pytest.skip("needs root and a build of the lab")
    status, out, err = board.run("lab/lab up --board one-cpu --config one-lan")
    try:
        assert status == 0, out + err
        yield
    finally:
        board.run("lab/lab down")
