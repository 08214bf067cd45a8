"""Whatever dies, and whenever: the next start has everything that the configuration names, and nothing is lost for good.

After each round the board holds all that it held after a clean start. What it holds beyond that was asked for over the
bus, and can be told by its names. Every few rounds, and at the end, the image's stop action takes all of it away, and the
next start is as clean as the first.
"""

import random
import time

from tests.chaos import havoc, snapshot

STRETCH = 5         # rounds until the stop action
PATIENCE = 60       # seconds until everything has settled


def plan(seed, turn):
    """The kind of a round, and its dice. Each kind has its turn, in another order each time around."""
    cycle, place = divmod(turn - 1, len(havoc.KINDS))
    deck = list(havoc.KINDS)
    random.Random(f"{seed}/{cycle}").shuffle(deck)
    return deck[place], random.Random(f"{seed}:{turn}")


def judge(board, clean, now):
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


def settle(board, clean, verdict):
    """Looks until nothing is wrong, or time is up; what was left over."""
    deadline = time.monotonic() + PATIENCE * board.lab.pace
    while True:
        wrong, left = verdict(board, clean, snapshot.take(board.lab))
        if not wrong:
            return left
        assert time.monotonic() < deadline, "\n".join(wrong)


def exactly(_, clean, now):
    wrong = []
    if clean != now:
        wrong.append(f"lacks\n{snapshot.show(clean - now)}\nholds beyond\n{snapshot.show(now - clean)}")
    return wrong, set()


def test_round(machine, turn, request):
    kind, rng = plan(request.config.seed, turn)
    board = machine.ready()
    how = kind(board, rng)
    havoc.mend(board)
    left = settle(board, machine.clean, judge)
    names = sorted(fact[1] for fact in left if fact[0] == "device")
    names += sorted(fact[1].split()[0] for fact in left if fact[0] == "route" and "proto 105" in fact[1])
    told = f"round {turn}: {how}; beyond the configuration: {' '.join(names) or 'nothing'}"
    if turn % STRETCH == 0 or turn == request.config.getoption("rounds"):
        havoc.stop_action(board, rng)
        havoc.mend(board)
        settle(board, machine.clean, exactly)
        board.clean()
        told += "; removed by the stop action"
    request.config.story.append(told)
