"""Event scripts whose every variable and word may hold anything: nothing of it is run, and nothing else is written."""

import re
from pathlib import Path

import pytest

from tests.docs import sandbox
from tests.hostile import world

pytestmark = pytest.mark.skipif(sandbox.missing() is not None, reason=str(sandbox.missing()))

TEXTS = ["$(touch /root/hit)", "`touch /root/hit`", ";touch /root/hit", "a b", "*", "/etc/*", "a\nwan1 bound: bound",
         "@LONG@", "'", '"', "\\", "-n", "--help", "../../../etc/hit", "/etc/passwd", "%s%n", "\x1b[2J", "\xff"]
# A word of the script is not as long as what a variable may hold.
LONG = "long=$(printf '%10000s' | tr ' ' x)\n"
VARIABLES = ["interface", "ip", "mask", "subnet", "router", "dns", "broadcast", "lease", "message",
             "IVARODE_WAN_NUMBER"]

# Every file that there is, but for what is meant to change.
SEAL = """
seal() {
    find / -xdev -path /proc -prune -o -path /sys -prune -o -type f ! -path '/run/ivarode/*' ! -path /etc/resolv.conf \\
        ! -path /root/calls ! -path /root/kept ! -path /root/errors ! -path /root/sealed -exec cksum {} + | sort
}
: >/root/errors
seal >/root/sealed
"""
CHECK = """
seal | diff /root/sealed -
show end
find /run/ivarode -type f | sort | tr '\\n' ' '
echo; cat /root/kept
"""
LINES = re.compile(r"logger -t ivarode-wan -p daemon\.(info|err) [ -~]{1,500}")
KEPT = "cat /root/calls >>/root/kept\n"


def survive(events: list[str], tmp_path: Path) -> tuple[world.Facts, set[str]]:
    """What is left after the events, and the files below /run/ivarode; each line of the log is one of ours."""
    script = "".join(events).replace("@LONG@", '"$long"')
    out = world.run(": >/root/kept\n" + LONG + SEAL + script + KEPT + CHECK, tmp_path)
    shown, _, rest = out.partition("== end\n")
    assert shown == "", "a file was changed or made"
    lines = rest.splitlines()
    facts = {line.partition(" ")[0]: line.partition(" ")[2].strip() for line in lines[:6]}
    for line in lines[7:]:
        assert LINES.fullmatch(line) or line.startswith("ubus -t 5 call "), line
    return facts, set(lines[6].split())


OWN_FILES = re.compile(r"/run/ivarode/(wan/(wan1|\.lock)|lease/wan1|"
                       r"dns/(\.lock|[0-9]+\.(dhcp|pppoe)\.[A-Za-z0-9._-]+))")


def event_alone(event: str, values: world.Facts) -> str:
    return f"{world.environment(values)} /lib/ivarode/empty.sh {event} 2>>/root/errors || :\n"


@pytest.mark.parametrize("event", ["bound", "deconfig", "nak"])
def test_no_text_of_a_lease_is_more_than_a_text(tmp_path: Path, event: str) -> None:
    events = [world.lease(event, **{variable: text}) for variable in VARIABLES for text in TEXTS]
    facts, files = survive(events, tmp_path)
    assert facts["lans"] == world.LANS
    assert all(OWN_FILES.fullmatch(name) for name in files), files


def test_no_name_of_an_event_is_more_than_a_name(tmp_path: Path) -> None:
    facts, files = survive([world.lease(text) for text in TEXTS], tmp_path)
    assert facts["wan"] == "" and facts["row"] == world.EMPTY_ROW and files == {"/run/ivarode/wan/wan1"}


def test_any_variable_may_be_missing(tmp_path: Path) -> None:
    events = [event_alone(event, {}) for event in ("bound", "renew", "deconfig", "nak")]
    for missing in world.GOOD:
        present = {name: value for name, value in world.GOOD.items() if name != missing}
        events += [event_alone(event, present) for event in ("bound", "deconfig")]
    facts, files = survive(events, tmp_path)
    assert facts["wan"] == facts["default"] == "" and facts["lans"] == world.LANS
    assert all(OWN_FILES.fullmatch(name) for name in files), files


PEER = {"DNS1": "198.51.100.9", "DNS2": "198.51.100.8", "PEERNAME": "alice", "MACREMOTE": "02:00:00:00:00:09"}
WORDS = {"local": "100.64.0.7", "remote": "100.64.0.1", "param": "pptp,192.0.2.1", "device": "wan1"}


@pytest.mark.parametrize("script", ["up", "down"])
@pytest.mark.parametrize("param", ["pptp,192.0.2.1", "pppoec,20001"])
def test_no_text_of_a_link_is_more_than_a_text(tmp_path: Path, script: str, param: str) -> None:
    words = WORDS | {"param": param}
    events = ["row pppoe\n"]
    events += [world.link(script, **(words | {name: text}), **PEER) for name in WORDS for text in TEXTS]
    events += [world.link(script, **words, **(PEER | {name: text})) for name in PEER for text in TEXTS]
    events += [world.link(script, **words), f"{world.environment({})} /etc/ppp/ip-{script} 2>>/root/errors || :\n"]
    facts, files = survive(events, tmp_path)
    assert facts["lans"] == world.LANS
    assert all(OWN_FILES.fullmatch(name) for name in files), files


def test_the_clients_wrapper_hands_words_on_as_they_are(tmp_path: Path) -> None:
    given = [f"-x{text}" for text in TEXTS]
    out = sandbox.run(f"""
printf '#!/bin/sh\\nprintf "%%s|" "$@"\\n' >/stub/busybox
chmod 755 /stub/busybox
/sbin/udhcpc {sandbox.quoted(given)} -m 20001
ls -A /root
""", tmp_path)
    assert out == "|".join(["udhcpc", *given, "-R", "calls\n"])
