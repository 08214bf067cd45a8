"""Daemon and platform library compile, warnings as errors, with g++ and clang++, on bus headers of different years; so
do lab and tests, each source with its own command of the build."""

import concurrent.futures
import functools
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess

import pytest

from tests.package import bus_headers, common

COMPILERS = [pytest.param(name, marks=pytest.mark.skipif(shutil.which(name) is None, reason=name + " is not installed"))
             for name in ("g++", "clang++")]


@pytest.fixture(scope="session")
def headers(tmp_path_factory: pytest.TempPathFactory) -> dict[str, pathlib.Path]:
    """Variant name -> its folder."""
    folder = tmp_path_factory.mktemp("headers")
    return {name: bus_headers.make(folder / name, name) for name in bus_headers.VARIANTS}


def compile_one(compiler: str, include: pathlib.Path, source: pathlib.Path | str, *more: object,
                text: str | None = None) -> subprocess.CompletedProcess[str]:
    return subprocess.run([compiler, *common.FLAGS, "-I", str(include), *(f"-I{path}" for path in common.INCLUDES),
                           *map(str, more), str(source)],
                          capture_output=True, text=True, input=text)


def test_the_flags_are_those_of_the_build() -> None:
    text = (common.ROOT / "cmake/Flags.cmake").read_text()
    assert {*re.findall(r"-W(?!l\b|l,|no-)\w+", text.split("IVARODE_SANITIZE")[0]),
            "-Werror"} == {f for f in common.FLAGS if f.startswith("-W")}


def test_warnings_are_errors_by_the_presets() -> None:
    presets = json.loads((common.ROOT / "CMakePresets.json").read_text())["configurePresets"]
    assert presets and all(preset["cacheVariables"]["CMAKE_COMPILE_WARNING_AS_ERROR"] == "ON" for preset in presets)


@functools.cache
def sees_the_bus(path: pathlib.Path) -> bool:
    """Whether a source includes a header of the bus or configuration libraries, by whatever way."""
    text = path.read_text()
    if re.search(r"#include <(libub|uci)", text):
        return True
    for name in re.findall(r'#include "([^"]+)"', text):
        for base in (path.parent, *common.INCLUDES):
            if (base / name).is_file():
                if sees_the_bus(base / name):
                    return True
                break
    return False


def test_which_sources_are_concerned() -> None:
    concerned = [path for path in common.SOURCES if sees_the_bus(path)]
    assert len(common.SOURCES) > 70 and len(common.SOURCES) // 4 < len(concerned) < len(common.SOURCES)


@pytest.mark.parametrize("variant", sorted(bus_headers.VARIANTS))
@pytest.mark.parametrize("compiler", COMPILERS)
def test_every_source_compiles(headers: dict[str, pathlib.Path], compiler: str, variant: str) -> None:
    # what does not see those headers is the same in each variant
    wanted = [path for path in common.SOURCES if variant == "today" or sees_the_bus(path)]
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        done = list(pool.map(lambda path: compile_one(compiler, headers[variant], path, "-fsyntax-only"), wanted))
    failed = [f"{path.relative_to(common.ROOT)}\n{result.stderr[:2000]}"
              for path, result in zip(wanted, done) if result.returncode != 0]
    assert not failed, "\n".join(failed)


# --- the rest of the tree -------------------------------------------------------------------------------------------

def build_commands() -> dict[pathlib.Path, list[str]]:
    """Source of lab or tests -> its command of the build. What tests the stand-ins is built beside them alone."""
    commands = {}
    for entry in json.loads((common.BUILD / "compile_commands.json").read_text()):
        source = pathlib.Path(entry["file"])
        name = source.relative_to(common.ROOT) if source.is_relative_to(common.ROOT) else pathlib.Path()
        is_ours = name.parts[:1] in (("lab",), ("tests",)) and name.parts[:2] != ("tests", "compat")
        if is_ours and source.suffix == ".cpp":
            commands[source] = shlex.split(entry["command"])
    return commands


def on_headers(command: list[str], include: pathlib.Path) -> list[str]:
    """A command of the build that checks its source on other headers of the bus, which an image has elsewhere."""
    words, replaced = [], False
    at = command.index("-o")
    for word in command[:at] + command[at + 2:]:
        if word[:2] == "-I" and pathlib.Path(word[2:]) in common.BUS_HEADERS:
            replaced = True
        elif word != "ccache":
            words.append(word)
    return [*words, "-isystem", str(include), "-fsyntax-only", "-Werror"] if replaced else []


@pytest.mark.parametrize("part, some", [
    ("lab", {"lab/siblings"}),
    pytest.param("tests", {"tests/lab", "tests/unit", "tests/fuzz", "tests/contract", "tests/bench"},
                 marks=pytest.mark.long)])
def test_lab_and_tests_compile_on_the_oldest_headers(headers: dict[str, pathlib.Path], part: str,
                                                     some: set[str]) -> None:
    commands = {source: on_headers(command, headers["oldest"]) for source, command in build_commands().items()}
    wanted = {source: words for source, words in commands.items()
              if words and source.is_relative_to(common.ROOT / part)}
    assert some <= {str(source.relative_to(common.ROOT).parent) for source in wanted}
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        done = list(pool.map(lambda words: subprocess.run(words, capture_output=True, text=True, cwd=common.BUILD),
                             wanted.values()))
    failed = [f"{source.relative_to(common.ROOT)}\n{result.stderr[:2000]}"
              for source, result in zip(wanted, done) if result.returncode]
    assert not failed, "\n".join(failed)


# --- that the variants are what they claim to be: each holds traps, and each trap shuts -----------------------------

HANDLER = """
#include <libubus.h>
static int h(struct ubus_context *, struct ubus_object *, struct ubus_request_data *, const char *, struct blob_attr *)
{ return 0; }
static const struct blobmsg_policy p[] = {{"x", BLOBMSG_TYPE_STRING}};
"""
TRAPS = [
    ("method macro", HANDLER + 'struct ubus_method m = UBUS_METHOD("x", h, p);', {"today"}),
    ("tags by name", HANDLER + "unsigned long f(struct ubus_method &m) { return m.tags; }", {"today"}),
    ("method by position", HANDLER + 'struct ubus_method m = {"x", h, 0, 0, p, 1};', {"today"}),
    ("method by assignment",
     HANDLER + 'void f(struct ubus_method &m) { m.name = "x"; m.handler = h; m.policy = p; m.n_policy = 1; }',
     {"today", "oldest"}),
    ("tree initialiser", "#include <libubus.h>\n#include <libubox/avl-cmp.h>\n"
     "struct avl_tree t = AVL_TREE_INIT(t, avl_strcmp, false, nullptr);", set()),
    ("newer status", "#include <libubus.h>\nint f() { return UBUS_STATUS_PARSE_ERROR; }", {"today"}),
    ("signals", "#include <libubus.h>\nint f(struct uloop_signal *s) { return uloop_signal_add(s); }", {"today"}),
    ("deprecated", "#include <libubus.h>\nint f(struct uloop_timeout *t) { return uloop_timeout_remaining(t); }",
     {"oldest"}),
    ("newer remaining",
     "#include <libubus.h>\nint64_t f(struct uloop_timeout *t) { return uloop_timeout_remaining64(t); }", {"today"}),
    ("newer parse",
     HANDLER + "int f(struct blob_attr *a, struct blob_attr **t)\n{ return blobmsg_parse_attr(p, 1, t, a); }",
     {"today"}),
    ("copy of what stays", "#include <libubus.h>\nblob_attr *f(const blob_attr *a) { return blob_memdup(a); }",
     {"today"}),
    ("overrides", "#include <uci.h>\nchar *f(struct uci_context *c) { return c->conf2dir; }", {"today"}),
    ("older socket", '#include <libubus.h>\nstatic_assert(sizeof(UBUS_UNIX_SOCKET) == sizeof("/var/run/ubus.sock"));',
     {"oldest"}),
    ("fallthrough is a macro", "#include <libubus.h>\n#ifndef fallthrough\n#error\n#endif\n", {"today", "oldest"}),
]


@pytest.mark.parametrize("compiler", COMPILERS)
@pytest.mark.parametrize("name, text, good", TRAPS, ids=[trap[0] for trap in TRAPS])
def test_traps(headers: dict[str, pathlib.Path], compiler: str, name: str, text: str, good: set[str]) -> None:
    compiled = {variant for variant, folder in headers.items()
                if compile_one(compiler, folder, "-", "-fsyntax-only", "-Wno-unused-function",
                               "-Wno-unused-const-variable", "-x", "c++", text=text).returncode == 0}
    assert compiled == good


@pytest.mark.parametrize("variant", sorted(bus_headers.VARIANTS))
def test_libubox_has_no_linkage_of_its_own(headers: dict[str, pathlib.Path], variant: str,
                                           tmp_path: pathlib.Path) -> None:
    """Included bare its functions are C++ ones, which no library has."""
    done = compile_one("g++", headers[variant], "-", "-x", "c++", "-c", "-o", tmp_path / "bare.o",
                       text="#include <libubox/uloop.h>\nint f() { return uloop_init(); }\n")
    assert done.returncode == 0, done.stderr
    assert "_Z10uloop_initv" in common.run("nm", "-u", tmp_path / "bare.o")


def test_no_object_of_the_build_asks_for_a_mangled_bus_function() -> None:
    for name in ("bin/ivarode", "lib/libsys.so"):
        symbols = common.run("nm", "-D", "--undefined-only", common.BUILD / name)
        assert not re.search(r"_Z\d+(uloop|blob|ubus|uci|avl)", symbols) and re.search(r"\bu(bus|loop)_", symbols)
