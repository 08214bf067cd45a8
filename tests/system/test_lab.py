"""The virtual board's own promises: commands in hosts, many at once, and hosts that do not meet."""

from __future__ import annotations

import threading
import time

import pytest

from labctl import client
from tests.system.held_lab import Lab


def test_status_output_and_input(home: Lab) -> None:
    result = home.run("pc1", "sh", "-c", "cat; echo aside >&2; exit 7", stdin="given\n")
    assert (result.status, result.out, result.err) == (7, "given\n", "aside\n")
    assert home.run("pc1", "no-such-program").status == 127
    assert home.run("pc1", "sh", "-c", "kill -9 $$").status == 137


def test_words_arrive_as_they_are(home: Lab) -> None:
    words = ["a b", "", "'\"$HOME`\\", "ä\n*"]
    assert home.ok("pc1", "printf", "%s|", *words) == "".join(word + "|" for word in words)


def test_time_limit_kills_all_of_a_command(home: Lab) -> None:
    began = time.monotonic()
    assert home.run("pc1", "sh", "-c", "sleep 77 & sleep 77", timeout=1).status == 124
    assert time.monotonic() - began < 15 * home.pace
    assert "sleep 77" not in home.ok("router", "busybox", "ps")


def test_a_client_that_goes_takes_its_command_along(home: Lab) -> None:
    command = home.spawn("pc1", "sh", "-c", "echo there; exec sleep 78")
    assert command.read_until("there", 10)
    command.close()
    home.shell("router", "while busybox ps | grep -q '[s]leep 78'; do sleep 0.1; done", check=True, timeout=20)


def test_much_output_by_many_at_once(home: Lab) -> None:
    results = {}

    def fetch(number: int) -> None:
        results[number] = home.run("pc1", "sh", "-c", f"yes {number} | head -c 1500000", timeout=60).raw

    threads = [threading.Thread(target=fetch, args=(number,)) for number in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    for number in range(4):
        assert results[number] == (b"%d\n" % number * 750000)


def test_files_go_in_and_out(home: Lab) -> None:
    data = bytes(range(256)) * 3000
    home.put("pc2", "/tmp/blob", data, 0o640)
    assert home.get("pc2", "/tmp/blob") == data
    assert home.ok("pc2", "stat", "-c", "%a", "/tmp/blob") == "640\n"


def test_hosts_do_not_share_their_folders_or_networks(home: Lab) -> None:
    home.put("pc1", "/tmp/mine", b"1")
    for other in ("pc2", "router", "isp"):
        assert not home.run(other, "test", "-e", "/tmp/mine")
    assert home.ok("pc3", "hostname") == "pc3\n"
    assert home.ok("pc1", "ls", "/sys/class/net").split() == ["eth0", "lo"]
    assert "203.0.113" not in home.ok("pc1", "ip", "addr")


def test_an_unknown_host_or_silence_is_told(home: Lab) -> None:
    with pytest.raises(client.LabError, match="no host is named pc9"):
        home.run("pc9", "true")
    with pytest.raises(client.LabError, match="was not logged, .* have passed"):
        home.said("what nobody says", 0.2)


def test_the_switch_is_the_same_by_its_control_and_by_the_routers_own_tool(home: Lab) -> None:
    shown = home.ok("router", "ivarodectl", "switch")
    pvids = {int(line.split()[0]): line.split()[-1] for line in shown.splitlines() if line.strip()[:1].isdigit()
             and "Mbit" in line}
    for port in home.switch("status")["ports"]:
        if not port["cpu"]:
            assert pvids[port["port"]] == str(port["pvid"])
