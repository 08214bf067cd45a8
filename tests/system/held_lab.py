"""The lab that a whole run of tests keeps, and the router's log beside a failure.

IVARODE_LAB_MODE chooses "native", "vm" or "mips" (default: native where this kernel has what it takes).
"""

import os

import pytest

from labctl import client


class Machine:
    """A lab of this name, started anew, and what is up in it; nothing once a test has spoiled it."""

    def __init__(self, name):
        self.lab = client.Lab(name)
        if self.lab.alive():
            self.lab.stop()
        self.mode, self.why = self.lab.start(os.environ.get("IVARODE_LAB_MODE", ""), tied=True)
        self.up = None

    def log(self):
        try:
            return self.lab.shell("router", "tail -n 40 /var/log/messages /var/log/daemon.log", timeout=10).out
        except client.LabError as error:
            return str(error)

    def spoiled(self):
        self.up = None


def hold(kind):
    """For the fixture "machine" of a session."""
    try:
        held = kind()
    except client.LabError as error:
        pytest.fail(f"the lab does not come up: {error}")
    yield held
    held.lab.stop()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    """The router's log beside a failure."""
    outcome = yield
    report = outcome.get_result()
    held = item.funcargs.get("machine") if hasattr(item, "funcargs") else None
    if report.failed and call.when == "call" and held is not None:
        held.spoiled()
        report.sections.append(("the router's log", held.log()))
