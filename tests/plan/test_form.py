"""The form for programs is the one in the book, field by field."""

import re

from tests.docs import books
from tests.plan import planning


def rows(head: str) -> dict[str, str]:
    """The table of the book below a line that begins so: field -> what is said of it."""
    text = books.text("plan.md")
    table = books.tables(text[text.index(head):])[0]
    return {books.code(row[0])[0]: row[1] for row in table[1:]}


def fields_in(said: str) -> set[str]:
    return set(re.findall(r"`(\w+)`", said))


def test_each_field_is_in_the_book_and_none_that_is_not_there() -> None:
    told = planning.plan(*planning.SAMPLE, *planning.call("port_add", name="lan9"),
                         "--call", "ivarode.intf status", "--link", "2=up")
    assert list(rows("`--json` writes one object")) == list(told)
    phase_rows = rows("Of a phase:")
    assert set(phase_rows) == set(told["phases"][1])
    assert set(phase_rows) - set(told["phases"][0]) == {"status"}
    assert list(rows("Of the end:")) == list(told["end"])
    start = told["phases"][0]
    for name in ("messages", "operations", "reach", "meetings"):
        assert fields_in(phase_rows[name]) == set(start[name][0]), name
    assert fields_in(rows("Of the end:")["interfaces"]) == set(told["end"]["interfaces"]["lan1"])
    assert fields_in(rows("Of the end:")["ports"]) == set(told["end"]["ports"][0])
    assert fields_in(rows("Of the end:")["vlans"]) == set(told["end"]["vlans"][0])


def test_each_kind_and_area_is_in_the_book() -> None:
    told = planning.plan(*planning.SAMPLE, "--link", "2=up", "--address", "192.0.2.1",
                         *planning.call("config", intf="wan1", old_intf="wan1", proto="dhcp", defrt_pri="20001"))
    kinds = {phase["kind"] for phase in told["phases"]}
    assert kinds == fields_in(rows("Of a phase:")["kind"])
    areas = {operation["area"] for phase in told["phases"] for operation in phase["operations"]}
    assert areas == set(rows("Of each step"))


def test_each_option_is_in_the_book_and_in_the_help() -> None:
    helped = set(re.findall(r"^  (--\w+)", planning.run("--help").stdout, re.M))
    assert {name.split()[0] for name in rows("| option |")} == helped


def test_a_fact_of_the_end_is_that_of_the_interface() -> None:
    end = planning.plan(*planning.SAMPLE)["end"]
    assert end["interfaces"]["lan1"] == {"kind": "bridge", "bridge": "", "mac": "", "address": "192.168.1.1",
                                         "netmask": "255.255.255.0", "up": True}
    assert {"device lan1 = bridge", "address lan1 = 192.168.1.1", "up lan1"} <= set(end["facts"])
    assert end["ports"][1] == {"port": 1, "serves": "LAN 1", "pvid": 4091, "interfaces": ["lan1"]}
    assert end["vlans"][0] == {"entry": 0, "vid": 4090, "members": [0, 6], "untagged": [0, 1, 2, 3, 4, 5]}
