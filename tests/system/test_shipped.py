"""The daemon as an image runs it: with few capabilities and calls of the kernel, with the image's own bus libraries,
started by its init script."""

from __future__ import annotations

import json
import pathlib
import re
import time
from collections.abc import Iterable, Iterator
from typing import Any, TYPE_CHECKING

import pytest

from labctl import client, paths
from tests.package import bus_headers, common, kernel_calls, other_libraries
from tests.system import state
from tests.system.held_lab import Lab

if TYPE_CHECKING:
    from tests.system.conftest import Machine

READY = "ivarode init success"
SHIM = "/usr/lib/lab-shim.so"
CALLS_ALLOWED = "/" + kernel_calls.FILTER


def comparable(found: dict[str, Any]) -> dict[str, Any]:
    """Without what is another on each board: the CPU port's own MAC."""
    found["devices"].pop("eth0")
    return found


@pytest.fixture(scope="module")
def usual(machine: Machine) -> dict[str, Any]:
    """The state after an ordinary start."""
    return comparable(state.settled(machine.board("one-cpu", "home", fresh=True)))


@pytest.fixture
def bare(machine: Machine, usual: dict[str, Any]) -> Iterator[Lab]:
    """The same board with the daemon not started."""
    machine.spoiled()
    machine.lab.raise_board("one-cpu", "home", ["no-daemon"])
    yield machine.lab
    machine.spoiled()


def daemon(lab: Lab) -> int:
    """The daemon's process number; waits until its name is the program's, not a launcher's."""
    return int(lab.shell("router", "for i in $(seq 100); do pidof ivarode && exit; sleep 0.1; done; exit 1",
                         check=True).out)


def facts(lab: Lab, pid: int) -> dict[str, str]:
    return dict(re.findall(r"^(\w+):\s*(\S+)", lab.ok("router", "cat", f"/proc/{pid}/status"), re.M))


# --- capabilities ------------------------------------------------------------------------------------------

def numbers() -> dict[str, int]:
    """Names of the capability file -> their numbers."""
    known = dict(re.findall(r"^#define (CAP_[A-Z_]+)\s+(\d+)$", open("/usr/include/linux/capability.h").read(), re.M))
    names = json.loads((paths.ROOT / "image/files/etc/capabilities/ivarode.json").read_text())["bounding"]
    return {name: int(known[name]) for name in names}


def mask(capabilities: Iterable[int]) -> str:
    return f"{sum(1 << number for number in capabilities):016x}"


def confined(lab: Lab, kept: Iterable[str], *words: str, more: Iterable[str] = ()) -> client.Command:
    """A program as the supervisor's helper starts it, with these capabilities and more options."""
    sets: dict[str, list[str]] = {name: list(kept) for name in ("bounding", "effective", "permitted", "inheritable")}
    sets["ambient"] = []
    lab.put("router", "/run/kept.json", json.dumps(sets))
    return lab.spawn("router", "env", "LD_PRELOAD=" + SHIM, "/sbin/ujail", "--capabilities", "/run/kept.json",
                     "--no-new-privs", *more, "--", *words)


CALLS = [
    ("ivarode.intf", "port_add", {"name": "lan2"}),
    ("ivarode.intf", "statist", {}),
    ("ivarode.route", "add", {"name": "r", "line": "auto", "dstaddr": "10.9.0.0", "netmask": "255.255.0.0",
                              "gateway": "192.168.1.9", "metric": "10"}),
    ("ivarode.pppuser", "add", {"username": "alice", "provider": "*", "password": "secret", "ipaddr": "10.99.0.2"}),
    ("ivarode.pppauth", "notify", {"type": "pptp", "username": "alice", "action": "up", "ipaddr": "10.99.0.2",
                                   "dial_mac": "02:00:00:00:00:09", "dial_ip": "192.0.2.9"}),
]


def test_what_is_listed_is_enough(bare: Lab, usual: dict[str, Any]) -> None:
    """Without other capabilities and calls it starts as ever, and does what changes files, routes, the switch and
    databases."""
    with confined(bare, numbers(), "/usr/sbin/ivarode", more=["--seccomp", CALLS_ALLOWED]) as running:
        bare.said(READY, 90)
        about = facts(bare, daemon(bare))
        assert {about[name] for name in ("CapEff", "CapPrm", "CapBnd")} == {mask(numbers().values())}
        assert (about["NoNewPrivs"], about["Seccomp"]) == ("1", "2")
        assert comparable(state.settled(bare)) == usual
        for name, method, arguments in CALLS:
            answer = bare.run("router", "ubus", "-S", "-t", "20", "call", name, method, json.dumps(arguments))
            assert answer.status == 0, (name, method, answer)
        assert "10.9.0.0/16" in bare.ok("router", "ip", "-4", "route", "show", "table", "10000")
        secrets = bare.ok("router", "ls", "-ln", "/etc/ppp/chap-secrets").split()
        assert secrets[:4] == ["-rw-------", "1", "0", "0"] and "alice" in bare.ok("router", "cat",
                                                                                   "/etc/ppp/chap-secrets")
        # nobody else may write to what it has made; one file that is not its shows that the search finds such
        bare.ok("router", "sh", "-c", "umask 0; : >/tmp/calmora/loose")
        loose = bare.ok("router", "find", "/run/ivarode", "/dev/shm", "/tmp/calmora", "-perm", "/022", "!", "-type",
                        "l", "!",
                        "-path", "/dev/shm")
        assert loose == "/tmp/calmora/loose\n"
        running.kill(15)


@pytest.mark.parametrize("name, lacks", [("CAP_NET_ADMIN", "net pre init failed"),
                                         ("CAP_NET_RAW", "net pre init failed")])
def test_without_either_it_ends(bare: Lab, name: str, lacks: str) -> None:
    """The firewall is the first to need them."""
    with confined(bare, set(numbers()) - {name}, "/usr/sbin/ivarode") as running:
        result = running.collect(time.monotonic() + 90 * bare.pace)
    log = bare.ok("router", "cat", "/var/log/messages")
    assert result.status not in (0, 125) and READY not in log and lacks in log


def test_without_the_third_there_are_no_registers(bare: Lab) -> None:
    """The board's /dev/mem is a file; the device itself is asked for here."""
    if not bare.run("router", "busybox", "mknod", "/dev/physical", "c", "1", "1"):
        pytest.skip("no devices may be made here")
    read = ("/bin/dd", "if=/dev/physical", "of=/dev/null", "bs=1", "count=1")
    with confined(bare, numbers(), *read) as running:
        assert running.collect(time.monotonic() + 30).status == 0
    with confined(bare, set(numbers()) - {"CAP_SYS_RAWIO"}, *read) as running:
        result = running.collect(time.monotonic() + 30)
    assert result.status != 0 and "not permitted" in result.err


# --- calls of the kernel -----------------------------------------------------------------------------------

def test_every_board_runs_it_under_the_filter(home: Lab) -> None:
    """So that each of these tests finds a call that is missing in the list."""
    assert facts(home, daemon(home))["Seccomp"] == "2"


# One call by its number, with nothing behind its arguments.
CALLER = r"""
#include <cerrno>
#include <cstdlib>
#include <unistd.h>
int main(int, char **words)
{
    return syscall(atol(words[1]), 0L, 0L, 0L, 0L, 0L, 0L) == -1 && errno == EPERM ? 8 : 7;
}
"""


def test_a_forbidden_call_ends_the_program_that_makes_it(home: Lab, compiler: list[str],
                                                         tmp_path: pathlib.Path) -> None:
    """Under the daemon's filter, with all capabilities."""
    words = compiler or ["g++"]
    (tmp_path / "caller.cpp").write_text(CALLER)
    common.run(*words, "-static", "-o", tmp_path / "caller", tmp_path / "caller.cpp")
    home.put("router", "/run/caller", (tmp_path / "caller").read_bytes(), 0o755)
    known = kernel_calls.numbers(words)
    refused = {name: known[name] for name in kernel_calls.FORBIDDEN if name in known}
    harmless = {name: known[name] for name in ("getpid", "socket", "uname")}
    failing = {name: known[name] for name in kernel_calls.REFUSED}
    wanted = [*refused.values(), *harmless.values(), *failing.values()]
    said = home.shell("router", f"for number in {' '.join(map(str, wanted))}; do /sbin/ujail --seccomp {CALLS_ALLOWED} "
                                "--no-new-privs -- /run/caller $number; echo $number $?; done", check=True, timeout=120)
    status = {int(number): int(how) for number, how in map(str.split, said.out.splitlines())}
    ended = 128 + (12 if compiler else 31)      # SIGSYS, which has another number on MIPS
    assert {name: status[number] for name, number in refused.items()} == dict.fromkeys(refused, ended)
    assert {name: status[number] for name, number in failing.items()} == dict.fromkeys(failing, 8)
    assert {name: status[number] for name, number in harmless.items()} == dict.fromkeys(harmless, 7)
    assert len(refused) > 40


# --- signals -----------------------------------------------------------------------------------------------

def test_signals_that_mean_nothing_to_it_end_it(home: Lab) -> None:
    """Neither caught nor ignored; the two that mean something, and the end of a child, are caught."""
    about = facts(home, daemon(home))
    caught, ignored = int(about["SigCgt"], 16), int(about["SigIgn"], 16)

    def bit(name: str) -> int:
        return 1 << int(home.ok("router", "busybox", "kill", "-l", name)) - 1

    assert all(caught & bit(name) for name in ("TERM", "INT", "CHLD"))
    assert not any((caught | ignored) & bit(name) for name in ("HUP", "USR1", "USR2", "ALRM"))


# --- other bus libraries -----------------------------------------------------------------------------------

def test_runs_with_other_builds_of_the_bus_libraries(bare: Lab, usual: dict[str, Any], compiler: list[str],
                                                     tmp_path: pathlib.Path) -> None:
    names = other_libraries.build(tmp_path, compiler)
    bare.ok("router", "mkdir", "-p", "/opt")
    for name in names:
        bare.put("router", "/opt/" + name, (tmp_path / name).read_bytes(), 0o755)
    # they look for the broker where older images have it
    bare.ok("router", "ln", "-s", "ubus/ubus.sock", bus_headers.OLD_SOCKET)
    with bare.spawn("router", "env", "LD_PRELOAD=" + SHIM, "LD_LIBRARY_PATH=/opt", "/usr/sbin/ivarode") as running:
        bare.said(READY, 90)
        maps = bare.ok("router", "cat", f"/proc/{daemon(bare)}/maps")
        loaded = set(re.findall(r"/\S+/lib(?:ubox|ubus|uci)\.so", maps))
        assert loaded == {"/opt/libubox.so", "/opt/libubus.so", "/opt/libuci.so"}
        assert bare.run("router", "ubus", "-S", "call", "ivarode.run", "run").status == 0
        assert comparable(state.settled(bare)) == usual
        running.kill(15)


# --- the init script ---------------------------------------------------------------------------------------

def test_init_script_starts_guards_and_removes_it(bare: Lab, usual: dict[str, Any]) -> None:
    bare.ok("router", "/etc/init.d/ivarode", "start")
    bare.said(READY, 90)
    assert comparable(state.settled(bare)) == usual
    first = daemon(bare)
    bare.ok("router", "/etc/init.d/ivarode", "reload")
    assert daemon(bare) == first
    bare.ok("router", "kill", "-9", str(first))
    # the supervisor waits five seconds, and the start takes five
    bare.shell("router", f"for i in $(seq 600); do test $(grep -c '{READY}' /var/log/messages) = 2 && exit; sleep 0.1; "
                         "done; exit 1",
               check=True, timeout=90)
    assert daemon(bare) != first
    assert comparable(state.settled(bare)) == usual
    bare.ok("router", "/etc/init.d/ivarode", "stop", timeout=60)
    assert not bare.run("router", "pidof", "ivarode")
    assert set(state.devices(bare)) == {"lo", "eth0"}
    assert state.rules(bare) == ["0: from all lookup local", "32766: from all lookup main",
                                 "32767: from all lookup default"]
    for table, chains in state.firewall(bare).items():
        assert not any(chains.values()) and set(chains) <= {"PREROUTING", "INPUT", "FORWARD", "OUTPUT",
                                                            "POSTROUTING"}, table


def test_the_daemon_alone_is_confined(machine: Machine) -> None:
    """Its clients are the supervisor's, and have what the supervisor has."""
    machine.spoiled()
    lab = machine.lab
    lab.raise_board("two-wan", "dhcp-and-pppoe", ["no-daemon"])
    try:
        lab.ok("router", "/etc/init.d/ivarode", "start")
        lab.said(READY, 90)
        services = json.loads(lab.ok("router", "ubus", "-S", "call", "service", "list"))
        seen = {service: facts(lab, instance["pid"])
                for service, about in services.items() for instance in about["instances"].values()}
        assert set(seen) == {"ivarode", "dhcp", "pppoe"}
        own, all_of_it = mask(numbers().values()), facts(lab, 1)["CapBnd"]
        assert own != all_of_it
        for service, about in seen.items():
            wanted = (own, own, "1", "2") if service == "ivarode" else (all_of_it, all_of_it, "0", "0")
            assert (about["CapEff"], about["CapBnd"], about["NoNewPrivs"], about["Seccomp"]) == wanted, service
        environment = lab.ok("router", "cat", f"/proc/{daemon(lab)}/environ").rstrip("\0").split("\0")
        # the last one is the board's: its emulated hardware
        assert environment == ["container=ujail", "PWD=/", "LD_PRELOAD=" + SHIM]
        assert "runs with all privileges" not in lab.ok("router", "cat", "/var/log/messages")
    finally:
        machine.spoiled()


# --- who may call what -------------------------------------------------------------------------------------

def test_unprivileged_user_may_look_and_not_touch(machine: Machine) -> None:
    lab = machine.board("one-cpu", "home")

    def call(*words: str) -> Any:
        return lab.run("router", "busybox", "su", "-s", "/bin/sh", "-c", "ubus -S call " + " ".join(words),
                       "daemon").status

    assert call("ivarode.run", "run") == 0
    assert call("ivarode.intf", "statist") == 0
    assert call("ivarode.intf", "port_del", "'{\"name\":\"lan2\"}'") != 0
    assert call("ivarode.pppuser", "del", "'{\"username\":\"u\",\"provider\":\"*\"}'") != 0
