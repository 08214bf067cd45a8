"""What a recording costs a whole question: two boards side by side, asked in turns, on one of which the daemon is
recorded; and the memory of its process.
"""

from __future__ import annotations

import re
import tempfile
from collections.abc import Iterator
from pathlib import Path

from tests.bench.on_board import Session, own_config
from tests.bench.on_host import Unable
from tests.bench.row import Figures, Row, paired

RECORDER = "libivarode-record.so"
RECORDING = "ivarode.rec"
AIM = 1.05
AIM_KIB = 64


# What bench is asked, and what its answer is called: the first number is ours.
QUESTIONS = {
    "call run": ("call run {calls} ivarode.run run", "call.run.empty"),
    "call status": ("call status {calls} ivarode.intf status", "call.status.empty"),
    "call statist": ("call statist {calls} ivarode.intf statist", "call.statist.empty"),
    "route added over the bus": ("routes {calls} 100", "route.add.100"),
    "route edited over the bus": ("routes {calls} 100", "route.edit.100"),
    "route deleted over the bus": ("routes {calls} 100", "route.del.100"),
}
CALLS = 200         # of one turn


def turns(recorded: Session, plain: Session, words: str, count: int) -> Iterator[tuple[Figures, Figures]]:
    """What both say, one right after the other; each begins as often."""
    for turn in range(count):
        order = (recorded, plain) if turn % 2 == 0 else (plain, recorded)
        first, second = (session.bench(words) for session in order)
        yield (first, second) if turn % 2 == 0 else (second, first)


def memory(session: Session, is_recorded: bool) -> tuple[int, int]:
    """KiB of the daemon's process that are no shared file, and those of the library's code; the recording is a file."""
    text = session.lab.ok("router", "sh", "-c", "cat /proc/$(busybox pidof ivarode)/smaps")
    if (RECORDING in text) != is_recorded:
        raise Unable("the daemon is recorded where it is not to be, or the other way around")
    private = code = 0
    for mapping in re.split(r"^(?=[0-9a-f]+-[0-9a-f]+ )", text, flags=re.M)[1:]:
        resident = int(re.search(r"^Rss:\s+(\d+) kB", mapping, re.M)[1])  # type: ignore[index]
        head = mapping.splitlines()[0]
        own = int(re.search(r"^Anonymous:\s+(\d+) kB", mapping, re.M)[1])  # type: ignore[index]
        private += 0 if head.endswith(RECORDING) else own
        code += resident - own if head.endswith(RECORDER) else 0
    return private, code


def rows(build: Path, quick: bool) -> list[Row]:
    with tempfile.TemporaryDirectory() as text, Session(build, "native", "bench-plain") as plain, \
            Session(build, "native", "bench-recorded") as recorded:
        folder = own_config(Path(text), hosts="pc1 lan1\npc2 lan2\nisp wan1\n")
        plain.raise_board("one-cpu", folder)
        recorded.raise_board("one-cpu", folder, ["daemon-preload /usr/lib/" + RECORDER])
        for session in (plain, recorded):
            session.lab.ok("router", "ip", "address", "add", "203.0.113.2/24", "dev", "eth0")
        (without, _), (with_it, code) = memory(plain, False), memory(recorded, True)
        asked = {words: list(turns(recorded, plain, words.format(calls=CALLS), 4 if quick else 30))
                 for words in dict.fromkeys(words for words, _ in QUESTIONS.values())}
        where = recorded.where
    more = with_it - without + code
    return [*(paired(f"{question}, recorded", [(one[key][0], other[key][0]) for one, other in asked[words]],
                     "not recorded", AIM, where=where) for question, (words, key) in QUESTIONS.items()),
            Row("memory of a recording beside its file, anonymous / code", f"{with_it - without} kB / {code} kB",
                aim=f"≤ {AIM_KIB} KiB", held="yes" if more <= AIM_KIB else "no", where=where)]
