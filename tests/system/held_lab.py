"""The lab that a whole run of tests keeps, and the router's log beside a failure.

IVARODE_LAB_MODE chooses "native", "vm" or "mips" (default: native where this kernel has what it takes).
"""

from __future__ import annotations

import os
from collections.abc import Callable, Generator, Iterator
from typing import Any, TypeVar

import pytest

from labctl import client
from labctl.topology import Topology


class Lab(client.Lab):
    """A lab, and who is where on the board that is up in it."""

    topology: Topology


class Machine:
    """A lab of this name, started anew, and what is up in it; nothing once a test has spoiled it."""

    def __init__(self, name: str, kind: type[Lab] = Lab) -> None:
        self.lab = kind(name)
        if self.lab.alive():
            self.lab.stop()
        self.mode, self.why = self.lab.start(os.environ.get("IVARODE_LAB_MODE", ""), tied=True)
        self.up: Any = None

    def log(self) -> str:
        try:
            return self.lab.shell("router", "tail -n 40 /var/log/messages /var/log/daemon.log", timeout=10).out
        except client.LabError as error:
            return str(error)

    def spoiled(self) -> None:
        self.up = None


Held = TypeVar("Held", bound=Machine)


def hold(kind: Callable[[], Held]) -> Iterator[Held]:
    """For the fixture "machine" of a session."""
    try:
        held = kind()
    except client.LabError as error:
        pytest.fail(f"the lab does not come up: {error}")
    yield held
    held.lab.stop()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item: pytest.Item, call: pytest.CallInfo[None]) -> Generator[None, Any, None]:
    """The router's log beside a failure."""
    outcome = yield
    report = outcome.get_result()
    held = item.funcargs.get("machine") if hasattr(item, "funcargs") else None
    if report.failed and call.when == "call" and held is not None:
        held.spoiled()
        report.sections.append(("the router's log", held.log()))
