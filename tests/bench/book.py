"""docs/performance.md and its plots, from the figures of a run."""

import textwrap
from collections.abc import Mapping, Sequence
from pathlib import Path
from typing import Any

from tests.bench import report
from tests.bench.row import Routes, Row

TEXT = """# What it costs

Written by `tests/bench/run`; the figures are of one machine on one day:
{machine}.

No test asserts a time. Each figure stands beside its limit or a peer, measured in turns in the same run (medians; the
ratio is the median of the ratios of neighbours), so that another machine may give other times and much the same
ratios. "host" is this machine's kernel, "small machine" the lab's (see [lab](lab.md)), whose processor is emulated where
this one cannot be lent: there only ratios mean something, and what takes longest suffers most when the machine has
other work, too. The daemon, the platform library and the broker are those that
ship; bus measurements have client, broker and daemon on one processor, as on the router.

{table}

![Ratios beside their aims](performance-ratios.svg)

## What the questions mean

| question | ours | limit | command |
|---|---|---|---|
| bus call | a call to the daemon over the broker | the same call to an object that does nothing, or, for `statist`, to one that has the same answer ready | `tests/bench/run --only board` |
| interface | `add` of a LAN interface on a VLAN: VLAN device, MAC, bridge, address, with the bus call and the switch | the nine kernel operations themselves, sent one by one without a question; one `ip -batch` | `--only vlans` |
| routes over the bus | a call and what it does | an empty call and the same change sent to the kernel in a separate table, which grows alike | `--only board` |
| routes at the start | reading 10,000 sections and installing them, in the daemon's own code | `ip -batch` with as many lines, which reads no configuration; raw netlink | `--only host` |
| firewall skeleton | the whole skeleton, in a fresh network | `iptables-restore` of the rules that it leaves | `--only host` |
| start | from exec to `ivarode init success`, less the five seconds in which the daemon waits for links | the same devices, addresses, routes, rules and chains by one `ip -batch` and one `iptables-restore` | `--only vlans` |
| statistics sample | the daemon's timer, with as many interfaces | opening, reading and closing `/proc/net/dev` with a large buffer | `--only host` |
| recorded | a question to a daemon with the [recording](field.md) in front, on a separate board | the same question to one without, on a board beside it | `--only board` |
| broker | a call to an object that does nothing | a ball of 64 bytes thrown over a pair of sockets and back | `--only board` |
| `vswitch` | 64-byte frames from a PC to another on the virtual board | a kernel bridge between two pairs of veths | `--only board` |

Sizes, libraries and relocations are those of a Release build, `strip`, `readelf -d` and `readelf -r`. System calls and
processes are counted with `strace`.

## Routes: where a walk matters

![Calls to ivarode.route beside their limit](performance-routes.svg)

{walk}

![Routes loaded from the configuration](performance-load.svg)

{load}

These are figures of the stand-in for libuci. With the real one of 2026 the same bench gave 3.2 times `ip -batch` for 10,000
routes (496 ms, on another machine), nearly all of it in the library's own parser: it looks for each named section among all
those before it. The stand-in does the same when it is built without its index of names, and then takes 0.6 of `ip -batch`
for 1000 routes, 0.8 for 2000, 1.3 for 3000 and 3.3 to 3.7 for 10,000: on a router it matters from some 2000 named sections
on. Nothing in the daemon or the platform library adds to it: the file is read once, and its sections are gone through once.
`tests/bench/run --libs DIR` asks all of these questions on other libraries, and says which it has taken.

## Statistics

![A statistics sample beside reading the file](performance-samples.svg)

Each device of the table is looked up by its name among the interfaces of its port. Per sample:

{calls}

## Processes of the firewall skeleton

A question costs no process: each table is listed once and the view kept in step with the daemon's own changes. Nor
does a change: one `iptables-restore` takes all of them from a stream, commits each by itself and says so, so that each
platform call still answers for its own success. Where the command `iptables` is not the program that goes by both
names, a change costs a process.

## What a restart costs

The daemon killed and started again below traffic, so that it lays everything once more:
`python3 -m pytest tests/system -k "traffic_goes_on or outlives" -s`; `--restarts 10`, as in `./test --long`, does so ten times.

| | lost in the router | policy rules and rules of the firewall | clients and connections |
|---|---|---|---|
| a LAN to a static WAN | 0 | never away | TCP goes on, NAT included |
| a LAN to a WAN by DHCP | 0 | never away | same process, same lease, no new search; TCP goes on |
| a LAN to a WAN by PPPoE | 0 | never away | same process, same session; TCP goes on |
| a LAN to another LAN, to the router | 0 | – | – |

Packets were 5 ms apart, on the emulated processor, and each is a new connection to the firewall. Lost in
the router is what it has received (`mangle PREROUTING`) and has neither forwarded nor answered (`POSTROUTING`); the kernel's
own announcements of rules, addresses and devices show that nothing is touched, and on the WAN's cable nothing bears an
address of a LAN.

What is lost before the router, is lost in the switch: the start empties the VLAN table and fills it in the order that it
always has. A LAN over several ports is apart for 76 to 114 accesses of registers, each port once or twice, and without the
router for 120; a port of another LAN or WAN until its section has been read. That is below 10 ms where an access takes less
than 80 µs; on an emulated processor with two streams it was 40 to 75 ms, and several hundred with five beside other work. A static WAN used to be dark for the start's whole pause: 5.2 s.

## What is missed

{missed}

Where time goes beyond the limits, met or missed: a route is looked for by walking the list; a platform call that changes
a device asks for it first; the emulated switch takes two system calls for each frame.

## Files

{files}

The daemon does not need libstdc++ or libgcc_s at run time, and neither does the platform library. SQLite is loaded when the
first PPP record is written and costs nothing before.

## Instructions

`tests/bench/check` counts the instructions of fixed scenarios and compares them with `tests/bench/instructions.txt`; more
than 5 % above the table fails. These counts do not depend on the machine's speed or load.
"""


def walk(routes: Routes) -> str:
    """What finding a route costs, in words."""
    find = routes["find"]
    sizes = sorted(find)
    short, long = sizes[0], sizes[-1]
    entry = (find[long][0] - find[short][0]) / ((long - short) / 2)      # on average half the list is walked
    limit = find[short][1]
    a_fifth, twice = (round(factor * limit / entry, -2) for factor in (0.4, 2))
    return (f"A route is found by walking a list from its head: {entry * 1e3:.1f} ns for each route before it, half of "
            f"the list on average. An empty call and one route in the kernel take {limit:.1f} µs, so the walk makes a "
            f"call a fifth longer from about {a_fifth:.0f} routes on, and twice as long from about {twice:.0f}; to touch "
            "each of n routes once costs time that grows with n². Adding walks nothing. A removal asks the kernel's "
            "index for its route; only where another route hides it is the table listed.")


def load(times: Mapping[int, Sequence[float]]) -> str:
    """What reading many sections costs, in words."""
    slower = [count for count, (ours, batch, _) in sorted(times.items()) if ours > batch]
    if not slower:
        return "Loading is faster than `ip -batch` at each of these sizes."
    text = f"Loading is slower than `ip -batch` from somewhere below {slower[0]} routes on."
    long, longer = sorted(times)[-2:]
    if times[longer][0] / times[long][0] > 1.5 * longer / long:
        text += (" It grows faster than the number of routes: the configuration library compares the name of each "
                 "section with all before it.")
    return text


def filled(text: str) -> str:
    return textwrap.fill(text, 118, break_on_hyphens=False)


def write(folder: Path, rows: Sequence[Row], measured: Mapping[str, Any], machine: str) -> None:
    """Of what was measured: "routes", "load" and "samples"."""
    routes, loads, samples = measured["routes"], measured["load"], measured["samples"]
    names = {"add": "add", "find": "enable (found, installed)", "edit": "edit", "del": "del"}
    lines = {names[operation]: {size: times[0] for size, times in sizes.items()}
             for operation, sizes in routes.items()}
    lines["limit: empty call, netlink"] = {size: times[1] for size, times in routes["find"].items()}
    plots = {
        "routes": report.curves("One call to ivarode.route", "routes in the table", "µs", lines),
        "load": report.curves("Routes from the configuration", "routes", "ms", {
            name: {count: times[column] / 1e3 for count, times in loads.items()}
            for column, name in enumerate(("ours", "limit: ip -batch", "limit: raw netlink"))}),
        "samples": report.curves("One statistics sample", "interfaces", "µs", {
            name: {count: times[column] for count, times in samples.items()}
            for column, name in enumerate(("ours", "limit: reading the file"))}),
        "ratios": report.ratios(rows),
    }
    for name, plot in plots.items():
        (folder / f"performance-{name}.svg").write_text(plot, encoding="utf-8")
    notes = [note for row in rows for note in row.notes]
    missed = [f"- {row.question}: {row.ours if row.aim.startswith('≥') else row.ratio}, aim {row.aim}"
              for row in rows if row.held == "no"]
    (folder / "performance.md").write_text(TEXT.format(
        machine=filled(machine), table=report.as_markdown(rows), walk=filled(walk(routes)),
        load=filled(load(loads)),
        calls="\n".join("- " + note.removesuffix(" a sample") for note in notes if "system calls" in note),
        missed="\n".join(missed) or "Nothing.",
        files="\n".join("- `" + note.replace(", ", "`, ", 1) for note in notes if "stripped" in note)),
        encoding="utf-8")
