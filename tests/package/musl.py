"""Compiling and linking for musl with this machine's compiler: programs and libraries that need no C++ library."""

import concurrent.futures
import os
import pathlib
import re
import shutil
from collections.abc import Sequence

from tests.package import common

HEADERS = pathlib.Path("/usr/include/x86_64-linux-musl")
LOADER = pathlib.Path("/lib/ld-musl-x86_64.so.1")
AVAILABLE = HEADERS.is_dir() and shutil.which("musl-gcc") is not None
HERE = pathlib.Path(__file__).parent
# The C++ library's headers were set up for another C library.
MISFITS = ["-D__GLIBC_PREREQ(a,b)=0", "-D__locale_t=locale_t"]
# What they declare by name, and what the broker, a program of developers' machines, takes of glibc.
MISSING = """#pragma once
#include <dirent.h>
#include <pthread.h>
extern "C" int pthread_cond_clockwait(pthread_cond_t *, pthread_mutex_t *, clockid_t, const timespec *);
extern "C" int pthread_mutex_clocklock(pthread_mutex_t *, clockid_t, const timespec *);
extern "C" int pthread_rwlock_clockrdlock(pthread_rwlock_t *, clockid_t, const timespec *);
extern "C" int pthread_rwlock_clockwrlock(pthread_rwlock_t *, clockid_t, const timespec *);
inline int malloc_trim(size_t) { return 0; }
inline int scandirat(int, const char *, dirent ***, int (*)(const dirent *), int (*)(const dirent **, const dirent **))
{
    return 0;
}
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
# Library: its sources, those of them that need json-c, and what it is linked with.
STANDINS: dict[str, tuple[str, set[str], tuple[str, ...]]] = {
    "libubox.so": ("libubox/src", {"json_format", "json_parse"}, ()),
    "libubus.so": ("libubus/lib", set(), ("ubox",)), "libuci.so": ("libuci/src", set(), ())}
WIRE = common.ROOT / "compat/libubus/wire"
# What of the platform library stands on a kernel's devices, or on libraries that are not there for musl.
OTHERS = {"address", "address_events", "board", "board_file", "bridge", "fib", "gpio", "link", "link_events", "netlink",
          "registers", "route", "rule", "wanroute"}
NO_JSON = 'struct blob_buf; extern "C" bool blobmsg_add_json_from_string(blob_buf *, const char *) { return false; }\n'


def compiler(others: pathlib.Path) -> list[str]:
    """The compiler with musl's headers; those of the kernel and of other libraries are in a folder of their own."""
    for name in ("linux", "asm-generic", "libmnl", "json-c", "sqlite3.h", "x86_64-linux-gnu/asm"):
        (others / pathlib.Path(name).name).symlink_to(pathlib.Path("/usr/include") / name)
    (others / "bits").mkdir()
    (others / "bits/ctype_base.h").write_text(CTYPE_BASE)
    (others / "missing.h").write_text(MISSING)
    version = common.run("g++", "-dumpversion").strip()
    own = common.run("g++", "-print-file-name=include").strip()
    folders = [others, f"/usr/include/c++/{version}", f"/usr/include/x86_64-linux-gnu/c++/{version}", HEADERS, own]
    return ["g++", "-nostdinc", "-nostdinc++", *(f"-isystem{folder}" for folder in folders), *MISFITS, "-include",
            str(others / "missing.h")]


class Linker:
    """Programs and libraries of one folder, made by one compiler and one linker."""

    def __init__(self, folder: pathlib.Path, words: Sequence[str], linker: Sequence[str]) -> None:
        self.folder, self.linker = folder, linker
        self.words = [*words, *common.FLAGS,
                      *(f"-I{path}" for path in [*common.INCLUDES, *common.BUS_HEADERS])]

    def compiled(self, name: str, sources: Sequence[pathlib.Path], *more: str) -> list[pathlib.Path]:
        folder = self.folder / (name + ".o")
        folder.mkdir()
        objects = [folder / f"{path.parent.name}-{path.stem}.o" for path in sources]

        def one(path: pathlib.Path, to: pathlib.Path) -> None:
            common.run(*self.words, "-Os", "-c", "-o", to, *more, path)

        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            list(pool.map(one, sources, objects))
        return objects

    def link(self, name: str, objects: Sequence[pathlib.Path], libraries: Sequence[str], *more: str) -> None:
        common.run(*self.linker, "-o", self.folder / name, *more, *objects, "-L", self.folder,
                   *(f"-l{one}" for one in libraries), "-Wl,-rpath,$ORIGIN", "-Wl,-z,now", "-Wl,--no-undefined")

    def stand_ins(self) -> None:
        for name, (part, apart, libraries) in STANDINS.items():
            sources = [path for path in sorted((common.ROOT / "compat" / part).glob("*.cpp")) if path.stem not in apart]
            sources += sorted(WIRE.glob("*.cpp")) if name == "libubus.so" else []
            objects = self.compiled(name, sources, f"-I{WIRE}", "-fvisibility=default")
            self.link(name, objects, libraries, "-shared")

    def broker(self) -> None:
        none = self.folder / "no_json.cpp"
        none.write_text(NO_JSON)
        sources = [*sorted((common.ROOT / "compat/libubus/broker").glob("*.cpp")), *sorted(WIRE.glob("*.cpp")), none]
        self.link("ubusd", self.compiled("ubusd", sources, f"-I{WIRE}"), ("ubox",))

    def platform(self, asked: set[str]) -> None:
        """The platform library on a small board; what is asked for beyond it succeeds without doing anything."""
        sources = [path for path in sorted(common.ROOT.glob("libsys/*.cpp")) if path.stem not in OTHERS]
        objects = self.compiled("platform", [*sources, HERE / "small_board.cpp"])
        there = set(re.findall(r"\bT (\w+)", common.run("nm", *objects)))
        declared = set(re.findall(r"\b(\w+)\(",
                                  "\n".join(path.read_text() for path in common.ROOT.glob("src/platform/*.h"))))
        rest = self.folder / "rest.cpp"
        rest.write_text("".join(f'extern "C" int {name}();\nint {name}() {{ return 0; }}\n'
                                for name in sorted((asked & declared) - there)))
        objects += self.compiled("rest", [rest], "-fvisibility=default")
        self.link("libsys.so", objects, ("ubus", "ubox", "uci"), "-shared")

    def daemon(self) -> list[pathlib.Path]:
        return self.compiled("daemon", sorted(common.ROOT.glob("src/*/*.cpp")))

    def peer(self) -> None:
        self.link("small-peer", self.compiled("small-peer", [HERE / "small_peer.cpp"]), ("ubus", "ubox"))


def asked_for(objects: Sequence[pathlib.Path]) -> set[str]:
    """Names that objects leave undefined."""
    return set(re.findall(r"\bU (\w+)", common.run("nm", *objects)))
