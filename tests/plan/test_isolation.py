"""Which ports reach which after each write to the switch: said truly, and no more than the start's layout opens."""

import itertools
import pathlib

import pytest

from tests.plan import planning, registers

# One of each kind of change of a port, on boards that have these ports.
CHANGES = [
    *planning.call("port_add", name="lan2"),
    *planning.call("add", intf="lan4_guest", vlanid1=100, ipaddr="192.168.7.1", netmask="255.255.255.0"),
    *planning.call("add", intf="lan2_guest", vlanid1=200, vlanid2=7, ipaddr="192.168.8.1", netmask="255.255.255.0"),
    "--link", "2=up", "--link", "2=down",
    *planning.call("del", intf=["lan4_guest"]),
    *planning.call("port_del", name="lan2"),
]


@pytest.mark.parametrize("sample", planning.SAMPLES, ids=planning.label)
def test_the_steps_are_those_of_the_registers(sample: tuple[pathlib.Path, pathlib.Path]) -> None:
    board, config = sample
    told = planning.plan("--board", board, "--config", config, *CHANGES)
    said = [(step["write"], step["joined"]) for phase in told["phases"] for step in phase["reach"]]
    assert said == registers.after_each_write(told)
    assert told["writes"] > 60 and len(said) >= len(told["phases"])


@pytest.mark.parametrize("sample", planning.SAMPLES, ids=planning.label)
def test_only_the_layout_of_the_start_opens_anything(sample: tuple[pathlib.Path, pathlib.Path]) -> None:
    """A port that may be a LAN's is in LAN 1's VLAN until its section takes it out. Nothing else, and no longer."""
    board, config = sample
    told = planning.plan("--board", board, "--config", config, *CHANGES)
    start, *others = told["phases"]
    assert [phase["meetings"] for phase in others] == [[] for _ in others]
    lans = {port["port"] for port in told["end"]["ports"] if "LAN" in port["serves"]}
    for meeting in start["meetings"]:
        assert meeting["by_layout"] and not meeting["lasts"] and set(meeting["ports"]) <= lans, meeting
    assert told["status"] in (0, 1)


# For how many writes two ports of the widest sample meet; the walk over the sections takes them apart in its order.
OPEN = {(1, 2): 12, (1, 3): 16, (1, 4): 27, (2, 3): 12, (2, 4): 9, (3, 4): 16}


def test_the_widest_sample_is_open_for_so_long() -> None:
    """Ports 2 and 3 get a LAN of their own, port 4 is WAN 2."""
    told = planning.plan("--board", planning.ROOT / "lab/boards/two-wan.json", "--config",
                         planning.ROOT / "lab/configs/dhcp-and-pppoe")
    total: dict[tuple[int, ...], int] = {}
    for meeting in told["phases"][0]["meetings"]:
        pair = tuple(meeting["ports"])
        total[pair] = total.get(pair, 0) + meeting["writes"]
        assert meeting["lan_and_wan"] == (4 in pair)
    assert total == OPEN
    assert told["status"] == 0


def test_the_length_of_a_meeting_is_that_of_its_steps() -> None:
    told = planning.plan(*planning.SAMPLE)
    start = told["phases"][0]
    ends = [*(step["write"] for step in start["reach"][1:]), start["last_write"] + 1]
    counted: dict[tuple[int, ...], int] = {}
    for step, end in zip(start["reach"], ends):
        for pair in step["joined"]:
            counted[tuple(pair)] = counted.get(tuple(pair), 0) + end - step["write"]
    # Port 3 is the only one that ends apart from the other LANs.
    for pair in itertools.combinations((1, 2, 4), 2):
        counted.pop(pair)
    said: dict[tuple[int, ...], int] = {}
    for meeting in start["meetings"]:
        said[tuple(meeting["ports"])] = said.get(tuple(meeting["ports"]), 0) + meeting["writes"]
    assert said == counted != {}


def test_a_person_reads_the_same() -> None:
    text = planning.run(*planning.SAMPLE, *planning.call("port_add", name="lan2")).stdout
    assert "  isolation from write 44: 1-2\n" in text
    assert "  isolation from write 73: 1-4\n" in text
    assert ("ports 2 (LAN 2) and 3 (LAN 3) meet, apart before and after: start, 12 writes from write 47 on, until its "
            "section takes a port out of the VLAN of LAN 1\n") in text
    assert text.endswith("isolation: 78 writes to the switch; no ports meet that should not\n")
