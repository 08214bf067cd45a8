"""Everything that the daemon lays, as one comparable value: switch, devices, addresses, routes, rules, firewall; and
the login records."""

from __future__ import annotations

import re
import sqlite3
import tempfile
from typing import Any

from tests.system.held_lab import Lab


def switch(lab: Lab) -> dict[str, Any]:
    status = lab.switch("status")
    vlans = {v["entry"]: (v["vid"], v["members"], v["untag"]) for v in status["vlans"]}
    pvids = {p["port"]: p["pvid"] for p in status["ports"] if not p["cpu"]}
    return {"vlans": vlans, "pvids": pvids, "untag_enabled": status["untag_enabled"]}


def devices(lab: Lab) -> dict[str, tuple[Any, ...]]:
    found: dict[str, tuple[Any, ...]] = {}
    for link in lab.run("router", "ip", "-j", "-d", "link", check=True).json():
        if link["ifname"].startswith(("lo", "eth", "lan", "wan")):
            kind = link.get("linkinfo", {}).get("info_kind", "")
            vlan = link.get("linkinfo", {}).get("info_data", {}).get("id")
            found[link["ifname"]] = (kind, vlan, link.get("link"), link.get("master"), link.get("address"),
                                     "UP" in link["flags"])
    return found


def addresses(lab: Lab) -> dict[str, list[str]]:
    found: dict[str, list[str]] = {}
    for link in lab.run("router", "ip", "-j", "-4", "addr", check=True).json():
        for address in link["addr_info"]:
            found.setdefault(link["ifname"], []).append(f"{address['local']}/{address['prefixlen']}")
    return found


def routes(lab: Lab) -> list[str]:
    text = lab.ok("router", "ip", "-4", "route", "show", "table", "all")
    return sorted(re.sub(r"\s+", " ", line).replace(" linkdown", "").strip() for line in text.splitlines())


def rules(lab: Lab) -> list[str]:
    # whose rule it is: no part of the policy
    text = re.sub(r" proto \S+", "", lab.ok("router", "ip", "-4", "rule"))
    return [re.sub(r"\s+", " ", line).strip() for line in text.splitlines()]


def firewall(lab: Lab) -> dict[str, dict[str, list[str]]]:
    """Table -> chain -> rules, without counters."""
    tables: dict[str, dict[str, list[str]]] = {}
    for table in ("mangle", "nat", "filter"):
        chains = tables.setdefault(table, {})
        for line in lab.ok("router", "iptables", "-w", "-t", table, "-S").splitlines():
            words = line.split(" ", 2)
            chains.setdefault(words[1], [])
            if words[0] == "-A":
                chains[words[1]].append(words[2])
    return tables


def rows(lab: Lab) -> str:
    """The WAN information rows."""
    return lab.shell("router", "cd /var/run/ivarode/wan && for f in *; do echo \"[$f]\"; cat \"$f\"; done").out


def everything(lab: Lab) -> dict[str, Any]:
    return {"switch": switch(lab), "devices": devices(lab), "addresses": addresses(lab), "routes": routes(lab),
            "rules": rules(lab), "firewall": firewall(lab), "rows": rows(lab)}


def settled(lab: Lab) -> dict[str, Any]:
    """A start is over only when the links have been seen: the first WAN has its way out then."""
    for number in sorted(lab.topology.wans):
        lab.shell("router", f"for i in $(seq 300); do ip -4 rule | grep -q '^2000{number}:' && exit; sleep 0.1; done; "
                            "exit 1", check=True, timeout=60)
    return everything(lab)


def logins(lab: Lab) -> list[tuple[Any, ...]]:
    """The rows of the login records: type, user, address, MAC and address of the caller."""
    with tempfile.NamedTemporaryFile() as copy:
        copy.write(lab.get("router", "/tmp/calmora/db/net_stat.db"))
        copy.flush()
        base = sqlite3.connect(copy.name)
        try:
            return base.execute("select type, username, ipaddr, dial_mac, dial_ip from pppauth_user_table").fetchall()
        finally:
            base.close()
