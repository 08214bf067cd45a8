"""Where things are. One lab is one folder below build/lab, or below IVARODE_LAB_STATE where the programs are installed;
nothing else on the machine is written."""

from __future__ import annotations

import os
import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
LAB = ROOT / "lab"
DEFAULT_LAB = "default"


def build_dir() -> pathlib.Path:
    return pathlib.Path(os.environ.get("IVARODE_BUILD", ROOT / "build")).resolve()


def programs_dir(mode: str) -> pathlib.Path:
    """Programs built for the machine that a board runs on; those of the MIPS machine have a separate folder."""
    return build_dir() / "mipsel" if mode == "mips" else build_dir()


def state_dir(name: str) -> pathlib.Path:
    return pathlib.Path(os.environ.get("IVARODE_LAB_STATE", build_dir() / "lab")).resolve() / name


def cache_dir() -> pathlib.Path:
    own = os.environ.get("IVARODE_LAB_CACHE")
    if own:
        return pathlib.Path(own)
    base = os.environ.get("XDG_CACHE_HOME") or pathlib.Path.home() / ".cache"
    return pathlib.Path(base) / "ivarode-lab"
