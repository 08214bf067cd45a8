"""The examples of the books, run on the virtual board from top to bottom as a reader would."""

import os
import pathlib
import re
import shlex
import subprocess
import time

import pytest

import books
import sandbox

LAB = sandbox.ROOT / "lab/lab"
NAME = "examples"
PATIENCE = 20.0     # seconds for what the kernel or a client does a moment later
PAUSE = 0.3


def examples(book):
    """[(line, command, expected lines)] of a book's console blocks."""
    found, inside = [], False
    for number, line in enumerate(books.text(book).splitlines(), 1):
        if line.startswith("```"):
            inside = line == "```console"
        elif inside and line.startswith("$ "):
            found.append((number, line[2:], []))
        elif inside:
            found[-1][2].append(line)
    return found


def matcher(expected):
    """"..." stands for any number of lines; blanks at the end of a line do not count."""
    text = "".join("(?:.*\n)*?" if line == "..." else re.escape(line.rstrip()) + "\n" for line in expected)
    return re.compile(text + r"\Z")


def run(command):
    words = shlex.split(command)
    assert words[0] == "lab/lab", command
    done = subprocess.run([str(LAB), "--name", NAME, *words[1:]], capture_output=True, text=True, timeout=120)
    shown = "".join(line.rstrip() + "\n" for line in done.stdout.splitlines())
    return done.returncode, shown, done.stderr


@pytest.fixture(scope="module")
def lab():
    build = pathlib.Path(os.environ.get("IVARODE_BUILD", sandbox.ROOT / "build"))
    if os.geteuid() != 0 or not (build / "bin/lab-agent").exists():
        pytest.skip("needs root and a build of the lab")
    status, out, err = run("lab/lab up --board one-cpu --config one-lan")
    try:
        assert status == 0, out + err
        yield
    finally:
        run("lab/lab down")


def test_the_comparison_can_fail():
    assert matcher(["a", "...", "d"]).match("a\nb\nc\nd\n")
    assert matcher(["a", "..."]).match("a\n")
    assert not matcher(["a", "...", "d"]).match("a\nb\nd\ne\n")
    assert not matcher([]).match("a\n")


def test_the_bus_book(lab):
    for line, command, expected in examples("bus.md"):
        wanted = matcher(expected)
        deadline = time.monotonic() + PATIENCE
        while True:
            status, out, err = run(command)
            if status == 0 and wanted.match(out):
                break
            # A request is made once; what it leads to may be looked at until it shows.
            once = " ubus call " in command and not re.search(r" (statist|status)\b", command)
            if once or time.monotonic() > deadline:
                pytest.fail("docs/bus.md:%d: %s\nstatus %d\n%s%s\nexpected\n%s" % (line, command, status, out, err, "\n".join(expected)))
            time.sleep(PAUSE)


STATE = ("ip -br -4 addr; ip -4 rule; ip -4 route show table all | grep -v 'table local'; "
         "for t in filter nat mangle; do iptables -w -t $t -S; done")


def state():
    status, out, err = run("lab/lab exec router sh -c " + shlex.quote(STATE))
    assert status == 0, err
    lines = re.sub(r"@\S+|fe80\S*", "", out).splitlines()
    rules = [line for line in lines if line.startswith("-")]        # whose order counts
    return sorted(line for line in lines if line not in rules) + rules


def until(check):
    deadline = time.monotonic() + PATIENCE * 3
    while not check():
        assert time.monotonic() < deadline
        time.sleep(PAUSE)


def test_clean_up_leaves_a_bare_router_and_a_start_lays_the_same_again(lab):
    assert run("lab/lab restart daemon")[0] == 0
    until(lambda: run("lab/lab ubus call ivarode.run run")[0] == 0 and any("20001:" in line for line in state()))
    before = state()
    assert run("lab/lab stop daemon")[0] == 0
    status, out, err = run("lab/lab exec router /lib/ivarode/cleanup.sh")
    assert (status, out, err) == (0, "", "")
    left = run("lab/lab exec router sh -c " + shlex.quote("ip -br link show type bridge; ip -br link show type vlan"))[1]
    bare = [line for line in state() if not line.startswith("-P ")]
    assert left == "" and [line for line in bare if re.search(r"lan|wan|\b(10000|10001|20001)\b|^-[NA]", line)] == []
    assert run("lab/lab start daemon")[0] == 0
    until(lambda: run("lab/lab ubus call ivarode.run run")[0] == 0 and state() == before)
