"""The one thing that a start does not find its way back from by itself, and the way out of it."""

from __future__ import annotations

import json
from typing import TYPE_CHECKING

import pytest

from tests.chaos import havoc, judge

if TYPE_CHECKING:
    from tests.chaos.conftest import Machine


@pytest.mark.parametrize("calls, holder", [
    ([("config", {"intf": "lan2_n0", "old_intf": "lan2", "proto": "static", "ipaddr": "10.255.0.1",
                  "netmask": "255.255.255.0"})], "lan2_n0"),
    ([("port_del", {"name": "lan2"}), ("port_add", {"name": "lan2"})], "lan2_default"),
], ids=["renamed", "made anew"])
def test_port_in_a_bridge_that_the_configuration_does_not_name(machine: Machine,
                                                               calls: list[tuple[str, dict[str, str]]],
                                                               holder: str) -> None:
    """A device is not taken out of a bridge that nobody knows: each start ends there, until the stop action."""
    board = machine.ready()
    for method, arguments in calls:
        board.lab.ok("router", "ubus", "-t", "300", "call", "ivarode.intf", method, json.dumps(arguments),
                     timeout=havoc.LIMIT)
    board.kill("daemon")
    for _ in range(2):
        board.lab.ok("agent", "start", "daemon")
        board.ended("daemon", 60)
        assert "daemon ended exit 253" in board.lab.ok("agent", "services").splitlines()
        assert "veth init failed, master_intf=eth0.4092 veth_intfname=lan2 " in board.lab.ok("router", "cat",
                                                                                             "/var/log/messages")
        assert board.lab.ok("router", "cat",
                            "/sys/class/net/eth0.4092/brport/bridge/uevent").splitlines()[1] == "INTERFACE=" + holder
    havoc.init_stop(board)
    havoc.mend(board)
    assert machine.clean is not None
    judge.settle(board, machine.clean, judge.exactly)
