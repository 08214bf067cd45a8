"""What is asked for over the bus and is in no configuration: how to ask, and by what it is known afterwards.

Each has names, VLAN and network of its own, so that whatever is left of it can be told from everything else.
"""

from __future__ import annotations

import json
import re
import shlex
from collections.abc import Iterable, Sequence

from tests.chaos.snapshot import Fact, Facts

FIRST_VLAN = 300                # no number of an address, and below the 4090s of the ports


class Addition:
    def __init__(self, name: str, call: Sequence[str], marks: Iterable[str], proofs: set[str]) -> None:
        self.name, self.call = name, call
        self.marks = re.compile(fr"(?<![\w.])(?:{'|'.join(marks)})(?![\w])")
        self.proofs = proofs        # kinds of the facts that must be there once it has been granted
        self.status: int | None = None          # as it was answered; None: nobody heard

    def granted(self) -> bool:
        return self.status == 0

    def left(self, facts: Facts) -> list[Fact]:
        """Those facts that are of its making."""
        return [fact for fact in facts if any(self.marks.search(str(word)) for word in fact[1:])]

    def command(self, patience: int = 300) -> str:
        """A line for a shell: the call, and its status behind its name."""
        return f"ubus -S -t {patience} call {' '.join((shlex.quote(word) for word in self.call))}; echo {self.name} $?"

    def heard(self, output: str) -> None:
        if found := re.search(fr"^{re.escape(self.name)} (\d+)$", output, re.M):
            self.status = int(found[1])


def lan(number: int, port: int) -> Addition:
    """A LAN on a VLAN of its own."""
    vlan, net, name = FIRST_VLAN + number, network(number), f"lan{port}_n{number}"
    return Addition(name, ("ivarode.intf", "add", json.dumps({"intf": name, "vlanid1": vlan, "ipaddr": net + ".1",
                                                             "netmask": "255.255.255.0"})),
                    [name, str(vlan), fr"eth0\.{vlan}", re.escape(net) + r"\.\d+(?:/\d+)?"], {"device", "address"})


def wan(number: int) -> Addition:
    """A WAN on a VLAN of its own that asks for its address: a process of the supervisor's."""
    vlan, name = FIRST_VLAN + number, f"wan1_n{number}"
    return Addition(name, ("ivarode.intf", "add",
                           json.dumps({"intf": name, "vlanid1": vlan, "proto": "dhcp", "defrt_pri": "20001"})),
                    [name, str(vlan), fr"eth0\.{vlan}"], {"device", "client", "row"})


def route(number: int) -> Addition:
    """A way to a network of its own, by a PC of LAN 1."""
    net, name = network(number), f"n{number}"
    return Addition(name, ("ivarode.route", "add",
                           json.dumps({"name": name, "line": "lan1", "dstaddr": net + ".0", "metric": "5",
                                       "netmask": "255.255.255.0", "gateway": "192.168.1.11"})),
                    [re.escape(net) + r"\.\d+(?:/\d+)?"], {"route"})


def network(number: int) -> str:
    return f"10.{number // 250}.{number % 250}"
