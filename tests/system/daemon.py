"""The daemon under its supervisor: killed, started again, and reloaded."""

import time
from collections.abc import Callable

from tests.system.held_lab import Lab

RELOAD = "/lib/ivarode/reload.sh"
LIMIT = 300


def restart(lab: Lab) -> None:
    lab.ok("agent", "start", "daemon", timeout=30)
    lab.said("ivarode init success", 90)


def kill_daemon(lab: Lab) -> None:
    lab.ok("agent", "kill", "daemon", "9")
    wait_service(lab, "daemon ended signal 9")


def wait_service(lab: Lab, line: str, seconds: int = 10) -> None:
    deadline = time.monotonic() + seconds * lab.pace
    while line not in lab.ok("agent", "services").splitlines():
        assert time.monotonic() < deadline, lab.ok("agent", "services")


def until(lab: Lab, condition: Callable[[], bool]) -> None:
    deadline = time.monotonic() + 60 * lab.pace
    while not condition():
        assert time.monotonic() < deadline, "it does not come"


def start_if_ended(lab: Lab) -> None:
    """What the init script does behind the removals."""
    if lab.run("router", "pidof", "ivarode"):
        return
    until(lab, lambda: "daemon running" not in lab.ok("agent", "services"))
    restart(lab)


def reload(lab: Lab, *words: str) -> list[str]:
    """What it says."""
    said = lab.ok("router", RELOAD, *words, timeout=LIMIT).splitlines()
    start_if_ended(lab)
    return said
