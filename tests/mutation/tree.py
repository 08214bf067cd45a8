"""The mutated tree: a copy of the sources in which one number chooses the mutant, built with the tests around it.

Each body that can be mutated becomes a switch over the number: a copy of the body for each of its mutants, and last
the body as it is, where each statement also notes that it is reached. What is outside of bodies (tables, constants,
what is computed by the compiler) is compiled once more for each mutant of it, and linked with the rest of that tree.
"""
from __future__ import annotations

import json
import os
import re
import shlex
import shutil
import subprocess
from collections import defaultdict
from pathlib import Path

from tests.mutation.mutants import Mutant
from tests.mutation.source import Region, Source

HERE = Path(__file__).resolve().parent
ROOT = HERE.parent.parent
DAEMON = ("ivarode", "recorder", "entries", "record", "ivarode-recording")
IN_PROCESS = ("daemon-unit-test", "model-test")
OF_ONE_MUTANT = re.compile(r"^mutant-(\d+):\d+:\d+: (?:fatal )?error: (.*)$", re.M)
# Tests are told from what they run on by what the build calls their folders.
PARTS = re.compile(r"(?:ivarode_parts|ivarode)\.dir/")


class BuildError(Exception):
    """The mutated tree cannot be built; the text says why."""


class Markers:
    """A number for each statement of the bodies, in all sources."""

    def __init__(self, sources: list[Source]) -> None:
        self.sources = sources
        self.number: dict[tuple[str, int], int] = {}
        for source in sources:
            for region in source.regions:
                for token in region.statements:
                    self.number[source.name, token] = len(self.number)

    def of_body(self, mutant: Mutant) -> frozenset[int]:
        """The statement that is run whenever the mutant's place is."""
        marker = mutant.region.marker_of.get(mutant.token)
        if marker is None:
            return frozenset(self.number[mutant.source.name, token] for token in mutant.region.statements)
        return frozenset((self.number[mutant.source.name, marker],))

    def made_of(self, mutant: Mutant) -> tuple[list[Source], frozenset[str]]:
        """Where a mutant of a declaration may be seen, and the names of all that is declared by naming it."""
        names = set(mutant.region.names)
        sources = self.sources if mutant.key.file.endswith(".h") else [mutant.source]
        declared = [(source, region) for source in sources for region in source.regions if not region.runs]
        grown = True
        while grown:
            grown = False
            for source, region in declared:
                if not region.names <= names and source.mentions(frozenset(names), region.first, region.last):
                    names |= region.names
                    grown = True
        return sources, frozenset(names)

    def of_declaration(self, mutant: Mutant) -> frozenset[int]:
        """The statements that name it, or something that is declared by naming it."""
        sources, names = self.made_of(mutant)
        return frozenset(self.number[source.name, token] for source in sources for region in source.regions
                         for token in region.statements
                         if source.mentions(names, token, self._end(source, region, token)))

    @staticmethod
    def _end(source: Source, region: Region, token: int) -> int:
        """The last token that belongs to the statement and to no later one."""
        return next((other - 1 for other in region.statements if other > token), region.last)


class Tree:
    """The mutated tree and its build."""

    def __init__(self, sources: list[Source], markers: Markers, folder: Path, root: Path = ROOT) -> None:
        self.sources, self.markers, self.root = sources, markers, root
        self.folder, self.copy, self.build = folder, folder / "tree", folder / "build"
        self.left_out: dict[int, str] = {}          # mutant -> why it does not compile
        self._commands: dict[str, str] = {}

    def write(self, mutants: list[Mutant]) -> None:
        """Everything but src/ is linked, src/ is written with these mutants."""
        self.copy.mkdir(parents=True, exist_ok=True)
        for path in self.root.iterdir():
            link = self.copy / path.name
            if path.name != "src" and not path.name.startswith((".", "build")) and not link.is_symlink():
                link.symlink_to(path)
        for path in (self.root / "src").rglob("CMakeLists.txt"):
            put(self.copy / path.relative_to(self.root), path.read_text(encoding="utf-8"))
        put(self.folder / "include" / "mutant.h", (HERE / "mutant.h").read_text(encoding="utf-8"))
        by_region = defaultdict(list)
        for mutant in mutants:
            if mutant.runs and mutant.number not in self.left_out:
                by_region[mutant.key.file, mutant.region.first].append(mutant)
        for source in self.sources:
            put(self.copy / "src" / source.name, self._render(source, by_region))

    def _render(self, source: Source, by_region: dict[tuple[str, int], list[Mutant]]) -> str:
        # Thousands of bodies that run for a moment: most of the time would go into making them fast.
        out, at = [f'#pragma GCC optimize("O0")\n#line 1 "{source.name}"\n'], 0
        for region in source.regions:
            if not region.runs:
                continue
            start, end = source.tokens[region.first].start, source.tokens[region.last].end
            line = source.tokens[region.first].line
            out.append(source.text[at:start])
            chosen = by_region.get((source.name, region.first), [])
            if chosen:
                out.append("{ switch (mutant_chosen) {\n")
                out += [f'case {mutant.number}:\n#line {line} "mutant-{mutant.number}"\n'
                        f"{source.text[start:mutant.start]}{mutant.checked}{source.text[mutant.end:end]}\nbreak;\n"
                        for mutant in chosen]
                out.append(f'default:\n#line {line} "{source.name}"\n')
            out.append(self._marked(source, region))
            if chosen:
                out.append(f'\n}}\n#line {source.tokens[region.last].line} "{source.name}"\n}}')
            at = end
        return "".join(out) + source.text[at:]

    def _marked(self, source: Source, region: Region) -> str:
        out, at = [], source.tokens[region.first].start
        for token in region.statements:
            start = source.tokens[token].start
            out += [source.text[at:start], f"mutant_reached({self.markers.number[source.name, token]}); "]
            at = start
        return "".join(out) + source.text[at:source.tokens[region.last].end]

    def configure(self) -> None:
        flags = f"-w -Wno-narrowing -U_FORTIFY_SOURCE -include {self.folder}/include/mutant.h"
        options = [f"-DCMAKE_CXX_FLAGS={flags}", "-DCMAKE_BUILD_TYPE=Release", "-DIVARODE_TESTS=ON"]
        if shutil.which("ccache"):
            options += ["-DCMAKE_C_COMPILER_LAUNCHER=ccache", "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
        done = run("cmake", "-S", self.copy, "-B", self.build, "-G", "Ninja", *options)
        if done.returncode != 0:
            raise BuildError(done.stdout)

    def make(self, mutants: list[Mutant], jobs: int, targets: tuple[str, ...] = DAEMON) -> None:
        """Builds; what does not compile is left out, and why is kept."""
        while True:
            self.write(mutants)
            done = run("cmake", "--build", self.build, "-j", jobs, "--target", *targets, "--", "-k", 0)
            if done.returncode == 0:
                return
            found = {int(number): text for number, text in OF_ONE_MUTANT.findall(done.stdout)}
            if not found:
                raise BuildError(done.stdout[-6000:])
            self.left_out.update(found)

    def commands(self, target: str) -> list[str]:
        return run("ninja", "-C", self.build, "-t", "commands", target, check=True).stdout.splitlines()

    def prepare_variants(self) -> None:
        """Reads how the daemon's parts are compiled and linked."""
        entries = json.loads((self.build / "compile_commands.json").read_text(encoding="utf-8"))
        source = self.copy / "src"
        self._commands = {Path(entry["file"]).relative_to(source).as_posix(): entry["command"] for entry in entries
                          if Path(entry["file"]).is_relative_to(source) and PARTS.search(entry["command"])}
        self._links = {target: self.commands(target)[-1] for target in ("ivarode", "entries")}

    def affected(self, mutant: Mutant) -> list[str]:
        """The sources to compile again for a mutant of a declaration."""
        if mutant.key.file.endswith(".cpp"):
            return [mutant.key.file]
        including = includers(self.sources, mutant.key.file)
        sources, names = self.markers.made_of(mutant)
        naming = {source.name for source in sources for region in source.regions
                  if region is not mutant.region and source.mentions(names, region.first, region.last)}
        # What a header makes of it may be used without a name of it, as the size of a record is.
        for header in [name for name in naming if name.endswith(".h")]:
            naming |= includers(self.sources, header)
        return [name for name in self._commands if name in including and name in naming]

    def variant(self, mutant: Mutant, folder: Path) -> str | None:
        """Builds the daemon with this one mutant into a folder that is laid out as a build; why not, if not."""
        source = mutant.source
        put(folder / "src" / source.name,
            f"{source.text[:mutant.start]}{mutant.replacement}{source.text[mutant.end:]}")
        objects: dict[str, str] = {}
        for number, name in enumerate(self.affected(mutant)):
            words = shlex.split(self._commands[name])
            output = words[words.index("-o") + 1]
            objects[output] = str(folder / f"{number}.o")
            words[words.index("-o") + 1] = objects[output]
            if name == source.name:
                words[words.index("-c") + 1] = str(folder / "src" / name)
            # Before the first folder of headers stands the one with the mutant.
            first = next(at for at, word in enumerate(words) if word.startswith("-I"))
            words.insert(first, f"-I{folder / 'src'}")
            done = run(*words, cwd=self.build)
            if done.returncode != 0:
                return next((line.partition("error: ")[2] for line in done.stdout.splitlines() if "error: " in line),
                            done.stdout[-200:])
        for target, link in self._links.items():
            words = shlex.split(link.removeprefix(": && ").removesuffix(" && :"))
            output = words[words.index("-o") + 1]
            words[words.index("-o") + 1] = str(folder / output)
            (folder / output).parent.mkdir(exist_ok=True)
            for library in (self.build / output).parent.glob("*.so"):
                (folder / output).with_name(library.name).symlink_to(library)
            done = run(*[objects.get(word, word) for word in words], cwd=self.build)
            if done.returncode != 0:
                raise BuildError(f"{target}: {done.stdout[-3000:]}")
        (folder / "lib").symlink_to(self.build / "lib")
        return None


def includers(sources: list[Source], header: str) -> set[str]:
    """What includes a header, also by way of others."""
    found, grown = {header}, True
    while grown:
        grown = False
        for source in sources:
            if source.name not in found and any(f'#include "{name}"' in source.text for name in found):
                found.add(source.name)
                grown = True
    return found


def put(path: Path, text: str) -> None:
    """Writes a file unless it says this already, so that only what changed is compiled again."""
    if not path.exists() or path.read_text(encoding="utf-8") != text:
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text, encoding="utf-8")


def run(*command: object, check: bool = False, cwd: Path | None = None) -> subprocess.CompletedProcess[str]:
    environment = {**os.environ, "CCACHE_BASEDIR": os.environ.get("CCACHE_BASEDIR", str(ROOT)), "LC_ALL": "C"}
    return subprocess.run([str(word) for word in command], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          errors="replace", check=check, cwd=cwd, env=environment)
