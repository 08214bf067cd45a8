"""A recording repeated on the virtual board: its board file and configuration, then its requests over the bus and its
events with real frames. What the daemon answers now stands beside what it answered then.

Before the start all cables are pulled, since the daemon takes each port for unplugged until its link comes; each
recorded link is then a cable that is plugged or pulled. An address that does not come by itself comes from the
provider at the other end of its WAN, or is put on its interface.
"""

from __future__ import annotations

import ipaddress
import json
import pathlib
import re
import shlex
import shutil
import time
from collections import Counter
from collections.abc import Callable, Iterator, Sequence
from typing import Any, NamedTuple

from . import boards, client, messages, recordings
from .recordings import Record, RecordingError

FOLDER = "repeated"                 # in the lab's folder
RECORDER = "/usr/lib/libivarode-record.so"
RECORDING = "/tmp/ivarode.rec"
READY = "ivarode init success"
PATIENCE = 90                       # seconds for a lease or a session
AT_ONCE = 2                         # seconds for what the kernel says
PORTS = range(5)
BOARD_FILE = "/etc/board.json"
REPLY = re.compile(r"reply\((.*)\) = -?\d+$", re.S)


class Section(NamedTuple):
    kind: str
    name: str
    options: dict[str, str]


def sections(text: str) -> list[Section]:
    """The sections of a file of the configuration; a line that is none of one is left out."""
    out: list[Section] = []
    for line in text.splitlines():
        try:
            words = shlex.split(line, comments=True)
        except ValueError:
            continue
        if len(words) in (2, 3) and words[0] == "config":
            out.append(Section(words[1], "".join(words[2:]), {}))
        elif len(words) == 3 and words[0] == "option" and out:
            out[-1].options[words[1]] = words[2]
    return out


def address_of(options: dict[str, str], name: str) -> str:
    """The address that an option holds; empty for none."""
    try:
        return str(ipaddress.IPv4Address(options.get(name, "")))
    except ValueError:
        return ""


class Answer(NamedTuple):
    status: int                     # -1 for none
    reply: Any                      # None for none

    def __str__(self) -> str:
        if self.status < 0:
            return "no answer"
        return f"status {self.status}" + (f", {json.dumps(self.reply)}" if self.reply is not None else "")


def uncounted(reply: Any) -> Any:
    """Without the counters, which are others each time: texts of digits in a list."""
    if isinstance(reply, dict):
        return {name: uncounted(value) for name, value in reply.items()}
    if isinstance(reply, list):
        return ["counted" if isinstance(one, str) and one.isdigit() else uncounted(one) for one in reply]
    return reply


def same(recorded: Answer, now: Answer) -> bool:
    return recorded.status == now.status and uncounted(recorded.reply) == uncounted(now.reply)


class Event(NamedTuple):
    number: int
    record: Record
    behind: Sequence[Record]        # what it led to

    def answer(self) -> Answer:
        status = next((int(one.text.split()[1]) for one in self.behind if one.text.startswith("status ")), -1)
        replies = [found[1] for one in self.behind if (found := REPLY.match(one.text))]
        try:
            return Answer(status, messages.data_of(replies[-1]) if replies else None)
        except messages.MessageError:
            return Answer(status, replies[-1])


def events(found: Sequence[Record]) -> Iterator[Event]:
    """The events up to the first that has been overwritten."""
    end = next((at for at, one in enumerate(found) if one.kind == "gap"), len(found))
    places = [at for at, one in enumerate(found[:end]) if one.kind == "event"]
    for number, (at, following) in enumerate(zip(places, [*places[1:], end]), 1):
        yield Event(number, found[at], found[at + 1:following])


class Kept:
    """What a recording holds of its router: board file, configuration, and what happened."""

    def __init__(self, file: pathlib.Path) -> None:
        self.records = recordings.records(file)
        texts = dict(one.text.split("\t", 1) for one in self.records if one.kind == "file")
        self.files = {messages.unquoted(name): messages.unquoted(text) for name, text in texts.items()}
        if BOARD_FILE not in self.files:
            raise RecordingError(f"{file}: no board file is in it, so it is not of a router")
        self.lans = sections(self.files.get("/etc/config/lan_intf", ""))
        self.wans = {one.name: one.options for one in sections(self.files.get("/etc/config/wan_intf", ""))}

    def write(self, folder: pathlib.Path) -> tuple[str, str]:
        """Board file and folder of the configuration, with hosts on their ports."""
        shutil.rmtree(folder, ignore_errors=True)
        (folder / "config").mkdir(parents=True)
        for name, text in self.files.items():
            place = folder if name == BOARD_FILE else folder / "config"
            (place / pathlib.Path(name).name).write_text(text, encoding="utf-8", errors="surrogateescape")
        described = boards.Board(str(folder / "board.json"))
        (folder / "config/hosts").write_text("\n".join(self.hosts(described)) + "\n", encoding="utf-8")
        return str(described.path), str(folder / "config")

    def hosts(self, board: boards.Board) -> Iterator[str]:
        """A port that may be either is a WAN where it is set up as one."""
        wans = {number: port for number, port in board.wans.items() if f"wan{number}" in self.wans}
        for number, host in ((1, "isp"), (2, "isp2")):
            if number in wans:
                yield f"{host} wan{number}"
                if gateway := address_of(self.wans[f"wan{number}"], "gateway"):
                    yield f"    address add {gateway}/24 dev eth0"
        own = {one.name: address for one in self.lans if (address := address_of(one.options, "ipaddr"))}
        for number, port in board.lans.items():
            router = own.get(f"lan{number}", own.get("lan1"))
            if port not in wans.values() and router:
                yield f"pc{number} lan{number}"
                yield f"    address add {neighbour(router, 10 + number)}/24 dev eth0"
                yield f"    route add default via {router}"


def neighbour(address: str, last: int) -> str:
    """Another address of its network of 256."""
    network, _, own = address.rpartition(".")
    return f"{network}.{last if int(own) != last else last + 100}"


class Board:
    """The board, and what of the recording has come to it."""

    def __init__(self, lab: client.Lab, kept: Kept) -> None:
        self.lab, self.kept = lab, kept
        self.come: Counter[str] = Counter()

    def start(self) -> None:
        board, config = self.kept.write(self.lab.state / FOLDER)
        self.lab.raise_board(board, config, ["no-daemon", "daemon-preload " + RECORDER])
        for port in PORTS:
            self.lab.link(port, False)
        self.lab.ok("agent", "start", "daemon")
        self.lab.said(READY, 90)

    def request(self, event: Event) -> Answer | None:
        """None for a message that the bus tool cannot send."""
        _, _, name, method, message = event.record.text.split(" ", 4)
        try:
            words = messages.in_json(message)
        except messages.MessageError:
            return None
        said = self.lab.run("router", "ubus", "-S", "-t", 20 * self.lab.pace, "call", name, method, words, timeout=30)
        return Answer(said.status, json.loads(said.out) if said.out.strip() else None)

    def has_come(self, text: str, seconds: float) -> bool:
        """Whether an event has come to the daemon as often as it is to come."""
        copy = self.lab.state / FOLDER / "now.rec"
        deadline = time.monotonic() + seconds * self.lab.pace
        while True:
            copy.write_bytes(self.lab.get("router", RECORDING))
            if sum(one.text == text for one in recordings.records(copy)) >= self.come[text]:
                return True
            if time.monotonic() > deadline:
                return False

    def happen(self, event: Event) -> bool:
        text = event.record.text
        self.come[text] += 1
        if text.startswith("> link "):
            _, _, port, state = text.split()
            self.lab.link(int(port), state == "up")
            return self.has_come(text, AT_ONCE)
        return self.has_come(text, AT_ONCE) or any(
            bring(text.split()[2], event.record.hidden.strip('"')) and self.has_come(text, seconds)
            for bring, seconds in ((self.by_provider, PATIENCE), (self.on_interface, AT_ONCE)))

    def by_provider(self, address: str, interface: str) -> bool:
        """From the other end of the WAN that gets its address from there."""
        wan = self.kept.wans.get(interface, {})
        host = {"wan1": "isp", "wan2": "isp2"}.get(interface, "")
        if wan.get("proto") == "dhcp":
            start = ["dhcp-provider", "start", "eth0", address, address]
            self.lab.shell(host, f"ip address replace {neighbour(address, 254)}/24 dev eth0", check=True)
        elif wan.get("proto") == "pppoe":
            start = ["pppoe-provider", "start", "eth0", neighbour(address, 254), address]
            self.lab.put(host, "/etc/ppp/chap-secrets", f'"{wan.get("username")}" * "{wan.get("password")}" *\n', 0o600)
        else:
            return False
        self.lab.ok(host, *start)
        return True

    def on_interface(self, address: str, interface: str) -> bool:
        """Put there, or once more."""
        shown = self.lab.run("router", "ip", "-4", "-o", "address", "show", "dev", interface)
        known = re.search(rf" ({re.escape(address)}/\d+)", shown.out)
        whole = known[1] if known else address + "/24"
        return bool(self.lab.run("router", "ip", "address", "replace", whole, "dev", interface))


def repeat(lab: client.Lab, kept: Kept, say: Callable[[str], None],
           after: Callable[[Event], None] = lambda event: None) -> bool:
    """Raises the board of a recording, says what differs, and at the end a verdict; whether nothing does.

    after: called behind each event that has been repeated.
    """
    board = Board(lab, kept)
    board.start()
    differing = Counter[bool]()
    happened = missing = 0
    for event in events(kept.records):
        if event.record.text.startswith("> call "):
            now = board.request(event)
            if now is None:
                missing += 1
                say(f"event {event.number} is left out, since its message cannot be sent: {event.record.text}")
                continue
            recorded = event.answer()
            differing[not same(recorded, now)] += 1
            if not same(recorded, now):
                say(f"event {event.number} is answered differently: {event.record.text}\n"
                    f"  recorded: {recorded}\n  now:      {now}")
        elif event.record.text != "> timer":
            come = board.happen(event)
            happened, missing = happened + come, missing + (not come)
            if not come:
                say(f"event {event.number} does not come: {event.record.text}")
        after(event)
    if any(one.kind == "gap" for one in kept.records):
        say("what came then has been overwritten, and is not repeated")
    requests = differing.total()
    verdict = f"{differing[True]} of {requests} answers differ" if differing[True] else f"the same, {requests} answers"
    say(f"{verdict}; {happened} links and addresses came" + (f", {missing} events did not" if missing else ""))
    return not differing[True]
