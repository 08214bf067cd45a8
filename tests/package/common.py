"""Where the build is, and what the package tests share."""

import os
import pathlib
import re
import subprocess

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("IVARODE_BUILD", ROOT / "build")).resolve()
IMAGE = ROOT / "image/files"
BUS_LIBRARIES = ("libubox.so", "libubus.so", "libuci.so", "libblobmsg_json.so")
BUS_HEADERS = [ROOT / "compat" / name / "include" for name in ("libubox", "libubus", "libuci")]


def run(*words, **options):
    """A command's output; fails the test, with everything the command said, when the command fails."""
    done = subprocess.run([str(word) for word in words], capture_output=True, text=True, **options)
    assert done.returncode == 0, f"{words}: status {done.returncode}\n{done.stdout[-6000:]}\n{done.stderr[-6000:]}"
    return done.stdout


def files(folder):
    """Files and links below a folder, by their paths in it."""
    return sorted(str(path.relative_to(folder)) for path in folder.rglob("*") if path.is_symlink() or path.is_file())


def needed(path):
    """Names of the libraries that a program or library asks for."""
    return re.findall(r"\(NEEDED\).*\[(.*)\]", run("readelf", "-d", path))


def is_elf(path):
    return not path.is_symlink() and path.is_file() and path.read_bytes()[:4] == b"\x7fELF"


def resolved(path):
    """Library name -> file that the loader takes, all of them found."""
    found = dict(re.findall(r"^\s*(\S+) => (.*?)(?: \(0x[0-9a-f]+\))?$", run("ldd", path), re.M))
    assert not [name for name, where in found.items() if where == "not found"], (path, found)
    return found
