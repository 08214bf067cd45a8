"""Which bus and configuration libraries are measured, and a build in which they are others."""

import contextlib
import os
import re
import shutil
import subprocess
import tempfile
from collections.abc import Iterator
from pathlib import Path

NAMES = ("libubox.so", "libblobmsg_json.so", "libubus.so", "libuci.so")


@contextlib.contextmanager
def exchanged(build: Path, given: Path) -> Iterator[Path]:
    """A build folder like that one, in which the libraries that a folder holds take the place of its own."""
    found = [name for name in NAMES if (given / name).exists()]
    if not found:
        raise FileNotFoundError(f"none of {', '.join(NAMES)} in {given}")
    with tempfile.TemporaryDirectory(prefix="libraries-", dir=build) as text:
        folder = Path(text)
        for part in ("bin", "lib"):     # programs look for libraries beside the folder that they lie in
            shutil.copytree(build / part, folder / part, symlinks=True, copy_function=os.link)
        for name in found:
            (folder / "lib" / name).unlink(missing_ok=True)
            shutil.copyfile(given / name, folder / "lib" / name)
        yield folder


def described(build: Path, given: Path | None) -> str:
    """Where each library that the programs of a build load comes from."""
    said = "".join(subprocess.run(["ldd", build / "bin" / program], capture_output=True, text=True, check=True).stdout
                   for program in ("bench", "bench-parts"))
    origins: dict[str, list[str]] = {}
    for name in NAMES:
        path = re.search(rf"{re.escape(name)} => (\S+) ", said)
        if not path:
            raise FileNotFoundError(f"{name} is not found by the programs in {build}")
        if not Path(path[1]).resolve().is_relative_to(build):
            origin = str(Path(path[1]).parent)
        else:
            origin = str(given) if given and (given / name).exists() else "the stand-ins of this tree"
        origins.setdefault(origin, []).append(name)
    return "; ".join(f"{', '.join(names)} of {origin}" for origin, names in origins.items())
