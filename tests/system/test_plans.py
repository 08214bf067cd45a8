"""What ivarode-plan says beforehand is what the board has afterwards: switch, devices, addresses, routes, rules,
chains, rows and clients, read back by other means.

On one board, which takes the place of each: its files are replaced, and the daemon is started between the image's stop
action and a request or a cable. --plans N: how many configurations, of 40.
"""

from __future__ import annotations

import json
import pathlib
import subprocess
from collections.abc import Sequence
from typing import TYPE_CHECKING, Any, NamedTuple

import pytest

from tests.plan import planning
from tests.system import bus, planned
from tests.system.daemon import wait_service
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

Step = tuple[str, str]      # an option of ivarode-plan, and its value

REQUESTS: list[tuple[str, dict[str, Any]]] = [
    ("port_add", {"name": "lan2"}),
    ("add", {"intf": "lan4_guest", "vlanid1": 100, "ipaddr": "192.168.100.1", "netmask": "255.255.255.0"}),
    ("config", {"intf": "lan2_office", "old_intf": "lan2_default", "proto": "static", "ipaddr": "192.168.20.1",
                "netmask": "255.255.255.0", "mac": "02:00:00:00:20:01"}),
    ("port_add", {"name": "lan9"}),
    ("enable", {"intf": ["lan4_guest"], "enable": 0}),
]
PACKAGES = ("lan_intf", "wan_intf", "route_config")
# What a stop action leaves: the two Ethernet devices and the registers.
SWITCHED_ON = f"""
ip link set eth0 down
ip link set eth1 down
dd if=/dev/zero of=/dev/mem bs=4 seek={planned.REGISTERS // 4} count={planned.LENGTH // 4} conv=notrunc status=none
: >/var/log/daemon.log"""
HANDLED = "netevt_nl_link_event"        # in the debug line of each event
LINKS = [("--link", f"{port}=up") for port in range(5)]


class Case(NamedTuple):
    board: pathlib.Path
    config: pathlib.Path
    steps: list[Step]


def case_of(name: str, folder: pathlib.Path) -> Case:
    """A sample with the requests above, or the files and steps of a seed."""
    if name in planning.BY_LABEL:
        return Case(*planning.BY_LABEL[name], [planning.call(method, **fields) for method, fields in REQUESTS])
    done = subprocess.run([planning.BUILD / "seam/plan-case", name.split()[1], folder], capture_output=True, text=True,
                          check=True)
    lines = (line.partition(" ") for line in done.stdout.splitlines())
    return Case(folder / "board.json", folder / "config", moving([(option, value) for option, _, value in lines]))


def moving(steps: Sequence[Step]) -> list[Step]:
    """Without the events that a cable cannot bring: it is plugged already, or not."""
    up, found = {port: True for port in "01234"}, []
    for option, value in steps:
        port, _, way = value.partition("=")
        if option == "--link" and up[port] == (way == "up"):
            continue
        if option == "--link":
            up[port] = way == "up"
        found.append((option, value))
    return found


@pytest.fixture(scope="module")
def lab(machine: Machine) -> Lab:
    """A board with both Ethernet devices, somebody on each port, and a daemon that does not pause at its start."""
    lab = machine.board("two-cpu", "one-lan", extra_plan=["daemon-preload /usr/lib/short-sleep.so"])
    machine.spoiled()
    lab.ok("router", "ivarodectl", "debug", "on")
    return lab


def events(lab: Lab) -> int:
    return int(lab.run("router", "grep", "-c", HANDLED, "/var/log/daemon.log").out)


def handled(lab: Lab, number: int) -> None:
    """Waits until the daemon has handled so many events of links since its start."""
    lab.shell("router", f"until [ $(grep -c {HANDLED} /var/log/daemon.log) -ge {number} ]; do sleep 0.1; done",
              check=True, timeout=60)


def start(lab: Lab, case: Case, ending: str) -> None:
    """On a router as it is after switching on, with these files."""
    for port in range(5):
        lab.link(port, True)
    lab.ok("agent", "stop", "daemon", timeout=60)
    lab.ok("router", "/etc/init.d/ivarode", "stop", timeout=60)
    lab.put("router", "/etc/board.json", case.board.read_bytes())
    for name in PACKAGES:
        if (case.config / name).exists():
            lab.put("router", f"/etc/config/{name}", (case.config / name).read_bytes())
        else:
            lab.ok("router", "rm", "-f", f"/etc/config/{name}")
    lab.shell("router", SWITCHED_ON, check=True)
    lab.ok("agent", "start", "daemon", timeout=30)
    if ending:
        wait_service(lab, "daemon ended exit 253", 90)
        assert ending == "the daemon ended with status -3"
    else:
        lab.said("ivarode init success", 90)
        handled(lab, len(LINKS))


def take(lab: Lab, step: Step) -> int | None:
    """The status of a call."""
    option, value = step
    if option == "--link":
        before = events(lab)
        lab.link(int(value[0]), value.endswith("=up"))
        handled(lab, before + 1)
        return None
    name, method, message = value.split(" ", 2)
    return bus.call(lab, name, method, **json.loads(message))[0]


def test_the_board_has_what_the_plan_says(lab: Lab, planned_case: str, tmp_path: pathlib.Path) -> None:
    case = case_of(planned_case, tmp_path)
    words = ["--board", case.board, "--config", case.config, *(word for step in LINKS for word in step)]
    first = planning.plan(*words)
    start(lab, case, first["ending"])
    planned.compare(lab, first)
    if first["ending"]:
        return
    plan = planning.plan(*words, *(word for step in case.steps for word in step))
    asked = plan["phases"][1 + len(LINKS):]
    statuses = [take(lab, step) for step in case.steps]
    assert statuses == [phase["status"] if phase["kind"] == "call" else None for phase in asked]
    planned.compare(lab, plan)
