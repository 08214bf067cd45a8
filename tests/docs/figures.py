"""The pictures of the books that are made of facts: tests/python tests.docs.figures writes them into docs/.

Their ground is white whatever the reader's page is, so that they are seen on a dark one, too.
"""

from __future__ import annotations

from html import escape

from tests.docs import books, skeleton

INK, SOFT, WARM, PALE = "#123", "#345", "#b4532a", "#eef3f8"
LINE = 17       # pixels from line to line


class Picture:
    def __init__(self, width: int, height: int, title: str) -> None:
        self.lines = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
                      'font-family="DejaVu Sans, sans-serif" font-size="12">', f"<title>{escape(title)}</title>",
                      f'<defs><marker id="tip" viewBox="0 0 8 8" refX="7" refY="4" markerWidth="7" markerHeight="7" '
                      f'orient="auto"><path d="M0 0 L8 4 L0 8 z" fill="{SOFT}"/></marker></defs>',
                      f'<rect width="{width}" height="{height}" rx="6" fill="#fff"/>']

    def box(self, x: int, y: int, width: int, height: int, fill: str = "#fff") -> None:
        self.lines.append(f'<rect x="{x}" y="{y}" width="{width}" height="{height}" rx="5" fill="{fill}" '
                          f'stroke="{SOFT}"/>')

    def text(self, x: int, y: int, words: str, bold: bool = False, middle: bool = False, code: bool = False,
             end: bool = False, colour: str = INK, size: int = 12) -> None:
        style = (' font-weight="bold"' if bold else "") + (' text-anchor="middle"' if middle else "")
        style += ' text-anchor="end"' if end else ""
        style += ' font-family="DejaVu Sans Mono, monospace"' if code else ""
        style += f' font-size="{size}"' if size != 12 else ""
        self.lines.append(f'<text x="{x}" y="{y}" fill="{colour}"{style}>{escape(words)}</text>')

    def arrow(self, x: int, y: int, to_x: int, to_y: int) -> None:
        self.lines.append(f'<path d="M{x} {y} L{to_x} {to_y}" stroke="{SOFT}" fill="none" marker-end="url(#tip)"/>')

    def written(self) -> str:
        return "\n".join([*self.lines, "</svg>", ""])


def draw_skeleton() -> str:
    """Where in the kernel's chains the daemon's are, one below the other as a packet meets them."""
    found = skeleton.chains()
    columns = [[("mangle", "PREROUTING"), ("nat", "PREROUTING"), ("mangle", "POSTROUTING"), ("nat", "POSTROUTING")],
               [("mangle", "FORWARD"), ("filter", "FORWARD"), ("filter", "INPUT")]]
    width, gap, top = 430, 20, 60
    trees = {place: skeleton.below(found, *place) for column in columns for place in column}
    height = top + max(sum(len(trees[place]) * LINE + 44 + gap for place in column) for column in columns)
    picture = Picture(2 * width + 3 * gap, height, "The firewall skeleton: chains of the kernel and of the daemon")
    picture.text(gap, 24, "Each box is a chain of the kernel; what is further to the right is inside the chain above.",
                 colour=SOFT)
    picture.text(gap, 24 + LINE, "In front of the daemon's chains: packets of known connections are accepted. "
                                 "Empty chains are for other programs.", colour=SOFT)
    for number, column in enumerate(columns):
        x, y = gap + number * (width + gap), top
        for table, chain in column:
            lines = trees[table, chain]
            picture.box(x, y, width, len(lines) * LINE + 44, PALE)
            picture.text(x + 12, y + 20, f"{chain}", bold=True)
            picture.text(x + width - 12, y + 20, table, end=True, colour=WARM)
            for at, (depth, rule) in enumerate(lines):
                own = skeleton.target(rule)
                picture.text(x + 14 + 20 * depth, y + 42 + at * LINE, own or shortened(rule), code=True, size=11,
                             colour=INK if own else WARM)
            y += len(lines) * LINE + 44 + gap
    return picture.written()


def shortened(rule: str) -> str:
    if "RELATED,ESTABLISHED" in rule:
        return "accept known connections"
    return "TCPMSS, for packets that open a connection" if "TCPMSS" in rule else rule.removeprefix("-j ")


# One frame from a station of LAN 2 to the internet: where it is, what happens to it, what shows it.
WAY = [
    ("port 2", "the station's frame comes in, without tag", "lab/lab capture 2"),
    ("PVID 4091", "the VLAN of frames without tag of that port", "ivarodectl switch"),
    ("entry 1 of the VLAN table", "members: ports 1 to 4 and the CPU port", "ivarodectl switch"),
    ("CPU port, eth0", "the frame leaves the switch with its tag", "lab/lab capture eth0"),
    ("device eth0.4091", "the tag is gone; member of bridge lan1", "bridge link"),
    ("bridge lan1", "has the router's address in this LAN", "ip -br address show lan1"),
    ("PREROUTING, FORWARD", "chains of the skeleton; forwarding is on", "iptables -nvL FORWARD"),
    ("rules 10000, 10001, 20001", "static routes, own networks, then the WAN", "ip rule"),
    ("table 20001", "default route of WAN 1", "ip route show table 20001"),
    ("POSTROUTING", "MASQUERADE: the WAN's address as sender", "iptables -t nat -nvL POSTROUTING"),
    ("bridge wan1, device eth0.4090", "out by the CPU port, with tag 4090", "ip link show master wan1"),
    ("port 0", "the switch takes the tag off", "lab/lab capture 0"),
]


def draw_way() -> str:
    """The way of a frame through the router, each station with the command that shows it."""
    columns, width, height, gap = 3, 280, 76, 26
    rows = (len(WAY) + columns - 1) // columns
    picture = Picture(columns * (width + gap) + gap, rows * (height + gap) + gap + 24,
                      "One frame's way through the router, with the command that shows each place")
    picture.text(gap, 24, "From a station on port 2 to the internet. The answer comes the same way back.", colour=SOFT)
    for number, (place, what, command) in enumerate(WAY):
        row, at = divmod(number, columns)
        there = -1 if row % 2 else 1            # every second row runs back
        column = columns - 1 - at if row % 2 else at
        x, y = gap + column * (width + gap), gap + 16 + row * (height + gap)
        picture.box(x, y, width, height, PALE)
        picture.text(x + 12, y + 21, f"{number + 1}  {place}", bold=True)
        picture.text(x + 12, y + 42, what, colour=SOFT, size=11)
        picture.text(x + 12, y + 63, "$ " + command, code=True, colour=WARM, size=11)
        middle = x + width // 2
        if number + 1 == len(WAY):
            break
        if at + 1 < columns:
            edge = middle + there * (width // 2 + 3)
            picture.arrow(edge, y + height // 2, edge + there * (gap - 6), y + height // 2)
        else:
            picture.arrow(middle, y + height + 3, middle, y + height + gap - 3)
    return picture.written()


def draw_router() -> str:
    """What the daemon is between: who asks, what it lays, where the frames go."""
    picture = Picture(880, 330, "A small router: the daemon lays what moves the frames between switch and kernel")
    above = [("configuration", "lan_intf, wan_intf, route_config"), ("bus", "requests to five objects"),
             ("events", "cables, leases, addresses")]
    for number, (name, what) in enumerate(above):
        x = 20 + number * 290
        picture.box(x, 16, 260, 50)
        picture.text(x + 130, 37, name, bold=True, middle=True)
        picture.text(x + 130, 55, what, middle=True, colour=SOFT, size=11)
        picture.arrow(x + 130, 68, x + 130, 92)
    picture.box(20, 94, 840, 58, "#fdf1ea")
    picture.text(440, 118, "ivarode, with the platform library libsys", bold=True, middle=True, size=14)
    picture.text(440, 138, "lays what is asked for, and follows the cables", middle=True, colour=SOFT)
    parts = [(20, 196, 230, 50, "stations of LAN 1 to LAN 4", ["by cables on the front ports"], "#fff"),
             (20, 264, 230, 50, "internet", ["WAN 1, WAN 2: static, DHCP, PPPoE"], "#fff"),
             (300, 196, 240, 118, "switch", ["PVIDs, VLAN table, PHYs:", "which ports reach which"], PALE),
             (590, 196, 270, 118, "Linux kernel",
              ["VLAN devices, bridges, addresses,", "firewall chains, routes, rules"], PALE)]
    for x, y, width, height, name, lines, fill in parts:
        picture.box(x, y, width, height, fill)
        picture.text(x + width // 2, y + 21, name, bold=True, middle=True)
        for at, line in enumerate(lines):
            picture.text(x + width // 2, y + 40 + at * LINE, line, middle=True, colour=SOFT, size=11)
    picture.arrow(420, 154, 420, 194)
    picture.arrow(725, 154, 725, 194)
    for left, right, y in ((250, 300, 221), (250, 300, 289), (540, 590, 255)):
        picture.arrow(left + 4, y - 6, right - 3, y - 6)
        picture.arrow(right - 4, y + 8, left + 3, y + 8)
    return picture.written()


FIGURES = {"router.svg": draw_router, "skeleton.svg": draw_skeleton, "frame.svg": draw_way}


def main() -> None:
    for name, draw in FIGURES.items():
        (books.DOCS / name).write_text(draw(), encoding="utf-8")


if __name__ == "__main__":
    main()
