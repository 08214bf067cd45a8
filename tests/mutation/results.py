"""What became of the mutants: kept, listed, counted and compared."""
from __future__ import annotations

import json
from collections import Counter
from collections.abc import Iterable
from dataclasses import asdict, dataclass
from pathlib import Path

from tests.mutation.mutants import Key, Mutant

KILLED, SURVIVED, EQUIVALENT, BROKEN = "killed", "survived", "equivalent", "does not compile"
VERDICTS = (KILLED, SURVIVED, EQUIVALENT, BROKEN)


@dataclass
class Result:
    key: Key
    kind: str
    line: int
    verdict: str
    suite: str = ""          # the suite that killed it
    by: str = ""             # its test, or why it does not compile

    def __str__(self) -> str:
        return f"{self.key.file}:{self.line} {self.key.function}: {self.key.change}"


def result(mutant: Mutant, verdict: str, suite: str = "", by: str = "") -> Result:
    return Result(mutant.key, mutant.kind, mutant.line, verdict, suite, by)


def save(results: Iterable[Result], path: Path) -> None:
    path.write_text(json.dumps([asdict(one) for one in results], indent=1) + "\n", encoding="utf-8")


def load(path: Path) -> list[Result]:
    return [Result(Key(**row.pop("key")), **row) for row in json.loads(path.read_text(encoding="utf-8"))]


class Equivalents:
    """Mutants that change nothing observable, in groups: a reason, and below it, indented, what it holds for. A line
    is a mutant's file, function, line of source and change, so that it holds when the line moves."""

    def __init__(self, path: Path) -> None:
        self.reason: dict[str, str] = {}
        self.twice: list[str] = []
        reason: list[str] = []
        entries = False
        for line in path.read_text(encoding="utf-8").splitlines() if path.exists() else []:
            if line.startswith("#") or not line.strip():
                continue
            if not line.startswith(" "):
                reason = [] if entries else reason
                reason.append(line.strip())
                entries = False
                continue
            entries = True
            if line.strip() in self.reason:
                self.twice.append(line.strip())
            self.reason[line.strip()] = " ".join(reason)

    def complaints(self, everything: Iterable[Mutant], results: Iterable[Result]) -> list[str]:
        """What is wrong with the list itself: it must not rot."""
        out = [f"listed twice as equivalent: {entry}" for entry in self.twice]
        out += [f"listed as equivalent without a reason: {entry}" for entry, reason in self.reason.items()
                if not reason]
        known = {str(mutant.key) for mutant in everything}
        out += [f"listed as equivalent, but there is no such mutant: {entry}" for entry in self.reason
                if entry not in known]
        out += [f"listed as equivalent, but {one.verdict}{' by ' + one.by if one.by else ''}: {one.key}"
                for one in results if one.verdict in (KILLED, BROKEN) and str(one.key) in self.reason]
        return out


def table(results: list[Result]) -> str:
    counts: dict[str, Counter[str]] = {}
    for one in results:
        counts.setdefault(one.key.file, Counter())[one.verdict] += 1
    counts["all"] = Counter(one.verdict for one in results)
    width = max(len(name) for name in counts)
    rows = [f"{'file':{width}} {'mutants':>8} {'killed':>8} {'survived':>9} {'equivalent':>11} "
            f"{'does not compile':>17}"]
    for name, count in counts.items():
        rows.append(f"{name:{width}} {count.total():8} {count[KILLED]:8} {count[SURVIVED]:9} {count[EQUIVALENT]:11} "
                    f"{count[BROKEN]:17}")
    return "\n".join(rows)


def score(results: list[Result]) -> str:
    count = Counter(one.verdict for one in results)
    judged = count.total() - count[BROKEN]
    proven = count[KILLED] + count[EQUIVALENT]
    return f"{proven} of {judged} killed or equivalent, {100 * proven / judged:.2f} %" if judged else "no mutants"


def compare(old: list[Result], new: list[Result]) -> list[str]:
    """The mutants that were killed and survive now. Lines move and are rewritten: what is not found by its whole
    key is looked for by file, function and change."""
    def loose(one: Result) -> tuple[str, str, str]:
        return one.key.file, one.key.function, one.key.change

    before = {one.key: one for one in old}
    killed_once = Counter(loose(one) for one in old if one.verdict == KILLED)
    not_killed_once = Counter(loose(one) for one in old if one.verdict != KILLED)
    out = []
    for one in new:
        if one.verdict != SURVIVED:
            continue
        was = before.get(one.key)
        if was.verdict == KILLED if was else killed_once[loose(one)] > 0 and not_killed_once[loose(one)] == 0:
            out.append(f"killed before, survives now: {one}")
    return out
