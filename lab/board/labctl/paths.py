"""Where things are. One lab is one folder below build/lab, or below IVARODE_LAB_STATE where the programs are installed;
nothing else on the machine is written."""

import os
import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[3]
LAB = ROOT / "lab"
DEFAULT_LAB = "default"


def build_dir():
    return pathlib.Path(os.environ.get("IVARODE_BUILD", ROOT / "build")).resolve()


def programs_dir(mode):
    """What is built for the machine that a board runs on: the MIPS machine's has a folder of its own."""
    return build_dir() / "mipsel" if mode == "mips" else build_dir()


def state_dir(name):
    return pathlib.Path(os.environ.get("IVARODE_LAB_STATE", build_dir() / "lab")).resolve() / name


def cache_dir():
    own = os.environ.get("IVARODE_LAB_CACHE")
    if own:
        return pathlib.Path(own)
    base = os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache"
    return pathlib.Path(base) / "ivarode-lab"
