"""The facts that the daemon itself gives (main.cpp), for tests that compare other files with them."""

import functools
import json
import os
import subprocess
from dataclasses import dataclass
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]


@dataclass(frozen=True)
class Method:
    fields: dict[str, str]      # name: "text", "number" or "array of texts", in their order
    mask: int
    tags: int


@dataclass(frozen=True)
class Facts:
    objects: dict[str, dict[str, Method]]
    hooks: list[tuple[str, str, str]]       # table, parent and chain
    refilled: list[tuple[str, str]]         # table and chain

    def methods(self) -> list[tuple[str, str]]:
        return [(name, method) for name, table in self.objects.items() for method in table]


@functools.cache
def facts(build: Path | None = None) -> Facts:
    """Those of the build folder given, or of the tree's own."""
    program = (build or Path(os.environ.get("IVARODE_BUILD", ROOT / "build"))) / "bin" / "daemon-facts"
    if not program.exists():
        raise FileNotFoundError(f"{program} is not built: run cmake --build build --target daemon-facts")
    told = json.loads(subprocess.run([program], stdout=subprocess.PIPE, check=True).stdout)
    objects = {name: {method: Method(**about) for method, about in table["methods"].items()}
               for name, table in told["objects"].items()}
    hooks = [(table, parent, chain) for table, parent, chain in told["hooks"]]
    return Facts(objects, hooks, [(table, chain) for table, chain in told["refilled"]])
