"""Other builds of the bus and configuration libraries, of the same ABI: another compiler where there is one, without
optimisation, and with the broker's socket where older images have it."""

import pathlib
import re
import shutil
from collections.abc import Sequence

from tests.package import bus_headers, common

# Library: its part of the tree, its sources there (None: all), what it is linked with.
SOURCES: dict[str, tuple[str, list[str] | None, list[str]]] = {
    "libubox.so": ("libubox", ["avl", "blob", "blob_parse", "blobmsg_build", "blobmsg_parse", "uloop", "uloop_fd",
                               "uloop_process", "uloop_timeout"], []),
    "libblobmsg_json.so": ("libubox", ["json_format", "json_parse"], ["-lubox", "-ljson-c"]),
    "libubus.so": ("libubus", None, ["-lubox"]),
    "libuci.so": ("libuci", None, []),
}
WIRE = common.ROOT / "compat/libubus/wire"


def build(folder: pathlib.Path, compiler: Sequence[str] = ()) -> list[str]:
    """Fills a folder with the four libraries; returns their names. compiler: its words, for another processor."""
    words = compiler or [shutil.which("clang++") or "g++"]
    headers = folder / "include"
    for source in common.BUS_HEADERS:
        shutil.copytree(source, headers, dirs_exist_ok=True)
    text, count = re.subn(r'(#define UBUS_UNIX_SOCKET) "[^"]*"', fr'\1 "{bus_headers.OLD_SOCKET}"',
                          (headers / "ubus_common.h").read_text())
    assert count == 1
    (headers / "ubus_common.h").write_text(text)
    for library, (part, names, more) in SOURCES.items():
        base = common.ROOT / "compat" / part / ("lib" if part == "libubus" else "src")
        sources = sorted(base.glob("*.cpp")) if names is None else [base / (name + ".cpp") for name in names]
        if part == "libubus":
            sources.append(WIRE / "wire.cpp")
        common.run(*words, "-std=gnu++20", "-O0", "-fPIC", "-shared", "-fno-exceptions", "-fno-rtti", "-nodefaultlibs",
                   "-I", headers, "-I", WIRE, "-o", folder / library, *sources, "-L", folder, *more, "-lc", "-lgcc")
    shutil.rmtree(headers)
    return sorted(SOURCES)
