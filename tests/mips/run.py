"""Builds the daemon for little-endian and big-endian MIPS and takes it there, in user-mode emulation, through its
scenarios (of each table one row, unless asked for all), the model and the tests in process. A processor whose
compiler or emulator is missing is skipped, by name.
"""
import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
import xml.etree.ElementTree as ElementTree
from collections.abc import Sequence
from pathlib import Path

from tests.mips import recorded
from tests.runners import BUILD

ROOT = Path(__file__).resolve().parent.parent.parent
GOOGLETEST = Path("/usr/src/googletest")
PROCESSORS = {"mipsel": "little-endian", "mips": "big-endian"}
# What runs long in emulation and depends on the sources alone is left out.
PROGRAMS = (("mips-bus-test", "*"), ("daemon-unit-test", "*"), ("model-test", "Random.*:Warned.*"))
# Emulation costs about ten times the time; fewer seeds, not fewer kinds of steps.
ENVIRONMENT = {**os.environ, "MODEL_SEEDS": "20"}


class BuildError(Exception):
    """A step of the build went wrong; its output has been shown."""


def missing(processor: str) -> list[str]:
    wanted = [f"{processor}-linux-gnu-g++", f"qemu-{processor}"]
    return [tool for tool in wanted if not shutil.which(tool)] + ([] if GOOGLETEST.is_dir() else [str(GOOGLETEST)])


def step(*command: object) -> None:
    print("+", " ".join(str(word) for word in command), flush=True)
    done = subprocess.run([str(word) for word in command], cwd=ROOT, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
    if done.returncode != 0:
        raise BuildError(done.stdout[-6000:])


def build(processor: str, folder: Path, jobs: str) -> None:
    # The daemon is optimised as it ships; the tests are not, which halves the time of building them.
    common = ["-G", "Ninja", f"-DCMAKE_TOOLCHAIN_FILE={ROOT}/cmake/{processor}.cmake", "-DCMAKE_BUILD_TYPE=Release",
              "-DCMAKE_CXX_FLAGS_RELEASE=-DNDEBUG"]
    if shutil.which("ccache"):
        common += ["-DCMAKE_CXX_COMPILER_LAUNCHER=ccache", "-DCMAKE_C_COMPILER_LAUNCHER=ccache"]
    googletest = folder / "googletest"
    if not (googletest / "lib/cmake/GTest/GTestConfig.cmake").exists():
        step("cmake", "-S", GOOGLETEST, "-B", folder / "googletest-build", *common,
             f"-DCMAKE_INSTALL_PREFIX={googletest}", "-DCMAKE_INSTALL_LIBDIR=lib")
        step("cmake", "--build", folder / "googletest-build", "-j", jobs, "--target", "install")
    # json-c is named but not linked: nothing that is built here uses it.
    step("cmake", "-S", ".", "-B", folder, *common, "-DCMAKE_COMPILE_WARNING_AS_ERROR=ON",
         "-DIVARODE_TESTS=ON", "-DIVARODE_STANDINS=ON",
         "-DJSON_C_INCLUDE_DIR=/usr/include", "-DJSON_C_LIBRARY=json-c", "-DFUZZ_JSON_C_INCLUDE_DIR=/usr/include",
         f"-DGTest_DIR={googletest}/lib/cmake/GTest")
    step("cmake", "--build", folder, "-j", jobs, "--target", "mips-tests")


def run_program(emulator: Sequence[str], program: Path, chosen: str) -> tuple[int, int]:
    """Passed and failed tests of one GoogleTest program."""
    with tempfile.TemporaryDirectory() as scratch:
        report = Path(scratch) / "report.xml"
        done = subprocess.run([*emulator, str(program), f"--gtest_filter={chosen}", "--gtest_brief=1",
                               f"--gtest_output=xml:{report}"],
                              env=ENVIRONMENT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, check=False)
        if not report.exists():
            print(done.stdout.decode("utf-8", "replace")[-4000:])
            print(f"FAIL {program.name}: ended with {done.returncode} and without a report")
            return 0, 1
        total = ElementTree.parse(report).getroot()
    tests, failed = int(total.attrib["tests"]), int(total.attrib["failures"]) + int(total.attrib["errors"])
    if done.returncode != 0 or tests == 0:
        print(done.stdout.decode("utf-8", "replace")[-4000:])
        failed = max(failed, 1)
    print(f"{program.name}: {tests - failed} passed, {failed} failed of {tests}", flush=True)
    return tests - failed, failed


def run_scenarios(emulator: Sequence[str], folder: Path, options: argparse.Namespace) -> tuple[int, int]:
    # Sweeps and endurance runs repeat what byte order and word size do not change, some of it 10,000 times.
    done = subprocess.run([str(ROOT / "tests/conformance/run"), "--scenarios", "--build", str(folder / "recorded"),
                           "--prefix", " ".join(emulator), "-j", options.jobs,
                           *([] if options.scenarios else ["--firsts"])], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
    counts = re.search(r"^(\d+) passed, (\d+) failed", done.stdout, re.M)
    passed, failed = (int(counts[1]), int(counts[2])) if counts else (0, 1)
    if failed or done.returncode != 0:
        print(done.stdout[-4000:])
        failed = max(failed, 1)
    print(f"scenarios: {passed} passed, {failed} failed", flush=True)
    return passed, failed


def run_recordings(emulator: Sequence[str], folder: Path) -> tuple[int, int]:
    if not (BUILD / "seam/ivarode-recording").exists():
        print(f"recordings: {BUILD} is not built, which reads them here")
        return 0, 1
    complaints = recorded.complaints(BUILD, folder / "recorded", emulator)
    print("\n".join(complaints) or "recordings: read and replayed on either processor", flush=True)
    return (0, 1) if complaints else (1, 0)


def main() -> int:
    parser = argparse.ArgumentParser(prog="tests/mips/run", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default=ROOT / "build-mips", type=Path, help="build folder (./build-mips)")
    parser.add_argument("--processor", choices=PROCESSORS, help="this one alone")
    parser.add_argument("-j", dest="jobs", default=str(os.cpu_count() or 1), help="compilers at once")
    parser.add_argument("--scenarios", action="store_true", help="every row of the scenarios' tables")
    options = parser.parse_args()
    passed = failed = skipped = 0
    for processor, order in PROCESSORS.items():
        if options.processor not in (None, processor):
            continue
        lacking = missing(processor)
        if lacking:
            print(f"skipped: {order} MIPS, without {', '.join(lacking)}")
            skipped += 1
            continue
        print(f"-- {order} MIPS", flush=True)
        folder = options.build.resolve() / processor
        emulator = [f"qemu-{processor}", "-L", f"/usr/{processor}-linux-gnu"]
        try:
            build(processor, folder, options.jobs)
        except BuildError as error:
            print(f"{error}\nFAIL build for {order} MIPS")
            failed += 1
            continue
        results = [run_program(emulator, folder / "bin" / name, chosen) for name, chosen in PROGRAMS]
        results += [run_scenarios(emulator, folder, options), run_recordings(emulator, folder)]
        for good, bad in results:
            passed, failed = passed + good, failed + bad
    print(f"{passed} passed, {failed} failed, {skipped} skipped")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
