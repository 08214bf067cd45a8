"""A line of the table: a question, what we take, what the limit takes in the same run, and what was aimed at."""

from collections.abc import Sequence
from dataclasses import dataclass, field
from statistics import median
from typing import Any

Figures = dict[str, list[float]]                        # name -> numbers
Routes = dict[str, dict[int, list[float]]]              # operation -> routes in the table -> ours, limit, ratio


@dataclass
class Row:
    question: str
    ours: str
    limit: str = "–"
    ratio: str = "–"
    aim: str = "–"
    held: str = "–"             # yes, no, or – where nothing was aimed at or measured
    where: str = "host"
    notes: list[str] = field(default_factory=list)


def micros(value: float) -> str:
    """Microseconds for a person."""
    if value >= 1e6:
        return f"{value / 1e6:.2f} s"
    if value >= 1e3:
        return f"{value / 1e3:.2f} ms"
    return f"{value:.1f} µs"


def compared(question: str, ours: float, limit: float, against: str, aim: float | None,
             ratio: float | None = None, **more: Any) -> Row:
    """Times in microseconds, the limit's name, and the ratio that is aimed at (None: none)."""
    ratio = ours / limit if ratio is None else ratio
    return Row(question, micros(ours), f"{against} {micros(limit)}", f"{ratio:.2f}",
               f"≤ {aim:g}" if aim else "–", ("yes" if round(ratio, 2) <= aim else "no") if aim else "–", **more)


def measured(question: str, found: Sequence[float], against: str, aim: float | None, **more: Any) -> Row:
    """Of what bench printed: ours, limit and ratio."""
    ours, limit, ratio = found
    return compared(question, ours, limit, against, aim, ratio, **more)


def paired(question: str, pairs: Sequence[tuple[float, float]], against: str, aim: float | None, **more: Any) -> Row:
    """Of a list of (ours, limit)."""
    return compared(question, median(ours for ours, _ in pairs), median(limit for _, limit in pairs), against, aim,
                    median(ours / limit for ours, limit in pairs), **more)


def figures(text: str) -> Figures:
    """What bench printed: name -> list of numbers."""
    found: Figures = {}
    for line in text.splitlines():
        name, *numbers = line.split()
        found[name] = [float(number) for number in numbers]
    return found
