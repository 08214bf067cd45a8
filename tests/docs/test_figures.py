"""The firewall skeleton of the books is the daemon's, and the pictures are those of the facts."""

from __future__ import annotations

import re
import shlex
import xml.etree.ElementTree as xml

import pytest

from tests.docs import board, books, figures, skeleton

NAMES = re.compile(r"\b(?:\d{4,5}|lan1|wan1|eth0\.\d+)\b")
built = pytest.mark.skipif(not skeleton.plan().exists(), reason="ivarode-plan is not built")


@built
def test_the_skeleton_is_in_the_book_in_its_order() -> None:
    section = books.sections(books.text("architecture.md"))["The firewall skeleton"]
    found = skeleton.chains()
    assert books.tables(section)[0] == [["table", "chain", "holds, in this order"], *skeleton.rows(found)]
    reached = {(table, chain) for table, chain, _ in skeleton.rows(found)}
    assert {key for key, rules in found.items() if rules} == {(table, chain.strip("`")) for table, chain in reached}


@built
@pytest.mark.parametrize("name", figures.FIGURES)
def test_a_picture_is_made_of_the_facts(name: str) -> None:
    drawn = figures.FIGURES[name]()
    xml.fromstring(drawn)
    assert (books.DOCS / name).read_text() == drawn, "tests/python tests.docs.figures draws it again"


def test_each_place_of_a_frame_can_be_looked_at(lab: None) -> None:
    """On the board with one LAN over all ports, whose numbers the picture has."""
    assert board.run("lab/lab up --board one-cpu --config one-lan")[0] == 0
    for place, _, command in figures.WAY:
        if command.startswith("lab/lab capture"):
            continue        # ends with a frame; the command is tried with the lab's book
        seen = ""

        def shown() -> bool:
            nonlocal seen
            status, seen, _ = board.run("lab/lab exec router " + command)
            return status == 0 and all(word in seen for word in NAMES.findall(place))

        try:
            board.until(shown)
        except AssertionError:
            pytest.fail(f"{shlex.split(command)}: {seen}")
