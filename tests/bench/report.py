"""The table for a terminal and for the book, and plots drawn from the same figures."""

import math
from collections.abc import Mapping, Sequence

from tests.bench.row import Row

COLUMNS = ("question", "ours", "limit in the same run", "ratio", "aim", "held", "where")
COLOURS = ("#1f5f99", "#b5561c", "#3c7d3c", "#7a4b93", "#444444")
WIDTH, HEIGHT, LEFT, RIGHT, TOP, BOTTOM = 640, 360, 70, 200, 40, 50


def cells(row: Row) -> tuple[str, ...]:
    return (row.question, row.ours, row.limit, row.ratio, row.aim, row.held, row.where)


def as_text(rows: Sequence[Row]) -> str:
    table = [COLUMNS, *(cells(row) for row in rows)]
    widths = [max(len(line[column]) for line in table) for column in range(len(COLUMNS))]
    return "\n".join("  ".join(text.ljust(width) for text, width in zip(line, widths)).rstrip() for line in table)


def as_markdown(rows: Sequence[Row]) -> str:
    lines = ["| " + " | ".join(COLUMNS) + " |", "|" + "---|" * len(COLUMNS)]
    for row in rows:
        held = "**no**" if row.held == "no" else row.held
        lines.append("| " + " | ".join((*cells(row)[:5], held, row.where)) + " |")
    return "\n".join(lines)


def ticks(low: float, high: float) -> list[float]:
    """Powers of ten, and their halves and doubles where there are few."""
    exponents = range(math.floor(math.log10(low)), math.ceil(math.log10(high)) + 1)
    steps = (1,) if len(exponents) > 3 else (1, 2, 5)
    return [step * 10.0 ** exponent for exponent in exponents for step in steps
            if low * 0.99 <= step * 10.0 ** exponent <= high * 1.01]


def number(value: float) -> str:
    return f"{value:g}" if value < 1000 else f"{value:,.0f}".replace(",", " ")


def curves(title: str, across: str, up: str, lines: Mapping[str, Mapping[int, float]]) -> str:
    """A plot with logarithmic axes; lines: name -> {x: y}. Lines that are limits begin with "limit"."""
    xs = sorted({x for line in lines.values() for x in line})
    ys = [y for line in lines.values() for y in line.values()]
    low, high = min(ys) / 1.3, max(ys) * 1.3

    def x_of(value: float) -> float:
        return LEFT + (math.log(value / xs[0]) / math.log(xs[-1] / xs[0])) * (WIDTH - LEFT - RIGHT)

    def y_of(value: float) -> float:
        return HEIGHT - BOTTOM - math.log(value / low) / math.log(high / low) * (HEIGHT - TOP - BOTTOM)

    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {WIDTH} {HEIGHT}" '
           'font-family="sans-serif" font-size="12">',
           f'<rect width="{WIDTH}" height="{HEIGHT}" fill="white"/>',
           f'<text x="{LEFT}" y="22" font-size="14" font-weight="bold">{title}</text>']
    for value in ticks(low, high):
        out.append(f'<path d="M{LEFT} {y_of(value):.1f}H{WIDTH - RIGHT}" stroke="#ddd"/>'
                   f'<text x="{LEFT - 6}" y="{y_of(value) + 4:.1f}" text-anchor="end">{number(value)}</text>')
    for value in xs:
        out.append(f'<path d="M{x_of(value):.1f} {TOP}V{HEIGHT - BOTTOM}" stroke="#ddd"/>'
                   f'<text x="{x_of(value):.1f}" y="{HEIGHT - BOTTOM + 16}" text-anchor="middle">{number(value)}'
                   '</text>')
    out.append(f'<text x="{(LEFT + WIDTH - RIGHT) // 2}" y="{HEIGHT - 12}" text-anchor="middle">{across}</text>')
    middle = (TOP + HEIGHT - BOTTOM) // 2
    out.append(f'<text x="16" y="{middle}" text-anchor="middle" transform="rotate(-90 16 {middle})">{up}</text>')
    for place, (name, line) in enumerate(lines.items()):
        colour = COLOURS[place % len(COLOURS)]
        dashed = ' stroke-dasharray="5 4"' if name.startswith("limit") else ""
        points = " ".join(f"{x_of(x):.1f},{y_of(y):.1f}" for x, y in sorted(line.items()))
        out.append(f'<polyline points="{points}" fill="none" stroke="{colour}" stroke-width="2"{dashed}/>')
        out += [f'<circle cx="{x_of(x):.1f}" cy="{y_of(y):.1f}" r="3" fill="{colour}"/>' for x, y in line.items()]
        height = TOP + 14 + 18 * place
        out.append(f'<path d="M{WIDTH - RIGHT + 12} {height - 4}h22" stroke="{colour}" stroke-width="2"{dashed}/>'
                   f'<text x="{WIDTH - RIGHT + 40}" y="{height}">{name}</text>')
    return "\n".join(out) + "\n</svg>\n"


def ratios(rows: Sequence[Row]) -> str:
    """A bar for each ratio that is aimed at, beside its aim."""
    bars = [(row.question, float(row.ratio), float(row.aim[2:])) for row in rows
            if row.ratio != "–" and row.aim[2:].replace(".", "").isdigit()]
    left, unit, line = 400, 90, 20
    height = TOP + line * len(bars) + 30
    widest = 5.0                                    # longer bars are cut, and say what they are
    out = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 920 {height}" '
           'font-family="sans-serif" font-size="12">',
           f'<rect width="920" height="{height}" fill="white"/>',
           '<text x="12" y="22" font-size="14" font-weight="bold">'
           'Ours, as a multiple of the limit; the mark is the aim</text>']
    for place, (name, ratio, aim) in enumerate(bars):
        top = TOP + line * place
        colour = COLOURS[0] if ratio <= aim else COLOURS[1]
        out.append(f'<text x="{left - 8}" y="{top + 13}" text-anchor="end">{name}</text>')
        out.append(f'<rect x="{left}" y="{top + 2}" width="{unit * min(ratio, widest):.1f}" '
                   f'height="{line - 5}" fill="{colour}"/>')
        mark = left + unit * min(aim, widest)
        out.append(f'<path d="M{mark:.1f} {top}v{line - 1}" stroke="black" stroke-width="2"/>')
        behind = max(left + unit * min(ratio, widest), mark) + 6
        out.append(f'<text x="{behind:.1f}" y="{top + 13}">{ratio:.2f}</text>')
    return "\n".join(out) + "\n</svg>\n"
