"""The operator's tool on faults that were planted: the planted one is the first cause, and on a healthy board there is
none."""

from __future__ import annotations

import random
import re
import shutil
import subprocess
from typing import TYPE_CHECKING

import pytest
from prometheus_client.openmetrics import parser

from tests.docs import books
from tests.system import faults, state, wan_faults
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

SEED = 20001
USUAL = 12          # of an ordinary run, and of those of a WAN; a long one plants them all
USUAL_OF_WAN = 2


@pytest.fixture(scope="module")
def lab(machine: Machine) -> Lab:
    lab = machine.board("one-cpu", "home", fresh=True)
    machine.spoiled()
    state.settled(lab)
    return lab


def well(lab: Lab) -> None:
    done = lab.run("router", "ivarodectl", "status", "--json", timeout=60)
    told = done.json()
    assert (told["problems"], told.get("unread", [])) == ([], [])
    assert done.status == 0


def test_nothing_is_wrong_on_a_healthy_board(lab: Lab) -> None:
    well(lab)
    for subject in ("lan1", "lan3", "wan1", *(f"port {port}" for port in range(5))):
        status, cause, said = faults.explained(lab, subject)
        assert (status, cause) == (0, ""), said
        assert "unknown" not in said and "nothing is wrong here" in said, said


def test_names_of_the_router_are_completed(lab: Lab) -> None:
    told = lab.ok("router", "ivarodectl", "__complete", "explain").split()
    assert {"lan1", "lan3", "wan1", "port", "--json"} <= set(told) and len(set(told)) == len(told)


FACTS = {"status": "status", "explain": "explain lan1", "health": "health", "switch": "switch", "debug": "debug",
         "version": "version"}


@pytest.mark.parametrize("command", FACTS)
def test_the_facts_are_those_of_the_book(lab: Lab, command: str) -> None:
    told = lab.run("router", "ivarodectl", *FACTS[command].split(), "--json", timeout=60).json()
    rows = books.tables(books.sections(books.text("ivarodectl.md"))[f"`{command}`"])[0][1:]
    described = {code for row in rows for code in books.code(row[0])}
    assert set(told) - {"version"} <= described
    assert described - set(told) <= {"unread", "first_cause"}
    assert told["version"] == 1


def test_metrics_are_what_a_monitoring_system_takes(lab: Lab) -> None:
    said = lab.ok("router", "ivarodectl", "metrics", timeout=60)
    values = dict(line.rsplit(" ", 1) for line in said.splitlines() if not line.startswith("#"))
    assert values["ivarode_up"] == values['ivarode_state{state="up"}'] == "1"
    assert values['ivarode_port_link{port="0"}'] == "1" and values['ivarode_port_speed_mbit{port="0"}'] == "100"
    assert values["ivarode_vlan_entries_free"] == "11"
    assert int(values['ivarode_interface_transmit_bytes_total{interface="lan1"}']) > 0
    assert int(values["ivarode_samples_total"]) > 0
    families = re.findall(r"^# TYPE (\S+) (?:counter|gauge)$", said, re.M)
    assert len(set(families)) == len(families) > 20
    assert {re.split(r"[{ ]", name)[0] for name in values} <= set(families)


@pytest.mark.skipif(shutil.which("promtool") is None, reason="promtool (Debian: prometheus) is not installed")
def test_metrics_pass_the_check_of_their_reader(lab: Lab) -> None:
    said = lab.ok("router", "ivarodectl", "metrics", timeout=60)
    done = subprocess.run(["promtool", "check", "metrics"], input=said, capture_output=True, text=True, check=False)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")


def test_metrics_are_open_metrics(lab: Lab) -> None:
    said = lab.ok("router", "ivarodectl", "metrics", "openmetrics", timeout=60)
    families = list(parser.text_string_to_metric_families(said))
    units = {family.name: family.unit for family in families}
    assert units["ivarode_device_receive_bytes"] == "bytes" and units["ivarode_uptime_seconds"] == "seconds"
    assert all(family.documentation for family in families)
    samples = {sample.name for family in families for sample in family.samples}
    assert {"ivarode_up", "ivarode_samples_total", "ivarode_device_receive_bytes_total"} <= samples


def chosen(request: pytest.FixtureRequest) -> list[faults.Fault]:
    if request.config.getoption("--long"):
        return wan_faults.EVERY
    of_seed = random.Random(SEED)
    return [*of_seed.sample(faults.HOME, USUAL), *of_seed.sample(wan_faults.WANS, USUAL_OF_WAN)]


def test_each_fault_is_the_first_cause(lab: Lab, request: pytest.FixtureRequest) -> None:
    wrong = []
    for fault in chosen(request):
        fault.plant(lab)
        status, cause, said = faults.explained(lab, fault.subject)
        if status != 1 or re.search(fault.cause, cause) is None:
            wrong.append(f"{fault.name}: expected {fault.cause!r}\n{said}")
        fault.repair(lab)
    assert not wrong, "\n".join(wrong)
    well(lab)


def test_faults_have_names_and_there_are_enough_of_them() -> None:
    assert len({fault.name for fault in wan_faults.EVERY}) == len(wan_faults.EVERY) >= 60
