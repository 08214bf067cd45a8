"""Random configurations, and a router in facts from which a script takes what ivarode-plan lists as leftovers."""

from __future__ import annotations

import pathlib
import re
import subprocess

from tests.plan import planning

WRITER = planning.BUILD / "seam/random-configuration"
Facts = dict[str, str]
# Of a device; the name stands behind them.
OF_A_DEVICE = ("device ", "up ", "mac ", "bridge of ", "address ", "netmask ")
CLASSES = {range(128): "255.0.0.0", range(128, 192): "255.255.0.0", range(192, 224): "255.255.255.0"}


def written(folder: pathlib.Path, seed: int) -> pathlib.Path:
    """The configuration of a seed, with its board file beside it."""
    folder.mkdir(parents=True)
    subprocess.run([WRITER, folder, str(seed)], check=True)
    return folder


def facts_of(plan: planning.Plan) -> Facts:
    return dict(fact.partition(" = ")[::2] for fact in plan["end"]["facts"])


def text(facts: Facts) -> str:
    return "".join(f"{key} = {value}\n" if value else f"{key}\n" for key, value in facts.items())


def state(facts: Facts, change: str) -> None:
    """A change of a plan's operation."""
    if change.startswith("-"):
        facts.pop(change[1:], None)
    else:
        key, _, value = change.partition(" = ")
        facts[key] = value


def delete_device(facts: Facts, name: str) -> None:
    """With its place in a bridge, the VLANs on it, and the default routes through it."""
    for kind in OF_A_DEVICE:
        facts.pop(kind + name, None)
    for key in [key for key, value in facts.items() if key.startswith("bridge of ") and value == name]:
        del facts[key]
    for key in [key for key in facts if key.startswith("gateway ") and key.split()[2] == name]:
        del facts[key]
    for key in [key for key, value in facts.items() if key.startswith("device ") and value == f"vlan of {name}"]:
        delete_device(facts, key.split()[1])


def remove(facts: Facts, kind: str, words: list[str]) -> None:
    """What the kernel and the supervisor do to it."""
    name = words[-1]
    if kind == "client":
        facts.pop(f"process {words[0]} {name}", None)
        facts.pop(f"pid /var/run/udhcpc-{name}.pid", None)
    elif kind == "route":
        facts.pop("route " + " ".join(words), None)
    elif kind == "default":
        facts.pop(f"gateway {words[0]} {name}", None)
    elif kind == "rule":
        for key in [key for key in facts if key.startswith(f"policy {name} ")]:
            del facts[key]
    elif kind == "address":
        facts.pop("address " + name, None)
        facts.pop("netmask " + name, None)
    elif kind == "member":
        facts.pop("bridge of " + name, None)
    elif kind == "device":
        delete_device(facts, name)
    elif kind == "row":
        facts.pop("wan " + name, None)
    elif kind == "chain":
        remove_chain(facts, *words)
    else:
        raise AssertionError(f"what is {kind}?")


def remove_chain(facts: Facts, table: str, parent: str, chain: str) -> None:
    key = f"chain {table} {parent}"
    accept = chain == "ACCEPT"
    rules = [rule for rule in facts.get(key, "").split(" ; ") if rule]
    facts[key] = " ; ".join(rule for rule in rules if rule != f"-j {chain}" and not (accept and "ESTABLISHED" in rule))
    if not accept:
        facts.pop(f"chain {table} {chain}", None)


def comparable(plan: planning.Plan) -> Facts:
    """Without numbers of processes, masks that follow from the address, devices that routes name (the kernel has one
    route for a destination and metric), and what no frame meets in the switch."""
    facts = {re.sub("^(route .*) dev [^ ]+", r"\1", key): value for key, value in facts_of(plan).items()
             if not key.startswith(("pid ", "switch ")) and not is_usual_mask(plan, key, value)}
    vlans = {one["vid"]: one["members"] for one in plan["end"]["vlans"] if one["members"]}
    facts["vlans"] = str(sorted((one["entry"], one["vid"], one["members"], one["untagged"])
                                for one in plan["end"]["vlans"] if one["members"]))
    facts["pvids"] = str({one["port"]: one["pvid"] for one in plan["end"]["ports"]
                          if one["port"] in vlans.get(one["pvid"], [])})
    return facts


def is_usual_mask(plan: planning.Plan, key: str, value: str) -> bool:
    if not key.startswith("netmask "):
        return False
    first = int(facts_of(plan)["address " + key.split()[1]].split(".")[0])
    return any(first in some and value == mask for some, mask in CLASSES.items())
