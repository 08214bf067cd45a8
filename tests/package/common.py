"""Where the build is, and what the package tests share."""

import os
import pathlib
import re
import shutil
import subprocess
from typing import Any

import pytest

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("IVARODE_BUILD", ROOT / "build")).resolve()
IMAGE = ROOT / "image/files"
BUS_LIBRARIES = ("libubox.so", "libubus.so", "libuci.so", "libblobmsg_json.so")
BUS_HEADERS = [ROOT / "compat" / name / "include" for name in ("libubox", "libubus", "libuci")]
FEED = ROOT / "packaging/openwrt"
SDK = ROOT / "tests/package/sdk"                # stands in for an image builder's
# What the daemon and the platform library are compiled with, and their sources.
FLAGS = ["-std=gnu++20", "-Wall", "-Wextra", "-Wshadow", "-Wconversion", "-Werror", "-fno-exceptions", "-fno-rtti",
         "-fno-threadsafe-statics", "-fvisibility=hidden", "-fPIC", '-DIVARODE_VERSION=""', '-DIVARODE_BUILD=""']
INCLUDES = [ROOT / "src", ROOT / "libsys", ROOT / "ctl", ROOT]
RECORDING = ROOT / "seam/record"                # what runs in front of the daemon, with the sources it shares
SOURCES = sorted([*ROOT.glob("src/*/*.cpp"), *ROOT.glob("libsys/*.cpp"), *ROOT.glob("ctl/**/*.cpp")])

Packages = dict[str, pathlib.Path]              # name -> folder with "data", "control" and "conffiles"
DebianPackage = tuple[pathlib.Path, pathlib.Path]       # and the folder in which it is unpacked

dpkg = pytest.mark.skipif(shutil.which("dpkg-deb") is None, reason="no Debian tools")


def run(*words: object, **options: Any) -> str:
    """A command's output; fails the test, with everything the command said, when the command fails."""
    done = subprocess.run([str(word) for word in words], capture_output=True, text=True, **options)
    assert done.returncode == 0, f"{words}: status {done.returncode}\n{done.stdout[-6000:]}\n{done.stderr[-6000:]}"
    return done.stdout


def files(folder: pathlib.Path) -> list[str]:
    """Files and links below a folder, by their paths in it."""
    return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_symlink() or path.is_file())


def needed(path: pathlib.Path) -> list[str]:
    """Names of the libraries that a program or library asks for."""
    return re.findall(r"\(NEEDED\).*\[(.*)\]", run("readelf", "-d", path))


def is_elf(path: pathlib.Path) -> bool:
    return not path.is_symlink() and path.is_file() and path.read_bytes()[:4] == b"\x7fELF"


def resolved(path: pathlib.Path) -> dict[str, str]:
    """Library name -> file that the loader takes, all of them found."""
    found = dict(re.findall(r"^\s*(\S+) => (.*?)(?: \(0x[0-9a-f]+\))?$", run("ldd", path), re.M))
    assert not [name for name, where in found.items() if where == "not found"], (path, found)
    return found


def library_script() -> str:
    """What runs when the platform library has been installed, as the feed has it."""
    text = (FEED / "ivarode/Makefile").read_text()
    found = re.search(r"^define Package/libsys/postinst\n(.*?)^endef$", text, re.M | re.S)
    assert found
    return found[1].replace("$$", "$")
