"""What holds for every file of the tree: words, scripts, data files, access rules."""

from __future__ import annotations

import json
import pathlib
import re
import shutil
import sqlite3
import subprocess
from collections.abc import Iterator

import pytest

from tests.docs import books, sandbox
from tests.facts.daemon import facts

ROOT = sandbox.ROOT


def tracked() -> list[pathlib.Path]:
    """Files of the tree, as git knows them; every file where this is no git checkout."""
    done = subprocess.run(["git", "-C", str(ROOT), "ls-files", "-z"], capture_output=True, text=True)
    if done.returncode == 0:
        names = [name for name in done.stdout.split("\0") if name]
        return [ROOT / name for name in names if (ROOT / name).is_file()]
    return [path for path in sorted(ROOT.rglob("*"))
            if path.is_file() and not path.relative_to(ROOT).parts[0].startswith("build")]


def texts() -> Iterator[tuple[pathlib.Path, str]]:
    for path in tracked():
        data = path.read_bytes()
        if b"\0" not in data:
            yield path, data.decode(errors="replace")


# Joined here, or this file would find itself. How the work is organised, and the machine it was done on, are nobody's
# business who reads the result.
UNWANTED = re.compile("|".join([
    r"\bspec" + r"(ification)?s?\b(?!\w)", r"\bPart" + r" \d", r"/wor" + r"k/(main|shared)", r"\.\./sha" + r"red",
    r"\bissue" + r"s? (show|#?\d)", r"/tmp/bri" + r"ef", r"/ro" + r"ot/\.(cache|pyenv)", r"\bFIX" + r"ME\b",
    r"\bTO" + r"DO\b",
]))


def test_no_unwanted_word_in_the_tree() -> None:
    found = [f"{path.relative_to(ROOT)}:{number}: {line.strip()[:120]}"
             for path, text in texts() for number, line in enumerate(text.splitlines(), 1) if UNWANTED.search(line)]
    assert found == []


def test_no_unwanted_word_in_a_file_name() -> None:
    assert [str(path) for path in tracked() if UNWANTED.search(path.relative_to(ROOT).as_posix())] == []


def test_the_search_for_words_finds_them() -> None:
    for line in ["as the sp" + "ec says", "see Pa" + "rt 3.2", "TO" + "DO later", "iss" + "ue #4"]:
        assert UNWANTED.search(line)
    for line in ["the registry's spectrum", "special", "a part of 3 steps", "is specified by"]:
        assert not UNWANTED.search(line)


def scripts() -> list[pathlib.Path]:
    found = []
    for path, text in texts():
        first = text.split("\n", 1)[0]
        if path.suffix == ".sh" or re.match(r"#!.*\b(ba|da)?sh\b", first):
            found.append(path)
    return found


@pytest.mark.skipif(shutil.which("shellcheck") is None, reason="shellcheck is not installed")
@pytest.mark.parametrize("path", scripts(), ids=lambda path: str(path.relative_to(ROOT)))
def test_every_shell_script_is_sound(path: pathlib.Path) -> None:
    first = path.read_text().split("\n", 1)[0]
    options = ["--shell=sh"] if "rc.common" in first else []
    # What runs on a router is held to the notes, too.
    options += [] if (ROOT / "image") in path.parents else ["--severity=warning"]
    # A file that is only sourced sets variables for others.
    options += [] if first.startswith("#!") else ["--exclude=SC2034"]
    done = subprocess.run(["shellcheck", "--external-sources", "--source-path=SCRIPTDIR", *options,
                           str(path.relative_to(ROOT))], cwd=ROOT, capture_output=True, text=True)
    assert done.returncode == 0, done.stdout


def test_the_scripts_of_the_image_are_for_any_posix_shell() -> None:
    for path in scripts():
        if (ROOT / "image") in path.parents:
            first = path.read_text().split("\n", 1)[0]
            assert first.startswith(("#!/bin/sh", "# shellcheck shell=sh")), path


def test_scripts_of_the_image_that_are_run_may_be_run() -> None:
    sourced = {"files.sh", "address.sh", "wan.sh", "ppp.sh", "laid.sh"}
    for path in scripts():
        if (ROOT / "image") in path.parents:
            assert bool(path.stat().st_mode & 0o111) != (path.name in sourced), path


@pytest.mark.parametrize("path", [p for p in tracked() if p.suffix == ".json"],
                         ids=lambda path: str(path.relative_to(ROOT)))
def test_every_json_file_is_valid(path: pathlib.Path) -> None:
    json.loads(path.read_text())


def test_no_method_is_masked_or_tagged() -> None:
    for name, table in facts().objects.items():
        for method, about in table.items():
            assert (about.mask, about.tags) == (0, 0), f"{name} {method}"


def test_bus_access_file_follows_the_brokers_rules() -> None:
    path = sandbox.IMAGE / "usr/share/acl.d/ivarode.json"
    rules = json.loads(path.read_text())
    assert ("user" in rules) != ("group" in rules)
    assert set(rules) <= {"user", "group", "access", "publish", "subscribe", "listen", "send"}
    for name, grant in rules["access"].items():
        assert set(grant) <= {"methods", "tags", "acl"}
        assert set(grant["methods"]) <= set(facts().objects[name]), name
    # The broker refuses a file that others could write.
    assert path.stat().st_mode & 0o022 == 0


def test_bus_access_file_grants_nothing_that_changes_the_router() -> None:
    rules = json.loads((sandbox.IMAGE / "usr/share/acl.d/ivarode.json").read_text())
    granted = {(name, method) for name, grant in rules["access"].items() for method in grant["methods"]}
    assert granted == {("ivarode.run", "run"), ("ivarode.intf", "status"), ("ivarode.intf", "statist")}


def test_no_group_for_looking_gives_passwords_away() -> None:
    """Who may read wan_intf reads the passwords in it; that is a group's whole purpose, and its description says so."""
    groups = json.loads((sandbox.IMAGE / "usr/share/rpcd/acl.d/ivarode.json").read_text())
    telling = {name for name, group in groups.items() for side in ("read", "write")
               if "wan_intf" in group.get(side, {}).get("uci", [])}
    assert telling == {"ivarode-wan"} and "passwords" in groups["ivarode-wan"]["description"]
    assert not {"ubus"} & set(groups["ivarode-wan"]["read"])


VIEW = "ivarode.view"


def test_front_end_access_groups() -> None:
    groups = json.loads((sandbox.IMAGE / "usr/share/rpcd/acl.d/ivarode.json").read_text())
    granted, read_only = set(), set()
    for group in groups.values():
        assert group["description"] and set(group) <= {"description", "read", "write"}
        for side in ("read", "write"):
            for name, names in group.get(side, {}).get("ubus", {}).items():
                if name == VIEW:        # the plug-in's own, which tests/web compares with it
                    assert side == "read"
                    continue
                granted |= {(name, method) for method in names}
                read_only |= {(name, method) for method in names if side == "read"}
    there = set(facts().methods())
    assert granted - there == set(), "image/files/usr/share/rpcd/acl.d/ivarode.json grants methods that are gone"
    # What a login record is made of goes into SQL as it comes, so nobody but local programs may send one.
    assert there - granted == {("ivarode.pppauth", "notify")}, \
        "image/files/usr/share/rpcd/acl.d/ivarode.json: every other method belongs to a group"
    harmless = {(name, method) for name, rows in books.bus_methods().items() for method,
                row in rows.items() if not row.changes}
    assert read_only == harmless, "a group's \"read\" is for methods of which docs/bus.md says \"changes nothing\""


def test_capability_sets_are_the_three() -> None:
    sets = json.loads((sandbox.IMAGE / "etc/capabilities/ivarode.json").read_text())
    three = ["CAP_NET_ADMIN", "CAP_NET_RAW", "CAP_SYS_RAWIO"]
    assert sets == {"bounding": three, "effective": three, "permitted": three, "inheritable": three, "ambient": []}
    told = re.findall(r"`(CAP_\w+)`", books.sections(books.text("porting.md"))["Privileges"])
    assert sorted(set(told)) == three


def schema(connection: sqlite3.Connection) -> list[tuple[str, ...]]:
    return connection.execute("select type, name, sql from sqlite_master order by name").fetchall()


def test_the_shipped_database_is_made_of_the_schema() -> None:
    folder = sandbox.IMAGE / "usr/share/ivarode"
    shipped = sqlite3.connect(f"file:{folder / 'net_stat.db'}?mode=ro&immutable=1", uri=True)
    fresh = sqlite3.connect(":memory:")
    fresh.executescript((folder / "net_stat.sql").read_text())
    assert schema(shipped) == schema(fresh) != []
    assert shipped.execute("select count(*) from pppauth_user_table").fetchone() == (0,)


def test_the_daemons_statements_fit_the_schema() -> None:
    source = (ROOT / "src/ppp/auth_records.cpp").read_text()
    statements = ["".join(re.findall(r'"((?:[^"\\]|\\.)*)"', found)).replace("\\t", "\t")
                  for found in re.findall(r'statement_size,\s*((?:"(?:[^"\\]|\\.)*"\s*)+)', source)]
    assert len(statements) == 2
    database = sqlite3.connect(":memory:")
    database.executescript((sandbox.IMAGE / "usr/share/ivarode/net_stat.sql").read_text())
    insert, delete = statements
    database.execute(insert % ("pptp", "alice", "10.0.0.2", "", "", "2026-01-02 03:04:05"))
    assert database.execute("select * from pppauth_user_table").fetchall() == [("pptp", "alice", "10.0.0.2", "", "",
                                                                                "2026-01-02 03:04:05")]
    database.execute(delete % ("pptp", "alice", "10.0.0.2"))
    assert database.execute("select count(*) from pppauth_user_table").fetchone() == (0,)


def sections_of(path: pathlib.Path) -> list[tuple[tuple[str, str], dict[str, str]]]:
    """(type, name) and options of a configuration file's sections."""
    found: list[tuple[tuple[str, str], dict[str, str]]] = []
    for line in path.read_text().splitlines():
        words = re.findall(r"'[^']*'|\S+", line.split("#")[0])
        if words[:1] == ["config"]:
            found.append(((words[1], words[2].strip("'")), {}))
        elif words[:1] == ["option"]:
            found[-1][1][words[1]] = words[2].strip("'")
        else:
            assert not words, line
    return found


@pytest.mark.parametrize("package", ["lan_intf", "wan_intf", "route_config"])
def test_sample_configuration_uses_options_that_are_read(package: str) -> None:
    for (kind, _), options in sections_of(sandbox.IMAGE / "etc/config" / package):
        assert kind == ("route" if package == "route_config" else "interface")
        assert set(options) <= books.uci_options()[package]


def test_the_sibling_plug_in_answers() -> None:
    plug_in = ROOT / "image/sibling/usr/libexec/rpcd/ombrine.run"

    def call(*words: str) -> tuple[int, str]:
        done = subprocess.run([str(plug_in), *words], input="{}", capture_output=True, text=True)
        return done.returncode, done.stdout

    assert [json.loads(call("list")[1]), call("list")[0]] == [{"run": {}}, 0]
    assert [json.loads(call("call", "run")[1]), call("call", "run")[0]] == [{}, 0]
    assert call("call", "stop")[0] != 0 and call()[0] != 0


UNCONFINED = "runs with all privileges: the supervisor's jail helper is not installed"
RC_COMMON = """#!/bin/sh
# Stands for the framework: records what the service asks of the supervisor.
initscript=$1
action=$2
procd_open_instance() { echo open; }
procd_set_param() { echo "param $*"; }
procd_close_instance() { echo close; }
procd_add_jail() { echo "jail $*"; }
sysctl() { echo "sysctl $*"; }
logger() { echo "logger $*"; }
. "$initscript"
case $action in
start) start_service ;;
stop) service_stopped ;;
esac
echo "order $START $STOP $USE_PROCD"
"""


def test_the_init_script_asks_for_the_right_instance(tmp_path: pathlib.Path) -> None:
    if why := sandbox.missing():
        pytest.skip(why)
    script = "cat >/etc/rc.common <<'END'\n" + RC_COMMON + "END\nchmod 755 /etc/rc.common\n"
    out = sandbox.run(script + "/etc/init.d/ivarode start; ls /tmp/calmora/db", tmp_path).splitlines()
    assert out == ["sysctl -qw net.ipv4.ip_forward=1", f"logger -t ivarode -p daemon.warning {UNCONFINED}", "open",
                   "param command /usr/sbin/ivarode", "param respawn 3600 5 0", "param stderr 0",
                   "param no_new_privs 1",
                   "param capabilities /etc/capabilities/ivarode.json", "param seccomp /etc/seccomp/ivarode.json",
                   "jail ivarode", "close", "order 20 90 1", "net_stat.db"]


def test_the_init_script_cleans_up_on_stop(tmp_path: pathlib.Path) -> None:
    if why := sandbox.missing():
        pytest.skip(why)
    script = "cat >/etc/rc.common <<'END'\n" + RC_COMMON + "END\nchmod 755 /etc/rc.common\nip link set lo up\n"
    out = sandbox.run(script + "ip rule add pref 10000 lookup 10000; /etc/init.d/ivarode stop; ip rule show", tmp_path)
    assert "10000" not in out and "order 20 90 1" in out
