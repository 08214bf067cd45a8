"""The daemon under its supervisor: killed, and started again."""

import time

from tests.system.held_lab import Lab


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
