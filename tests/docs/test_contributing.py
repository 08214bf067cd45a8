"""The worked example of CONTRIBUTING: its code compiles, and the daemon with it does what its scenarios say."""

from __future__ import annotations

import json
import os
import pathlib
import re
import shlex
import shutil

import pytest

from tests.conformance import altered, compare
from tests.conformance.recording import Board, record, temporary_folder
from tests.conformance.scenario import load, load_fixtures
from tests.docs import books, sandbox

BUILD = pathlib.Path(os.environ.get("IVARODE_BUILD", sandbox.ROOT / "build")).resolve()
BOOK = books.sections((sandbox.ROOT / "CONTRIBUTING.md").read_text())["Add a bus method"]
OBJECTS, HANDLERS, HANDLER = "core/bus_objects.cpp", "core/bus_handlers.h", "netintf/port_link.cpp"


def blocks() -> list[str]:
    """The example's blocks, as they go into files."""
    found = re.findall(r"^ *```\w*\n(.*?)^ *```$", BOOK, re.M | re.S)
    return [re.sub(r"^ {3}", "", text, flags=re.M) for text in found]


def behind(path: pathlib.Path, line: str, new: str) -> None:
    text = path.read_text()
    assert text.count(line) == 1, (path, line)
    path.write_text(text.replace(line, line + new))


@pytest.fixture(scope="module")
def daemon(tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    """The daemon with the example's declaration, row and handler."""
    folder = tmp_path_factory.mktemp("example")
    sources = folder / "src"
    shutil.copytree(sandbox.ROOT / "src", sources)
    declaration, row, handler = blocks()[:3]
    behind(sources / HANDLERS, "bus_handler netintf_ubus_port_dump;\n", declaration)
    behind(sources / OBJECTS, '    method("port_dump", netintf_ubus_port_dump, port_dump_policy),\n', row)
    (sources / HANDLER).write_text(handler)
    commands = {one["file"]: one["command"] for one in json.loads((BUILD / "compile_commands.json").read_text())}
    words = shlex.split(commands[str(sandbox.ROOT / "src" / OBJECTS)])
    own = BUILD / words[words.index("-o") + 1]
    words = [word.replace(str(sandbox.ROOT / "src"), str(sources)) for word in words]
    for source in (OBJECTS, HANDLER):
        words[words.index("-o") + 1] = str(folder / (pathlib.Path(source).stem + ".o"))
        words[words.index("-c") + 1] = str(sources / source)
        altered.run(words, BUILD)
    return altered.linked(BUILD, [folder / "bus_objects.o", folder / "port_link.o"], own, folder)


@pytest.mark.skipif(not (BUILD / "compile_commands.json").exists() or not (BUILD / "seam/libsys.so").exists(),
                    reason="needs a build with tests")
def test_the_example_does_what_its_scenarios_say(daemon: pathlib.Path, tmp_path: pathlib.Path) -> None:
    (tmp_path / "port-link.txt").write_text(blocks()[3])
    conformance = sandbox.ROOT / "tests/conformance"
    scenarios = load(tmp_path / "port-link.txt", load_fixtures(conformance / "fixtures.txt"))
    assert len(scenarios) >= 3
    board = Board(BUILD)
    board.daemon = daemon
    for scenario in scenarios:
        with temporary_folder() as folder:
            assert compare.check(scenario, record(board, scenario, folder)) == [], scenario.name


def test_the_example_has_a_block_for_each_of_its_places() -> None:
    places = [books.code(row[1])[0] for row in books.tables(BOOK)[0][1:]]
    assert places[2] == "src/" + HANDLER and len(places) == 8
    for place in places:
        path = sandbox.ROOT / place
        assert path.exists() or "port" in path.name, place
    row, message = blocks()[4], blocks()[6]
    assert re.fullmatch(r"\| `port_link` \| `name`: text \| [-\d, ]+ \| .*; changes nothing \|\n", row)
    assert books.code(message)[0] in blocks()[2]
