"""Whatever dies, and whenever: the next start has everything that the configuration names, and nothing is lost.

After each round the board holds all that it held after a clean start. Anything beyond that was asked for over the bus,
and its names show it. Every few rounds, and at the end, the image's stop action takes all of it away, and the next
start is as clean as the first.
"""

from __future__ import annotations

import pathlib
import random
from typing import TYPE_CHECKING

import pytest

from tests.chaos import havoc, judge
from tests.chaos.story import SEED, STORY
from tests.system import recorded

if TYPE_CHECKING:
    from tests.chaos.conftest import Machine

STRETCH = 5         # rounds until the stop action


def plan(seed: int, turn: int) -> tuple[havoc.Havoc, random.Random]:
    """The kind of a round, and its dice. Each kind has its turn, in another order each time around."""
    cycle, place = divmod(turn - 1, len(havoc.KINDS))
    deck = list(havoc.KINDS)
    random.Random(f"{seed}/{cycle}").shuffle(deck)
    return deck[place], random.Random(f"{seed}:{turn}")


def test_round(machine: Machine, turn: int, request: pytest.FixtureRequest, tmp_path: pathlib.Path) -> None:
    kind, rng = plan(request.config.stash[SEED], turn)
    board = machine.ready()
    assert machine.clean is not None
    how = kind(board, rng)
    havoc.mend(board)
    left = judge.settle(board, machine.clean, judge.beyond)
    if machine.recorded:
        # Of the daemon that runs, and of the one before it.
        tally = recorded.Tally()
        assert [text for one in recorded.on_board(board.lab) if (text := tally.replay(one, tmp_path))] == []
    names = sorted(fact[1] for fact in left if fact[0] == "device")
    names += sorted(fact[1].split()[0] for fact in left if fact[0] == "route" and "proto 105" in fact[1])
    told = f"round {turn}: {how}; beyond the configuration: {' '.join(names) or 'nothing'}"
    if turn % STRETCH == 0 or turn == request.config.getoption("rounds"):
        havoc.stop_action(board, rng)
        havoc.mend(board)
        judge.settle(board, machine.clean, judge.exactly)
        board.clean()
        told += "; removed by the stop action"
    request.config.stash[STORY].append(told)
