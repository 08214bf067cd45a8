"""Faults of a WAN that somebody else gives its address, and of how it was added: planted as those of the other file."""

from __future__ import annotations

from tests.system import bus, daemon, peers
from tests.system.faults import HOME, Act, Fault, both, healthy, shell, signal
from tests.system.held_lab import Lab

LOG = "/var/log/messages"
OTHERS = "02:00:00:00:00:01"        # the MAC of a neighbour, who holds the one address of a pool
STATIC = {"defrt_pri": "20001", "ipaddr": "203.0.113.2", "netmask": "255.255.255.0", "gateway": "203.0.113.1"}
DHCP = {"defrt_pri": "20001"}
PPPOE = {"defrt_pri": "20001", "username": "user1", "password": "secret1", "server": "isp"}
TV = {"proto": "static", "defrt_pri": "20001", "ipaddr": "198.18.0.2", "netmask": "255.255.255.0",
      "gateway": "198.18.0.1"}
KEEP = "[ -e /tmp/wan_static ] || cp /etc/config/wan_intf /tmp/wan_static"


def becomes(proto: str, options: dict[str, str]) -> Act:
    """WAN 1, in its section and in the running daemon."""
    given = {"enable": "1", "proto": proto, **options}
    lines = "".join(f"\\toption {key} '{value}'\\n" for key, value in given.items())

    def act(lab: Lab) -> None:
        lab.shell("router", f"{KEEP}; printf \"config interface 'wan1'\\n{lines}\" >/etc/config/wan_intf", check=True)
        assert bus.intf(lab, "config", intf="wan1", old_intf="wan1", proto=proto, **options)[0] == 0
    return act


def is_static_again(lab: Lab) -> None:
    peers.Dhcp(lab).stop()
    peers.Pppoe(lab).kill()
    assert bus.intf(lab, "config", intf="wan1", old_intf="wan1", proto="static", **STATIC)[0] == 0
    lab.shell("router", "cat /tmp/wan_static >/etc/config/wan_intf", check=True)
    peers.until(lab, "router", "! ubus call service list | grep -q '\"wan1\"'")


def said(words: str, act: Act, host: str = "router", file: str = LOG) -> Act:
    """The act, and then a log says something that it has not said before."""
    def acted(lab: Lab) -> None:
        count = f"0$(grep -c '{words}' {file} 2>/dev/null)"
        before = lab.shell(host, f"echo {count}").out.strip()
        act(lab)
        peers.until(lab, host, f"[ {count} -gt {before} ]")
    return acted


def served(*options: str, first: int = 50, last: int = 60) -> Act:
    """A DHCP server behind the WAN."""
    return lambda lab: lab.ok("isp", "dhcp-provider", "start", "eth0", f"203.0.113.{first}", f"203.0.113.{last}",
                              *options)


def bound(lab: Lab) -> None:
    peers.bound(lab, "wan1")


def unbound(lab: Lab) -> None:
    peers.unbound(lab, "wan1")


EMPTY_POOL = served(f"--dhcp-host={OTHERS},203.0.113.70", first=70, last=70)
ASKS = said("wan1 has no lease", becomes("dhcp", DHCP))


def leased(*options: str) -> Act:
    return both(served(*options), becomes("dhcp", DHCP), bound)


def dials(words: str) -> Act:
    return said(words, becomes("pppoe", PPPOE))


def concentrator(secrets: str = peers.SECRETS) -> Act:
    return lambda lab: peers.Pppoe(lab).start(secrets=secrets)


def add_tv(lab: Lab) -> None:
    assert bus.intf(lab, "add", intf="wan1_tv", vlanid1=200, **TV)[0] == 0


def delete_tv(lab: Lab) -> None:
    assert bus.intf(lab, "del", intf=["wan1_tv"])[0] == 0


def port_given_back(lab: Lab) -> None:
    assert bus.intf(lab, "port_del", name="wan1")[0] == 0


def lan9_made(lab: Lab) -> None:
    assert bus.intf(lab, "config", intf="lan9", old_intf="lan3", proto="static", ipaddr="192.168.3.1",
                    netmask="255.255.255.0")[0] == 0


def lan9_asked_for(lab: Lab) -> None:
    lan9_made(lab)
    assert lab.run("router", "ubus", "-t", "1", "call", "ivarode.intf", "statist").status != 0


def restarted(lab: Lab) -> None:
    lab.ok("agent", "kill", "daemon", "9")
    daemon.wait_service(lab, "daemon ended signal 9")
    # it has repeated one line all the time
    lab.shell("router", f"/lib/ivarode/cleanup.sh; : >{LOG}; : >/var/log/daemon.log", timeout=60, check=True)
    daemon.restart(lab)
    healthy(lab)


NO_SERVER = "wan1 has no address: no DHCP server answers: none is there, or it has no address left"
SERVICE = "ubus call service"
DHCP_SERVICE = f"{SERVICE} list '{{\"name\":\"dhcp\"}}'"
# In the network of LAN 1.
FOREIGN = ("ip address add 192.168.1.99/24 dev eth0", "dhcp-provider start eth0 192.168.1.50 192.168.1.60")


def at_provider(*lines: str) -> Act:
    return lambda lab: lab.shell("isp", "set -e\n" + "\n".join(lines), check=True)


def other_pool(lab: Lab) -> None:
    """The server has forgotten its leases, and has given the one address of its pool to somebody else."""
    EMPTY_POOL(lab)
    assert bus.intf(lab, "enable", intf=["wan1"], enable=1)[0] == 0


# On the board "one-cpu" with the configuration "home", whose WAN 1 is static.
WANS = [
    Fault("DHCP without server", "wan1", NO_SERVER, ASKS, is_static_again),
    Fault("DHCP server without addresses", "wan1", NO_SERVER,
          both(ASKS, said("no address available", EMPTY_POOL, "isp", "/var/log/dhcp-provider")), is_static_again),
    Fault("lease without gateway", "wan1", "wan1 was given no gateway with its address", leased("--dhcp-option=3"),
          is_static_again),
    Fault("lease without name server", "wan1", "wan1 was given no name server with its address",
          leased("--dhcp-option=6"), is_static_again),
    Fault("resolver emptied", "wan1", "resolv.conf names no name server",
          both(leased(), shell(": >/etc/resolv.conf")), is_static_again),
    Fault("lease of the LAN's network", "wan1", "what the DHCP server offers cannot be used; .* overlaps .* on lan1",
          both(at_provider(*FOREIGN), said("is refused: ", becomes("dhcp", DHCP))),
          both(is_static_again, at_provider("ip address del 192.168.1.99/24 dev eth0"))),
    Fault("DHCP client taken from the supervisor", "wan1", "the supervisor runs no DHCP client for wan1",
          both(leased(), shell(f"{SERVICE} delete '{{\"name\":\"dhcp\",\"instance\":\"wan1\"}}'",
                               f"while {DHCP_SERVICE} | grep -q wan1; do sleep 0.2; done")), is_static_again),
    Fault("DHCP client ended and not started again", "wan1", "the DHCP client of wan1 does not run: it ended with",
          both(leased(), shell(f"{SERVICE} state '{{\"name\":\"dhcp\",\"spawn\":false}}'",
                               f"until {DHCP_SERVICE} | grep -q '\"running\": false'; do sleep 0.2; done")),
          is_static_again),
    Fault("supervisor hangs", "wan1", "the supervisor does not answer within 3 s",
          both(leased(), signal("siblings", 19)), both(signal("siblings", 18), is_static_again)),
    Fault("PPPoE without concentrator", "wan1", "wan1 has no PPP link: no PPPoE concentrator has answered",
          dials("pppd .* started by"), is_static_again),
    Fault("wrong password", "wan1", "wan1 has no PPP link: the provider refuses user or password",
          both(concentrator("user1 * other *\n"), dials("CHAP authentication failed$")), is_static_again),
    Fault("two WANs of one number", "wan1_tv", "wan1 stands in front of wan1_tv: both have number 20001", add_tv,
          delete_tv),
]

# Those that take half a minute.
LONG = [
    Fault("DHCP server refuses", "wan1", "the last that a DHCP server said was a refusal; .* nak address not available",
          both(leased(), said("wan1 has no lease", other_pool)), is_static_again),
    Fault("PPPoE without concentrator for a while", "wan1", "wan1 has no PPP link: no PPPoE concentrator answers",
          dials("Timeout waiting for PADO"), is_static_again),
    Fault("peer gone silent", "wan1", "wan1 has no PPP link: the peer has gone without a word",
          both(concentrator(), becomes("pppoe", PPPOE), bound,
               said("Modem hangup", lambda lab: peers.Pppoe(lab).kill()), unbound), is_static_again),
    Fault("WAN added to a port without set-up", "wan1_tv", "port 0 is not set up as its own: the interface does not",
          both(port_given_back, add_tv), restarted),
    Fault("statist does not end", "wan1", "the daemon hangs: statist asks for the link of lan9 without end",
          lan9_asked_for, restarted),
    Fault("LAN renamed to a number that the board lacks", "lan9", "lan9: the board has no lan 9$",
          lan9_made, restarted),
]

EVERY = [*HOME, *WANS, *LONG]
