"""A router's root and network with somebody in it who means harm: the user "nobody", a DHCP server, a PPP peer.

Many attacks share one sandbox: each is a step of its script, and tells what it left behind a line of its name.
"""

import re
import shlex
from pathlib import Path

from tests.docs import sandbox

# A LAN and another device of the router, and a WAN whose row is there. The objects of /dev/shm are this world's own.
ROUTER = """
mount -t tmpfs -o mode=1777 shm /dev/shm
ip link set lo up
ip link add lan1 type bridge && ip link set lan1 up && ip addr add 192.168.1.1/24 dev lan1
ip link add lan2 type bridge && ip link set lan2 up && ip addr add 10.1.2.1/24 dev lan2
ip link add wan1 type veth peer name peer1 && ip link set peer1 up && ip link set wan1 up
mkdir -p /run/ivarode/wan
row() {
    {
        echo name=wan1 && echo "proto=$1"
        for key in ipaddr netmask gateway addr4 addr5; do echo "$key=0.0.0.0"; done
    } >/run/ivarode/wan/wan1
}
nobody() { setpriv --reuid=65534 --regid=65534 --clear-groups -- "$@"; }
row dhcp
"""

# What an attack may have changed, one line for each.
SHOW = """
show() {
    echo "== $1"
    echo "wan $(ip -4 -o addr show dev wan1 | awk '{print $4}' | tr '\\n' ' ')"
    echo "lans $(ip -4 -o addr show dev lan1 | awk '{print $4}') $(ip -4 -o addr show dev lan2 | awk '{print $4}')"
    echo "default $(ip -4 route show table 20001 2>/dev/null | tr '\\n' ';')"
    echo "resolver $(tr '\\n' ';' </etc/resolv.conf)"
    echo "row $(tr '\\n' ';' </run/ivarode/wan/wan1)"
    echo "log $(tr '\\n' ';' </root/calls)"
    : >/root/calls
}
"""

EMPTY_ROW = "name=wan1;proto=dhcp;ipaddr=0.0.0.0;netmask=0.0.0.0;gateway=0.0.0.0;addr4=0.0.0.0;addr5=0.0.0.0;"
LANS = "192.168.1.1/24 10.1.2.1/24"
GOOD = {"interface": "wan1", "ip": "203.0.113.50", "mask": "24", "subnet": "255.255.255.0", "router": "203.0.113.1",
        "dns": "198.51.100.9", "lease": "60", "IVARODE_WAN_NUMBER": "20001"}

Facts = dict[str, str]


def environment(values: dict[str, str]) -> str:
    """The words that run a program with these variables and no others."""
    words = ["env", "-i", "PATH=/stub:/usr/sbin:/usr/bin:/sbin:/bin"]
    words += (f"{name}={value}" for name, value in values.items())
    return " ".join(shlex.quote(word) for word in words)


def lease(event: str = "bound", **changed: str) -> str:
    return f"{environment(GOOD | changed)} /lib/ivarode/empty.sh {shlex.quote(event)} 2>>/root/errors || :\n"


def link(script: str, local: str, remote: str, param: str = "pppoec,20001", device: str = "wan1", **values: str) -> str:
    """A PPP link's event, with pppd's own words."""
    words = [f"/etc/ppp/ip-{script}", device, "/dev/pts/9", "0", local, remote, param]
    return f"{environment(values)} {' '.join(shlex.quote(word) for word in words)} 2>>/root/errors || :\n"


def run(script: str, tmp_path: Path, timeout: int = 240) -> str:
    return sandbox.run(ROUTER + SHOW + script, tmp_path, timeout)


def attacks(steps: dict[str, str], tmp_path: Path, before: str = "") -> dict[str, Facts]:
    """What each step left behind; `before` is done ahead of each."""
    script = "".join(f"{before}\n: >/root/calls\n{step}\nshow {shlex.quote(name)}\n" for name, step in steps.items())
    found: dict[str, Facts] = {}
    for part in re.split(r"^== ", run(script, tmp_path), flags=re.M)[1:]:
        name, *lines = part.splitlines()
        found[name] = dict((line + " ").partition(" ")[::2] for line in lines)
        found[name] = {key: value.strip() for key, value in found[name].items()}
    assert list(found) == list(steps)
    return found
