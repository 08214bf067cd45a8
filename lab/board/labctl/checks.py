"""What a raised board must do, checked with real frames. Each check returns a line with figures or raises Failure."""

import pathlib
import re
import subprocess
import tempfile
import time

from . import paths
from .capture import Capture

OBJECTS = {"ivarode.intf": 9, "ivarode.pppauth": 2, "ivarode.route": 4, "ivarode.pppuser": 2, "ivarode.run": 1}
INTERNET = "198.51.100.1"


class Failure(Exception):
    pass


def need(condition, text):
    if not condition:
        raise Failure(text)


def ping(lab, host, address, seconds=15, count=1):
    """Pings until it is answered; (ttl, milliseconds) of the last answer, or None."""
    deadline = time.monotonic() + seconds * lab.pace
    while True:
        result = lab.run(host, "busybox", "ping", "-c", count, "-W", "1", address, timeout=20)
        answers = re.findall(r"ttl=(\d+) time=([\d.]+)", result.out)
        if result and answers:
            return int(answers[-1][0]), float(answers[-1][1])
        if time.monotonic() > deadline:
            return None


def router_answers(lab, topology):
    lines = []
    for number, names in sorted(topology.lans.items()):
        answer = ping(lab, names[0], topology.router[number])
        need(answer, "%s gets no answer from %s" % (names[0], topology.router[number]))
        lines.append("%s in %.1f ms" % (names[0], answer[1]))
    return "the router answers " + ", ".join(lines)


def same_lan(lab, topology):
    one, other = topology.same_lan()
    cpu = [p for p in lab.switch("status")["ports"] if p["name"] == "eth0"][0]
    answer = ping(lab, one, topology.address[other])
    need(answer, "%s does not reach %s" % (one, other))
    need(answer[0] == 64, "%s reaches %s with a hop between (ttl %d)" % (one, other, answer[0]))
    neighbour = lab.ok(one, "ip", "neigh", "show", topology.address[other])
    need(topology.mac(other) in neighbour, "%s sees %s behind another MAC: %s" % (one, other, neighbour.strip()))
    with Capture(lab, "eth0") as cpu_port:
        need(ping(lab, one, topology.address[other]), "%s does not reach %s again" % (one, other))
        # a ping of the router is the last thing in the capture: everything before it has been seen
        number = next(n for n, names in topology.lans.items() if one in names)
        need(ping(lab, one, topology.router[number]), "%s lost the router" % one)
        frames = cpu_port.frames(lambda fs: any(f.ip_dst == topology.router[number] and f.kind == "ICMP" for f in fs))
        need(frames is not None, "the capture of the CPU port shows nothing")
        need(not [f for f in frames if f.kind == "ICMP" and f.ip_dst == topology.address[other]],
             "the ping of %s to %s went by the CPU port" % (one, other))
    need(cpu["cpu"], "eth0 is no CPU port")
    return "%s reaches %s of its LAN through the switch alone (ttl 64, %.1f ms)" % (one, other, answer[1])


def own_lan(lab, topology):
    one, other = topology.two_lans()
    answer = ping(lab, one, topology.address[other])
    need(answer, "%s does not reach %s" % (one, other))
    need(answer[0] == 63, "%s reaches %s past the router (ttl %d)" % (one, other, answer[0]))
    with Capture(lab, topology.port[other]) as port:
        # asked for directly, as if it were in the same LAN: nobody may answer, nothing may arrive
        lab.ok(one, "ip", "route", "add", topology.address[other] + "/32", "dev", "eth0")
        try:
            direct = lab.run(one, "busybox", "ping", "-c", "1", "-W", "1", topology.address[other], timeout=20)
        finally:
            lab.ok(one, "ip", "route", "del", topology.address[other] + "/32", "dev", "eth0")
        need(not direct, "%s reaches %s directly" % (one, other))
        need(ping(lab, one, topology.address[other]), "%s lost %s" % (one, other))
        frames = port.frames(lambda fs: any(f.kind == "ICMP" for f in fs))
        need(frames is not None, "the capture of port %d shows nothing" % topology.port[other])
        need(not [f for f in frames if f.src == topology.mac(one)], "a frame of %s came out of the port of %s" % (one, other))
    return "%s reaches %s, on a LAN of its own, only through the router (ttl 63)" % (one, other)


def translation(lab, topology):
    number, isp = sorted(topology.wans.items())[0]
    pc = topology.pcs()[0]
    with Capture(lab, topology.port[isp]) as port:
        answer = ping(lab, pc, INTERNET)
        need(answer, "%s does not reach the internet host %s" % (pc, INTERNET))
        frames = port.frames(lambda fs: any(f.ip_dst == INTERNET for f in fs))
        need(frames is not None, "nothing for %s was seen on the WAN port" % INTERNET)
        sources = {f.ip_src for f in frames if f.ip_dst == INTERNET and f.kind != "ARP"}
    need(sources == {topology.wan_address[number]}, "the WAN sees the sources %s" % ", ".join(sorted(sources)))
    return "%s reaches %s through NAT as %s (ttl %d, %.1f ms)" % (pc, INTERNET, topology.wan_address[number], *answer)


def lan_stays_inside(lab, topology):
    """Broadcasts, unknown unicast and multicast of every PC: seen in its own LAN, never on a WAN port."""
    isp = sorted(topology.wans.items())[0][1]
    macs = {topology.mac(name) for name in topology.pcs()}
    pair = topology.same_lan()
    with Capture(lab, topology.port[isp]) as wan:
        control = Capture(lab, topology.port[pair[1]]) if pair else None
        for name in topology.pcs():
            subnet = topology.address[name].rsplit(".", 1)[0]
            script = ("ip neigh replace {0}.250 lladdr 02:ee:ee:ee:ee:ee dev eth0; for a in {0}.249 {0}.250 {0}.255 224.0.0.99;"
                      " do busybox ping -c 1 -W 1 $a > /dev/null 2>&1 & done; wait").format(subnet)
            lab.shell(name, script)
        if control:
            seen = control.frames(lambda fs: any(f.src == topology.mac(pair[0]) and f.dst == "02:ee:ee:ee:ee:ee" for f in fs))
            control.close()
            need(seen is not None, "the frames of %s were not even seen in its own LAN" % pair[0])
        need(ping(lab, topology.pcs()[0], INTERNET), "the internet host is lost")
        frames = wan.frames(lambda fs: any(f.ip_dst == INTERNET and f.kind == "ICMP" for f in fs))
        need(frames is not None, "the capture of the WAN port shows nothing")
        leaked = [str(f) for f in frames if f.src in macs or "02:ee" in f.dst or f.ip_src.startswith("192.168.")]
        need(not leaked, "on the WAN port: " + "; ".join(leaked[:3]))
    return "broadcast, multicast and unknown unicast of %d PCs: none of it on the WAN port (%d frames captured there)" % (
        len(topology.pcs()), len(frames))


def bus_lists(lab, _):
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
    return "ubus list -v: five objects of the daemon with %d methods" % methods


def bus_answers(lab, _):
    began = time.monotonic()
    result = lab.run("router", "ubus", "call", "ivarode.run", "run")
    need(result.status == 0, "status %d %s" % (result.status, result.err.strip()))
    return "ubus call ivarode.run run answers (status 0, %.0f ms)" % ((time.monotonic() - began) * 1000)


def footprint(lab, since):
    """The figures of a started daemon, as one line."""
    pid = daemon_pid(lab)
    status = lab.ok("router", "cat", "/proc/%s/status" % pid)
    values = dict(re.findall(r"^(VmRSS|RssAnon):\s+(\d+) kB", status, re.M))
    size = stripped_size(lab.info()["mode"])
    return "ivarode init success after %.2f s (5 s of them its own pause); resident %s kB, %s kB of it anonymous; stripped binary %.0f kB" % (
        since, values.get("VmRSS", "?"), values.get("RssAnon", "?"), size / 1000)


def stripped_size(mode):
    """Bytes of the daemon as an image would hold it."""
    strip = "mipsel-linux-gnu-strip" if mode == "mips" else "strip"
    with tempfile.TemporaryDirectory() as folder:
        copy = pathlib.Path(folder) / "stripped"
        subprocess.run([strip, "-o", str(copy), str(paths.programs_dir(mode) / "bin/ivarode")], check=True)
        return copy.stat().st_size


def daemon_pid(lab):
    for line in lab.ok("agent", "services").splitlines():
        if line.startswith("daemon running"):
            return line.split()[2]
    raise Failure("the daemon is not running")


def applicable(topology):
    """(name, check) of every check that this board and configuration have the hosts for."""
    yield "LAN to router", router_answers
    if topology.same_lan():
        yield "same LAN", same_lan
    if topology.two_lans():
        yield "LAN of its own", own_lan
    if topology.wans:
        yield "NAT", translation
        yield "isolation", lan_stays_inside
    yield "bus objects", bus_lists
    yield "bus call", bus_answers
