"""What a round does to the board. Each kind leaves it broken in its way; `mend` puts its programs back to work."""

from __future__ import annotations

import json
import random
import time
from collections.abc import Callable, Iterable, Sequence
from typing import Any

from tests.chaos import additions, snapshot
from tests.system.held_lab import Lab

READY = "ivarode init success"
# Seconds of the board's own clock, for what must come. An emulated machine's clock may run several times too fast.
LIMIT = 600
OBJECTS = ("ivarode.intf", "ivarode.route", "ivarode.pppuser", "ivarode.pppauth", "ivarode.run", "service",
           "ombrine.run", "dnsmasq.dhcp")
# What changes the things that the configuration names; only the next start brings them back.
TOUCHES: tuple[tuple[str, str, dict[str, Any]], ...] = (
    ("ivarode.intf", "port_del", {"name": "lan2"}),
    ("ivarode.intf", "del", {"intf": ["lan3"]}),
    ("ivarode.intf", "enable", {"intf": ["lan2"], "enable": 0}),
    ("ivarode.intf", "enable", {"intf": ["wan2"], "enable": 0}),
    ("ivarode.route", "enable", {"name": ["partner"], "enable": 0}),
    ("ivarode.route", "del", {"name": ["partner"]}),
    ("ivarode.intf", "config", {"intf": "lan2", "old_intf": "lan2", "proto": "static", "ipaddr": "192.168.77.1",
                                "netmask": "255.255.255.0"}),
    ("ivarode.intf", "config", {"intf": "wan2", "old_intf": "wan2", "proto": "static", "defrt_pri": "20002",
                                "ipaddr": "203.0.114.9", "netmask": "255.255.255.0", "gateway": "203.0.114.1"}),
)


class Board:
    """The lab with what has been asked of its router since it was clean."""

    def __init__(self, lab: Lab) -> None:
        self.lab = lab
        self.number = 0
        self.clean()

    def clean(self) -> None:
        self.asked: list[additions.Addition] = []       # since it was clean
        self.current: list[additions.Addition] = []     # of these, asked of the daemon that runs now
        self.unsure: set[str] = set()                   # names that something else may have removed again

    def services(self) -> dict[str, str]:
        lines = (line.split(" ", 2) for line in self.lab.ok("agent", "services").splitlines())
        return {words[0]: words[1] for words in lines}

    def ended(self, name: str, seconds: int = 60) -> None:
        deadline = time.monotonic() + seconds * self.lab.pace
        while self.services()[name] == "running":
            assert time.monotonic() < deadline, name + " does not end"
            time.sleep(0.1)

    def kill(self, *names: str) -> None:
        for name in names:
            self.lab.ok("agent", "kill", name, "9")
        for name in names:
            self.ended(name)

    def new(self, rng: random.Random,
            kinds: Sequence[str] = ("lan", "lan", "wan", "route", "route")) -> additions.Addition:
        """Something that has not been there before. The switch has room for eleven VLANs."""
        kind = rng.choice(kinds) if len(self.current) < 9 else "route"
        self.number += 1
        if kind == "lan":
            made = additions.lan(self.number, rng.randint(1, 3))
        elif kind == "wan":
            made = additions.wan(self.number)
        else:
            made = additions.route(self.number)
        self.asked.append(made)
        self.current.append(made)
        return made

    def ask(self, *wanted: additions.Addition) -> None:
        """Asks for them at rest; each is granted."""
        said = self.lab.shell("router", "\n".join(one.command() for one in wanted), timeout=LIMIT).out
        for one in wanted:
            one.heard(said)
            assert one.granted(), (one.name, said)

    def in_flight(self, lines: Iterable[str], then: str) -> str:
        """Lets requests run side by side and does something in the midst of them; what they printed."""
        return self.lab.shell("router", "\n".join(f"({line}) &" for line in lines) + "\n" + then + "\nwait\n",
                              timeout=LIMIT).out


def touch(board: Board, rng: random.Random) -> str:
    name, method, arguments = rng.choice(TOUCHES)
    if method == "port_del":
        board.unsure.update(one.name for one in board.current if one.name.startswith(arguments["name"]))
    return f"ubus -S -t 5 call {name} {method} '{json.dumps(arguments)}' >/dev/null 2>&1"


def kill_in_flight(board: Board, rng: random.Random, victims: list[str]) -> str:
    """Requests run, and after a moment the victims are killed; or the daemon stands still, and none gets an answer."""
    wanted = [board.new(rng) for _ in range(rng.randint(1, 3))]
    lines = [one.command(patience=5) for one in wanted]
    if "daemon" in victims and rng.random() < 0.6:
        lines.append(touch(board, rng))
    programs = {"daemon": "ivarode", "broker": "ubusd"}
    pids = " ".join(f"$(pidof {programs[victim]})" for victim in victims)
    kill = f"kill -9 {pids}; kill -9 $(pidof ubus)"       # nobody will answer those who still wait
    if "daemon" in victims and rng.random() < 0.4:
        output = board.in_flight(lines, "kill -STOP $(pidof ivarode); sleep 0.3; " + kill)
        how = f"while {len(wanted)} requests wait for it"
    else:
        moment = rng.choice((0, 0.02, 0.05, 0.1, 0.2, 0.3, 0.5))
        output = board.in_flight(lines, f"sleep {moment}; {kill}")
        how = f"{moment:.2f} s after {len(wanted)} requests"
    for one in wanted:
        one.heard(output)
    for victim in victims:
        board.ended(victim)
    return how


def daemon_at_rest(board: Board, rng: random.Random) -> str:
    board.ask(*[board.new(rng) for _ in range(rng.randint(0, 2))])
    board.kill("daemon")
    return "daemon killed at rest"


def daemon_busy(board: Board, rng: random.Random) -> str:
    return "daemon killed " + kill_in_flight(board, rng, ["daemon"])


def broker_at_rest(board: Board, rng: random.Random) -> str:
    board.ask(board.new(rng))
    board.kill("broker")
    return "broker killed at rest"


def broker_busy(board: Board, rng: random.Random) -> str:
    return "broker killed " + kill_in_flight(board, rng, ["broker"])


def both(board: Board, rng: random.Random) -> str:
    victims = ["daemon", "broker"]
    rng.shuffle(victims)
    return " and ".join(victims) + " killed " + kill_in_flight(board, rng, victims)


def client_process(board: Board, service: str, name: str) -> int | None:
    listed = json.loads(board.lab.ok("router", "ubus", "-t", "60", "call", "service", "list"))
    instance = listed.get(service, {}).get("instances", {}).get(name, {})
    return instance.get("pid") if instance.get("running") else None


def child(board: Board, rng: random.Random) -> str:
    """A DHCP client, which the supervisor starts again."""
    made = board.new(rng, ("wan",))
    board.ask(made)
    pid = client_process(board, "dhcp", made.name)
    assert pid, "no client runs for " + made.name
    board.lab.ok("router", "kill", "-9", str(pid))
    deadline = time.monotonic() + 60 * board.lab.pace
    while client_process(board, "dhcp", made.name) in (None, pid):
        assert time.monotonic() < deadline, "nobody started the client again"
        time.sleep(0.2)
    return f"DHCP client of {made.name} killed"


def bus_clients(board: Board, rng: random.Random) -> str:
    """Listeners, and callers whose requests the daemon has not come to: killed while it stands still."""
    wanted = [board.new(rng) for _ in range(rng.randint(1, 2))]
    lines = ["ubus listen >/dev/null 2>&1"] * rng.randint(1, 3) + [one.command() for one in wanted]
    lines += ["ubus -S -t 60 call ivarode.intf statist >/dev/null"] * rng.randint(1, 3)
    output = board.in_flight(lines, "sleep 0.3; kill -9 $(pidof ubus)" if rng.random() < 0.5 else
                             "kill -STOP $(pidof ivarode); sleep 0.3; kill -9 $(pidof ubus); kill -CONT $(pidof "
                             "ivarode)")
    for one in wanted:
        one.heard(output)
    return f"{len(lines)} bus clients killed"


def flaps(board: Board, rng: random.Random, count: int | None = None) -> str:
    """Cables pulled and plugged, faster than they are polled and slower; all are plugged at the end."""
    down: set[int] = set()
    changes = count or rng.randint(4, 10)
    for _ in range(changes):
        port = rng.randrange(5)
        board.lab.link(port, port in down)
        down ^= {port}
        if rng.random() < 0.3:
            board.ask(board.new(rng, ("route", "lan")))
    for port in sorted(down):
        board.lab.link(port, True)
    return f"{changes + len(down)} times a cable pulled or plugged"


def pulled_and_killed(board: Board, rng: random.Random) -> str:
    """Killed while cables are out, which are plugged again behind its back or after its next start."""
    ports = rng.sample(range(5), rng.randint(1, 3))
    for port in ports:
        board.lab.link(port, False)
    how = f"cables {ports} out, daemon killed " + kill_in_flight(board, rng, ["daemon"])
    late = rng.random() < 0.5
    if late:
        mend(board)
    for port in ports:
        board.lab.link(port, True)
    return how + (", cables back after its start" if late else ", cables back before its start")


Havoc = Callable[[Board, random.Random], str]
KINDS: tuple[Havoc, ...] = (daemon_at_rest, daemon_busy, broker_at_rest, broker_busy, both, child, bus_clients, flaps,
                            pulled_and_killed)


def mend(board: Board) -> None:
    """Starts what has ended. A daemon that is new remembers nothing of what the one before was asked."""
    services = board.services()
    if services["broker"] != "running":
        board.lab.ok("agent", "start", "broker")
        board.lab.shell("router", "until ubus list >/dev/null 2>&1; do sleep 0.05; done", check=True, timeout=LIMIT)
    if services["daemon"] != "running":
        board.current.clear()
        board.lab.ok("agent", "start", "daemon")
        board.lab.said(READY, LIMIT)
    board.lab.run("router", "ubus", "-t", str(LIMIT), "wait_for", *OBJECTS, check=True, timeout=LIMIT)


def init_stop(board: Board) -> None:
    """The image's stop action, of a daemon that has ended: nothing stays."""
    board.lab.ok("router", "/etc/init.d/ivarode", "stop", timeout=LIMIT)
    left = snapshot.only(snapshot.kernel(board.lab), lambda fact: not snapshot.bare(fact))
    assert not left, "left by the stop action:\n" + snapshot.show(left)


def stop_action(board: Board, rng: random.Random) -> None:
    """The daemon is told to end, or has just died; either way its work is removed."""
    if rng.random() < 0.5:
        board.lab.ok("agent", "stop", "daemon", timeout=LIMIT)
        board.ended("daemon")
    else:
        board.kill("daemon")
    init_stop(board)
