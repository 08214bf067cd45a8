"""The lab drawn for a person: front ports, VLAN table, interfaces, iptables chains."""

import json
import time

SHIM = "/usr/lib/lab-shim.so"
SAMPLE = 0.6          # seconds between the two readings that rates come from
COLOURS = {"up": "32", "down": "31", "head": "1", "dim": "2"}


class Paint:
    def __init__(self, colour):
        self.colour = colour

    def __call__(self, style, text):
        return "\x1b[%sm%s\x1b[0m" % (COLOURS[style], text) if self.colour else text


def rate(bits):
    for unit in ("bit/s", "kbit/s", "Mbit/s"):
        if bits < 1000:
            break
        bits /= 1000
    else:
        unit = "Gbit/s"
    return "%.0f %s" % (bits, unit) if bits >= 10 or bits == 0 else "%.1f %s" % (bits, unit)


def counters(ports, links):
    table = {"port%d" % p["port"]: (p["rx_bytes"], p["tx_bytes"]) for p in ports if not p["cpu"]}
    for link in links:
        stats = link.get("stats64", {})
        table[link["ifname"]] = (stats.get("rx", {}).get("bytes", 0), stats.get("tx", {}).get("bytes", 0))
    return table


def read(lab):
    """Everything the picture needs, in one visit to the board."""
    script = ("lab-agent ask /run/lab/switch.sock status; ip -j -s -s link; ip -j -4 addr; ip -j -4 route show table all;"
              "cat /proc/uptime")
    lines = lab.shell("router", script).out.splitlines()
    switch, links, addresses, routes = (json.loads(line) for line in lines[:4])
    return switch, links, addresses, routes, float(lines[4].split()[0])


def draw_ports(paint, board, hosts, ports, rates):
    boxes = []
    for port in ports:
        if port["cpu"]:
            continue
        number = port["port"]
        up = port["link"]
        speed = "%d%s" % (port["speed"], "" if port["full_duplex"] else " half") if up else ""
        rx, tx = rates.get("port%d" % number, (0, 0))
        lines = ["port %d" % number, " / ".join(board.serves(number)) or "unused",
                 ("link " + speed) if up else ("link down" if port["power"] else "power off"),
                 "PVID %d" % port["pvid"], hosts.get(number, "nobody"),
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


def draw_vlans(paint, switch):
    rows = [paint("head", "  entry   VID  members            leave untagged")]
    for vlan in switch["vlans"]:
        if not vlan["members"]:
            continue
        names = ["CPU" if m == 6 else str(m) for m in vlan["members"]]
        untag = [m for m in vlan["untag"] if m in vlan["members"] and m < 5] if switch["untag_enabled"] else []
        rows.append("  %5d  %4d  %-17s  %s" % (vlan["entry"], vlan["vid"], " ".join(names),
                                               " ".join(map(str, untag)) or "-"))
    free = sum(1 for v in switch["vlans"] if v["entry"] >= 5 and v["free"])
    rows.append(paint("dim", "  %d entries free for VLANs of the user; %d addresses learned" % (free, switch["macs"])))
    return rows


def draw_interfaces(paint, links, addresses, routes, rates):
    inet = {a["ifname"]: ["%s/%d" % (i["local"], i["prefixlen"]) for i in a["addr_info"]] for a in addresses}
    rows = [paint("head", "  %-16s %-6s %-19s %-18s %-12s %-12s %s" % ("interface", "state", "address", "MAC", "in", "out",
                                                                      "members / default route"))]
    for link in links:
        name = link["ifname"]
        if name == "lo" or link.get("link_type") != "ether" and not name.startswith(("lan", "wan", "ppp")):
            continue
        state = "up" if "UP" in link["flags"] else "down"
        if state == "up" and "LOWER_UP" not in link["flags"]:
            state = "nolink"
        more = [m["ifname"] for m in links if m.get("master") == name]
        more += ["default via %s (table %s)" % (r.get("gateway", "-"), r.get("table", "main"))
                 for r in routes if r.get("dst") == "default" and r.get("dev") == name]
        rx, tx = rates.get(name, (0, 0))
        text = "%-6s" % state
        rows.append("  %-16s %s %-19s %-18s %-12s %-12s %s" % (
            name, paint("up" if state == "up" else "down", text), " ".join(inet.get(name, [])) or "-",
            link.get("address", "-"), rate(rx), rate(tx), ", ".join(more)))
    return rows


def status(lab, colour=False, sample=SAMPLE):
    paint = Paint(colour)
    info, board = lab.info(), lab.board()
    switch, links, *_, first = read(lab)
    before = counters(switch["ports"], links)
    time.sleep(sample)
    switch, links, addresses, routes, second = read(lab)
    span = max(second - first, 0.01)
    rates = {name: tuple((now - then) * 8 / span for now, then in zip(value, before.get(name, value)))
             for name, value in counters(switch["ports"], links).items()}
    hosts = dict(reversed(line.split()) for line in lab.ok("agent", "hosts").splitlines() if " " in line)
    hosts = {int(port): name for port, name in hosts.items()}
    services = lab.ok("agent", "services").splitlines()
    text = ["lab %s: board %s, configuration %s, %s" % (lab.name, board.name, lab.config(), info["text"]), ""]
    text += draw_ports(paint, board, hosts, switch["ports"], rates) + [""]
    text += draw_vlans(paint, switch) + [""]
    text += draw_interfaces(paint, links, addresses, routes, rates) + [""]
    text.append("  " + ", ".join(line for line in services))
    return "\n".join(text)


def chains(lab):
    """The router's chains as trees below the built-in ones, table by table."""
    text = []
    for table in ("mangle", "nat", "filter"):
        rules = {}
        for line in lab.ok("router", "iptables", "-w", "-t", table, "-S").splitlines():
            words = line.split()
            rules.setdefault(words[1], [])
            if words[0] == "-A":
                rules[words[1]].append(" ".join(words[2:]))
        text.append(table)
        seen = set()

        def show(chain, depth):
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
