"""What the platform library promises, where this machine's kernel or processor cannot show it: in the small machine."""

from __future__ import annotations

import re
import subprocess
import xml.etree.ElementTree as ElementTree
from typing import TYPE_CHECKING

import pytest

from labctl import paths

if TYPE_CHECKING:
    from tests.system.conftest import Machine

NAME = re.compile(r"^\[ +(OK|SKIPPED|FAILED) +\] ([\w/]+\.[\w/]+)(?:, where .*?)?(?: \(\d+ ms\))?$", re.M)


def outcomes(said: str) -> dict[str, set[str]]:
    """Outcome -> names of the tests that ended so."""
    found: dict[str, set[str]] = {}
    for outcome, name in NAME.findall(said):
        found.setdefault(outcome, set()).add(name)
    return found


def skipped_here() -> set[str]:
    """Names of the contract tests that skip on this kernel: as the last run of that kind says."""
    program = paths.build_dir() / "bin/contract_test"
    report = paths.build_dir() / "report-contract.xml"
    if report.exists() and report.stat().st_mtime > program.stat().st_mtime:
        # Behind the name of a test with a parameter stands what the parameter is.
        return {case.get("name", "").split()[0] for case in ElementTree.parse(report).iter("testcase")
                if case.find("skipped") is not None}
    # its failures are that kind's own matter
    return outcomes(subprocess.run([str(program)], capture_output=True, text=True,
                                   errors="replace").stdout).get("SKIPPED", set())


def test_everything_passes_on_mips(machine: Machine) -> None:
    if machine.mode != "mips":
        pytest.skip("the board is no MIPS machine")
    result = machine.lab.run("machine", "/prog/bin/contract_test", timeout=900)
    found = outcomes(result.out)
    assert result.status == 0, f"{found.get('FAILED')}\n{result.out[-4000:]}"
    assert set(found) == {"OK"} and len(found["OK"]) > 100, found


def test_what_skips_here_passes_in_the_small_machine(machine: Machine) -> None:
    if machine.mode == "mips":
        pytest.skip("all of them run there")
    if not (paths.build_dir() / "bin/contract_test").exists():
        pytest.skip("contract_test has not been built")
    if machine.mode == "native":
        pytest.skip("the lab runs on this very kernel")
    wanted = skipped_here()
    if not wanted:
        pytest.skip("this kernel has everything that the contract tests need")
    result = machine.lab.run("machine", "/prog/bin/contract_test", "--gtest_filter=" + ":".join(sorted(wanted)),
                             timeout=300)
    found = outcomes(result.out)
    assert result.status == 0, result
    assert found.get("OK", set()) == wanted, found


def test_outcomes_are_told_apart() -> None:
    said = ("[ RUN      ] A.b\n[       OK ] A.b (3 ms)\n[  SKIPPED ] A.c (1 ms)\n[  SKIPPED ] 1 test, listed below:\n"
            "[  FAILED  ] B.d\n[  FAILED  ] All/C.e/two, where GetParam() = 4-byte object <01-00 00-00> (2 ms)\n")
    assert outcomes(said) == {"OK": {"A.b"}, "SKIPPED": {"A.c"}, "FAILED": {"B.d", "All/C.e/two"}}
