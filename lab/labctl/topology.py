"""Who can be expected to reach whom on a raised board: its configuration read next to its board."""

from __future__ import annotations

import re

from . import boards

# Protocol of a WAN: the commands of its host (lab/peers) that answer it.
PROVIDERS = {
    "dhcp": ["dhcp-provider start eth0 {network}.50 {network}.60"],
    "pppoe": ["sh -c 'echo \"{username} * {password} *\" > /etc/ppp/chap-secrets'",
              "pppoe-provider start eth0 198.51.100.254 100.64.0.10"],
}


class Topology:
    """lans: number -> names of its hosts; wans: number -> name; address and port of each host."""

    def __init__(self, board: boards.Board, config: str) -> None:
        source = boards.find("configs", config)
        own = {int(n) for n in re.findall(r"^config interface '?lan(\d+)'?$", (source / "lan_intf").read_text(), re.M)}
        self.board = board
        self.port: dict[str, int] = {}
        self.address: dict[str, str] = {}
        self.lans: dict[int, list[str]] = {}
        self.wans: dict[int, str] = {}
        self.router: dict[int, str] = {}                      # LAN number -> the router's address in it
        text = (source / "lan_intf").read_text()
        for number, address in re.findall(r"^config interface '?lan(\d+)'?\n(?:\toption (?!ipaddr).*\n)*"
                                          r"\toption ipaddr '?([\d.]+)", text, re.M):
            self.router[int(number)] = address
        text = (source / "wan_intf").read_text()
        self.wan_options = {int(number): dict(re.findall(r"^\toption (\w+) '?([^'\n]*)", options, re.M))
                            for number, options in re.findall(r"^config interface '?wan(\d+)'?\n((?:\t.*\n?)*)", text,
                                                              re.M)}
        self.wan_address = {number: options["ipaddr"] for number, options in self.wan_options.items()
                            if "ipaddr" in options}
        name: str | None = None
        for line in (source / "hosts").read_text().splitlines():
            words = line.split("#")[0].split()
            if not words:
                continue
            if line[0].isspace():
                if name and words[:2] == ["address", "add"] and name not in self.address:
                    self.address[name] = words[2].split("/")[0]
                continue
            port = board.port(words[1])
            name = None
            if port is not None:
                name = words[0]
                self.port[name] = port
                kind, number = words[1][:3], int(words[1][3:])
                if kind == "wan":
                    self.wans[number] = name
                else:
                    # a LAN port that is not set up on its own shares the first LAN
                    self.lans.setdefault(number if number in own else 1, []).append(name)

    def same_lan(self) -> tuple[str, str] | None:
        """Two hosts of one LAN, or None."""
        return next(((names[0], names[1]) for names in self.lans.values() if len(names) > 1), None)

    def two_lans(self) -> tuple[str, str] | None:
        """Two hosts of different LANs, or None."""
        firsts = [names[0] for names in self.lans.values()]
        return (firsts[0], firsts[1]) if len(firsts) > 1 else None

    def unanswered(self) -> list[str]:
        """For each WAN whose protocol somebody must answer: that nobody does yet, and what starts who does."""
        lines = []
        for number, options in sorted(self.wan_options.items()):
            if number in self.wans and options.get("proto") in PROVIDERS:
                host, network = self.wans[number], self.address[self.wans[number]].rpartition(".")[0]
                lines.append(f"nobody answers on WAN {number} yet; who does is started by")
                lines += [f"  lab/lab exec {host} " + words.format(network=network, **options)
                          for words in PROVIDERS[options["proto"]]]
        return lines

    def pcs(self) -> list[str]:
        return [name for names in self.lans.values() for name in names]

    def mac(self, name: str) -> str:
        """What the board's supervisor gives each host by its port."""
        return f"02:1a:00:00:00:{self.port[name]:02x}"
