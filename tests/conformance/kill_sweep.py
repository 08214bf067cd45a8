"""Kills the daemon before each call of its start in turn, starts it again on what it left, and compares.

What a killed start left of devices, chains, registers and processes must not keep the next start from reaching
the state of an undisturbed one. One difference is the firewall's own rule: a chain that was created but not yet
hooked when the kill struck exists at the next start, and so is not hooked any more.
"""
import re
import tempfile
from collections.abc import Iterator, Sequence
from concurrent.futures import Executor
from pathlib import Path

from tests.conformance.notation import Line
from tests.conformance.recording import Board, Run, run_process
from tests.conformance.scenario import load_fixtures

HERE = Path(__file__).resolve().parent
SETUPS = (
    ("two-wan-board", "three-lans-two-wans"),
    ("one-wan-board", "lan-and-dhcp-wan"),
    ("two-cpu-board", "lan-and-static-wan"),
)
APPEND = re.compile(r'killed before iptlib_rule_append\("(\w+)", "(\w+)", "-j (\w+)"\)')


class Sweep:
    def __init__(self, board: Board, setup: Sequence[str]) -> None:
        self.board = board
        fixtures = load_fixtures(HERE / "fixtures.txt")
        self.name = " + ".join(setup)
        self.lines = [line for name in setup for line in fixtures[name].setup]
        self.first = [line for name in setup for line in fixtures[name].first]
        self.lost_jumps = 0

    def start(self, folder: str, *extra: Line) -> tuple[Run, list[str]]:
        """One start; the trace of it, and the model it left."""
        model = Path(folder) / "model"
        run = run_process(self.board, [*self.lines, ("save", str(model)), *extra, ("loop",), ("step", "end")], folder)
        return run, model.read_text(encoding="utf-8").splitlines() if model.exists() else []

    def undisturbed(self) -> tuple[Run, list[str]]:
        with tempfile.TemporaryDirectory(prefix="sweep-") as folder:
            return self.start(folder, *self.first)

    def killed_at(self, number: int, wanted: list[str]) -> str | None:
        """What is wrong after a kill before action `number`; None when nothing is."""
        with tempfile.TemporaryDirectory(prefix="sweep-") as folder:
            killed, _ = self.start(folder, *self.first, ("kill-at", str(number)))
            last = [line for key in killed.order for line in killed.parts[key]][-2]
            if killed.exit != "-119" or not last.startswith("killed before "):
                return f"not killed, but ended with {killed.exit} after {last}"
            again, model = self.start(folder, ("load", str(Path(folder) / "model")))
        if again.exit != "0":
            return f"{last}: the next start ended with {again.exit}"
        missing = [line for line in wanted if line not in model]
        extra = [line for line in model if line not in wanted]
        if not missing and not extra:
            return None
        if self.lost_jump(last, missing, extra):
            self.lost_jumps += 1
            return None
        return f"{last}:\n    missing: {missing}\n    instead: {extra}"

    @staticmethod
    def lost_jump(last: str, missing: list[str], extra: list[str]) -> bool:
        """Whether the only difference is the jump whose laying the kill prevented."""
        match = APPEND.match(last)
        if not match or len(missing) != 1 or len(extra) > 1:
            return False
        key = f"chain {match[1]} {match[2]}"
        have = extra[0] if extra else key
        if not missing[0].startswith(key + " = ") or have.partition(" = ")[0] != key:
            return False
        rules = missing[0].partition(" = ")[2].split(" ; ")
        left = have.partition(" = ")[2].split(" ; ") if " = " in have else []
        return [rule for rule in rules if rule != f"-j {match[3]}"] == left


def sweep_all(board: Board, pool: Executor) -> Iterator[tuple[str, int, int, list[str]]]:
    """(name, kills, lost jumps, complaints) of each configuration."""
    for setup in SETUPS:
        sweep = Sweep(board, setup)
        run, wanted = sweep.undisturbed()
        if run.exit != "0" or not wanted:
            yield sweep.name, 0, 0, [f"the undisturbed start ended with {run.exit}"]
            continue
        numbers = range(1, run.actions + 1)
        wrong = [text for text in pool.map(lambda n, s=sweep, w=wanted: s.killed_at(n, w), numbers) if text]
        yield sweep.name, run.actions, sweep.lost_jumps, wrong
