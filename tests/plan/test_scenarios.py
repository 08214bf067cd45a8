"""The scenarios of tests/conformance as plans: statuses as they expect them, and which ports meet when."""

import json
import pathlib
import tempfile
from concurrent.futures import ThreadPoolExecutor

import pytest

from tests.conformance.scenario import Scenario, load_all
from tests.plan import planning, registers, scenario_files

Checked = tuple[Scenario, planning.Plan, list[int | None]]
LEAST = 300     # scenarios that files and a command line can say


def plan(scenario: Scenario) -> Checked | None:
    files = scenario_files.files_of(scenario)
    if files is None:
        return None
    words, statuses = scenario_files.steps_of(scenario)
    with tempfile.TemporaryDirectory() as folder:
        done = planning.run("--json", *files.write(pathlib.Path(folder)), *words)
    return scenario, json.loads(done.stdout), statuses


@pytest.fixture(scope="module")
def planned() -> list[Checked]:
    scenarios = load_all(planning.ROOT / "tests/conformance")
    with ThreadPoolExecutor(2) as pool:
        found = [one for one in pool.map(plan, scenarios) if one is not None]
    assert len(found) >= LEAST
    return found


def test_the_statuses_are_those_of_the_scenarios(planned: list[Checked]) -> None:
    """Up to a name that is too long for a kernel: scenarios know of no such limit."""
    compared = 0
    for scenario, told, statuses in planned:
        for phase, status in zip(told["phases"][1:], statuses):
            if any(operation["result"] < 0 for operation in phase["operations"]):
                break
            if status is not None:
                assert phase.get("status") == status, (scenario.where, phase["said"])
                compared += 1
    assert compared > LEAST


def test_the_steps_are_those_of_the_registers(planned: list[Checked]) -> None:
    for scenario, told, _ in planned:
        said = [(step["write"], step["joined"]) for phase in told["phases"] for step in phase["reach"]]
        assert said == registers.after_each_write(told), scenario.where


def test_no_request_and_no_event_opens_anything_for_a_moment(planned: list[Checked]) -> None:
    """What a request joins stays joined: two ports on one VLAN, or a port that is given to LAN 1."""
    lasting = 0
    for scenario, told, _ in planned:
        for phase in told["phases"]:
            for meeting in phase["meetings"]:
                assert meeting["lasts"] or meeting["by_layout"], (scenario.where, phase["said"], meeting)
                assert meeting["lan_and_wan"] or meeting["by_layout"], (scenario.where, phase["said"], meeting)
                lasting += meeting["lasts"]
    assert lasting > 0
