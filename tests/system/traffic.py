"""Traffic through a router that is disturbed: what of it is lost, where, and what of it should not have been seen."""

from __future__ import annotations

import re
import time
from collections.abc import Callable
from typing import NamedTuple

from labctl import checks, client
from labctl.capture import Capture, Decoded, address
from tests.system import bus
from tests.system.daemon import kill_daemon, reload, restart
from tests.system.held_lab import Lab

ECHO_PORT = 7
FENCE = "10.255.0.77"       # nobody; who asks for it says that everything before has passed
OTHER_LAN = b"""
config interface 'lan3'
    option enable '1'
    option ipaddr '192.168.3.1'
    option netmask '255.255.255.0'
"""
# Echo packets that come into the router, and those that leave it. One that comes in leaves, or its answer does.
COUNT = """
for side in 'in PREROUTING' 'out POSTROUTING'; do
    set -- $side
    iptables -w -t mangle -N traffic_$1
    for type in 8 0; do iptables -w -t mangle -A traffic_$1 -p icmp --icmp-type $type; done
    iptables -w -t mangle -I $2 -j traffic_$1
done
cat /proc/sys/net/netfilter/nf_conntrack_icmp_timeout
echo 2 > /proc/sys/net/netfilter/nf_conntrack_icmp_timeout
"""
FORGET = """
for side in 'in PREROUTING' 'out POSTROUTING'; do
    set -- $side
    iptables -w -t mangle -D $2 -j traffic_$1
    iptables -w -t mangle -F traffic_$1 && iptables -w -t mangle -X traffic_$1
done
"""


class Stream(NamedTuple):
    name: str
    host: str
    address: str
    port: int = 0       # of a TCP server that echoes; 0: to the firewall each packet is a connection by itself
    rarely: bool = False


class Figures(NamedTuple):
    sent: int
    lost: int
    silence_ms: float       # the longest

    def __str__(self) -> str:
        return f"{self.lost} of {self.sent} lost, longest silence {self.silence_ms:.1f} ms"


def source(frame: Decoded) -> str:
    """Of an IPv4 packet, also in a PPPoE session (6 bytes of it, 2 of PPP)."""
    inside = frame.ethertype == 0x8864 and frame.payload[6:8] == b"\0\x21"
    return address(frame.payload[20:24]) if inside else frame.ip_src


class Traffic:
    """Streams that run while this is open; then, what became of them."""

    def __init__(self, lab: Lab, streams: list[Stream]) -> None:
        self.lab, self.streams = lab, streams
        self.figures: dict[str, Figures] = {}
        self.inside = 0             # echo packets that came into the router and never left it
        self.leaked: list[str] = []

    def __enter__(self) -> Traffic:
        lab = self.lab
        every = 1000 if lab.info()["mode"] == "native" else 5000 * lab.pace     # microseconds
        self.timeout = lab.shell("router", COUNT, check=True).out.strip()
        self.server = lab.spawn("isp", "busybox", "nc", "-ll", "-p", ECHO_PORT, "-e", "cat")
        self.wan = Capture(lab, lab.topology.port["isp"])
        self.running: dict[str, client.Command] = {}
        for stream in self.streams:
            assert checks.ping(lab, stream.host, stream.address), stream
        for stream in self.streams:
            words = ("lab-agent", "stream", stream.address, str(every * (4 if stream.rarely else 1)),
                     *([str(stream.port)] if stream.port else []))
            self.running[stream.name] = lab.spawn(stream.host, *words)
            assert self.running[stream.name].read_until("ready\n", 20), bytes(self.running[stream.name].err)
        return self

    def __exit__(self, *_: object) -> None:
        lab = self.lab
        try:
            for name, command in self.running.items():
                command.kill(15)
                ended = command.collect(time.monotonic() + 180 * lab.pace)
                found = re.search(r"^(\d+) sent, (\d+) lost, longest silence ([\d.]+) ms$", ended.out, re.M)
                assert found, ended
                self.figures[name] = Figures(int(found[1]), int(found[2]), float(found[3]))
            self.inside = self.counted("in") - self.counted("out")
            self.leaked = self.seen_of_a_lan()
        finally:
            self.wan.close()
            self.server.close()
            lab.shell("router", FORGET, check=True)
            lab.shell("router", f"echo {self.timeout} > /proc/sys/net/netfilter/nf_conntrack_icmp_timeout", check=True)

    def counted(self, side: str) -> int:
        listed = self.lab.ok("router", "iptables", "-w", "-t", "mangle", "-nvxL", "traffic_" + side)
        return sum(int(count) for count in re.findall(r"^\s*(\d+)\s+\d+\s+icmp", listed, re.M))

    def seen_of_a_lan(self) -> list[str]:
        """Frames of the WAN's cable that bear a PC's MAC or a LAN's address."""
        lab = self.lab
        macs = {lab.topology.mac(name) for name in lab.topology.pcs()}
        lab.run("isp", "busybox", "arping", "-c", "1", "-w", "1", "-I", "eth0", FENCE)
        frames = self.wan.frames(lambda found: any(frame.ip_dst == FENCE for frame in found), 60)
        assert frames is not None
        return [str(frame) for frame in frames if frame.src in macs or source(frame).startswith("192.168.")]

    def look_unharmed(self) -> None:
        """The router has lost nothing, connections have lived on, and nothing was seen that should not have been. What
        the switch has lost while its VLAN table was written is not the router's."""
        assert self.inside == 0, f"{self.inside} packets came into the router and never left it: {self.told()}"
        assert self.leaked == []
        assert [stream.name for stream in self.streams if stream.port and self.figures[stream.name].lost] == []
        assert all(figures.sent > 100 for figures in self.figures.values()), self.told()

    def told(self) -> str:
        return "; ".join(f"{name}: {figures}" for name, figures in self.figures.items())


def killed_and_started(lab: Lab) -> None:
    """As its supervisor starts it again, until its event loop has looked at the links."""
    kill_daemon(lab)
    restart(lab)
    assert bus.call(lab, "ivarode.run", "run")[0] == 0


def restarted_below(lab: Lab, name: str, restarts: range) -> None:
    """Kills and starts the daemon while two LAN ports talk to the internet."""
    def disturb() -> None:
        for _ in restarts:
            killed_and_started(lab)
    disturbed_below(lab, name, disturb)


def reloaded_below(lab: Lab, name: str) -> None:
    """Another LAN is configured, and is no longer, while two ports of LAN 1 talk to the internet."""
    path = "/etc/config/lan_intf"
    before = lab.get("router", path)

    def disturb() -> None:
        lab.put("router", path, before + OTHER_LAN, 0o600)
        assert reload(lab) == []
        assert bus.call(lab, "ivarode.run", "run")[0] == 0
        lab.put("router", path, before, 0o600)
        assert "removes device lan3" in reload(lab)
        assert bus.call(lab, "ivarode.run", "run")[0] == 0
    disturbed_below(lab, name, disturb)


def disturbed_below(lab: Lab, name: str, disturb: Callable[[], None]) -> None:
    """Packets of one host, and a connection of another."""
    streams = [Stream(name, "pc1", checks.INTERNET),
               Stream("connection", "pc2", checks.INTERNET, ECHO_PORT, rarely=True)]
    with Traffic(lab, streams) as through:
        disturb()
    print(through.told())
    through.look_unharmed()
