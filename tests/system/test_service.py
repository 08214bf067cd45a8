"""The service beside the daemon, on the board and by the image's init scripts: a change that nobody confirms goes back,
and a daemon that hangs comes back."""

from __future__ import annotations

import re
from collections.abc import Callable, Iterator
from typing import Any, TYPE_CHECKING

import pytest

from labctl import checks, topology
from tests.system import bus, peers, state
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

# Each of them starts the daemon several times.
pytestmark = pytest.mark.long

READY = "ivarode init success"
LOG = "/var/log/messages"
PATIENCE = 240      # seconds for three silences and a start, on a busy machine
OLD, NEW = "192.168.1.1", "10.20.1.1"
KEPT = "/etc/ivarode/backup"
REPORT = "/var/run/ivarode/hang"
DAEMON = "$(. /lib/ivarode/laid.sh && daemon_pids)"
OLD_ENOUGH = 45     # seconds; a younger one is left alone


class Router:
    """The router of the board, and what it was like when nothing was wrong."""

    def __init__(self, lab: Lab) -> None:
        self.lab = lab
        self.healthy: dict[str, Any] = {}
        self.guard = ""

    def do(self, *lines: str) -> str:
        return self.lab.shell("router", "\n".join(("set -e", *lines)), check=True, timeout=PATIENCE).out

    def until(self, condition: str) -> None:
        peers.until(self.lab, "router", condition, PATIENCE)

    def process(self) -> str:
        return self.do(f"echo {DAEMON}").strip()

    def serves_again(self, process: str) -> None:
        """Another process than this one does."""
        self.until(f"[ \"{DAEMON}\" != {process} ] && ivarodectl health >/dev/null")

    def is_as_before(self) -> None:
        assert state.settled(self.lab) == self.healthy
        assert self.do("ivarodectl health").startswith("up:")
        assert checks.ping(self.lab, "pc1", OLD)

    def apply(self, seconds: int) -> None:
        """And the daemon that the reload has started serves."""
        self.do(f"sed -i s/{OLD}/{NEW}/ /etc/config/lan_intf", f"ivarodectl apply --confirm {seconds}")
        self.until(f"ip -4 addr show lan1 | grep -q {NEW}/24 && ivarodectl health >/dev/null")

    def goes_back(self) -> None:
        self.until(f"[ ! -e /etc/ivarode/rollback ] && [ ! -e {KEPT} ] && ivarodectl health >/dev/null")
        assert OLD in self.do("cat /etc/config/lan_intf")

    def is_guarded(self) -> None:
        self.do("/etc/init.d/ivarode-guard start")
        listed = self.lab.run("router", "ubus", "call", "service", "list", '{"name":"ivarode-guard"}', check=True)
        self.guard = str(listed.json()["ivarode-guard"]["instances"]["instance1"]["pid"])

    def uptime(self) -> float:
        return float(self.do("cat /proc/uptime").split()[0])

    def asked(self, times: int) -> None:
        """The service has put so many more questions: each is a child of its own, whose cost it bears."""
        cost = f"$(cut -d ' ' -f 11 /proc/{self.guard}/stat)"
        self.do(f"last={cost} left={times}",
                f"while [ $left -gt 0 ]; do now={cost}; [ $now = $last ] || left=$((left - 1)); last=$now",
                "sleep 0.2; done")

    def forget_hangs(self) -> None:
        """No daemon is ended twice in five minutes."""
        self.do("/etc/init.d/ivarode-guard stop", f"while [ -e /proc/{self.guard} ]; do sleep 0.2; done",
                f"rm -f {REPORT}")
        self.is_guarded()


@pytest.fixture(scope="module")
def router(machine: Machine) -> Iterator[Router]:
    machine.spoiled()
    described = machine.lab.raise_board("one-cpu", "home", ["no-daemon"])
    machine.lab.topology = topology.Topology(described, "home")
    router = Router(machine.lab)
    router.is_guarded()
    router.do("/etc/init.d/ivarode start")
    machine.lab.said(READY, 90)
    router.healthy = state.settled(machine.lab)
    yield router
    machine.spoiled()


@pytest.mark.parametrize("seconds", [600, 60])
def test_a_change_that_cuts_off_its_maker_goes_back(router: Router, seconds: int) -> None:
    """One whose time is over, and one whose time is said to be."""
    router.apply(seconds)
    assert not router.lab.run("pc1", "busybox", "ping", "-c", "1", "-W", "1", OLD)
    if seconds == 600:
        router.do(f"sed -i 's/ .*/ 0/' {KEPT}/until")
    router.goes_back()
    router.is_as_before()
    assert "was not confirmed in time and is taken back" in router.do(f"tail -n 40 {LOG}")


def test_a_change_that_is_confirmed_stays(router: Router) -> None:
    router.apply(60)
    assert router.do("ivarodectl confirm") == "confirmed\n"
    again = router.lab.run("router", "ivarodectl", "confirm")
    assert again.status == 1 and "nothing waits" in again.err
    process = router.process()
    router.asked(5)         # which takes longer than the change had
    assert router.process() == process
    assert state.addresses(router.lab)["lan1"] == [f"{NEW}/24"]
    router.do("/etc/init.d/ivarode restart")
    router.serves_again(process)
    assert state.addresses(router.lab)["lan1"] == [f"{NEW}/24"]
    router.do(f"sed -i s/{NEW}/{OLD}/ /etc/config/lan_intf", "ivarodectl apply", "ivarodectl confirm")
    router.until(f"ip -4 addr show lan1 | grep -q {OLD}/24 && ivarodectl health >/dev/null")
    router.is_as_before()


def test_a_daemon_that_dies_during_the_change(router: Router) -> None:
    """The one that the reload has started, before it serves."""
    process = router.process()
    with router.lab.spawn("router", "sh", "-c", f"sed -i s/{OLD}/{NEW}/ /etc/config/lan_intf; "
                                                "ivarodectl apply --confirm 30") as applying:
        router.until(f"[ -n \"{DAEMON}\" ] && [ \"{DAEMON}\" != {process} ]")
        router.do(f"kill -9 {DAEMON}")
        assert applying.read_until("applied; goes back in", PATIENCE)
    router.goes_back()
    router.is_as_before()


def test_a_change_that_the_power_cut_is_taken_back_at_boot(router: Router) -> None:
    """Everything dies at once; nothing but the disk is what it was, and the boot runs its scripts in their order."""
    router.apply(600)
    lab = router.lab
    lab.ok("agent", "kill", "siblings", "9")
    router.do(f"for process in {DAEMON} $(pidof ivarodectl); do kill -9 $process; done", "/lib/ivarode/cleanup.sh",
              "rm -rf /var/run/ivarode",
              "cat /proc/sys/kernel/random/uuid >/tmp/boot_id",
              "mount --bind /tmp/boot_id /proc/sys/kernel/random/boot_id")
    lab.ok("agent", "start", "siblings")
    router.until("ubus call ombrine.run run >/dev/null 2>&1")
    scripts = router.do("cd /etc/init.d && grep -H ^START= ivarode* | sort -t = -k 2n | cut -d : -f 1").split()
    assert scripts == ["ivarode-guard", "ivarode"]
    router.do(f": >{LOG}")
    router.is_guarded()
    router.do("/etc/init.d/ivarode start")
    lab.said(READY, 90)
    router.goes_back()
    router.is_as_before()


def stop(router: Router) -> None:
    router.do(f"kill -STOP {DAEMON}")


def ask_without_end(router: Router) -> None:
    """A LAN is renamed to a number that the board lacks: its link is asked for until there is an answer."""
    assert bus.intf(router.lab, "config", intf="lan9", old_intf="lan3", proto="static", ipaddr="192.168.3.1",
                    netmask="255.255.255.0")[0] == 0
    assert router.lab.run("router", "ubus", "-t", "1", "call", "ivarode.intf", "statist").status != 0


@pytest.mark.parametrize("hang, what", [(stop, r"^State:\tT"), (ask_without_end, r"^State:\t[RSD]")])
def test_a_daemon_that_hangs_comes_back(router: Router, hang: Callable[[Router], None], what: str) -> None:
    router.forget_hangs()
    router.until(f"[ $(ivarodectl health --json | sed 's/.*\"uptime_s\":\\([0-9]*\\).*/\\1/') -ge {OLD_ENOUGH} ]")
    process = router.process()
    began = router.uptime()
    hang(router)
    router.serves_again(process)
    print(f"from the hang to service: {router.uptime() - began:.1f} s")
    router.is_as_before()
    report = router.do(f"cat {REPORT}")
    assert re.search(what, report, re.M) and "== wchan" in report
    said = [line for line in router.do(f"grep ivarodectl {LOG}").splitlines() if f"process {process})" in line]
    assert len(said) == 1 and "has not answered three times" in said[0]
    router.do(f": >{LOG}; : >/var/log/daemon.log")


def test_a_daemon_that_waits_for_the_broker_is_left_alone(router: Router) -> None:
    router.forget_hangs()
    process = router.process()
    router.lab.ok("agent", "kill", "broker", "19")
    try:
        router.asked(4)
    finally:
        router.lab.ok("agent", "kill", "broker", "18")
    router.until("ivarodectl health >/dev/null")
    assert router.process() == process
    assert "absent" in router.do(f"[ -e {REPORT} ] || echo absent")


def test_a_daemon_that_starts_is_left_alone(router: Router) -> None:
    """However long it takes: it stops between its first log line and its objects on the bus."""
    router.forget_hangs()
    old = router.process()
    router.do("/etc/init.d/ivarode restart",
              f"until [ -n \"{DAEMON}\" ] && [ \"{DAEMON}\" != {old} ]; do :; done", f"kill -STOP {DAEMON}")
    process = router.process()
    assert "ivarode.run" not in router.do("ubus list")
    router.asked(7)         # three of them at an age at which another one would be ended
    assert router.process() == process and "absent" in router.do(f"[ -e {REPORT} ] || echo absent")
    router.do(f"kill -CONT {DAEMON}")
    router.until("ivarodectl health >/dev/null")
    router.is_as_before()
