"""Stations on the router's cables that mean harm: a DHCP server that lies, a concentrator that sends garbage, floods.

The daemon answers all the while and does not grow, nothing that a neighbour says reaches another device than its own,
and no frame of theirs crosses from one cable to another. The frames are those of a seed; what they are is in
tests/hostile/neighbour.
"""

from __future__ import annotations

import contextlib
import re
import time
from collections.abc import Iterator
from typing import TYPE_CHECKING, NamedTuple

import pytest

from labctl import checks, client, paths
from labctl.capture import Capture
from tests.system import bus, peers, state
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

PROGRAM = "/run/hostile-neighbour"
SEED = "13"
MAC, MARKER = "0a:ad:ad:ad:ad:01", b"ill-will"      # of every frame of theirs
LEASE = "203.0.113.50"
FRAMES = "800"     # of each kind, as fast as a device takes them
FENCE = "10.255.0.77"       # nobody; who asks for it says that everything before has passed
GROWTH_KB = 64      # what the C library's heap may keep of a busy moment
CALLS = """
while :; do
    for call in 'ivarode.run run' 'ivarode.intf statist' 'ivarode.intf status'; do
        ubus -S -t 10 call $call >/dev/null && echo answered || echo "no answer: $call"
    done
    sleep 0.5
done
"""
# The DHCP client gives back what it may have, and has done so; it searches at once.
RELEASE = """
client=$(cat /var/run/udhcpc-wan1.pid)
given() { grep -c 'wan1 has no lease' /var/log/messages; }
before=$(given)
kill -USR2 $client
until [ "$(given)" -gt "$before" ]; do sleep 0.05; done
"""
SEARCH = "kill -USR1 $(cat /var/run/udhcpc-wan1.pid)\n"


class Size(NamedTuple):
    pid: int
    memory_kb: int
    descriptors: int


def size(lab: Lab) -> Size:
    pid = lab.ok("router", "pidof", "ivarode").strip()
    memory = re.search(r"^RssAnon:\s+(\d+) kB$", lab.ok("router", "cat", f"/proc/{pid}/status"), re.M)
    assert memory
    return Size(int(pid), int(memory[1]), len(lab.ok("router", "ls", f"/proc/{pid}/fd").split()))


def finished(command: client.Command, seconds: int = 150) -> str:
    """What a command has said that ends by itself."""
    return command.collect(time.monotonic() + seconds * command.lab.pace).out


def ended(command: client.Command) -> str:
    """What a command that goes on for ever has said."""
    command.kill()
    return finished(command, 30)


def neighbour(lab: Lab, host: str, *words: str) -> client.Command:
    return lab.spawn(host, PROGRAM, "--seed", SEED, *words, "eth0", timeout=120)


@pytest.fixture(scope="module")
def lab(machine: Machine) -> Iterator[Lab]:
    lab = machine.board("two-wan", "dhcp-and-pppoe", fresh=True)
    program = (paths.programs_dir(machine.mode) / "bin/hostile-neighbour").read_bytes()
    for host in ("pc1", "isp", "isp2"):
        lab.put(host, PROGRAM, program, 0o755)
    yield lab
    machine.spoiled()


@pytest.fixture
def watched(lab: Lab) -> Iterator[Lab]:
    """The board, on which the daemon must answer during the test and be of the same size after it."""
    for _ in range(3):
        assert bus.intf(lab, "statist")[0] == 0
    before = size(lab)
    with lab.spawn("router", "sh", "-c", CALLS) as calls:
        yield lab
        said = ended(calls).splitlines()
    assert len(said) > 10 and set(said) == {"answered"}, said[-20:]
    after = size(lab)
    assert (after.pid, after.descriptors) == (before.pid, before.descriptors)
    assert after.memory_kb <= before.memory_kb + GROWTH_KB


def test_neither_lies_nor_garbage_reach_another_device(watched: Lab) -> None:
    lab = watched
    before = state.addresses(lab), state.routes(lab), lab.ok("router", "ls", "-A", "/tmp")
    lab.shell("router", RELEASE, check=True)
    with lab.spawn("router", "ip", "-4", "-o", "monitor", "address") as seen, \
            neighbour(lab, "isp2", "--count", "2", "concentrator") as concentrator, \
            neighbour(lab, "isp", "dhcp-server") as server:
        assert server.read_until(" lies\n", 20)
        lies = int(server.out.split()[0])
        for told in range(1, lies + 1):
            lab.shell("router", SEARCH, check=True)
            assert server.read_until(f"\n{told} ", 30), bytes(server.out)
            lab.shell("router", RELEASE, check=True)
        said = finished(server)
        assert said.endswith("done\n") and said.count(": asked") == lies, said
        assert finished(concentrator) == "session 1\nsession 2\ndone\n"
        changes = ended(seen)
    assert set(re.findall(r"\d+: (\S+)\s+inet ([\d.]+)", changes)) == {("wan1", LEASE)}, changes
    assert (state.addresses(lab), state.routes(lab), lab.ok("router", "ls", "-A", "/tmp")) == before


@pytest.fixture(scope="module")
def served(lab: Lab) -> Lab:
    """With an honest server, whose lease the client takes after all those lies."""
    peers.Dhcp(lab).start()
    lab.shell("router", SEARCH, check=True)
    peers.bound(lab, "wan1")
    return lab


@pytest.mark.parametrize("host, router, cables", [("isp", "wan1", (1, 2, 3, 4)), ("pc1", "lan1", (0, 2, 3, 4))])
def test_no_frame_of_a_flood_crosses_to_another_cable(served: Lab, watched: Lab, host: str, router: str,
                                                      cables: tuple[int, ...]) -> None:
    lab = watched
    mac = lab.ok("router", "cat", f"/sys/class/net/{router}/address").strip()
    its = state.addresses(lab)
    with contextlib.ExitStack() as stack:
        seen = [stack.enter_context(Capture(lab, port)) for port in cables]
        for kind in ("random", "arp", "dhcp"):
            with neighbour(lab, host, "--count", FRAMES, "--router", mac, kind) as flood:
                assert finished(flood) == "" and flood.status == 0
        # the switch takes a cable's frames in order: all of the flood came before this question
        lab.ok(host, "busybox", "arping", "-c", "5", "-f", "-I", "eth0", its[router][0].split("/")[0])
        for other in ("pc2", "pc3", "isp", "isp2", "pc1"):
            if other != host:
                lab.run(other, "busybox", "arping", "-c", "1", "-w", "1", "-I", "eth0", FENCE)
        for one in seen:
            frames = one.frames(lambda found: any(frame.ip_dst == FENCE for frame in found), 30)
            assert frames is not None
            assert not [str(frame) for frame in frames if frame.src == MAC or MARKER in frame.payload]
    assert state.addresses(lab) == its
    assert checks.ping(lab, "pc1", checks.INTERNET)
