"""Daemon and platform library on musl, the C library of most images: they compile without a warning, and daemon and bus
libraries link against it."""

import concurrent.futures
import os
import pathlib
import re
import shutil
import subprocess

import pytest

from tests.package import common

MUSL = pathlib.Path("/usr/include/x86_64-linux-musl")
LOADER = pathlib.Path("/lib/ld-musl-x86_64.so.1")
pytestmark = pytest.mark.skipif(not MUSL.is_dir() or not shutil.which("musl-gcc"), reason="musl-tools is not installed")

PLATFORM = pathlib.Path(__file__).with_name("musl_platform.cpp")
# The C++ library's headers were set up for another C library.
MISFITS = ["-D__GLIBC_PREREQ(a,b)=0", "-D__locale_t=locale_t"]
MISSING = """#pragma once
#include <pthread.h>
extern "C" int pthread_cond_clockwait(pthread_cond_t *, pthread_mutex_t *, clockid_t, const timespec *);
extern "C" int pthread_mutex_clocklock(pthread_mutex_t *, clockid_t, const timespec *);
extern "C" int pthread_rwlock_clockrdlock(pthread_rwlock_t *, clockid_t, const timespec *);
extern "C" int pthread_rwlock_clockwrlock(pthread_rwlock_t *, clockid_t, const timespec *);
"""
CTYPE_BASE = """#pragma once
namespace std {
struct ctype_base {
    typedef const int *__to_type;
    typedef unsigned short mask;
    static const mask upper = 1, lower = 2, alpha = 4, digit = 8, xdigit = 16, space = 32, print = 64, graph = 140;
    static const mask cntrl = 256, punct = 512, alnum = 12, blank = 1024;
};
}
"""
STANDINS: dict[str, tuple[str, set[str], tuple[str, ...]]] = {
    "libubox.so": ("libubox/src", {"json_format", "json_parse"}, ()),
    "libubus.so": ("libubus/lib", set(), ("ubox",)), "libuci.so": ("libuci/src", set(), ())}
# What of the platform library needs the C library and the three alone.
PLAIN = ["bus", "bus_call", "config", "debug", "file", "internal", "output", "strings", "time"]


@pytest.fixture(scope="module")
def words(tmp_path_factory: pytest.TempPathFactory) -> list[str]:
    """The compiler with musl's headers; those of the kernel and of other libraries are in a folder of their own."""
    others = tmp_path_factory.mktemp("others")
    for name in ("linux", "asm-generic", "libmnl", "json-c", "sqlite3.h", "x86_64-linux-gnu/asm"):
        (others / pathlib.Path(name).name).symlink_to(pathlib.Path("/usr/include") / name)
    (others / "bits").mkdir()
    (others / "bits/ctype_base.h").write_text(CTYPE_BASE)
    (others / "missing.h").write_text(MISSING)
    version = common.run("g++", "-dumpversion").strip()
    own = common.run("g++", "-print-file-name=include").strip()
    folders = [others, f"/usr/include/c++/{version}", f"/usr/include/x86_64-linux-gnu/c++/{version}", MUSL, own]
    return ["g++", "-nostdinc", "-nostdinc++", *(f"-isystem{folder}" for folder in folders), *MISFITS, "-include",
            str(others / "missing.h"), *common.FLAGS,
            *(f"-I{folder}" for folder in [common.ROOT / "src", common.ROOT / "libsys", *common.BUS_HEADERS])]


def test_every_source_compiles(words: list[str]) -> None:
    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        done = list(pool.map(lambda path: subprocess.run([*words, "-fsyntax-only", path], capture_output=True,
                                                         text=True), common.SOURCES))
    failed = [f"{path.relative_to(common.ROOT)}\n{result.stderr[:2000]}"
              for path, result in zip(common.SOURCES, done) if result.returncode]
    assert not failed, "\n".join(failed)


def compiled(words: list[str], folder: pathlib.Path, sources: list[pathlib.Path], *more: str) -> list[pathlib.Path]:
    folder.mkdir()
    objects = [folder / (path.parent.name + "-" + path.stem + ".o") for path in sources]

    def one(path: pathlib.Path, to: pathlib.Path) -> None:
        common.run(*words, "-Os", "-c", "-o", to, *more, path)

    with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
        list(pool.map(one, sources, objects))
    return objects


@pytest.fixture(scope="module")
def linked(words: list[str], tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    """A folder with the daemon, the three bus libraries and a platform library without a kernel below it."""
    folder = tmp_path_factory.mktemp("musl")

    def link(name: str, objects: list[pathlib.Path], libraries: tuple[str, ...], *more: str) -> None:
        common.run("musl-gcc", "-o", folder / name, *more, *objects, "-L", folder, *(f"-l{one}" for one in libraries),
                   "-Wl,-rpath,$ORIGIN", "-Wl,-z,now", "-Wl,--no-undefined")

    wire = common.ROOT / "compat/libubus/wire"
    for name, (part, apart, libraries) in STANDINS.items():
        sources = [path for path in sorted((common.ROOT / "compat" / part).glob("*.cpp")) if path.stem not in apart]
        sources += sorted(wire.glob("*.cpp")) if name == "libubus.so" else []
        link(name, compiled(words, folder / (name + ".o"), sources, f"-I{wire}", "-fvisibility=default"), libraries,
             "-shared")
    plain = [common.ROOT / "libsys" / (name + ".cpp") for name in PLAIN]
    daemon = compiled(words, folder / "daemon.o", sorted(common.ROOT.glob("src/*/*.cpp")))
    platform = compiled(words, folder / "platform.o", [path for path in plain if path.exists()] + [PLATFORM])
    # Everything else of the platform succeeds without doing anything.
    asked = set(re.findall(r"\bU (\w+)", common.run("nm", *daemon)))
    there = set(re.findall(r"\bT (\w+)", common.run("nm", *platform)))
    declared = set(re.findall(r"\b(\w+)\(",
                              "\n".join(path.read_text() for path in common.ROOT.glob("src/platform/*.h"))))
    rest = folder / "rest.cpp"
    rest.write_text("".join(f'extern "C" int {name}();\nint {name}() {{ return 0; }}\n'
                            for name in sorted((asked & declared) - there)))
    link("libsys.so", platform + compiled(words, folder / "rest.o", [rest], "-fvisibility=default"),
         ("ubus", "ubox", "uci"), "-shared")
    link("ivarode", daemon, ("sys", "ubus", "ubox"))
    return folder


def test_nothing_of_another_c_library_is_asked_for(linked: pathlib.Path) -> None:
    for name in ("ivarode", "libsys.so", *STANDINS):
        assert set(common.needed(linked / name)) <= {"libc.so", "libsys.so", *STANDINS}, name
    assert str(LOADER) in common.run("readelf", "-l", linked / "ivarode")
