"""Runs the fuzz targets with libFuzzer, one after the other, each for a while.

Begins with the saved inputs of tests/fuzz/corpus and with what earlier runs found in the build folder. An input that
breaks something is kept under findings/ there. Exits with 77 when there is no clang."""

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
from collections.abc import Sequence
from pathlib import Path
from typing import Any

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
NO_CLANG = 77
# These replace sleep() and its like, which the fuzzer's own watch over memory would call too.
WITHOUT_MEMORY_WATCH = {"method", "procnetdev"}
LONGEST_INPUT = {"broker": 8192, "client": 4096, "frames": 8192, "method": 4096, "netlink": 2048}


def command(*words: object, **options: Any) -> subprocess.CompletedProcess[bytes]:
    return subprocess.run([str(word) for word in words], check=False, **options)


def build(folder: Path, targets: Sequence[str]) -> None:
    compilers = ["-DCMAKE_C_COMPILER=clang", "-DCMAKE_CXX_COMPILER=clang++"]
    # Warnings are the business of the ordinary build.
    flags = "-DCMAKE_CXX_FLAGS=-w -fsanitize=fuzzer-no-link"
    done = command("cmake", "-S", ROOT, "-B", folder, "-G", "Ninja", *compilers, flags, "-DIVARODE_TESTS=ON",
                   "-DIVARODE_SANITIZE=ON", "-DIVARODE_FUZZER=ON", "-DIVARODE_STANDINS=ON",
                   "-DCMAKE_BUILD_TYPE=RelWithDebInfo", stdout=subprocess.DEVNULL)
    if done.returncode == 0:
        done = command("cmake", "--build", folder, "--target", *[f"fuzz-{target}" for target in targets])
    if done.returncode != 0:
        sys.exit("fuzz: the build failed")


def fuzz(folder: Path, target: str, seconds: int) -> tuple[int, bool]:
    """Executions, and whether nothing broke."""
    found, broken = folder / "found" / target, folder / "findings"
    found.mkdir(parents=True, exist_ok=True)
    broken.mkdir(exist_ok=True)
    memory = 0 if target in WITHOUT_MEMORY_WATCH else 1500
    words = ["nice", folder / "bin" / f"fuzz-{target}", found, HERE / "corpus" / target,
             f"-max_total_time={seconds}", f"-max_len={LONGEST_INPUT.get(target, 2048)}", "-print_final_stats=1",
             "-timeout=25", f"-rss_limit_mb={memory}", "-reload=0", f"-artifact_prefix={broken}/{target}-"]
    dictionary = HERE / "dictionaries" / target
    if dictionary.exists():
        words.append(f"-dict={dictionary}")
    log = folder / f"fuzz-{target}.log"
    # Some targets write files, and the fuzzer ends without their tidying up.
    memory_disk = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
    with open(log, "wb") as out, tempfile.TemporaryDirectory(dir=memory_disk) as place:
        environment = {"UBSAN_OPTIONS": "print_stacktrace=1", **os.environ, "TMPDIR": place}
        done = command(*words, stdout=out, stderr=subprocess.STDOUT, env=environment)
    text = log.read_text(errors="replace")
    counted = re.search(r"stat::number_of_executed_units:\s*(\d+)", text)
    executions = int(counted.group(1)) if counted else 0
    if done.returncode != 0 or executions == 0:
        report = [line for line in text.splitlines() if not re.match(r"#\d+\s", line)]
        print("\n".join(report[-60:]))
        print(f"{target}: broken after {executions} executions; log: {log}, input: {broken}")
        return executions, False
    print(f"{target}: {executions} executions", flush=True)
    return executions, True


def main() -> int:
    known = sorted(path.name for path in (HERE / "corpus").iterdir())
    parser = argparse.ArgumentParser(prog="tests/fuzz/run", description=__doc__)
    parser.add_argument("--seconds", type=int, default=60, metavar="N", help="for each target (default: 60)")
    parser.add_argument("--build", type=Path, default=ROOT / "build-fuzz", metavar="FOLDER",
                        help="where to build (default: build-fuzz)")
    parser.add_argument("targets", nargs="*", metavar="TARGET", help="all, or some of: " + ", ".join(known))
    arguments = parser.parse_args()
    unknown = [target for target in arguments.targets if target not in known]
    if unknown:
        parser.error("no such target: " + ", ".join(unknown))
    if not shutil.which("clang++"):
        print("fuzz: clang++ is not installed, so there is nothing to fuzz with")
        print("0 passed, 0 failed, 1 skipped")
        return NO_CLANG

    targets = arguments.targets or known
    build(arguments.build, targets)
    total, broken = 0, 0
    for target in targets:
        executions, sound = fuzz(arguments.build, target, arguments.seconds)
        total += executions
        broken += 0 if sound else 1
    print(f"executions: {total}")
    print(f"{len(targets) - broken} passed, {broken} failed, 0 skipped")
    return 1 if broken else 0


if __name__ == "__main__":
    sys.exit(main())
