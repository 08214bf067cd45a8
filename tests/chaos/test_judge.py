"""What judges the rounds can find fault: each kind of damage is noticed."""

from __future__ import annotations

import collections
from collections.abc import Iterable

import pytest

from tests.chaos import additions, havoc, judge
from tests.chaos.snapshot import Fact, Facts
from tests.system.held_lab import Lab

CLEAN: Facts = collections.Counter([
    ("device", "lan1", "bridge"), ("rule", "10000: from all lookup 10000"), ("registry", 1, "lan1 vid1=0 vid2=0")])


@pytest.fixture
def asked() -> havoc.Board:
    """A board of which one LAN was asked, and granted."""
    board = havoc.Board(Lab("no-such-lab"))
    made = additions.lan(7, 2)
    made.heard("lan2_n7 0\n")
    board.asked.append(made)
    board.current.append(made)
    return board


HELD: list[Fact] = [
    ("device", "eth0.307", "vlan", 307, "eth0", "lan2_n7"), ("device", "lan2_n7", "bridge"),
    ("address", "lan2_n7", "10.0.7.1/24"), ("registry", 2, "lan2_n7 vid1=307 vid2=65535"), ("vlan", 5, 307, (2, 6), ())]


def faults(board: havoc.Board, *facts: Fact, lost: Iterable[Fact] = ()) -> list[str]:
    wrong, _ = judge.beyond(board, CLEAN, CLEAN + collections.Counter(facts) - collections.Counter(lost))
    return [text.split()[0] for text in wrong]


def test_all_that_was_asked_for_and_no_more_is_right(asked: havoc.Board) -> None:
    assert faults(asked, *HELD) == []


@pytest.mark.parametrize("lost", CLEAN, ids=lambda fact: fact[0])
def test_a_loss_is_noticed(asked: havoc.Board, lost: Fact) -> None:
    assert faults(asked, *HELD, lost=[lost]) == ["lacks"]


@pytest.mark.parametrize("more", [
    ("rule", "10000: from all lookup 10000"), ("device", "lan2_n70", "bridge"), ("vlan", 6, 308, (2, 6), ()),
    ("route", "10.0.70.0/24 via 192.168.1.11 dev lan1 table 10000")], ids=lambda fact: fact[0])
def test_what_nobody_asked_for_is_noticed(asked: havoc.Board, more: Fact) -> None:
    assert faults(asked, *HELD, more)[0] == "holds,"


@pytest.mark.parametrize("gone", [fact for fact in HELD if fact[0] in ("registry", "address")],
                         ids=lambda fact: fact[0])
def test_a_granted_thing_that_is_gone_is_noticed(asked: havoc.Board, gone: Fact) -> None:
    assert faults(asked, *(fact for fact in HELD if fact != gone)) == ["lost"]


def test_a_new_daemon_that_remembers_is_noticed(asked: havoc.Board) -> None:
    asked.current.clear()
    assert faults(asked, *HELD) == ["remembers"]
    assert faults(asked, *HELD[:3]) == []
