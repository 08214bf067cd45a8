"""The table for a terminal and for the book, and plots drawn from the same figures."""

import math

COLUMNS = ("question", "ours", "limit in the same run", "ratio", "aim", "held", "where")
COLOURS = ("#1f5f99", "#b5561c", "#3c7d3c", "#7a4b93", "#444444")
WIDTH, HEIGHT, LEFT, RIGHT, TOP, BOTTOM = 640, 360, 70, 200, 40, 50


def cells(row):
    return (row.question, row.ours, row.limit, row.ratio, row.aim, row.held, row.where)


def as_text(rows):
    table = [COLUMNS, *(cells(row) for row in rows)]
    widths = [max(len(line[column]) for line in table) for column in range(len(COLUMNS))]
    return "\n".join("  ".join(text.ljust(width) for text, width in zip(line, widths)).rstrip() for line in table)


def as_markdown(rows):
    lines = ["| " + " | ".join(COLUMNS) + " |", "|" + "---|" * len(COLUMNS)]
    for row in rows:
        held = "**no**" if row.held == "no" else row.held
        lines.append("| " + " | ".join((*cells(row)[:5], held, row.where)) + " |")
    return "\n".join(lines)


def ticks(low, high):
    """Powers of ten, and their halves and doubles where there are few."""
    exponents = range(math.floor(math.log10(low)), math.ceil(math.log10(high)) + 1)
    steps = (1,) if len(exponents) > 3 else (1, 2, 5)
    return [step * 10.0 ** exponent for exponent in exponents for step in steps
            if low * 0.99 <= step * 10.0 ** exponent <= high * 1.01]


def number(value):
    return "%g" % value if value < 1000 else "{:,.0f}".format(value).replace(",", " ")


def curves(title, across, up, lines):
    """A plot with logarithmic axes; lines: name -> {x: y}. Lines that are limits begin with "limit"."""
    xs = sorted({x for line in lines.values() for x in line})
    ys = [y for line in lines.values() for y in line.values()]
    low, high = min(ys) / 1.3, max(ys) * 1.3

    def x_of(value):
        return LEFT + (math.log(value / xs[0]) / math.log(xs[-1] / xs[0])) * (WIDTH - LEFT - RIGHT)

    def y_of(value):
        return HEIGHT - BOTTOM - math.log(value / low) / math.log(high / low) * (HEIGHT - TOP - BOTTOM)

    out = ['<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 %d %d" font-family="sans-serif" font-size="12">' % (WIDTH, HEIGHT),
           '<rect width="%d" height="%d" fill="white"/>' % (WIDTH, HEIGHT),
           '<text x="%d" y="22" font-size="14" font-weight="bold">%s</text>' % (LEFT, title)]
    for value in ticks(low, high):
        out.append('<path d="M%d %.1fH%d" stroke="#ddd"/><text x="%d" y="%.1f" text-anchor="end">%s</text>'
                   % (LEFT, y_of(value), WIDTH - RIGHT, LEFT - 6, y_of(value) + 4, number(value)))
    for value in xs:
        out.append('<path d="M%.1f %dV%d" stroke="#ddd"/><text x="%.1f" y="%d" text-anchor="middle">%s</text>'
                   % (x_of(value), TOP, HEIGHT - BOTTOM, x_of(value), HEIGHT - BOTTOM + 16, number(value)))
    out.append('<text x="%d" y="%d" text-anchor="middle">%s</text>' % ((LEFT + WIDTH - RIGHT) // 2, HEIGHT - 12, across))
    out.append('<text x="16" y="%d" text-anchor="middle" transform="rotate(-90 16 %d)">%s</text>'
               % ((TOP + HEIGHT - BOTTOM) // 2, (TOP + HEIGHT - BOTTOM) // 2, up))
    for place, (name, line) in enumerate(lines.items()):
        colour = COLOURS[place % len(COLOURS)]
        dashed = ' stroke-dasharray="5 4"' if name.startswith("limit") else ""
        points = " ".join("%.1f,%.1f" % (x_of(x), y_of(y)) for x, y in sorted(line.items()))
        out.append('<polyline points="%s" fill="none" stroke="%s" stroke-width="2"%s/>' % (points, colour, dashed))
        out += ['<circle cx="%.1f" cy="%.1f" r="3" fill="%s"/>' % (x_of(x), y_of(y), colour) for x, y in line.items()]
        height = TOP + 14 + 18 * place
        out.append('<path d="M%d %dh22" stroke="%s" stroke-width="2"%s/><text x="%d" y="%d">%s</text>'
                   % (WIDTH - RIGHT + 12, height - 4, colour, dashed, WIDTH - RIGHT + 40, height, name))
    return "\n".join(out) + "\n</svg>\n"


def ratios(rows):
    """A bar for each ratio that is aimed at, beside its aim."""
    bars = [(row.question, float(row.ratio), float(row.aim[2:])) for row in rows
            if row.ratio != "–" and row.aim[2:].replace(".", "").isdigit()]
    left, unit, line = 400, 90, 20
    height = TOP + line * len(bars) + 30
    widest = 5.0                                    # longer bars are cut, and say what they are
    out = ['<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 920 %d" font-family="sans-serif" font-size="12">' % height,
           '<rect width="920" height="%d" fill="white"/>' % height,
           '<text x="12" y="22" font-size="14" font-weight="bold">Ours, as a multiple of the limit; the mark is the aim</text>']
    for place, (name, ratio, aim) in enumerate(bars):
        top = TOP + line * place
        colour = COLOURS[0] if ratio <= aim else COLOURS[1]
        out.append('<text x="%d" y="%d" text-anchor="end">%s</text>' % (left - 8, top + 13, name))
        out.append('<rect x="%d" y="%d" width="%.1f" height="%d" fill="%s"/>' % (left, top + 2, unit * min(ratio, widest), line - 5, colour))
        out.append('<path d="M%.1f %dv%d" stroke="black" stroke-width="2"/>' % (left + unit * min(aim, widest), top, line - 1))
        out.append('<text x="%.1f" y="%d">%.2f</text>' % (left + unit * max(min(ratio, widest), min(aim, widest)) + 6, top + 13, ratio))
    return "\n".join(out) + "\n</svg>\n"
