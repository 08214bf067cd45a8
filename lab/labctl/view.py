"""The lab drawn for a person: front ports, VLAN table, interfaces, iptables chains."""

from __future__ import annotations

import json
import time
from typing import Any

from . import boards, client
from .commands import TABLES

Rates = dict[str, tuple[float, float]]

SAMPLE = 0.6          # seconds between the two readings that rates come from
COLOURS = {"up": "32", "down": "31", "head": "1", "dim": "2"}


class Paint:
    def __init__(self, colour: bool) -> None:
        self.colour = colour

    def __call__(self, style: str, text: str) -> str:
        return f"\x1b[{COLOURS[style]}m{text}\x1b[0m" if self.colour else text


def rate(bits: float) -> str:
    for unit in ("bit/s", "kbit/s", "Mbit/s"):
        if bits < 1000:
            break
        bits /= 1000
    else:
        unit = "Gbit/s"
    return f"{bits:.0f} {unit}" if bits >= 10 or bits == 0 else f"{bits:.1f} {unit}"


def counters(ports: list[dict[str, Any]], links: list[dict[str, Any]]) -> dict[str, tuple[int, int]]:
    table = {f"port{p['port']}": (p["rx_bytes"], p["tx_bytes"]) for p in ports if not p["cpu"]}
    for link in links:
        stats = link.get("stats64", {})
        table[link["ifname"]] = (stats.get("rx", {}).get("bytes", 0), stats.get("tx", {}).get("bytes", 0))
    return table


def read(lab: client.Lab) -> tuple[Any, Any, Any, Any, float]:
    """Everything the picture needs, in one visit to the board."""
    script = ("lab-agent ask /run/lab/switch.sock status; ip -j -s -s link; ip -j -4 addr; ip -j -4 route show table "
              "all;"
              "cat /proc/uptime")
    lines = lab.shell("router", script).out.splitlines()
    switch, links, addresses, routes = (json.loads(line) for line in lines[:4])
    return switch, links, addresses, routes, float(lines[4].split()[0])


def draw_ports(paint: Paint, board: boards.Board, hosts: dict[int, str], ports: list[dict[str, Any]],
               rates: Rates) -> list[str]:
    boxes = []
    for port in ports:
        if port["cpu"]:
            continue
        number = port["port"]
        up = port["link"]
        speed = f"{port['speed']}{'' if port['full_duplex'] else ' half'}" if up else ""
        rx, tx = rates.get(f"port{number}", (0, 0))
        lines = [f"port {number}", " / ".join(board.serves(number)) or "unused",
                 ("link " + speed) if up else ("link down" if port["power"] else "power off"),
                 f"PVID {port['pvid']}", hosts.get(number, "nobody"),
                 "in " + rate(rx), "out " + rate(tx)]
        boxes.append((up, lines))
    width = max(13, max(len(line) for _, lines in boxes for line in lines) + 2)
    rows = ["  " + " ".join("┌" + "─" * width + "┐" for _ in boxes)]
    for at in range(len(boxes[0][1])):
        cells = []
        for up, lines in boxes:
            text = lines[at].center(width)
            style = {0: "head", 2: "up" if up else "down", 5: "dim", 6: "dim"}.get(at)
            cells.append("│" + (paint(style, text) if style else text) + "│")
        rows.append("  " + " ".join(cells))
    rows.append("  " + " ".join("└" + "─" * width + "┘" for _ in boxes))
    return rows


def draw_vlans(paint: Paint, switch: dict[str, Any]) -> list[str]:
    rows = [paint("head", "  entry   VID  members            leave untagged")]
    for vlan in switch["vlans"]:
        if not vlan["members"]:
            continue
        names = ["CPU" if m == 6 else str(m) for m in vlan["members"]]
        untag = [m for m in vlan["untag"] if m in vlan["members"] and m < 5] if switch["untag_enabled"] else []
        rows.append(f"  {vlan['entry']:5d}  {vlan['vid']:4d}  {' '.join(names):<17}  "
                    f"{' '.join(map(str, untag)) or '-'}")
    free = sum(1 for v in switch["vlans"] if v["entry"] >= 5 and v["free"])
    rows.append(paint("dim", f"  {free} entries free for VLANs of the user; {switch['macs']} addresses learned"))
    return rows


def draw_interfaces(paint: Paint, links: list[dict[str, Any]], addresses: list[dict[str, Any]],
                    routes: list[dict[str, Any]], rates: Rates) -> list[str]:
    inet = {a["ifname"]: [f"{i['local']}/{i['prefixlen']}" for i in a["addr_info"]] for a in addresses}
    rows = [paint("head", f"  {'interface':<16} {'state':<6} {'address':<19} {'MAC':<18} {'in':<12} {'out':<12} "
                          f"{'members / default route'}")]
    for link in links:
        name = link["ifname"]
        if name == "lo" or link.get("link_type") != "ether" and not name.startswith(("lan", "wan", "ppp")):
            continue
        state = "up" if "UP" in link["flags"] else "down"
        if state == "up" and "LOWER_UP" not in link["flags"]:
            state = "nolink"
        more = [m["ifname"] for m in links if m.get("master") == name]
        more += [f"default via {r.get('gateway', '-')} (table {r.get('table', 'main')})"
                 for r in routes if r.get("dst") == "default" and r.get("dev") == name]
        rx, tx = rates.get(name, (0, 0))
        text = f"{state:<6}"
        rows.append(f"  {name:<16} {paint('up' if state == 'up' else 'down', text)} "
                    f"{' '.join(inet.get(name, [])) or '-':<19} {link.get('address', '-'):<18} {rate(rx):<12} "
                    f"{rate(tx):<12} {', '.join(more)}")
    return rows


def status(lab: client.Lab, colour: bool = False, sample: float = SAMPLE) -> str:
    paint = Paint(colour)
    info, board = lab.info(), lab.board()
    switch, links, *_, first = read(lab)
    before = counters(switch["ports"], links)
    time.sleep(sample)
    switch, links, addresses, routes, second = read(lab)
    span = max(second - first, 0.01)
    rates = {}
    for name, (rx, tx) in counters(switch["ports"], links).items():
        old_rx, old_tx = before.get(name, (rx, tx))
        rates[name] = ((rx - old_rx) * 8 / span, (tx - old_tx) * 8 / span)
    places = (line.split() for line in lab.ok("agent", "hosts").splitlines() if " " in line)
    hosts = {int(port): name for name, port in places}
    services = lab.ok("agent", "services").splitlines()
    text = [f"lab {lab.name}: board {board.name}, configuration {lab.config()}, {info['text']}", ""]
    text += draw_ports(paint, board, hosts, switch["ports"], rates) + [""]
    text += draw_vlans(paint, switch) + [""]
    text += draw_interfaces(paint, links, addresses, routes, rates) + [""]
    text.append("  " + ", ".join(line for line in services))
    return "\n".join(text)


def routes(lab: client.Lab, table: str | None = None) -> str:
    """The routes of one table, or of all but the kernel's own of the router's addresses."""
    words = ["table", table or "all"]
    lines = lab.ok("router", "ip", "-4", "route", "show", *words).splitlines()
    return "\n".join(line.strip() for line in lines if table or " table local " not in line)


def chains(lab: client.Lab, only: str | None = None) -> str:
    """The router's chains as trees below the built-in ones, table by table."""
    text = []
    for table in TABLES if only is None else [only]:
        rules: dict[str, list[str]] = {}
        for line in lab.ok("router", "iptables", "-w", "-t", table, "-S").splitlines():
            words = line.split()
            rules.setdefault(words[1], [])
            if words[0] == "-A":
                rules[words[1]].append(" ".join(words[2:]))
        text.append(table)
        seen = set()

        def show(chain: str, depth: int) -> None:
            seen.add(chain)
            for rule in rules[chain]:
                text.append("  " * depth + rule)
                target = rule.split("-j ")[-1].split()[0] if "-j " in rule else ""
                if target in rules and target not in seen:
                    show(target, depth + 1)

        for chain in [c for c in rules if c.isupper() and rules[c]]:
            text.append("  " + chain)
            show(chain, 2)
        loose = [c for c in rules if c not in seen and not c.isupper()]
        if loose:
            text.append("  not hooked: " + ", ".join(loose))
    return "\n".join(text)
