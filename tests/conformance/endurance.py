"""Thousands of events and of requests that come and go: memory, lists and the world must be as before."""
from pathlib import Path

from tests.conformance import notation
from tests.conformance.notation import Line
from tests.conformance.recording import Board, run_process, temporary_folder
from tests.conformance.scenario import load_fixtures

SETUP = ("two-wan-board", "three-lans-two-wans")
WARM_UP = 100
# What the daemon and the recorder may differ by in bytes: buffers that were grown once.
SLACK = 4096

LINK: list[Line] = [("link", str(port), state) for state in ("1", "0") for port in range(5)]


def call(target: str, message: str) -> list[Line]:
    object_name, method = target.split()
    return [("call", object_name, method), *notation.fields(message), (".",)]


CYCLES: dict[str, tuple[int, list[Line]]] = {
    "ten link events": (10000 // len(LINK), LINK),
    "statistics samples and replies": (10000, [("timer",), *call("ivarode.intf statist", "")]),
    "ports made and given back": (10000, [
        *call("ivarode.intf port_del", '{name: "lan3"}'), *call("ivarode.intf port_add", '{name: "lan3"}')]),
    "VLAN interfaces added and deleted": (10000, [
        *call("ivarode.intf add", '{intf: "lan2.9", ipaddr: "10.0.0.1", netmask: "255.0.0.0", vlanid1: 9, vlanid2: 8}'),
        *call("ivarode.intf del", '{intf: ["lan2.9"]}')]),
    "WANs changed to and fro": (10000, [
        *call("ivarode.intf config", '{intf: "wan1", old_intf: "wan1", proto: "dhcp", defrt_pri: "20001"}'),
        *call("ivarode.intf config", '{intf: "wan1", old_intf: "wan1", proto: "pppoe", defrt_pri: "20001", '
                                     'username: "u", password: "p"}')]),
    "routes added and deleted": (10000, [
        *call("ivarode.route add", '{name: "r", line: "auto", dstaddr: "10.9.0.0", netmask: "255.255.0.0", '
                                   'gateway: "10.0.0.9", metric: "3"}'),
        *call("ivarode.route del", '{name: ["r"]}')]),
    "logins and logouts": (10000, [
        *call("ivarode.pppauth notify", '{type: "t", username: "u", action: "up", ipaddr: "i"}'),
        *call("ivarode.pppauth notify", '{type: "t", username: "u", action: "down", ipaddr: "i"}')]),
}


def endure(board: Board, name: str) -> tuple[int, list[str]]:
    """(cycles, complaints) of one kind of cycle."""
    cycles, steps = CYCLES[name]
    fixtures = load_fixtures(Path(__file__).resolve().parent / "fixtures.txt")
    lines = [line for part in SETUP for line in fixtures[part].setup + fixtures[part].first] + [("loop",)]
    dumps = [call("ivarode.intf port_dump", f"{{port: {port}}}") for port in range(5)]
    for moment, count in (("before", WARM_UP), ("after", cycles)):
        # The allocator counts what it keeps for reuse as held: a first look at the model fills its caches.
        lines += [("quiet",), *(steps * count), ("model", ""), ("quiet", "off")]
        lines += [("step", moment), ("memory",), ("model", "")]
        lines += [line for dump in dumps for line in dump]
    lines += [("step", "shown"), *steps]
    with temporary_folder() as folder:
        run = run_process(board, [*lines, ("step", "end")], folder, timeout=600)
    if run.exit != "0" or "after" not in run.parts:
        return cycles, [f"ended with {run.exit} {run.output}"]
    before, after = run.parts["before"], run.parts["after"]
    complaints = []
    grown = int(after[0].split()[1]) - int(before[0].split()[1])
    if grown > SLACK:
        complaints.append(f"memory grew by {grown} bytes")
    # Process ids of restarted clients count on.
    changed = [line for line in without_pids(after) if line not in without_pids(before)]
    if changed:
        complaints.append(f"changed: {changed}")
    refused = [line for line in run.parts["shown"] if line.startswith(("status ", "returned ")) and line[-2:] != " 0"]
    if refused:
        complaints.append(f"not what was to be repeated: {refused}")
    leaks = [line for line in run.parts["end"] if line.startswith("leak")]
    return cycles, complaints + leaks


def without_pids(lines: list[str]) -> list[str]:
    return [line for line in lines[1:] if not line.startswith("pid ")]
