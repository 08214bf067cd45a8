"""The ways out of docs/behaviour.md, walked on the virtual board: a fault is made, seen by its sign and by the command
that the book names, the book's own commands are typed, and the router is as it was. An ordinary run walks those that
need no restart and a sample of the others (IVARODE_SEED); a long run all of them."""

from __future__ import annotations

import json
import pathlib
import re
import shlex
import subprocess
from collections.abc import Iterator, Sequence
from typing import Any

import pytest

from labctl import bus, topology
from tests.docs import board, books, faults, ways_out
from tests.docs.ways_out import Step
from tests.runners import BUILD, ROOT
from tests.system import held_lab, state

LAB = ROOT / "lab"
RESTART = "/etc/init.d/ivarode restart"
START = "/etc/init.d/ivarode start"
# The stand-in of the lab reads only; it shows a package with what has been saved for it.
COMMIT = "uci export lan_intf > /tmp/whole && cat /tmp/whole > /etc/config/lan_intf && rm /tmp/.uci/lan_intf"
LAN_ON_PORT_0 = {"switch": {"switch0": {"ports": [
    {"num": 6, "device": "eth0"}, *({"num": port, "role": "lan"} for port in range(4)), {"num": 4, "role": "wan"}]}},
    "system": {"label_macaddr": "00:0c:43:10:20:30"}}
WAYS = ways_out.ways()
POINTERS = ways_out.pointers()


class Router(held_lab.Lab):
    """The router of the board, and what it was like when nothing was wrong."""

    healthy: dict[str, Any]

    def type(self, step: Step | str) -> None:
        """A command as one types it on a router; the daemon's service is the lab's, as the lab's book says."""
        command, wanted = (step, 0) if isinstance(step, str) else (step.command, step.status)
        own = {RESTART: "restart daemon", START: "start --no-wait daemon"}
        if command in own:
            status, out, err = board.run("lab/lab " + own[command])
            assert status == 0, out + err
            if command == START:
                self.run("agent", "wait", 60, "ivarode init success", timeout=70)   # or the end, for the sign to show
        elif command.startswith("link "):
            _, port, where = command.split()
            self.link(int(port), where == "up")
        else:
            host, _, words = command.partition(" ")
            command = COMMIT if command == "uci commit" else command
            done = self.shell("isp", words) if host == "isp" else self.shell("router", command)
            found = bus.reason(done.status, done.err) if command.startswith("ubus call ") else None
            assert (found[0] if found else done.status) == wanted, f"{command}: {done!r}"

    def walk(self, steps: Sequence[Step | str | faults.Look]) -> None:
        for step in steps:
            if isinstance(step, (Step, str)):
                self.type(step)
            else:
                self.sees([step])

    def sees(self, looks: list[faults.Look]) -> None:
        """Waits for what the last steps bring a moment later."""
        for command, pattern in looks:
            said = ""

            def right() -> bool:
                nonlocal said
                said = self.shell("router", command).out
                return bool(re.search(pattern.removeprefix("!"), said)) != pattern.startswith("!")

            try:
                board.until(right)
            except AssertionError:
                pytest.fail(f"{command}\n{said}\nexpected {pattern}")

    def shows(self, pointer: ways_out.Pointer) -> None:
        """At some time: a client that ends at once is started again and again."""
        said = ""

        def right() -> bool:
            nonlocal said
            said = re.sub(r"\s+", " ", self.shell("router", pointer.command, timeout=60).out)
            return pointer.words in said

        try:
            board.until(right)
        except AssertionError:
            pytest.fail(f"{pointer.command}\n{said}\nexpected {pointer.words}")

    def is_healthy(self, but: Sequence[str]) -> None:
        found: dict[str, Any] = {}

        def same() -> bool:
            nonlocal found
            found = state.everything(self)
            found.update({part: self.healthy[part] for part in but})
            return found == self.healthy

        try:
            board.until(same, board.PATIENCE)
        except AssertionError:
            for part, wanted in self.healthy.items():
                assert found[part] == wanted, part
            raise


def raised(kind: str, folder: pathlib.Path) -> Router:
    if kind == "lan-on-port-0":
        (folder / "board.json").write_text(json.dumps(LAN_ON_PORT_0))
        kind = str(folder / "board.json")
    status, out, err = board.run(f"lab/lab up --board {kind} --config one-lan")
    assert status == 0, out + err
    router = Router(board.NAME)
    router.topology = topology.Topology(router.board(), "one-lan")
    router.healthy = state.settled(router)
    return router


class Held:
    """The router that is up, and on which board."""

    router: Router | None = None
    kind = ""


@pytest.fixture(scope="module")
def held(lab: None) -> Iterator[Held]:
    yield Held()


def restarts(fault: faults.Fault) -> bool:
    """Whether the way there or back takes a start of the daemon, or another board."""
    typed = [*fault.into, *(fault.back or [])]
    typed += [step for block in fault.blocks for step in WAYS[fault.heading][block]]
    commands = [step.command if isinstance(step, Step) else step for step in typed]
    return fault.back is None or fault.board != "one-cpu" or RESTART in commands or START in commands


@pytest.mark.parametrize("fault", [
    pytest.param(fault, marks=[pytest.mark.sampled] if restarts(fault) else [], id=fault.name)
    for fault in sorted(faults.FAULTS, key=lambda fault: fault.board)])
def test_the_way_out_heals(held: Held, fault: faults.Fault, tmp_path: pathlib.Path) -> None:
    if held.router is None or held.kind != fault.board:
        held.router, held.kind = raised(fault.board, tmp_path), fault.board
    router, held.router = held.router, None         # of no more use unless this ends well
    router.walk(fault.into)
    router.sees(fault.sign)
    if fault.into:
        router.shows(POINTERS[fault.heading][0])
    last: Step | str = ""
    for number, block in enumerate(fault.blocks):
        for last in WAYS[fault.heading][block]:
            router.type(last)
        if number == 0:
            router.walk(fault.after)
            router.sees(fault.healed)
    for last in fault.back if fault.back is not None else [] if last == Step(RESTART) else [RESTART]:
        router.type(last)
    if fault.board == "one-cpu":
        # a start writes an empty address into the row of a WAN in other words than a request does
        router.is_healthy(() if last in (RESTART, Step(RESTART)) else ["rows"])
        held.router = router


def tool(program: str, *words: str) -> subprocess.CompletedProcess[str]:
    return subprocess.run([BUILD / "bin" / program, *words], capture_output=True, text=True, timeout=60,
                          check=False)


def test_every_way_out_is_walked_or_is_advice() -> None:
    walked = {(fault.heading, block) for fault in faults.FAULTS for block in fault.blocks}
    assert walked == {(heading, number) for heading, blocks in WAYS.items() for number in range(len(blocks))}
    assert {heading for heading, blocks in WAYS.items() if not blocks} == set(faults.ADVICE)


def test_a_fault_has_a_sign() -> None:
    for fault in faults.FAULTS:
        assert bool(fault.sign) == bool(fault.into), fault.name


def test_each_surprise_names_the_command_that_shows_it() -> None:
    assert [heading for heading, named in POINTERS.items() if len(named) != 1] == []
    for pointer in {named[0] for named in POINTERS.values()}:
        program, *words = shlex.split(pointer.command)
        if program == "ubus":
            assert words[2] in books.bus_methods()[words[1]], pointer
        elif program == "ivarodectl":
            done = tool(program, *words, "--help")
            assert done.returncode == 0 and done.stdout.startswith(f"Usage: ivarodectl {words[0]}"), pointer
        elif program == "ivarode-plan":
            here = ["--help"] if "--diff" in words else ["--board", f"{LAB}/boards/one-cpu.json",
                                                         "--config", f"{LAB}/configs/home"]
            assert tool(program, *words, *here).returncode in (0, 1, 3), pointer
        else:
            assert program == "ls", pointer


def test_a_way_out_that_is_walked_is_seen() -> None:
    """All but those whose example is another one than that of the pointer."""
    silent = {fault.heading for fault in faults.FAULTS if fault.into and not POINTERS[fault.heading][0].words}
    assert silent == {"A PPPoE peer that has gone without a word", "Status 0 does not mean that the route is there"}
