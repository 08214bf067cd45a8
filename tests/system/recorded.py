"""The daemon of each board recorded, as on a router, and its recordings replayed."""

from __future__ import annotations

import contextlib
import pathlib
import re
from collections.abc import Sequence

from labctl import boards, client, recordings
from tests.system import held_lab

RECORDER = "/usr/lib/libivarode-record.so"
FILES = ("/tmp/ivarode.rec.1", "/tmp/ivarode.rec")      # of the daemon before, and of the one that runs
PRELOAD = "daemon-preload "
HEAD = slice(0, 40)


def in_front(plan: Sequence[str]) -> list[str]:
    """A plan with the recording before whatever else stands in front of the daemon."""
    others = [line.removeprefix(PRELOAD) for line in plan if line.startswith(PRELOAD)]
    rest = [line for line in plan if not line.startswith(PRELOAD)]
    return [*rest, PRELOAD + ":".join([RECORDER, *(name for name in others if name != RECORDER)])]


def on_board(lab: client.Lab) -> list[bytes]:
    """A file of another user's is none."""
    return [found.raw for file in FILES if (found := lab.shell("router", f"[ -O {file} ] && cat {file}"))]


class Tally:
    """What has been replayed."""

    def __init__(self) -> None:
        self.recordings = self.calls = self.overwritten = 0

    def __str__(self) -> str:
        return (f"{self.recordings} recordings replayed, {self.calls} calls; "
                f"{self.overwritten} of them up to what had been overwritten")

    def replay(self, recording: bytes, folder: pathlib.Path) -> str:
        """What differs; empty for nothing."""
        copy = folder / "router.rec"
        copy.write_bytes(recording)
        verdict = recordings.play(copy)
        if not verdict.same:
            return verdict.text
        counted = re.match(r"the same, (\d+) calls", verdict.text)
        assert counted is not None
        self.recordings += 1
        self.calls += int(counted[1])
        self.overwritten += "overwritten" in verdict.text
        return ""


class Lab(held_lab.Lab):
    """A lab in which no daemon runs that is not recorded. What was on a board is taken before the next one."""

    def __init__(self, name: str) -> None:
        super().__init__(name)
        self.taken: dict[bytes, bytes] = {}

    def raise_board(self, board: str = "one-cpu", config: str = "home", extra_plan: Sequence[str] = (),
                    folder: str = "lab") -> boards.Board:
        self.gather()
        return super().raise_board(board, config, in_front(extra_plan), folder)

    def gather(self) -> None:
        with contextlib.suppress(client.LabError):      # no board is up
            self.taken.update((one[HEAD], one) for one in on_board(self))

    def take(self) -> list[bytes]:
        """The recordings since the last time; of one that has grown the latest state."""
        self.gather()
        taken, self.taken = self.taken, {}
        return list(taken.values())
