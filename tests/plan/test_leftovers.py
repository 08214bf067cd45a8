"""What --leftovers lists is what has to go: for random configurations, one behind another, a start over the first
without its leftovers ends as a clean start of the second, also where reload or start were cut short and done once more.

--long does a thousand. On a real kernel the same is done on the virtual board (tests/system/test_reload.py).
"""

from __future__ import annotations

import itertools
import pathlib
import random
import re
from collections.abc import Iterator

import pytest

from tests.plan import pairs, planning

# Of a router that runs: what is asked of it over the bus.
REQUESTS = (
    planning.call("port_add", name="lan2"), planning.call("port_add", name="wan1"),
    planning.call("add", intf="lan1_bus", vlanid1=555, ipaddr="10.5.0.1", netmask="255.255.255.0"),
    planning.call("add", intf="wan1_bus", vlanid1=556, vlanid2=7, proto="dhcp", defrt_pri="20009"),
    planning.call("add", intf="wan1_fix", vlanid1=557, proto="static", defrt_pri="20003", ipaddr="10.6.0.2",
                  netmask="255.255.255.0", gateway="10.6.0.1"),
    ("--call", 'ivarode.route add {"name":"n","line":"lan1","dstaddr":"10.7.0.0","metric":"3","netmask":"255.255.0.0",'
               '"gateway":"192.168.1.9"}'),
    ("--link", "0=up"), ("--link", "1=up"), ("--link", "2=up"), ("--link", "2=down"), ("--link", "3=up"),
)


class Router:
    """In facts, with the file that the program reads them from."""

    def __init__(self, folder: pathlib.Path, board: pathlib.Path, facts: pairs.Facts) -> None:
        self.file, self.board, self.facts = folder / "router", board, facts

    def plan(self, *words: object) -> planning.Plan:
        return planning.plan("--board", self.board, "--from", self.written(), *words)

    def written(self) -> pathlib.Path:
        self.file.write_text(pairs.text(self.facts))
        return self.file

    def leftovers(self, config: pathlib.Path) -> list[tuple[str, str, list[str]]]:
        done = planning.run("--board", self.board, "--config", config, "--from", self.written(), "--leftovers")
        assert done.stderr == "" and done.returncode in (0, 4)
        assert done.returncode == 4 or not done.stdout
        lines = [line.split() for line in done.stdout.splitlines()]
        return [(why, kind, words) for why, kind, *words in lines]

    def reload(self, config: pathlib.Path, removals: int | None = None, operations: int | None = None) -> planning.Plan:
        """Of the removals the first so many, of what the start changes likewise; the plan of the start."""
        for _, kind, words in self.leftovers(config)[:removals]:
            pairs.remove(self.facts, kind, words)
        told = self.plan("--config", config)
        for one in told["phases"][0]["operations"][:operations]:
            for change in one["changes"]:
                pairs.state(self.facts, change)
        return told


def samples(tmp_path: pathlib.Path) -> Iterator[tuple[int, pathlib.Path, pathlib.Path, pathlib.Path]]:
    """Seed, board, and two configurations that the daemon starts with there."""
    for seed in itertools.count(1):
        first = pairs.written(tmp_path / f"{seed}a", seed)
        second = pairs.written(tmp_path / f"{seed}b", seed + 1_000_000)
        board = first / "board.json"
        if all(planning.run("--board", board, "--config", one, "--quiet").returncode != 1 for one in (first, second)):
            yield seed, board, first, second


def clean(board: pathlib.Path, config: pathlib.Path) -> planning.Plan:
    told = planning.plan("--board", board, "--config", config)
    assert told["ending"] == ""
    return told


def test_a_start_without_leftovers_ends_as_a_clean_one(tmp_path: pathlib.Path, pytestconfig: pytest.Config) -> None:
    count = 1000 if pytestconfig.getoption("long") else 40
    kinds: set[tuple[str, str]] = set()
    for seed, board, first, second in itertools.islice(samples(tmp_path), count):
        dice = random.Random(seed)
        steps = [word for step in dice.sample(REQUESTS, dice.randint(0, 6)) for word in step]
        before = planning.plan("--board", board, "--config", first, *steps)
        router = Router(tmp_path, board, pairs.facts_of(before))
        listed = router.leftovers(second)
        kinds |= {(why, kind) for why, kind, _ in listed}
        if dice.random() < 0.5:     # cut short, and done once more
            some = dice.randint(0, len(listed))
            router.reload(second, some, 0 if some < len(listed) else dice.randint(0, 60))
        over = router.reload(second)
        assert over["ending"] == "", (seed, over["ending"])
        assert pairs.comparable(over) == pairs.comparable(clean(board, second)), f"seed {seed}, {steps}"
    # Runs in which nothing has to go would prove little.
    assert kinds >= {("added", kind) for kind in ("client", "route", "default", "rule", "address", "device", "row")}
    assert "changed" in {why for why, _ in kinds}


def as_the_supervisor_lists(facts: pairs.Facts, config: pathlib.Path) -> pairs.Facts:
    """Clients with their passwords, and without the quotes of the command lines."""
    secrets = dict(re.findall(r"interface '(\w+)'(?:\n[^\n]+)*?\n\s*option password '([^']*)'",
                              (config / "wan_intf").read_text()))
    return {key: value.replace("(password)", secrets.get(key.split()[-1], "")).replace("'", "")
            if key.startswith("process ") else value for key, value in facts.items()}


def test_a_clean_start_leaves_nothing(tmp_path: pathlib.Path) -> None:
    """Every sample: over its own end nothing has to go, nor is anything else."""
    for board, config in planning.SAMPLES:
        told = planning.plan("--board", board, "--config", config)
        if told["ending"]:
            continue
        router = Router(tmp_path, board, as_the_supervisor_lists(pairs.facts_of(told), config))
        done = planning.run("--board", board, "--config", config, "--from", router.written(), "--leftovers")
        assert (done.stdout, done.stderr) == ("", ""), (board, config)


def test_a_client_with_other_words_is_listed_without_passwords(tmp_path: pathlib.Path) -> None:
    board, config = planning.BOARD, planning.ROOT / "lab/configs/pppoe"
    facts = as_the_supervisor_lists(pairs.facts_of(clean(board, config)), config)
    facts["process pppoe wan1"] = facts["process pppoe wan1"].replace("secret1", "Rumpelstilzchen")
    form = ("--board", board, "--config", config, "--from", Router(tmp_path, board, facts).written())
    assert planning.run(*form, "--leftovers").stdout == "changed client pppoe wan1\n"
    shown = planning.run(*form, "--diff").stdout
    assert shown.startswith("client pppoe wan1: is ") and shown.count("password (password) mtu") == 2
    assert "secret1" not in shown and "Rumpelstilzchen" not in shown


CHAINS = {
    "the last of a chain": ("chain filter INPUT", " ; -j ipt_input_filter_rules_3", ["ipt_input_filter_rules_3"]),
    "the first": ("chain filter INPUT", "-j ipt_input_filter_rules_1 ; ",
                  ["ipt_input_filter_rules_1", "ipt_input_filter_rules_2", "ipt_input_filter_rules_3"]),
    "one inside": ("chain filter ipt_fwd_filter_rules_2", " ; -j acl_fwd_filter_rules_user",
                   ["acl_fwd_filter_rules_user"]),
}


@pytest.mark.parametrize("place", CHAINS)
def test_a_chain_without_its_jump_is_laid_again_with_those_behind_it(tmp_path: pathlib.Path, place: str) -> None:
    key, jump, expected = CHAINS[place]
    told = clean(planning.BOARD, planning.CONFIG)
    router = Router(tmp_path, planning.BOARD, pairs.facts_of(told))
    assert jump in router.facts[key]
    router.facts[key] = router.facts[key].replace(jump, "")
    found = router.leftovers(planning.CONFIG)
    assert {why for why, _, _ in found} == {"changed"}
    assert [words[2] for _, _, words in found if words[1] == key.split()[2]] == expected
    over = router.reload(planning.CONFIG)
    assert pairs.comparable(over) == pairs.comparable(told)


def test_the_acceptance_of_what_goes_on_stands_first_again(tmp_path: pathlib.Path) -> None:
    told = clean(planning.BOARD, planning.CONFIG)
    router = Router(tmp_path, planning.BOARD, pairs.facts_of(told))
    accept, *jumps = router.facts["chain mangle PREROUTING"].split(" ; ")
    router.facts["chain mangle PREROUTING"] = " ; ".join([*jumps, accept])
    assert ("changed", "chain", ["mangle", "PREROUTING", "ACCEPT"]) in router.leftovers(planning.CONFIG)
    assert pairs.comparable(router.reload(planning.CONFIG)) == pairs.comparable(told)


def test_what_was_left_of_a_kill_between_a_chain_and_its_jump(tmp_path: pathlib.Path) -> None:
    """The moments at which a daemon that starts for the first time may be killed."""
    told = clean(planning.BOARD, planning.CONFIG)
    firewall = [one for one in told["phases"][0]["operations"] if one["area"] == "firewall"]
    for count in range(1, len(firewall) + 1):
        router = Router(tmp_path, planning.BOARD, {"device eth0": "port"})
        for one in firewall[:count]:
            for change in one["changes"]:
                pairs.state(router.facts, change)
        assert pairs.comparable(router.reload(planning.CONFIG)) == pairs.comparable(told), firewall[count - 1]


@pytest.mark.parametrize("fact, status, said", [("device eth0 = port", 4, ""), ("no fact", 2, 'no fact is "no fact"')])
def test_a_router_is_read_from_a_file(tmp_path: pathlib.Path, fact: str, status: int, said: str) -> None:
    file = tmp_path / "facts"
    file.write_text(fact + "\n")
    done = planning.run(*planning.SAMPLE, "--leftovers", "--from", file)
    assert (done.returncode, done.stdout) == (status, "") and said in done.stderr


def test_a_file_that_is_not_there_is_said() -> None:
    done = planning.run(*planning.SAMPLE, "--diff", "--from", "/nowhere/facts")
    assert (done.returncode, done.stderr) == (2, "ivarode-plan: /nowhere/facts: cannot be read\n")


def test_a_configuration_that_fails_has_no_leftovers(tmp_path: pathlib.Path) -> None:
    config = tmp_path / "config"
    config.mkdir()
    for name, content in (("lan_intf", "config interface 'lan9'\n"), ("wan_intf", ""), ("route_config", "")):
        (config / name).write_text(content)
    router = Router(tmp_path, planning.BOARD, {"device eth0": "port"})
    done = planning.run("--board", planning.BOARD, "--config", config, "--from", router.written(), "--leftovers")
    assert (done.returncode, done.stdout) == (1, "")
    assert done.stderr == "ivarode-plan: a clean start would fail here: plan it without --leftovers\n"
