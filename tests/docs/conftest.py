"""One lab for all books: a board is raised again in it where a book has another configuration.

Of the tests with the mark "sampled" an ordinary run takes a few; IVARODE_SEED=N takes those of that seed.
"""

from __future__ import annotations

import os
import random
from collections.abc import Iterator

import pytest

from tests.docs import board

SAMPLE = 2
SEED = int(os.environ.get("IVARODE_SEED") or random.SystemRandom().randrange(1 << 32))


def pytest_report_header() -> str:
    return f"IVARODE_SEED={SEED}"


def pytest_collection_modifyitems(config: pytest.Config, items: list[pytest.Item]) -> None:
    sampled = [item for item in items if item.get_closest_marker("sampled")]
    if config.getoption("--long") or len(sampled) <= SAMPLE:
        return
    left_out = set(sampled) - set(random.Random(SEED).sample(sampled, SAMPLE))
    config.hook.pytest_deselected(items=list(left_out))
    items[:] = [item for item in items if item not in left_out]


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
