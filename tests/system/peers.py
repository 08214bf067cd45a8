"""The providers at the other end of a WAN, and what a WAN of DHCP or PPPoE shows in the router."""

from __future__ import annotations

import re

from tests.system import state
from tests.system.held_lab import Lab

PATIENCE = 90       # seconds for anything that a peer's own timers decide; a quiet machine needs a few of them


def until(lab: Lab, host: str, condition: str, seconds: float = PATIENCE) -> None:
    """Waits until a shell condition holds in a host."""
    lab.shell(host, f"until {condition}; do sleep 0.2; done", check=True, timeout=seconds)


def row(lab: Lab, name: str) -> dict[str, str]:
    text = lab.ok("router", "cat", "/var/run/ivarode/wan/" + name)
    return dict(line.split("=", 1) for line in text.splitlines())


def default_routes(lab: Lab, number: int) -> list[str]:
    text = lab.ok("router", "sh", "-c", f"ip -4 route show table {number} 2>/dev/null || :")
    return [re.sub(r"\s+", " ", line).strip() for line in text.splitlines() if line.startswith("default")]


def resolvers(lab: Lab) -> list[str]:
    return re.findall(r"^nameserver (\S+)$", lab.ok("router", "cat", "/etc/resolv.conf"), re.M)


def address(lab: Lab, name: str) -> list[str]:
    return state.addresses(lab).get(name, [])


def bound(lab: Lab, name: str, seconds: float = PATIENCE) -> str:
    """Waits for the last thing that an event script does about a new address; the address."""
    until(lab, "router", "grep -q '^ipaddr=[1-9]' /var/run/ivarode/wan/" + name, seconds)
    return row(lab, name)["ipaddr"]


def unbound(lab: Lab, name: str, seconds: float = PATIENCE) -> None:
    until(lab, "router", "grep -q '^ipaddr=0' /var/run/ivarode/wan/" + name, seconds)


def errors(lab: Lab) -> list[str]:
    """What the daemon has complained of."""
    return [line for line in lab.ok("router", "cat", "/var/log/messages").splitlines()
            if " ivarode[" in line and line.split()[1] in ("err", "warning")]


def said_by_clients(lab: Lab) -> list[str]:
    """What the supervisor's children have written so far, as lines."""
    return lab.ok("router", "cat", "/var/log/siblings.log").splitlines()


class Dhcp:
    """The DHCP server of a host: what its own log says."""

    def __init__(self, lab: Lab, host: str = "isp") -> None:
        self.lab, self.host = lab, host

    def start(self, first: str = "203.0.113.50", last: str = "203.0.113.60", interface: str = "eth0") -> None:
        self.lab.ok(self.host, "dhcp-provider", "start", interface, first, last)

    def stop(self) -> None:
        self.lab.ok(self.host, "dhcp-provider", "stop")

    def messages(self) -> list[tuple[str, str]]:
        """(kind, address or "") of each DHCP message, in order."""
        text = self.lab.shell(self.host, "cat /var/log/dhcp-provider 2>/dev/null").out
        return re.findall(r" DHCP([A-Z]+)\(\w+\) (?:(\d+\.\d+\.\d+\.\d+) )?", text)

    def wait(self, kind: str, count: int, seconds: float = PATIENCE) -> None:
        """Waits until the server's log holds a kind of message that many times."""
        until(self.lab, self.host, f"[ \"$(grep -c 'DHCP{kind}(' /var/log/dhcp-provider)\" -ge {count} ]", seconds)

    def count(self, kind: str) -> int:
        return len([1 for found, _ in self.messages() if found == kind])


SECRETS = "user1 * secret1 *\nuser2 * secret2 *\n"

# A host of its own behind the access concentrator, on a network with frames of full size. What goes from there to a
# subscriber must fit into the session by itself: nobody tells the host that a packet was too big.
BEHIND = "192.0.2.10"
BEHIND_SCRIPT = """
ip netns add behind
ip link add behind type veth peer name eth0 netns behind
ip address add 192.0.2.254/24 dev behind && ip link set behind up
ip -n behind address add 192.0.2.10/24 dev eth0 && ip -n behind link set eth0 up && ip -n behind link set lo up
ip -n behind route add default via 192.0.2.254
echo 1 > /proc/sys/net/ipv4/ip_forward
iptables -A OUTPUT -p icmp --icmp-type fragmentation-needed -j DROP
"""


class Pppoe:
    """The access concentrator of a host, and what its pppd has noted of the sessions."""

    def __init__(self, lab: Lab, host: str = "isp", interface: str = "eth0", local: str = "198.51.100.254",
                 remote: str = "100.64.0.10") -> None:
        self.lab, self.host, self.words = lab, host, [interface, local, remote]

    def start(self, *options: str, secrets: str | None = SECRETS) -> None:
        if secrets:
            self.lab.put(self.host, "/etc/ppp/chap-secrets", secrets, 0o600)
        self.lab.ok(self.host, "pppoe-provider", "start", *self.words, *options)

    def kill(self) -> None:
        self.lab.ok(self.host, "pppoe-provider", "kill")

    def log(self) -> str:
        return self.lab.shell(self.host, "cat /var/log/pppoe-provider 2>/dev/null").out

    def running(self) -> bool:
        return bool(self.lab.run(self.host, "pppoe-provider", "running"))
