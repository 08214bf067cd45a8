"""What a board must hold after a round, and what may be left over."""

from __future__ import annotations

import time
from collections.abc import Callable

from tests.chaos import havoc, snapshot
from tests.chaos.snapshot import Fact, Facts

PATIENCE = 60       # seconds until everything has settled

Finding = tuple[list[str], set[Fact]]       # what is wrong, in words; what was asked for and is there
Verdict = Callable[[havoc.Board, Facts, Facts], Finding]


def beyond(board: havoc.Board, clean: Facts, now: Facts) -> Finding:
    """What is wrong with the facts of a board, in words; and what of them was left over."""
    wrong, missing, extra = [], clean - now, now - clean
    if missing:
        wrong.append("lacks\n" + snapshot.show(missing))
    explained = {fact for one in board.asked for fact in one.left(extra)}
    if unasked := snapshot.only(extra, lambda fact: fact not in explained):
        wrong.append("holds, and nobody asked for\n" + snapshot.show(unasked))
    # what the daemon itself holds was asked of this very daemon
    known = {fact for one in board.current for fact in one.left(extra)}
    if old := snapshot.only(extra, lambda fact: fact[0] in snapshot.OWN and fact not in known):
        wrong.append("remembers from before its start\n" + snapshot.show(old))
    for one in board.asked:
        kinds = {fact[0] for fact in one.left(extra)}
        wanted = one.proofs | ({"registry"} if one in board.current and "device" in one.proofs else set())
        if one.granted() and one.name not in board.unsure and not wanted <= kinds:
            wrong.append(f"lost {', '.join(sorted(wanted - kinds))} of {one.name}, which was granted")
    return wrong, explained


def settle(board: havoc.Board, clean: Facts, verdict: Verdict) -> set[Fact]:
    """Looks until nothing is wrong, or time is up; what was left over."""
    deadline = time.monotonic() + PATIENCE * board.lab.pace
    while True:
        wrong, left = verdict(board, clean, snapshot.take(board.lab))
        if not wrong:
            return left
        assert time.monotonic() < deadline, "\n".join(wrong)


def exactly(_: havoc.Board, clean: Facts, now: Facts) -> Finding:
    wrong = []
    if clean != now:
        wrong.append(f"lacks\n{snapshot.show(clean - now)}\nholds beyond\n{snapshot.show(now - clean)}")
    return wrong, set()
