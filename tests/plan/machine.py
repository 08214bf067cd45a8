"""A router of this machine's own kernel in private name spaces, as a plan says that it should be: for plans from now.

Real are bridges, addresses, routes, rules, chains, rows of WANs, the broker and the supervisor; registers and PHYs are
those of the lab's switch. VLAN devices are left out, because not every kernel has them.
"""

import os
import pathlib
import shlex
import shutil
import subprocess

from tests.plan import planning

# Sets the stage and runs a script on it; $W is a folder of the test, $B the build.
ENTER = r"""
set -eu
mount -t tmpfs run /run
mkdir -p /run/ubus /run/ivarode/wan "$W/dev"
"$B/bin/vswitch" --regs "$W/memory" --phys "$W/phys" --no-tap >"$W/vswitch.log" 2>&1 &
until [ -s "$W/vswitch.log" ]; do :; done
mount -t tmpfs dev "$W/dev"
for name in null zero random urandom; do : >"$W/dev/$name"; mount --bind "/dev/$name" "$W/dev/$name"; done
: >"$W/dev/mem"
mount --bind "$W/memory" "$W/dev/mem"
mkdir "$W/dev/shm"
mount --move "$W/dev" /dev
"$B/bin/ubusd" &
until [ -S /run/ubus/ubus.sock ]; do :; done
"$B/bin/lab-siblings" >"$W/siblings.log" 2>&1 &
until "$B/bin/ubus" list service >/dev/null 2>&1; do :; done
ip link set lo up
ip link add eth0 type veth peer name far
ip link set eth0 up
"""
REGISTERS = 0x10110000


def missing() -> str | None:
    """Why there can be no such machine here, or None."""
    if os.geteuid() != 0:
        return "needs root"
    for tool in ("iptables", "ip", "strace"):
        if not shutil.which(tool):
            return f"{tool} is not installed"
    done = subprocess.run(["unshare", "--mount", "--net", "sh", "-c", "ip link add probe type bridge && iptables -S"],
                          capture_output=True, text=True, check=False)
    return None if done.returncode == 0 else "no private network with bridges and rules here: " + done.stderr.strip()


def facts(plan: planning.Plan) -> dict[str, str]:
    return dict(fact.partition(" = ")[::2] for fact in plan["end"]["facts"])


def firewall(told: dict[str, str]) -> list[str]:
    """The commands that lay the chains: first all, then what is in them."""
    chains = [(key.split()[1:], value) for key, value in told.items() if key.startswith("chain ")]
    lines = [f"iptables -w -t {table} -N {chain}" for (table, chain), _ in chains if not chain.isupper()]
    return lines + [f"iptables -w -t {table} -A {chain} {rule}" for (table, chain), rules in chains
                    for rule in rules.split(" ; ") if rule]


def as_planned(plan: planning.Plan) -> str:
    """The script that makes it so."""
    told = facts(plan)
    lines = []
    for name, one in plan["end"]["interfaces"].items():
        if one["kind"] == "bridge":
            lines.append(f"ip link add {name} type bridge forward_delay 0")
            lines.append(f"ip link set {name} " + ("up" if one["up"] else "down"))
            if one["address"]:
                lines.append(f"ip addr add {one['address']}/{one['netmask']} dev {name}")
    for key, value in told.items():
        kind, *words = key.split()
        if kind == "rule":
            lines.append(f"ip rule add pref {words[0]} {value}")
        elif kind == "policy":
            lines.append(f"ip rule add pref {words[0]} lookup {words[0]}")
        elif kind == "gateway":
            lines.append(f"ip route add default via {value} dev {words[1]} metric {words[0]} table {words[0]}")
        elif kind == "wan":
            row = zip(("proto", "ipaddr", "netmask", "gateway", "addr4", "addr5"), value.split())
            text = "".join(f"{name}={column}\\n" for name, column in row)
            lines.append(f"printf '{text}' >/run/ivarode/wan/{words[0]}")
        elif kind == "switch":
            lines.append(poked(int(words[0], 16), int(value, 16)))
    return "\n".join(lines + firewall(told)) + "\n"


def poked(offset: int, value: int) -> str:
    """A register written behind everybody's back, in this machine's order of bytes."""
    octets = "".join(f"\\{byte:03o}" for byte in value.to_bytes(4, "little"))
    return f"printf '{octets}' | dd of=/dev/mem bs=1 seek={REGISTERS + offset} conv=notrunc status=none"


def program(*words: object) -> str:
    return shlex.join(["env", f"LD_PRELOAD={planning.BUILD}/lib/lab-shim.so", str(planning.PROGRAM),
                       *(str(word) for word in (*planning.SAMPLE, *words))])


def run(script: str, folder: pathlib.Path) -> str:
    """Output of a script on the stage; fails the test when the script fails."""
    environment = {**os.environ, "W": str(folder), "B": str(planning.BUILD), "LAB_REGS": f"{folder}/memory",
                   "LAB_PHYS": f"{folder}/phys", "PATH": f"{planning.BUILD}/bin:{os.environ['PATH']}"}
    done = subprocess.run(["unshare", "--mount", "--net", "--ipc", "--pid", "--fork", "--kill-child", "--mount-proc",
                           "--propagation", "private", "sh", "-c", ENTER + script], capture_output=True, text=True,
                          env=environment, timeout=120, check=False)
    assert done.returncode == 0, f"status {done.returncode}\n{done.stdout[-3000:]}\n{done.stderr[-3000:]}"
    return done.stdout
