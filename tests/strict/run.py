"""Analyses the sources with cppcheck and clang-tidy, and the Python with mypy and flake8. What is left out is in
.clang-tidy, cppcheck.txt, pyproject.toml and .flake8, with reasons.

Most of the time is clang-tidy's analyser, which follows the ways through a function until it has seen as many states
as it may. By default it may see a quarter of its usual number, in a quarter of the time; --deep gives it all.
Each source counts as one test for each tool, all of the Python as one.
"""
import argparse
import json
import os
import shutil
import subprocess
import sys
from collections.abc import Callable, Sequence
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

from tests import progress

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
FOLDERS = ("src", "libsys", "ctl", "compat", "seam", "lab")
SHALLOW_STATES = 60000  # of a function; the analyser's own bound is 225000
INCLUDES = ("src", "libsys", "ctl", ".", "compat/libubox/include", "compat/libubus/include", "compat/libuci/include")
PYTHON = ("lab/labctl", "lab/lab", "lab/vm/mkcpio.py", "lab/vm/unbz.py", "tests")

Check = Callable[[Path], tuple[int, str]]       # of a source: status and what is said


def compiled_sources(build: Path) -> list[Path]:
    """The sources of the folders, as this build compiles them."""
    commands = json.loads((build / "compile_commands.json").read_text())
    found = set()
    for command in commands:
        path = Path(command["file"]).resolve()
        if path.is_relative_to(ROOT) and path.relative_to(ROOT).parts[0] in FOLDERS:
            found.add(path.relative_to(ROOT))
    return sorted(found)


def checked(command: Sequence[object]) -> tuple[int, str]:
    done = subprocess.run([str(word) for word in command], cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=False)
    return done.returncode, done.stdout


def cppcheck(source: Path) -> tuple[int, str]:
    return checked(["cppcheck", "--quiet", "--std=c++20", "--language=c++", "--error-exitcode=1",
                    "--enable=warning,performance,portability", f"--suppressions-list={HERE / 'cppcheck.txt'}",
                    *(f"-I{folder}" for folder in INCLUDES), source])


def clang_tidy(source: Path, build: Path, deep: bool) -> tuple[int, str]:
    # The commands are GCC's, whose warnings clang does not all know.
    extra = ["-Wno-unknown-warning-option"]
    if not deep:
        extra += ["-Xclang", "-analyzer-config", "-Xclang", f"max-nodes={SHALLOW_STATES}"]
    # Headers are ours by their place in this tree, wherever it lies. Those that stand in for a C library's are full
    # of macros that take a member's name, which no parentheses can be put around.
    return checked(["clang-tidy", "-p", build, "--quiet", *(f"--extra-arg={word}" for word in extra),
                    f"--header-filter=^{ROOT}/(src|libsys|ctl|seam|lab|compat/[a-z]+/(src|lib|broker|cli))/", source])


def mypy(build: Path) -> tuple[int, str]:
    return checked(["mypy", f"--cache-dir={build / 'mypy'}", *PYTHON])


def flake8() -> tuple[int, str]:
    return checked(["flake8", ".", "lab/lab"])


def analyse(name: str, check: Check, sources: Sequence[Path], jobs: int) -> tuple[int, int]:
    passed = failed = 0
    progress.at(0, len(sources), name)
    with ThreadPoolExecutor(jobs) as pool:
        for source, (code, output) in zip(sources, pool.map(check, sources)):
            if code == 0:
                passed += 1
            else:
                failed += 1
                print(f"FAIL {name}: {source}\n{output}", flush=True)
            progress.at(passed + failed, len(sources), f"{name} {source}")
    print(f"{name}: {passed} clean, {failed} not", flush=True)
    return passed, failed


def main() -> int:
    parser = argparse.ArgumentParser(prog="tests/strict/run", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default=ROOT / "build", type=Path, help="build folder (default: ./build)")
    parser.add_argument("--deep", action="store_true", help="let the analyser see all the states it wants")
    parser.add_argument("-j", dest="jobs", type=int, default=os.cpu_count() or 1, help="files at once")
    options = parser.parse_args()
    build = options.build.resolve()
    sources = compiled_sources(build)
    if not sources:
        print(f"error: {build} compiles none of {', '.join(FOLDERS)}", file=sys.stderr)
        return 2
    everything = [Path(".")]
    tools: dict[str, tuple[Check, list[Path]]] = {
        "mypy": (lambda _: mypy(build), everything), "flake8": (lambda _: flake8(), everything),
        "cppcheck": (cppcheck, sources),
        "clang-tidy": (lambda source: clang_tidy(source, build, options.deep), sources),
    }
    passed = failed = skipped = 0
    for name, (check, subjects) in tools.items():
        if not shutil.which(name):
            print(f"skipped: {name} is not installed")
            skipped += 1
            continue
        good, bad = analyse(name, check, subjects, options.jobs)
        passed, failed = passed + good, failed + bad
    print(f"{passed} passed, {failed} failed, {skipped} skipped")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
