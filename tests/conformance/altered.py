"""A daemon with one place of its sources altered: everything else is as it was built."""
import json
import shlex
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]


def altered_daemon(build: Path, source: str, old: str, new: str, folder: Path) -> Path:
    """Compiles a source of src/ in which `new` stands for `old`, and links it with the parts of the build."""
    text = (ROOT / "src" / source).read_text()
    assert text.count(old) == 1, f"{source}: {old!r} is there {text.count(old)} times"
    changed = folder / Path(source).name
    changed.write_text(text.replace(old, new))
    commands = {one["file"]: one for one in json.loads((build / "compile_commands.json").read_text())}
    words = shlex.split(commands[str(ROOT / "src" / source)]["command"])
    own = words[words.index("-o") + 1]
    words[words.index("-o") + 1] = str(folder / "altered.o")
    words[words.index("-c") + 1] = str(changed)
    run([*words, "-iquote", str((ROOT / "src" / source).parent)], build)
    return linked(build, [folder / "altered.o"], build / own, folder)


def linked(build: Path, objects: list[Path], instead_of: Path, folder: Path) -> Path:
    """The daemon of the build, with other objects in the place of one."""
    parts = [part for part in sorted((build / "src").rglob("*.o")) if part != instead_of]
    daemon = folder / "ivarode"
    run(["c++", "-o", str(daemon), *map(str, [*objects, *parts]), "-L", str(build / "lib"), "-lsys", "-lubus", "-lubox",
         f"-Wl,-rpath,{build / 'lib'}"], build)
    return daemon


def run(words: list[str], folder: Path) -> None:
    done = subprocess.run(words, cwd=folder, capture_output=True, text=True, check=False)
    assert done.returncode == 0, done.stderr[-3000:]
