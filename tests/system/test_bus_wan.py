"""A WAN turned from each protocol into each other over the bus, and what reaches the supervisor and the stores."""

from __future__ import annotations

from collections.abc import Sequence
from typing import Any, TYPE_CHECKING

import pytest

from labctl import checks
from tests.system import bus, state
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

STATIC = {"proto": "static", "ipaddr": "203.0.113.2", "netmask": "255.255.255.0", "gateway": "203.0.113.1",
          "defrt_pri": "20001"}
DHCP = {"proto": "dhcp", "defrt_pri": "20001"}
PPPOE = {"proto": "pppoe", "defrt_pri": "20001", "username": "user1", "password": "secret1", "server": "isp"}
PROTOCOLS = {"static": STATIC, "dhcp": DHCP, "pppoe": PPPOE}


@pytest.fixture(scope="module")
def lab(machine: Machine) -> Lab:
    lab = machine.board("one-cpu", "one-lan", fresh=True)
    machine.spoiled()
    state.settled(lab)
    return lab


def config(lab: Lab, old: str, new: str, arguments: Any) -> None:
    assert bus.intf(lab, "config", intf=new, old_intf=old, **arguments) == (0, None)


def wait_instances(lab: Lab, service: str, names: Sequence[str]) -> None:
    lab.shell("router", f"until [ \"$(ubus call service list '{{\"name\":\"{service}\"}}' | grep -c '\"running\": "
                        f"true')\" = {len(names)} ]; do sleep 0.1; done", check=True, timeout=30)
    assert set(bus.instances(lab, service)) == set(names)


def look(lab: Lab, protocol: str, name: str = "wan1") -> None:
    """What each protocol must show once it is set up."""
    devices = state.devices(lab)
    bridge = name + "_pe" if protocol == "pppoe" else name
    assert devices[bridge][0] == "bridge" and devices["eth0.4090"][3] == bridge
    assert (name in devices) == (protocol != "pppoe")
    wait_instances(lab, "dhcp", [name] if protocol == "dhcp" else [])
    wait_instances(lab, "pppoe", [name] if protocol == "pppoe" else [])
    rows = state.rows(lab)
    assert rows.startswith(f"[{name}]\nname={name}\nproto={protocol}\n") and rows.count("[") == 1
    if protocol == "static":
        assert state.addresses(lab)[name] == ["203.0.113.2/24"]
        assert checks.ping(lab, "pc1", checks.INTERNET)
    elif protocol == "dhcp":
        assert bus.instances(lab, "dhcp")[name][0] == [
            "/sbin/udhcpc", "-t", "0", "-i", name, "-s", "/lib/ivarode/empty.sh", "-C", "-p",
            f"/var/run/udhcpc-{name}.pid", "-f", "-m", "20001"]
    else:
        assert bus.instances(lab, "pppoe")[name][0] == [
            "/usr/sbin/pppd", "nodetach", "ipparam", "pppoec,20001", "ifname", name, "+ipv6", "nodefaultroute",
            "usepeerdns", "persist", "maxfail", "0", "user", "user1", "password", "secret1", "mtu", "1492", "mru",
            "1492", "plugin", "rp-pppoe.so", "rp_pppoe_service", "isp", f"nic-{name}_pe"]


@pytest.mark.parametrize("path", [("dhcp", "static"), ("pppoe", "static"), ("dhcp", "pppoe", "dhcp", "static"),
                                  ("pppoe", "pppoe", "static"), ("dhcp", "dhcp", "static"),
                                  ("dhcp", "dhcp", "dhcp", "static")], ids="-".join)
def test_from_each_protocol_into_each_other(lab: Lab, path: tuple[str, ...]) -> None:
    look(lab, "static")
    for protocol in path:
        config(lab, "wan1", "wan1", PROTOCOLS[protocol])
        look(lab, protocol)


def test_renamed(lab: Lab) -> None:
    config(lab, "wan1", "wan1.x", STATIC)
    look(lab, "static", "wan1.x")
    config(lab, "wan1.x", "wan1", STATIC)
    look(lab, "static")


def test_disabled_and_enabled(lab: Lab) -> None:
    assert bus.intf(lab, "enable", intf=["wan1"], enable=0) == (0, None)
    assert not [rule for rule in state.rules(lab) if rule.startswith("20001:")]
    assert not lab.run("pc1", "busybox", "ping", "-c", "1", "-W", "1", checks.INTERNET, timeout=20)
    assert bus.intf(lab, "enable", intf=["wan1"], enable=1) == (0, None)
    look(lab, "static")


def test_deleted_and_added_again(lab: Lab) -> None:
    assert bus.intf(lab, "del", intf=["wan1"]) == (0, None)
    assert "wan1" not in state.devices(lab)
    assert bus.intf(lab, "add", intf="wan1", **STATIC) == (0, None)
    look(lab, "static")


SECRETS = "/etc/ppp/chap-secrets"


def secret_lines(lab: Lab) -> list[list[str]]:
    return [line.split() for line in lab.ok("router", "cat", SECRETS).splitlines()]


def test_ppp_users_in_the_secrets_file(lab: Lab) -> None:
    lab.put("router", SECRETS, "# by hand\nother * word *\n", 0o600)
    user = {"username": "joe", "provider": "lns", "password": "pass word", "ipaddr": "10.1.2.3"}
    assert bus.call(lab, "ivarode.pppuser", "add", **user) == (0, None)
    text = lab.ok("router", "cat", SECRETS)
    assert text.startswith("# by hand\nother * word *\n")
    assert "joe" in text and '"pass word"' in text and "10.1.2.3" in text
    assert lab.ok("router", "stat", "-c", "%a", SECRETS) == "600\n"
    assert bus.call(lab, "ivarode.pppuser", "add", **{**user, "password": "new"}) == (0, None)
    assert "pass word" not in lab.ok("router", "cat", SECRETS)
    assert bus.call(lab, "ivarode.pppuser", "del", username="joe", provider="lns") == (0, None)
    assert lab.ok("router", "cat", SECRETS) == "# by hand\nother * word *\n"
    assert bus.call(lab, "ivarode.pppuser", "del", username="joe", provider="lns") == (9, None)
    assert bus.call(lab, "ivarode.pppuser", "add", username="joe") == (2, None)


def test_logins_in_the_database(lab: Lab) -> None:
    login = {"type": "pppoe", "username": "ann", "ipaddr": "10.0.0.5", "dial_mac": "02:00:00:00:00:01"}

    def notify(**more: Any) -> tuple[int, Any]:
        return bus.call(lab, "ivarode.pppauth", "notify", **{**login, **more})

    assert notify(action="up") == (0, None)
    assert notify(action="up", username="bob", dial_ip="10.9.9.9") == (0, None)
    assert notify(action="Up", username="nobody") == (0, None)
    assert state.logins(lab) == [("pppoe", "ann", "10.0.0.5", "02:00:00:00:00:01", ""),
                                 ("pppoe", "bob", "10.0.0.5", "02:00:00:00:00:01", "10.9.9.9")]
    assert notify(action="down", dial_mac="02:00:00:00:00:99") == (0, None)
    assert [row[1] for row in state.logins(lab)] == ["bob"]
    assert notify(action="down", username="bob") == (0, None)
    assert state.logins(lab) == []
    assert bus.call(lab, "ivarode.pppauth", "notify", action="up") == (2, None)
