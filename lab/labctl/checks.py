"""What a raised board must do, checked with real frames. Each check returns a line with figures or raises Failure."""

from __future__ import annotations

import pathlib
import re
import subprocess
import tempfile
import time
from collections.abc import Callable, Iterator
from typing import TypeVar

from . import client, paths
from .capture import Capture
from .topology import Topology

Value = TypeVar("Value")
Check = Callable[[client.Lab, Topology], str]

OBJECTS = {"ivarode.intf": 9, "ivarode.pppauth": 2, "ivarode.route": 4, "ivarode.pppuser": 2, "ivarode.run": 1}
INTERNET = "198.51.100.1"
NOBODY = "02:ee:ee:ee:ee:ee"      # a station that no network has


class Failure(Exception):
    pass


def need(value: Value | None, text: str) -> Value:
    """The value itself, unless it is false or None."""
    if not value:
        raise Failure(text)
    return value


def ping(lab: client.Lab, host: str, address: str, seconds: int = 15, count: int = 1) -> tuple[int, float] | None:
    """Pings until it is answered; (ttl, milliseconds) of the last answer, or None."""
    deadline = time.monotonic() + seconds * lab.pace
    while True:
        result = lab.run(host, "busybox", "ping", "-c", count, "-W", "1", address, timeout=20)
        answers = re.findall(r"ttl=(\d+) time=([\d.]+)", result.out)
        if result and answers:
            return int(answers[-1][0]), float(answers[-1][1])
        if time.monotonic() > deadline:
            return None


def router_answers(lab: client.Lab, topology: Topology) -> str:
    lines = []
    for number, names in sorted(topology.lans.items()):
        answer = need(ping(lab, names[0], topology.router[number]),
                      f"{names[0]} gets no answer from {topology.router[number]}")
        lines.append(f"{names[0]} in {answer[1]:.1f} ms")
    return "the router answers " + ", ".join(lines)


def same_lan(lab: client.Lab, topology: Topology) -> str:
    one, other = need(topology.same_lan(), "no two hosts share a LAN")
    cpu = [p for p in lab.switch("status")["ports"] if p["name"] == "eth0"][0]
    answer = need(ping(lab, one, topology.address[other]), f"{one} does not reach {other}")
    need(answer[0] == 64, f"{one} reaches {other} with a hop between (ttl {answer[0]})")
    neighbour = lab.ok(one, "ip", "neigh", "show", topology.address[other])
    need(topology.mac(other) in neighbour, f"{one} sees {other} behind another MAC: {neighbour.strip()}")
    with Capture(lab, "eth0") as cpu_port:
        need(ping(lab, one, topology.address[other]), f"{one} does not reach {other} again")
        # a ping of the router is the last thing in the capture: everything before it has been seen
        number = next(n for n, names in topology.lans.items() if one in names)
        need(ping(lab, one, topology.router[number]), f"{one} lost the router")
        router = topology.router[number]
        frames = need(cpu_port.frames(lambda fs: any(f.ip_dst == router and f.kind == "ICMP" for f in fs)),
                      "the capture of the CPU port shows nothing")
        need(not [f for f in frames if f.kind == "ICMP" and f.ip_dst == topology.address[other]],
             f"the ping of {one} to {other} went by the CPU port")
    need(cpu["cpu"], "eth0 is no CPU port")
    return f"{one} reaches {other} of its LAN through the switch alone (ttl 64, {answer[1]:.1f} ms)"


def own_lan(lab: client.Lab, topology: Topology) -> str:
    one, other = need(topology.two_lans(), "all hosts are in one LAN")
    answer = need(ping(lab, one, topology.address[other]), f"{one} does not reach {other}")
    need(answer[0] == 63, f"{one} reaches {other} past the router (ttl {answer[0]})")
    with Capture(lab, topology.port[other]) as port:
        # asked for directly, as if it were in the same LAN: nobody may answer, nothing may arrive
        lab.ok(one, "ip", "route", "add", topology.address[other] + "/32", "dev", "eth0")
        try:
            direct = lab.run(one, "busybox", "ping", "-c", "1", "-W", "1", topology.address[other], timeout=20)
        finally:
            lab.ok(one, "ip", "route", "del", topology.address[other] + "/32", "dev", "eth0")
        need(not direct, f"{one} reaches {other} directly")
        need(ping(lab, one, topology.address[other]), f"{one} lost {other}")
        frames = need(port.frames(lambda fs: any(f.kind == "ICMP" for f in fs)),
                      f"the capture of port {topology.port[other]} shows nothing")
        need(not [f for f in frames if f.src == topology.mac(one)], f"a frame of {one} came out of the port of {other}")
    return f"{one} reaches {other}, on another LAN, only through the router (ttl 63)"


def translation(lab: client.Lab, topology: Topology) -> str:
    number, isp = sorted(topology.wans.items())[0]
    pc = topology.pcs()[0]
    with Capture(lab, topology.port[isp]) as port:
        ttl, milliseconds = need(ping(lab, pc, INTERNET), f"{pc} does not reach the internet host {INTERNET}")
        frames = need(port.frames(lambda fs: any(f.ip_dst == INTERNET for f in fs)),
                      f"nothing for {INTERNET} was seen on the WAN port")
        sources = {f.ip_src for f in frames if f.ip_dst == INTERNET and f.kind != "ARP"}
    need(sources == {topology.wan_address[number]}, f"the WAN sees the sources {', '.join(sorted(sources))}")
    return (f"{pc} reaches {INTERNET} through NAT as {topology.wan_address[number]} "
            f"(ttl {ttl}, {milliseconds:.1f} ms)")


def lan_stays_inside(lab: client.Lab, topology: Topology) -> str:
    """Broadcasts, unknown unicast and multicast of every PC: seen in its own LAN, never on a WAN port."""
    isp = sorted(topology.wans.items())[0][1]
    macs = {topology.mac(name) for name in topology.pcs()}
    one, other = topology.same_lan() or ("", "")
    with Capture(lab, topology.port[isp]) as wan:
        control = Capture(lab, topology.port[other]) if other else None
        for name in topology.pcs():
            subnet = topology.address[name].rsplit(".", 1)[0]
            lab.shell(name, f"ip neigh replace {subnet}.250 lladdr {NOBODY} dev eth0; "
                            f"for a in {subnet}.249 {subnet}.250 {subnet}.255 224.0.0.99; "
                            "do busybox ping -c 1 -W 1 $a > /dev/null 2>&1 & done; wait")
        if control:
            seen = control.frames(lambda fs: any(f.src == topology.mac(one) and f.dst == NOBODY for f in fs))
            control.close()
            need(seen is not None, f"the frames of {one} were not even seen in its own LAN")
        need(ping(lab, topology.pcs()[0], INTERNET), "the internet host is lost")
        frames = need(wan.frames(lambda fs: any(f.ip_dst == INTERNET and f.kind == "ICMP" for f in fs)),
                      "the capture of the WAN port shows nothing")
        leaked = [str(f) for f in frames if f.src in macs or "02:ee" in f.dst or f.ip_src.startswith("192.168.")]
        need(not leaked, "on the WAN port: " + "; ".join(leaked[:3]))
    return (f"broadcast, multicast and unknown unicast of {len(topology.pcs())} PCs: none of it on the WAN port "
            f"({len(frames)} frames captured there)")


def bus_lists(lab: client.Lab, _: object) -> str:
    text = lab.ok("router", "ubus", "list", "-v")
    found = {}
    for line in text.splitlines():
        if line.startswith("'"):
            current = line.split("'")[1]
            found[current] = 0
        elif line.strip():
            found[current] += 1
    for name in OBJECTS:
        need(name in found, "the bus lacks " + name)
    methods = sum(count for name, count in found.items() if name in OBJECTS)
    need(methods > len(OBJECTS), "the objects have no methods")
    return f"ubus list -v: five objects of the daemon with {methods} methods"


def bus_answers(lab: client.Lab, _: object) -> str:
    began = time.monotonic()
    result = lab.run("router", "ubus", "call", "ivarode.run", "run")
    need(result.status == 0, f"status {result.status} {result.err.strip()}")
    return f"ubus call ivarode.run run answers (status 0, {(time.monotonic() - began) * 1000:.0f} ms)"


def footprint(lab: client.Lab, since: float | None) -> str:
    """The figures of a started daemon, as one line."""
    pid = daemon_pid(lab)
    status = lab.ok("router", "cat", f"/proc/{pid}/status")
    values = dict(re.findall(r"^(VmRSS|RssAnon):\s+(\d+) kB", status, re.M))
    size = stripped_size(lab.info()["mode"])
    return (f"ivarode init success after {since:.2f} s (5 s of them its own pause); resident "
            f"{values.get('VmRSS', '?')} kB, {values.get('RssAnon', '?')} kB of it anonymous; stripped binary "
            f"{size / 1000:.0f} kB")


def stripped_size(mode: str) -> int:
    """Bytes of the daemon as an image would hold it."""
    strip = "mipsel-linux-gnu-strip" if mode == "mips" else "strip"
    with tempfile.TemporaryDirectory() as folder:
        copy = pathlib.Path(folder) / "stripped"
        subprocess.run([strip, "-o", str(copy), str(paths.programs_dir(mode) / "bin/ivarode")], check=True)
        return copy.stat().st_size


def daemon_pid(lab: client.Lab) -> str:
    for line in lab.ok("agent", "services").splitlines():
        if line.startswith("daemon running"):
            return line.split()[2]
    raise Failure("the daemon is not running")


def applicable(topology: Topology) -> Iterator[tuple[str, Check]]:
    """(name, check) of every check that this board and configuration have the hosts for."""
    yield "LAN to router", router_answers
    if topology.same_lan():
        yield "same LAN", same_lan
    if topology.two_lans():
        yield "other LAN", own_lan
    if topology.wans:
        yield "NAT", translation
        yield "isolation", lan_stays_inside
    yield "bus objects", bus_lists
    yield "bus call", bus_answers
