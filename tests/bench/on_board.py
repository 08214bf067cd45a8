"""What is measured on the virtual board: the daemon as it ships, on a broker, with siblings and a switch around it.

What needs no VLAN devices is measured natively wherever that is possible, the rest on whatever the lab runs on.
"""

from __future__ import annotations

import re
import shutil
import tempfile
import time
from collections.abc import Sequence
from pathlib import Path
from statistics import median
from typing import Any

from labctl import carrier, client, machine
from tests.bench import on_host
from tests.bench.row import Figures, Routes, Row, compared, figures, measured

ROOT = Path(__file__).resolve().parents[2]

READY = "ivarode init success"
PAUSE = 5.0                     # seconds of a start in which the daemon waits for links
ON_ONE_PROCESSOR = "busybox taskset 1 "     # as on the router; who wakes whom where is not what is asked
SIZES = (10, 100, 1000, 3000, 10000)


class Session:
    """A lab of our own."""

    def __init__(self, build: Path, mode: str, name: str = "bench") -> None:
        self.build = build
        self.lab = client.Lab(name)
        if self.lab.alive():
            self.lab.stop()
        self.mode, self.why = self.lab.start(mode, tied=True)
        self.where = "host" if self.mode == "native" else "small machine"

    def __enter__(self) -> Session:
        return self

    def __exit__(self, *_: object) -> None:
        self.lab.stop()

    def raise_board(self, board: str, config: Path | str, more: Sequence[str] = ()) -> float:
        """Seconds from the daemon's start to its last message. More: lines of the board's plan."""
        self.lab.raise_board(board, str(config), more)
        taken = self.ready(300)
        self.lab.put("router", "/tmp/bench", (self.build / "bin/bench").read_bytes(), 0o755)
        self.pin()
        return taken

    def ready(self, seconds: float) -> float:
        taken, last = self.lab.said(READY, seconds)
        if taken is None:
            raise TimeoutError(f"the daemon is not ready after {seconds} s: {last}")
        return taken

    def pin(self) -> None:
        self.lab.shell("router", "for p in $(busybox pidof ubusd ivarode); do busybox taskset -p 1 $p; done",
                       check=True)

    def restart(self) -> float:
        self.lab.ok("agent", "restart", "daemon", timeout=120)
        taken = self.ready(300)
        self.pin()
        return taken

    def bench(self, question: str, **more: Any) -> Figures:
        return figures(self.lab.shell("router", ON_ONE_PROCESSOR + "/tmp/bench " + question, check=True, timeout=600,
                                      **more).out)


def own_config(folder: Path, **packages: str) -> Path:
    for name in ("lan_intf", "wan_intf", "route_config"):
        (folder / name).write_text(packages.get(name, ""), encoding="utf-8")
    (folder / "hosts").write_text(packages.get("hosts", ""), encoding="utf-8")
    return folder


# --- without VLAN devices ----------------------------------------------------------------------------------------
def call_rows(session: Session, quick: bool) -> list[Row]:
    found = session.bench(f"relay {500 if quick else 5000}")
    rows = [measured("broker: one call and its answer", found["relay.latency"], "socketpair ping-pong", 3,
                     where=session.where),
            measured("broker: a call, 16 on their way at once", found["relay.many"], "socketpair ping-pong", 3,
                     where=session.where)]
    found = session.bench(f"call run {500 if quick else 5000} ivarode.run run")
    rows.append(measured("call run", found["call.run.empty"], "empty object", 1.3, where=session.where))
    return rows


def route_rows(session: Session, quick: bool) -> tuple[list[Row], Routes]:
    """Rows of the longest table, and for the plot: operation -> size -> (ours, limit)."""
    session.lab.ok("router", "ip", "address", "add", "203.0.113.2/24", "dev", "eth0")
    found = session.bench(f"routes {40 if quick else 300} {' '.join(map(str, SIZES))}")
    plot = {operation: {size: found[f"route.{operation}.{size}"] for size in SIZES}
            for operation in ("add", "find", "edit", "del")}
    texts = {"add": "added", "find": "found and installed again", "edit": "edited", "del": "deleted"}
    rows = []
    for size in (1000, 10000):
        for operation, text in texts.items():
            ours, limit, ratio = plot[operation][size]
            rows.append(compared(f"route {text} over the bus, {size} in the table", ours, limit,
                                 "empty call + raw netlink", 1.2, ratio, where=session.where))
    return rows, plot


def memory_row(session: Session) -> Row:
    text = session.lab.ok("router", "sh", "-c", "cat /proc/$(busybox pidof ivarode)/status")
    values = dict(re.findall(r"^(VmRSS|RssAnon):\s+(\d+) kB", text, re.M))
    anonymous = int(values["RssAnon"])
    return Row("memory after the start, resident / anonymous", f"{values['VmRSS']} kB / {anonymous} kB",
               aim="anonymous ≤ 350 kB", held="yes" if anonymous <= 350 else "no", where=session.where)


def switch_row(session: Session, quick: bool) -> Row:
    """Frames from one PC to another through the emulated switch, beside a kernel bridge, in turns."""
    lab, seconds, pairs = session.lab, 0.5 if quick else 2, []
    macs = {host: lab.ok(host, "cat", "/sys/class/net/eth0/address").strip() for host in ("pc1", "pc2")}
    for host in macs:
        lab.put(host, "/tmp/bench", (session.build / "bin/bench").read_bytes(), 0o755)

    def send(host: str, to: str, for_seconds: float) -> str:
        return lab.shell(host, f"/tmp/bench frames eth0 {for_seconds:g} {macs[to]} {macs[host]}", check=True).out

    send("pc2", "pc1", 0.01)        # the switch learns where it is

    def received() -> int:
        """Frames that PC 2 has got once no more come."""
        last = -1
        while True:
            count = int(lab.ok("pc2", "cat", "/sys/class/net/eth0/statistics/rx_packets"))
            if count == last:
                return count
            last = count
            time.sleep(0.2)

    for _ in range(2 if quick else 5):
        limit = on_host.bridge_rate(session.build, seconds)
        before = received()
        spent = float(send("pc1", "pc2", seconds).split()[2])
        pairs.append(((received() - before) / spent * 1e6, limit))
    ours, limit = (median(column) for column in zip(*pairs))
    return Row("vswitch: 64-byte frames from port to port", f"{ours / 1e3:.0f} kframes/s",
               f"kernel bridge between veths {limit / 1e3:.0f} kframes/s",
               f"{median(one / other for one, other in pairs):.2f}", "≥ 200 kframes/s",
               "yes" if ours >= 200_000 else "no", where=session.where)


def without_vlans(build: Path, quick: bool) -> tuple[list[Row], list[Row], Routes, list[Row], Row]:
    """(rows of calls, rows of routes, their plot, rows of memory, row of the switch)"""
    with tempfile.TemporaryDirectory() as text, Session(build, "native") as session:
        folder = own_config(Path(text), hosts="pc1 lan1\npc2 lan2\nisp wan1\n")
        session.raise_board("one-cpu", folder)
        memory = memory_row(session)
        memory.question += ", no interface"
        switch = switch_row(session, quick)
        calls = call_rows(session, quick)
        routes, plot = route_rows(session, quick)
        return calls, routes, plot, [memory], switch


# --- with VLAN devices -------------------------------------------------------------------------------------------
def batch_of(lab: client.Lab) -> str:
    """What "ip -batch" needs to lay what the router has now, on an "eth0" that is there."""
    def asked(*words: str) -> Any:
        return lab.run("router", "ip", "-d", "-j", *words, check=True).json()

    links, up, lines = asked("link"), [], []
    for link in links:
        info = link.get("linkinfo", {})
        if info.get("info_kind") == "vlan":
            lines.append(f"link add link {link['link']} name {link['ifname']} address {link['address']} "
                         f"type vlan id {info['info_data']['id']}")
        elif info.get("info_kind") == "bridge":
            lines.append(f"link add {link['ifname']} address {link['address']} "
                         "type bridge stp_state 0 forward_delay 0")
        if "UP" in link["flags"] and link["ifname"] != "lo":
            up.append(f"link set {link['ifname']} up")
    lines += [f"link set {link['ifname']} master {link['master']}" for link in links if "master" in link]
    lines += up
    for link in asked("address"):
        lines += [f"address add {address['local']}/{address['prefixlen']} broadcast + dev {link['ifname']}"
                  for address in link["addr_info"] if address["family"] == "inet" and link["ifname"] != "lo"]
    for route in asked("-4", "route", "show", "table", "all"):
        if route.get("protocol") != "kernel":
            lines.append(f"route add {route['dst']} via {route['gateway']} dev {route['dev']} "
                         f"metric {route.get('metric', 0)} table {route.get('table', 'main')}")
    lines += [f"rule add preference {rule['priority']} from all lookup {rule['table']}"
              for rule in asked("rule") if rule["priority"] not in (0, 32766, 32767)]
    return "\n".join(lines) + "\n"


def start_rows(session: Session, quick: bool) -> list[Row]:
    first = [session.raise_board("two-wan", "three-lans")]
    lab = session.lab
    lab.put("router", "/tmp/batch", batch_of(lab))
    lab.shell("router", "iptables-save > /tmp/rules", check=True)
    lay = ("busybox unshare -n /bin/sh -ec 'ip link set lo up; ip link add eth0 type veth peer name far; "
           "ip link set far up; /tmp/bench time /bin/sh -ec \"ip -batch /tmp/batch; iptables-restore < /tmp/rules\"'")

    def limit() -> float:
        return figures(lab.shell("router", lay, check=True, timeout=120).out)["time"][0]

    limits = [limit()]
    second = [(session.restart() - PAUSE) * 1e6 for _ in range(1 if quick else 2)]
    for _ in range(0 if quick else 1):
        first.append(session.raise_board("two-wan", "three-lans"))
        lab.put("router", "/tmp/batch", batch_of(lab))
        lab.shell("router", "iptables-save > /tmp/rules", check=True)
        limits.append(limit())
    question = "start to “init success” less its pause, 3 LANs and 2 WANs"
    return [compared(question, median((one - PAUSE) * 1e6 for one in first), median(limits),
                     "one ip -batch and one iptables-restore", 2, where=session.where),
            compared("second " + question, median(second), median(limits),
                     "one ip -batch and one iptables-restore", 1.5, where=session.where)]


def interface_rows(session: Session, quick: bool) -> list[Row]:
    found = session.bench(f"interfaces {8 if quick else 40}")
    return [measured("interface added over the bus", found["interface.direct"], "raw netlink", 1.2,
                     where=session.where),
            measured("the same", found["interface.call-and-direct"], "empty call + raw netlink", None,
                     where=session.where),
            measured("the same", found["interface.batch"], "ip -batch", None, where=session.where)]


def statist_rows(session: Session, quick: bool) -> list[Row]:
    rows, made = [], 0
    for count in (8, 64):
        script = "".join(
            f"ubus call ivarode.intf add '{{\"intf\":\"lan3_s{number}\",\"vlanid1\":200,\"vlanid2\":{number + 1},"
            f"\"ipaddr\":\"10.1.{number}.1\",\"netmask\":\"255.255.255.0\"}}'\n" for number in range(made, count))
        session.lab.shell("router", script, check=True, timeout=300)
        made = count
        found = session.bench(f"call statist {100 if quick else 400} ivarode.intf statist")
        rows.append(measured(f"call statist, {count} interfaces and those of the start", found["call.statist.same"],
                             "an object with the same answer ready", 1.5, where=session.where))
    return rows


def with_vlans(build: Path, quick: bool) -> tuple[list[Row], list[Row], list[Row], list[Row]]:
    """(rows of the start, of an interface, of statist, of memory)"""
    with Session(build, "") as session:
        starts = start_rows(session, quick)
        memory = memory_row(session)
        memory.question += ", 3 LANs and 2 WANs"
        return starts, interface_rows(session, quick), statist_rows(session, quick), [memory]


def on_mips(build: Path) -> list[Row]:
    """The start on an emulated MIPS machine; nothing when its programs are not built."""
    if not (build / "mipsel/bin/ivarode").exists():
        return []
    with Session(build, "mips") as session:
        session.lab.raise_board("two-wan", "three-lans")
        taken = session.ready(900)
        return [Row("start less its pause, 3 LANs and 2 WANs, emulated MIPS", f"{taken - PAUSE:.1f} s",
                    where="small MIPS machine")]


def lacking() -> str:
    """Why nothing can be measured natively, or ""."""
    if carrier.as_root(["true"]) is None:
        return "no root here"
    return "" if shutil.which("unshare") and Path("/dev/net/tun").exists() else "no unshare or no tun here"


FAILURES = (client.LabError, carrier.CarrierError, machine.MachineError, on_host.Unable, TimeoutError)
