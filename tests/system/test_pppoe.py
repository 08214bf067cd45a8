"""A WAN of PPPoE beside a real access concentrator behind the emulated switch, and accounts for those who dial in."""

from __future__ import annotations

import json
import re
import time
from typing import Any, TYPE_CHECKING

import pytest

from labctl import checks
from labctl.capture import Capture, Decoded
from tests.system import bus, peers, state, traffic
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

ARGUMENTS = {"proto": "pppoe", "defrt_pri": "20001", "username": "user1", "password": "secret1", "server": "isp"}
REMOTE = "198.51.100.254"
LOCAL = "100.64.0.10"           # of the first session; each further one has the next
GONE = "[ ! -e /sys/class/net/wan1 ]"
OPTIONS = "/etc/ppp/options.wan1_pe"


@pytest.fixture(scope="module")
def lab(machine: Machine) -> Lab:
    lab = machine.board("one-cpu", "pppoe", fresh=True)
    machine.spoiled()
    lab.shell("isp", peers.BEHIND_SCRIPT, check=True)
    return lab


@pytest.fixture(scope="module")
def provider(lab: Lab) -> peers.Pppoe:
    return peers.Pppoe(lab)


@pytest.fixture
def session(lab: Lab, provider: peers.Pppoe) -> peers.Pppoe:
    """A session that is up."""
    if not provider.running():
        provider.start()
    peers.bound(lab, "wan1")
    return provider


def clients_output(lab: Lab) -> str:
    return "\n".join(line for line in peers.said_by_clients(lab) if line.startswith("[pppoe/wan1]"))


def wait_output(lab: Lab, text: str, count: int = 1) -> None:
    """Waits until the client has said something that many times."""
    peers.until(lab, "router",
                f"[ \"$(grep -F '[pppoe/wan1]' /var/log/siblings.log | grep -cF '{text}')\" -ge {count} ]")


def pppoe_frames(frames: list[Decoded], ethertype: int = 0x8864) -> list[Decoded]:
    return [f for f in frames if f.ethertype == ethertype]


def look_up(lab: Lab) -> None:
    link = lab.run("router", "ip", "-j", "-d", "-4", "addr", "show", "wan1", check=True).json()[0]
    assert link["mtu"] == 1492 and link["link_type"] == "ppp" and link["operstate"] in ("UNKNOWN", "UP")
    row = peers.row(lab, "wan1")
    assert [(a["local"], a["address"]) for a in link["addr_info"]] == [(row["ipaddr"], REMOTE)]
    assert row == {"name": "wan1", "proto": "pppoe", "ipaddr": row["ipaddr"], "netmask": "255.255.255.255",
                   "gateway": REMOTE, "addr4": "198.51.100.53", "addr5": "198.51.100.54"}
    assert row["ipaddr"].startswith("100.64.0.")
    assert peers.default_routes(lab, 20001) == ["default dev wan1 proto 105 scope link metric 20001"]
    assert [rule for rule in state.rules(lab) if rule.startswith(("10001", "20001"))] == [
        "10001: from all lookup main suppress_prefixlength 0", "20001: from all lookup 20001"]
    assert peers.resolvers(lab) == ["198.51.100.53", "198.51.100.54"]


def look_down(lab: Lab) -> None:
    peers.until(lab, "router", GONE, 30)
    assert peers.row(lab, "wan1")["ipaddr"] == "0.0.0.0"
    assert peers.default_routes(lab, 20001) == []
    peers.until(lab, "router", "! grep -q nameserver /etc/resolv.conf", 20)


def test_provider_silent(lab: Lab) -> None:
    """Nobody answers: the client goes on looking by wan1_pe, and the daemon is content."""
    look_down(lab)
    assert peers.errors(lab) == []
    with Capture(lab, 0) as wan:
        frames = wan.frames(lambda fs: pppoe_frames(fs, 0x8863), 60)
        assert frames is not None, "nobody looks for a provider"
    looking = pppoe_frames(frames, 0x8863)[0]
    assert looking.payload[1] == 0x09 and looking.dst == "ff:ff:ff:ff:ff:ff"        # PADI
    assert b"\x01\x01\x00\x03isp" in looking.payload                               # the service of the configuration
    assert bus.instances(lab, "pppoe")["wan1"][1]


def test_wrong_password_and_then_the_right_one(lab: Lab, provider: peers.Pppoe) -> None:
    provider.start(secrets="user1 * other *\n")
    wait_output(lab, "CHAP authentication failed", 2)      # not once and for all: it has tried again
    look_down(lab)
    assert "CHAP Response" in provider.log() and "CHAP Success" not in provider.log()
    lab.put("isp", "/etc/ppp/chap-secrets", peers.SECRETS, 0o600)
    peers.bound(lab, "wan1")
    look_up(lab)


def test_session_as_the_command_line_asks(lab: Lab, session: peers.Pppoe) -> None:
    given, running = bus.instances(lab, "pppoe")["wan1"]
    assert running and given == [
        "/usr/sbin/pppd", "nodetach", "ipparam", "pppoec,20001", "ifname", "wan1", "+ipv6", "nodefaultroute",
        "usepeerdns",
        "persist", "maxfail", "0", "user", "user1", "password", "secret1", "mtu", "1492", "mru", "1492", "plugin",
        "rp-pppoe.so", "rp_pppoe_service", "isp", "nic-wan1_pe"]
    assert lab.ok("router", "cat", "/run/wan1.pid").strip() == str(
        lab.run("router", "ubus", "call", "service", "list", '{"name":"pppoe"}', check=True).json()
        ["pppoe"]["instances"]["wan1"]["pid"])
    log = session.log()
    assert "rcvd [LCP ConfReq id=0x1 <mru 1492>" in log and "sent [LCP ConfReq id=0x1 <mru 1492> <auth chap MD5>" in log
    assert 'name = "user1"]' in log and "secret1" not in log
    # the link below carries frames, and nothing else
    assert state.addresses(lab).get("wan1_pe") is None and state.devices(lab)["wan1_pe"][0] == "bridge"


def test_traffic_goes_through_the_session(lab: Lab, session: peers.Pppoe) -> None:
    address = peers.row(lab, "wan1")["ipaddr"]
    with Capture(lab, 0) as wan:
        assert checks.ping(lab, "pc1", peers.BEHIND)
        frames = wan.frames(lambda fs: len([f for f in fs if inner(f) and inner(f)[9] == 1]) >= 2)
    assert frames is not None, "the ping went another way"
    packets = [packet for f in frames if (packet := inner(f)) and packet[9] == 1]
    ends = {(packet[12:16], packet[16:20]) for packet in packets}
    own, other = packed(address), packed(peers.BEHIND)
    assert ends == {(own, other), (other, own)}


def packed(address: str) -> bytes:
    return bytes(int(part) for part in address.split("."))


def inner(frame: Decoded) -> bytes:
    """The IPv4 packet of a session frame, or nothing: 6 bytes of PPPoE, 2 of PPP in front."""
    return frame.payload[8:] if frame.ethertype == 0x8864 and frame.payload[6:8] == b"\0\x21" else b""


def segment_sizes(frames: list[Decoded], acknowledges: bool) -> set[int]:
    """Segment sizes that the SYNs (or the SYNs that acknowledge) offer."""
    found = set()
    for packet in (inner(f) or (f.payload if f.ethertype == 0x0800 else b"") for f in frames):
        if len(packet) > 44 and packet[9] == 6 and packet[33] & 0x12 == (0x12 if acknowledges else 0x02):
            at = packet.index(b"\x02\x04", 40)
            found.add(int.from_bytes(packet[at + 2:at + 4], "big"))
    return found


SIZE = 1500000
SERVE = "while :; do busybox nc -l -p 9000 -e cat /tmp/big; done"
TAKE = f"busybox timeout 5 busybox nc {peers.BEHIND} 9000 < /dev/null | wc -c"


def test_session_outlives_the_daemon(lab: Lab, session: peers.Pppoe, restarts: range) -> None:
    address, log = peers.row(lab, "wan1")["ipaddr"], session.log()
    before = bus.instances(lab, "pppoe"), lab.ok("router", "pidof", "pppd")
    traffic.restarted_below(lab, "LAN to PPPoE WAN", restarts)
    traffic.reloaded_below(lab, "LAN to PPPoE WAN")
    look_up(lab)
    assert peers.row(lab, "wan1")["ipaddr"] == address and session.log() == log
    assert (bus.instances(lab, "pppoe"), lab.ok("router", "pidof", "pppd")) == before


def test_large_transfers_fit_the_session(lab: Lab, session: peers.Pppoe) -> None:
    """From full-size frames to full-size frames, with a link of 1492 bytes between, past a provider that reports no
    packet as too big. Without the clamp the same download does not get through: this is what it is for."""
    lab.shell("isp", f"busybox dd if=/dev/urandom of=/tmp/big bs=1000 count={SIZE // 1000} 2> /dev/null", check=True)
    with lab.spawn("isp", "ip", "netns", "exec", "behind", "sh", "-c", SERVE) as server:
        listening = "ip netns exec behind busybox netstat -ltn | grep -q :9000"
        peers.until(lab, "isp", listening, 20)
        with Capture(lab, 0) as wan, Capture(lab, 1) as lan:
            assert lab.shell("pc1", f"busybox nc {peers.BEHIND} 9000 < /dev/null | head -c 1000 | wc -c",
                             timeout=30).out.strip() == "1000"
            outside = wan.frames(lambda fs: segment_sizes(fs, False) and segment_sizes(fs, True))
            inside = lan.frames(lambda fs: segment_sizes(fs, False))
        assert inside and outside
        assert segment_sizes(inside, False) == {1460} and segment_sizes(outside, False) == {1452}
        peers.until(lab, "isp", listening, 20)
        began = time.monotonic()
        whole = lab.shell("pc1", f"busybox nc {peers.BEHIND} 9000 < /dev/null | md5sum", timeout=120)
        took = time.monotonic() - began
        assert whole.out.split()[0] == lab.ok("isp", "md5sum", "/tmp/big").split()[0], f"after {took:.1f} s"
        peers.until(lab, "isp", listening, 20)
        clamp = lab.ok("router", "iptables", "-t", "mangle", "-S",
                       "ipt_fwd_mangle_rules_def").splitlines()[-1].split()[1:]
        assert "--clamp-mss-to-pmtu" in clamp
        lab.ok("router", "iptables", "-t", "mangle", "-D", *clamp)
        try:
            assert int(lab.shell("pc1", TAKE,
                                 timeout=60).out) < SIZE, "nothing was too big: the clamp is not what helped"
        finally:
            lab.ok("router", "iptables", "-t", "mangle", "-A", *clamp)
        server.kill()


def test_large_upload_fits_the_session(lab: Lab, session: peers.Pppoe) -> None:
    """The other way the router itself tells the station what is too big."""
    lab.shell("pc1", f"busybox dd if=/dev/urandom of=/tmp/big bs=1000 count={SIZE // 1000} 2> /dev/null", check=True)
    with lab.spawn("isp", "ip", "netns", "exec", "behind", "busybox", "nc", "-l", "-p", "9001", "-e", "busybox",
                   "md5sum"):
        peers.until(lab, "isp", "ip netns exec behind busybox netstat -ltn | grep -q :9001", 20)
        answer = lab.shell("pc1", f"busybox nc {peers.BEHIND} 9001 < /tmp/big", timeout=120)
    assert answer.out.split()[0] == lab.ok("pc1", "md5sum", "/tmp/big").split()[0]


def wait_session_lost(lab: Lab) -> None:
    peers.unbound(lab, "wan1")
    look_down(lab)


def test_cable_pulled_and_back(lab: Lab, session: peers.Pppoe) -> None:
    before = bus.instances(lab, "pppoe")["wan1"][1], lab.ok("router", "cat", "/run/wan1.pid")
    lab.link(0, False)
    wait_session_lost(lab)
    lab.link(0, True)
    peers.bound(lab, "wan1")
    look_up(lab)
    # the client was not started again: it has dialled by itself
    assert before == (bus.instances(lab, "pppoe")["wan1"][1], lab.ok("router", "cat", "/run/wan1.pid"))
    assert checks.ping(lab, "pc1", peers.BEHIND)


def test_provider_killed_and_back(lab: Lab, session: peers.Pppoe) -> None:
    """No goodbye comes: the client finds out by itself, by the echo requests that the image's options file asks for."""
    assert "lcp-echo-interval" in lab.ok("router", "cat", OPTIONS)
    lost = clients_output(lab).count("No response to")
    with Capture(lab, 0) as wan:
        session.kill()
        wait_session_lost(lab)
        wait_output(lab, "No response to", lost + 1)
        ends = [f for f in wan.frames(lambda fs: True) or () if f.ethertype == 0x8863 and f.payload[1] == 0xA7]
        assert [f for f in ends if f.src == lab.topology.mac("isp")] == [], "the provider has said goodbye"
    session.start()
    peers.bound(lab, "wan1")
    look_up(lab)
    assert checks.ping(lab, "pc1", peers.BEHIND)


def config(lab: Lab, before: str = ":") -> tuple[int, float]:
    """(status, seconds) of the call, with something done in the router at the same moment."""
    words = json.dumps({"intf": "wan1", "old_intf": "wan1", **ARGUMENTS})
    began = time.monotonic()
    result = lab.shell("router", f"{before}\nubus -S -t 60 call ivarode.intf config '{words}'", timeout=90)
    return result.status, time.monotonic() - began


def watch_links(lab: Lab) -> Any:
    """The kernel's announcements about links, once they are heard for sure."""
    watch = lab.spawn("router", "ip", "-o", "monitor", "link")
    for mtu in range(65535, 65505, -1):
        lab.ok("router", "ip", "link", "set", "lo", "mtu", mtu)
        if watch.read_until(": lo:", 1):
            lab.ok("router", "ip", "link", "set", "lo", "mtu", 65536)
            return watch
    raise AssertionError("nothing is heard")


def test_config_of_a_live_session_waits_for_the_old_link(lab: Lab, session: peers.Pppoe) -> None:
    old = lab.ok("router", "cat", "/run/wan1.pid")
    with watch_links(lab) as watch:
        # the client is held up for a second, and with it its link
        status, took = config(lab, "pid=$(cat /run/wan1.pid); kill -STOP $pid; { sleep 1; kill -CONT $pid; } &")
        peers.bound(lab, "wan1")
        watch.read_until("never said", 1)
        lines = watch.out.decode().splitlines()
    assert status == 0 and took >= 1
    look_up(lab)
    assert lab.ok("router", "cat", "/run/wan1.pid") != old
    gone = [at for at, line in enumerate(lines) if re.match(r"Deleted \d+: wan1:", line)]
    removed = [at for at, line in enumerate(lines) if re.match(r"Deleted \d+: wan1_pe:", line)]
    assert len(gone) == 1 and len(removed) == 1, lines
    made = [at for at, line in enumerate(lines) if re.match(r"\d+: wan1_pe:", line) and at > removed[0]]
    # the bridge of the new one is made only when the old link has left
    assert removed[0] < gone[0] < made[0], lines


def test_config_gives_up_when_the_old_link_stays(lab: Lab, session: peers.Pppoe) -> None:
    """As long as something has the name, it counts as the old link; after two seconds of asking the call is refused."""
    lab.shell("router", "ip link set wan1 down && ip link set wan1 name other && ip link add wan1 type bridge",
              check=True)
    status, took = config(lab)
    assert status == 2 and took >= 2
    assert any("old ppp interface exist error" in line for line in peers.errors(lab))
    lab.ok("router", "ip", "link", "del", "wan1")
    # the way out that the books give: the bridge that is missing now
    lab.ok("router", "ip", "link", "add", "wan1_pe", "type", "bridge")
    assert config(lab)[0] == 0
    peers.bound(lab, "wan1")
    look_up(lab)


DIAL = ["pppd", "plugin", "rp-pppoe.so", "nic-eth0", "user", "joe", "password", "open sesame", "nodetach", "noauth",
        "noipdefault", "nodefaultroute", "noipv6"]


def test_account_added_over_the_bus_can_dial_in(lab: Lab) -> None:
    """The router is the access concentrator of its LAN; the login is in the records for as long as it lasts."""
    own = peers.Pppoe(lab, "router", "lan1", "10.9.0.1", "10.9.0.10")
    own.start("ipparam pppoe,192.168.1.11", secrets=None)
    try:
        refused = lab.run("pc1", *DIAL, timeout=60)
        assert refused.status in (16, 19) and "10.9.0." not in refused.out and state.logins(lab) == [], refused
        user = {"username": "joe", "provider": "isp", "password": "open sesame", "ipaddr": "10.9.0.77"}
        assert bus.call(lab, "ivarode.pppuser", "add", **user) == (0, None)
        with lab.spawn("pc1", *DIAL) as dialled:
            assert dialled.read_until("local  IP address", peers.PATIENCE), bytes(dialled.out)
            peers.until(lab, "pc1", "ip -4 addr | grep -q 10.9.0.77", 20)
            assert checks.ping(lab, "pc1", "10.9.0.1")
            peers.until(lab, "router", "busybox strings /tmp/calmora/db/net_stat.db | grep -q joe", 30)
            assert state.logins(lab) == [("pppoe", "joe", "10.9.0.77", "", "192.168.1.11")]
            dialled.kill(15)
            dialled.collect(time.monotonic() + 30 * lab.pace)
        peers.until(lab, "router", "! ip -4 addr | grep -q 10.9.0.77", 30)
        deadline = time.monotonic() + 30 * lab.pace
        while state.logins(lab):
            assert time.monotonic() < deadline, state.logins(lab)
            time.sleep(0.2)
        assert bus.call(lab, "ivarode.pppuser", "del", username="joe", provider="isp") == (0, None)
        assert lab.run("pc1", *DIAL, timeout=60).status in (16, 19)
    finally:
        own.kill()
