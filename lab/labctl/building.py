"""What ./run does first: build the tree, showing how far it is, with all that the tools say in a log."""

from __future__ import annotations

import os
import re
import subprocess
import sys

from . import machine, paths, terminal, tour

LAST_LINES = 40
FAILED = re.compile(r"^FAILED: ", re.MULTILINE)


def commands(folder: str, mips: bool) -> list[list[str]]:
    if mips:
        return [["lab/vm/cross-build.sh", f"{folder}/mipsel"]]
    generator = [] if os.path.exists(f"{folder}/CMakeCache.txt") else ["-G", "Ninja"]
    return [["cmake", "-S", ".", "-B", folder, *generator, "-DCMAKE_BUILD_TYPE=Release", "-DIVARODE_LAB=ON"],
            ["cmake", "--build", folder, "--parallel"]]


def what_went_wrong(log: str) -> str:
    """From the first command that failed on, without those that went well beside it; else the last lines."""
    failed = FAILED.search(log)
    if not failed:
        return "\n".join(log.splitlines()[-LAST_LINES:])
    return "\n".join(line for line in log[failed.start():].splitlines() if not terminal.HOW_FAR.match(line))


def build(folder: str, mips: bool, live: terminal.Live) -> bool:
    os.makedirs(folder, exist_ok=True)
    place = f"{folder}/build.log"
    if not os.path.isdir(f"{folder}/bin"):
        print(f"The first build takes some minutes; what it says is in {place}", file=live, flush=True)
    with open(place, "w", encoding="utf-8") as log, live.doing(terminal.Step("Building", look=machine.fetched)) as step:
        for words in commands(folder, mips):
            with subprocess.Popen(words, cwd=paths.ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                  stdin=subprocess.DEVNULL, text=True, errors="replace") as process:
                for line in process.stdout or ():
                    log.write(line)
                    step.heard(line)
            if process.returncode != 0:
                break
    if process.returncode != 0:
        with open(place, encoding="utf-8") as log:
            print(what_went_wrong(log.read()), file=sys.stderr)
        print(f"./run: the build failed, see {place}", file=sys.stderr)
    return process.returncode == 0


def main(argv: list[str]) -> int:
    mips = tour.options(argv).mode == "mips"
    folder = os.environ.get("IVARODE_BUILD", "build")
    try:
        with terminal.Live(sys.stdout) as live:
            print(f"Building {'for MIPS ' if mips else ''}into {folder}/{'mipsel/' if mips else ''} ...", file=live,
                  flush=True)
            return 0 if build(folder, mips, live) else 1
    except KeyboardInterrupt:
        return 130


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
