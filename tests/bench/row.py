"""A line of the table: a question, what we take, what the limit takes in the same run, and what was aimed at."""

from dataclasses import dataclass, field
from statistics import median


@dataclass
class Row:
    question: str
    ours: str
    limit: str = "–"
    ratio: str = "–"
    aim: str = "–"
    held: str = "–"             # yes, no, or – where nothing was aimed at or measured
    where: str = "host"
    notes: list = field(default_factory=list)


def micros(value):
    """Microseconds for a person."""
    if value >= 1e6:
        return "%.2f s" % (value / 1e6)
    if value >= 1e3:
        return "%.2f ms" % (value / 1e3)
    return "%.1f µs" % value


def compared(question, ours, limit, against, aim, ratio=None, **more):
    """Times in microseconds, the limit's name, and the ratio that is aimed at (None: none)."""
    ratio = ours / limit if ratio is None else ratio
    return Row(question, micros(ours), "%s %s" % (against, micros(limit)), "%.2f" % ratio,
               "≤ %g" % aim if aim else "–", ("yes" if round(ratio, 2) <= aim else "no") if aim else "–", **more)


def paired(question, pairs, against, aim, **more):
    """Of a list of (ours, limit)."""
    return compared(question, median(ours for ours, _ in pairs), median(limit for _, limit in pairs), against, aim,
                    median(ours / limit for ours, limit in pairs), **more)


def figures(text):
    """What bench printed: name -> list of numbers."""
    found = {}
    for line in text.splitlines():
        name, *numbers = line.split()
        found[name] = [float(number) for number in numbers]
    return found
