"""What a package tells its users: manual pages, changes, completion; and what Debian's own checker says of it."""

import gzip
import pathlib
import re
import shutil
import subprocess

import pytest

from tests.docs import books
from tests.package import common

VERSION = re.findall(r"project\(ivarode VERSION (\S+)", (common.ROOT / "CMakeLists.txt").read_text())[0]
COMPLETION = common.IMAGE / "usr/share/bash-completion/completions/ivarodectl"
PAGES = ["man1/ivarode-lab.1", "man5/ivarode.5", "man8/ivarode-plan.8", "man8/ivarode.8", "man8/ivarodectl.8"]


@pytest.fixture(scope="module")
def manual(tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    folder = tmp_path_factory.mktemp("manual")
    common.run("cmake", "--install", common.BUILD, "--prefix", folder)
    return folder / "share/man"


def read(manual: pathlib.Path, page: str) -> str:
    """As a reader sees it, without breaks."""
    shown = common.run("groff", "-man", "-Tutf8", "-P-cbou", "-rHY=0", manual / page)
    return re.sub(r"\s+", " ", shown)


def test_the_pages_are_there(manual: pathlib.Path) -> None:
    assert common.files(manual) == PAGES


@pytest.mark.skipif(shutil.which("groff") is None, reason="groff is not installed")
@pytest.mark.parametrize("page", PAGES)
def test_a_page_is_well_formed(manual: pathlib.Path, page: str) -> None:
    done = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-z", manual / page], capture_output=True, text=True,
                          cwd=manual)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    text = (manual / page).read_text()
    assert text.startswith(".TH ") and f"ivarode {VERSION}" in text


@pytest.mark.skipif(shutil.which("groff") is None, reason="groff is not installed")
def test_the_pages_say_what_the_books_say(manual: pathlib.Path) -> None:
    """All options, keys and exit statuses come through, with the words beside them."""
    plain = {page: read(manual, page) for page in PAGES}
    for options in books.uci_options().values():
        for option in options:
            assert f" {option} " in plain["man5/ivarode.5"], option
    for word in re.findall(r"^  (--\w+)", common.run(common.BUILD / "bin/ivarode-plan", "--help"), re.M):
        assert f" {word} " in plain["man8/ivarode-plan.8"], word
    for row in books.tables(books.text("plan.md"))[1][1:]:
        assert f" {row[0]} {books_plain(row[1])}" in plain["man8/ivarode-plan.8"], row
    assert "ivarode init success" in plain["man8/ivarode.8"]
    for page, text in plain.items():
        assert not re.search(r"\*\*|`|\]\(", text), page


def books_plain(cell: str) -> str:
    return cell.replace("`", "")


def test_a_heading_that_is_gone_is_an_error() -> None:
    done = subprocess.run(["/usr/bin/python3", "-c", "import manpages; manpages.section('plan', 'No such heading')"],
                          cwd=common.ROOT / "packaging", capture_output=True, text=True)
    assert done.returncode == 1 and "docs/plan.md has no heading No such heading" in done.stderr


def test_the_changes_begin_with_the_version_of_the_tree() -> None:
    versions = re.findall(r"^## (\S+) \(\d{4}-\d\d-\d\d\)$", (common.ROOT / "CHANGELOG.md").read_text(), re.M)
    assert versions[0] == VERSION and len(set(versions)) == len(versions)


@common.dpkg
def test_the_package_has_changes_pages_and_completion(package: common.DebianPackage) -> None:
    _, root = package
    share = root / "usr/share"
    assert [name.removesuffix(".gz") for name in common.files(share / "man")] == PAGES
    changes = gzip.decompress((share / "doc/ivarode/changelog.gz").read_bytes()).decode()
    assert changes.startswith(f"ivarode ({VERSION}) unstable; urgency=medium\n\n  * ")
    done = (share / "bash-completion/completions/ivarode-lab").read_text()
    assert "complete -F _ivarode_lab ivarode-lab\n" in done
    assert (share / "bash-completion/completions/ivarodectl").read_bytes() == COMPLETION.read_bytes()


@pytest.mark.parametrize("line, expected", [
    ("he", "health"), ("r", "rollback"), ("status --", "--columns --help --json --watch"), ("guard --j", ""),
    ("check --", "--board --columns --config --help --json"), ("check --config ", ""), ("apply --conf", "--confirm"),
    ("explain po", "port"), ("explain port ", "0 1 2 3 4"), ("explain lan1 p", ""), ("debug w", "word"),
    ("nix ", ""), ("rollback ", "--columns --help --json boot"),
])
def test_words_of_the_tool_are_completed(line: str, expected: str) -> None:
    words = ["ivarodectl", *line.split(" ")]
    call = f"COMP_WORDS=({' '.join(repr(word) for word in words)}); COMP_CWORD={len(words) - 1}; _ivarodectl"
    done = subprocess.run(["bash", "-uc", COMPLETION.read_text() + call + '; echo "${COMPREPLY[@]}"'], text=True,
                          capture_output=True, check=True, env={"PATH": f"{common.BUILD / 'bin'}:/usr/bin:/bin"})
    assert " ".join(sorted(done.stdout.split())) == expected and done.stderr == ""


def test_every_command_is_completed() -> None:
    told = common.run(common.BUILD / "bin/ivarodectl", "--help")
    commands = re.findall(r"^  ([a-z]+) +\S", told, re.M)
    assert common.run(common.BUILD / "bin/ivarodectl", "__complete").split() == [*commands, "--help"]


@common.dpkg
@pytest.mark.skipif(shutil.which("lintian") is None, reason="lintian is not installed")
def test_debians_checker_finds_nothing(package: common.DebianPackage) -> None:
    done = subprocess.run(["lintian", "--allow-root", "--fail-on", "error,warning", package[0]], capture_output=True,
                          text=True)
    assert done.returncode == 0 and re.findall(r"^[EW]: .*", done.stdout, re.M) == [], done.stdout


def test_the_workflow_runs_what_is_run_here() -> None:
    text = (common.ROOT / ".github/workflows/test.yml").read_text()
    assert re.findall(r"^ +run: (.*)$", text, re.M)[-1] == ".ci/run"
    assert (common.ROOT / ".ci/run").stat().st_mode & 0o111
