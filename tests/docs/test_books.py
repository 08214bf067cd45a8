"""The books say of the sources neither too little nor too much."""

from __future__ import annotations

import json
import pathlib
import re
from typing import Any

import pytest

from tests.docs import books, messages, sandbox
from tests.facts.daemon import facts


def message_rows() -> list[list[str]]:
    rows = []
    for table in books.tables(books.text("messages.md")):
        if table[0] == ["message", "level", "when", "what to do"]:  # those of the daemon
            rows += table[1:]
    return rows


def test_every_report_in_the_sources_is_read() -> None:
    report = r'\bNET_(?:ERROR|WARNING|NOTICE|INFO|DEBUG)\((?!"%s")|\bargs\.(?:text|require)\([^;"]*"'
    calls = sum(len(re.findall(report, path.read_text())) for path in messages.sources())
    assert sum(len(places) for places in messages.messages().values()) == calls > 100


def test_every_message_is_in_the_book_and_none_that_is_gone() -> None:
    listed = [(books.code(row[0])[0], row[1]) for row in message_rows()]
    in_sources = set(messages.messages())
    assert sorted(in_sources - set(listed)) == [], "not in docs/messages.md"
    assert sorted(set(listed) - in_sources) == [], "in docs/messages.md, but no longer in src"
    assert len(listed) == len(set(listed)), "listed twice"


def test_every_message_says_when_and_what_to_do() -> None:
    for row in message_rows():
        assert len(row) == 4 and all(row), row


def test_a_made_up_message_would_be_found(tmp_path: pathlib.Path, monkeypatch: pytest.MonkeyPatch) -> None:
    """The comparison can fail: a source with a text of its own is noticed."""
    folder = tmp_path / "src"
    folder.mkdir()
    (folder / "new.cpp").write_text('int f()\n{\n    NET_ERROR("%s %d,entirely "\n        "new\\r\\n", __func__, '
                                    '7);\n}\n')
    monkeypatch.setattr(sandbox, "ROOT", tmp_path)
    assert list(messages.messages()) == [("f 7,entirely new", "error")]


def test_the_bus_book_has_every_object_and_method_in_its_order() -> None:
    book = books.bus_methods()
    objects = facts().objects
    assert set(book) == set(objects), "docs/bus.md and src/core/bus_objects.cpp differ in their objects"
    for name, methods in objects.items():
        assert list(book[name]) == list(methods), (f"docs/bus.md: the table below {name} needs a row for each method, "
                                                   "in this order")


@pytest.mark.parametrize("name, method", facts().methods())
def test_every_field_of_a_method_is_in_the_bus_book(name: str, method: str) -> None:
    row = books.bus_methods()[name].get(method)
    assert row, f"docs/bus.md has no row for {method} below {name}"
    assert row.fields == list(facts().objects[name][method].fields.items()), (f"docs/bus.md: arguments of {name} "
                                                                              f"{method}")


@pytest.mark.parametrize("name, method", facts().methods())
def test_every_bus_method_has_an_example(name: str, method: str) -> None:
    command = f"lab/lab ubus call {name} {method}"
    assert re.search(re.escape(command) + r"\b", books.text("bus.md")), f"docs/bus.md has no example: {command}"


@pytest.mark.parametrize("package", ["lan_intf", "wan_intf", "route_config", "dhcp"])
def test_every_option_that_is_read_is_in_the_configuration_book(package: str) -> None:
    section = books.sections(books.text("configuration.md"))[f"Package `{package}`"]
    table = next(t for t in books.tables(section) if t[0][0] == "option")
    assert table[0] == ["option", "type", "default", "meaning", "example"]
    read = books.uci_options()[package]
    assert len(read) >= 6
    assert sorted(books.code(row[0])[0] for row in table[1:]) == sorted(read)


def test_no_other_package_is_read() -> None:
    walked = set()
    for path in messages.sources():
        walked |= set(re.findall(r'ucilib_foreach_section\("(\w+)"', path.read_text()))
    assert walked == set(books.uci_options())


def anchors(markdown: str) -> set[str]:
    found: set[str] = set()
    seen: dict[str, int] = {}
    for heading in re.findall(r"^#+ +(.*)$", markdown, re.M):
        slug = re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")
        count = seen.get(slug, 0)
        seen[slug] = count + 1
        found.add(slug if count == 0 else f"{slug}-{count}")
    return found


def markdown_files() -> list[pathlib.Path]:
    return sorted(path for path in sandbox.ROOT.rglob("*.md") if ".git" not in path.parts
                  and not path.relative_to(sandbox.ROOT).parts[0].startswith("build"))


@pytest.mark.parametrize("path", markdown_files(), ids=lambda path: str(path.relative_to(sandbox.ROOT)))
def test_every_relative_link_leads_somewhere(path: pathlib.Path) -> None:
    text = re.sub(r"```.*?```", "", path.read_text(), flags=re.S)
    for target in re.findall(r"\]\(([^)\s]+)\)", text):
        if re.match(r"[a-z]+:", target):
            continue
        name, _, anchor = target.partition("#")
        goal = (path.parent / name).resolve() if name else path
        assert goal.exists(), target
        if anchor:
            assert anchor in anchors(goal.read_text()), target


BOOKS = ["architecture.md", "behaviour.md", "bus.md", "configuration.md", "ivarodectl.md", "messages.md", "plan.md",
         "porting.md", "security.md", "testing.md"]


@pytest.mark.parametrize("name", BOOKS)
def test_every_book_is_there(name: str) -> None:
    assert len(books.text(name)) > 2000


def test_the_arrows_of_the_architecture_are_those_of_the_sources() -> None:
    section = books.sections(books.text("architecture.md"))["The daemon inside"]
    drawn = {books.code(row[0])[0]: set(books.code(row[3])) for row in books.tables(section)[0][1:]}
    real: dict[str, set[str]] = {}
    for path in (sandbox.ROOT / "src").rglob("*.*"):
        if path.suffix not in (".h", ".cpp"):
            continue
        folder = path.relative_to(sandbox.ROOT / "src").parts[0]
        found = set(re.findall(r'#include "(\w+)/', path.read_text())) - {folder}
        real.setdefault(folder, set()).update(found)
    assert drawn == real


def test_the_start_up_table_has_a_row_for_each_step() -> None:
    rows = books.tables(books.sections(books.text("architecture.md"))["Start-up"])[0][1:]
    source = (sandbox.ROOT / "src/core/main.cpp").read_text()
    steps = re.findall(r"on_failure::(\w+),", source[source.index("startup[] = {"):source.index("bool start()")])
    told = {"ends": "end", "goes on": "go_on", "never": "clean_up_and_end"}
    assert [told.get(row[2], "clean_up_and_end") for row in rows] == steps
    assert [row[0] for row in rows] == [str(n + 1) for n in range(len(steps))]


def test_every_platform_function_is_in_the_porting_book() -> None:
    table = next(t for t in books.tables(books.text("porting.md")) if t[0] == ["header", "functions"])
    listed = {books.code(row[0])[0]: sorted(books.code(row[1])) for row in table[1:]}
    declared = {}
    for path in (sandbox.ROOT / "src/platform").glob("*.h"):
        text = re.sub(r"//.*|typedef [^;]*;|__attribute__\(\(.*?\)\)\)", "", path.read_text())
        names = re.findall(r"^[a-z][\w ]*[ *](\w+)\([^;{]*\)\s*;", text, re.M)
        if names:
            declared[path.name] = sorted(names)
    assert sum(map(len, declared.values())) > 60
    assert listed == declared


def test_every_key_of_the_board_file_is_in_the_porting_book() -> None:
    read = set()
    for name in ("board.cpp", "gpio.cpp", "board_file.cpp"):
        text = (sandbox.ROOT / "libsys" / name).read_text()
        read |= set(re.findall(r'member\(\w+, "(\w+)"\)', text))
        read |= {part for path in re.findall(r'"((?:system|network|switch|ivarode)\.[\w.]+)"',
                                             text) for part in path.split(".")}
    section = books.sections(books.text("porting.md"))["Board file"]
    listed = set()
    for row in books.tables(section)[0][1:]:
        listed |= set(re.findall(r"[a-z0-9_]+", books.code(row[0])[0].replace("[]", "")))
    assert len(read) > 12 and read == listed
    example = json.loads(books.find(r"```json\n(.*?)```", section)[1])

    def keys(value: Any) -> set[str]:
        if isinstance(value, list):
            return {key for item in value for key in keys(item)}
        return {key for name, item in value.items() for key in {name} | keys(item)} if isinstance(value,
                                                                                                  dict) else set()

    assert keys(example) <= listed and listed - keys(example) == {"index"}


def test_every_kind_of_test_is_in_the_testing_book() -> None:
    text = (sandbox.ROOT / "tests/kinds.py").read_text()
    kinds = re.findall(r'^    "(\w+)": \(', text[text.index("KINDS = {"):], re.M)
    table = next(t for t in books.tables(books.text("testing.md")) if t[0][0] == "kind" and "time" in t[0][-1])
    assert set(kinds) - {books.code(row[0])[0] for row in table[1:]} == set()
    for row in table[1:]:
        for folder in books.code(row[1]):
            assert folder in kinds or (sandbox.ROOT / folder).is_dir(), folder


def test_every_label_of_a_test_is_run() -> None:
    kinds = (sandbox.ROOT / "tests/kinds.py").read_text()
    lists = [path.read_text() for path in (sandbox.ROOT / "tests").rglob("CMakeLists.txt")]
    labels = {label for text in lists for label in re.findall(r"\bLABELS ([\w-]+)", text)}
    assert {"unit", "fuzz", "contract"} <= labels
    for label in labels:
        assert f'ctest("{label}"' in kinds or f"tests/{label}/run" in kinds, label


TEXT = r'((?:"(?:[^"\\]|\\.)*"|\s|PRId64)+)'


def library_texts(pattern: str) -> set[str]:
    found = set()
    for path in sorted((sandbox.ROOT / "libsys").glob("*.cpp")):
        if path.name == "output.cpp":
            continue
        for text in re.findall(pattern, path.read_text()):
            found.add(messages.plain(text.replace("PRId64", '"d"')))
    return found - {"%s"}


def test_every_line_of_the_library_is_in_the_book() -> None:
    section = books.sections(books.text("messages.md"))["Lines of the platform library"]
    lines, reasons = books.tables(section)
    assert {books.code(row[0])[0] for row in lines[1:]} == library_texts(
        r"(?:outlib_(?:error|warning|notice|info)\(|log_line\(\w+, )" + TEXT)
    # The reason is the second argument, and may be chosen between two.
    wanted = library_texts(r"board_error\((?:[^(),]|\([^()]*\))+,(?: ports \?)? " + TEXT) | {"is missing"}
    assert {books.code(row[0])[0] for row in reasons[1:]} == wanted
