"""What "cmake --install" lays into an empty root, and the Debian package."""

import json
import os
import pathlib
import platform
import re
import shutil
import subprocess

import pytest

from tests.package import common, kernel_calls

PROGRAMS = ["bin/lab-agent", "bin/lab-jail", "bin/lab-siblings", "bin/ubus", "bin/vswitch", "sbin/ivarode",
            "sbin/ivarode-plan", "sbin/ivarodectl", "sbin/ubusd", "sbin/uci"]
LIBRARIES = ["lib/ivarode-plan/libsys.so", "lib/lab-shim.so", "lib/libblobmsg_json.so", "lib/libivarode-record.so",
             "lib/libsys.so", "lib/libubox.so", "lib/libubus.so", "lib/libuci.so"]


@pytest.fixture(scope="module")
def root(tmp_path_factory: pytest.TempPathFactory) -> pathlib.Path:
    folder = tmp_path_factory.mktemp("root")
    common.run("cmake", "--install", common.BUILD, "--prefix", folder / "usr")
    common.run("cmake", "--install", common.BUILD, "--component", "image", "--prefix", folder)
    return folder


def test_programs_and_libraries_are_there_and_nothing_else(root: pathlib.Path) -> None:
    laid = [name for name in common.files(root / "usr") if not name.startswith(("share/", "libexec/"))]
    assert laid == sorted(PROGRAMS + LIBRARIES)


def test_every_program_finds_its_libraries_in_the_new_root(root: pathlib.Path) -> None:
    own = {name.removeprefix("lib/") for name in LIBRARIES}
    for name in PROGRAMS + LIBRARIES:
        for library, where in common.resolved(root / "usr" / name).items():
            if library in own:
                assert os.path.realpath(where) == str(root / "usr/lib" / library), (name, library)


@pytest.mark.skipif(platform.machine() != "x86_64", reason="the bound is one for x86-64")
def test_the_operators_tool_is_small(root: pathlib.Path, tmp_path: pathlib.Path) -> None:
    """The linker fills up to a page, so its size grows by 4 kB at a time."""
    common.run("strip", "-o", tmp_path / "ivarodectl", root / "usr/sbin/ivarodectl")
    assert (tmp_path / "ivarodectl").stat().st_size <= 154_000
    assert not [name for name in common.needed(root / "usr/sbin/ivarodectl") if name.startswith("libstdc++")]


def test_a_plan_is_made_with_what_is_installed(root: pathlib.Path) -> None:
    """The daemon of the new root, on the world of the new root; its answer depends on neither's place."""
    words = ["--board", common.ROOT / "lab/boards/one-cpu.json", "--config", root / "etc/config"]
    said = common.run(root / "usr/sbin/ivarode-plan", *words)
    assert "notice: ivarode init success" in said
    assert said == common.run(common.BUILD / "bin/ivarode-plan", *words)


def test_the_image_is_laid_as_it_is(root: pathlib.Path) -> None:
    for name in common.files(common.IMAGE):
        one, other = common.IMAGE / name, root / name
        assert one.read_bytes() == other.read_bytes(), name
        assert other.stat().st_mode == (0o100600 if name.startswith("etc/config/") else one.stat().st_mode), name


def test_the_lab_is_laid_as_in_the_tree(root: pathlib.Path) -> None:
    for folder in ("image/files", "image/www", "lab/boards", "lab/configs", "lab/vm", "lab/labctl"):
        wanted = [name for name in common.files(common.ROOT / folder) if "__pycache__" not in name]
        assert wanted and common.files(root / "usr/share/ivarode" / folder) == wanted


@pytest.mark.skipif(os.geteuid() != 0, reason="needs root")
def test_access_files_are_as_the_broker_wants_them(root: pathlib.Path) -> None:
    """Owned by root, writable by nobody else, and JSON; the broker passes over others without a word."""
    for name in ("usr/share/acl.d/ivarode.json", "usr/share/rpcd/acl.d/ivarode.json", "etc/capabilities/ivarode.json",
                 kernel_calls.FILTER):
        about = (root / name).stat()
        assert (about.st_uid, about.st_gid) == (0, 0) and about.st_mode & 0o022 == 0, name
        assert isinstance(json.loads((root / name).read_text()), dict)


def test_names_of_the_capabilities() -> None:
    sets = json.loads((common.IMAGE / "etc/capabilities/ivarode.json").read_text())
    assert set(sets) == {"bounding", "effective", "permitted", "inheritable", "ambient"}
    known = dict(re.findall(r"^#define (CAP_[A-Z_]+)\s+(\d+)$", open("/usr/include/linux/capability.h").read(), re.M))
    for names in sets.values():
        assert set(names) <= set(known)
    assert sorted(sets["bounding"]) == ["CAP_NET_ADMIN", "CAP_NET_RAW", "CAP_SYS_RAWIO"] and sets["ambient"] == []


def test_calls_of_the_kernel() -> None:
    """The filter has the form that a router's jail helper reads; each name is one of a processor that we build for."""
    document = json.loads((common.IMAGE / kernel_calls.FILTER).read_text())
    assert document["defaultAction"] == "SCMP_ACT_KILL_PROCESS" and set(document) == {"defaultAction", "syscalls"}
    assert all(set(rule) == {"names", "action"} for rule in document["syscalls"])
    assert {rule["action"] for rule in document["syscalls"]} == {"SCMP_ACT_ALLOW", "SCMP_ACT_ERRNO"}
    assert kernel_calls.named("SCMP_ACT_ERRNO") == kernel_calls.REFUSED
    names = kernel_calls.allowed()
    assert len(names) == len(set(names)) and not set(names) & {*kernel_calls.FORBIDDEN, *kernel_calls.REFUSED}
    compilers = ["g++", "mipsel-linux-gnu-g++"]
    known = {name for one in compilers if shutil.which(one) for name in kernel_calls.numbers([one])}
    assert set(kernel_calls.FORBIDDEN) <= known
    if all(map(shutil.which, compilers)):
        # those of 32-bit processors other than MIPS
        assert set(names) - known == {"fchown32", "getegid32", "geteuid32", "getgid32", "getuid32", "ugetrlimit"}


def test_what_the_init_script_names_is_in_the_root(root: pathlib.Path) -> None:
    text = (root / "etc/init.d/ivarode").read_text()
    for path in re.findall(r"(?<![\w/])/(?:etc|lib|usr)/[\w./-]+", text):
        if path != "/etc/rc.common":
            assert (root / path[1:]).is_file(), path


def test_what_survives_an_upgrade_exists_or_is_the_ppp_packages(root: pathlib.Path) -> None:
    for path in (root / "lib/upgrade/keep.d/ivarode").read_text().split():
        assert (root / path[1:]).is_file() or path == "/etc/ppp/chap-secrets", path


# --- the Debian package ------------------------------------------------------------------------------------


def control(path: pathlib.Path, field: str) -> str:
    return common.run("dpkg-deb", "-f", path, field).strip()


@common.dpkg
def test_debian_package_names_itself(package: common.DebianPackage) -> None:
    path, _ = package
    assert path.name == f"ivarode_{control(path, 'Version')}_{control(path, 'Architecture')}.deb"
    assert control(path, "Description").startswith("network-interface manager")


@common.dpkg
def test_debian_package_keeps_to_itself(package: common.DebianPackage) -> None:
    """Files of other packages' names only below a folder of its own; links lead there."""
    _, root = package
    outside = [name for name in common.files(root) if not name.startswith("usr/lib/ivarode/")]
    links = {name: os.readlink(root / name) for name in outside if (root / name).is_symlink()}
    assert links == {"usr/" + name: "../lib/ivarode/bin/" + name.split("/")[1]
                     for name in ("bin/ivarode-lab", "sbin/ivarode", "sbin/ivarode-plan", "sbin/ivarodectl")}
    own = {name.removeprefix("usr/share/") for name in set(outside) - set(links)}
    assert {name for name in own if not name.startswith("man/")} == {
        "doc/ivarode/copyright", "doc/ivarode/changelog.gz", "lintian/overrides/ivarode",
        "bash-completion/completions/ivarode-lab", "bash-completion/completions/ivarodectl"}
    for name in links:
        assert os.access(root / name, os.X_OK)


def owner(path: str) -> str:
    """The package of a file, which knows it below /lib or below /usr/lib."""
    real = os.path.realpath(path)
    for name in (path, real, real.removeprefix("/usr")):
        done = subprocess.run(["dpkg", "-S", name], capture_output=True, text=True)
        if done.returncode == 0:
            return done.stdout.split(":")[0]
    raise AssertionError("no package has " + path)


@common.dpkg
def test_debian_package_depends_on_what_it_needs(package: common.DebianPackage) -> None:
    path, root = package
    declared = {word.strip() for word in control(path, "Depends").split(",")}
    wanted = set()
    for file in (root / "usr/lib/ivarode").rglob("*"):
        if common.is_elf(file):
            for name, where in common.resolved(file).items():
                if not os.path.realpath(where).startswith(str(root)):
                    wanted.add(owner(where))
    assert wanted and wanted <= declared
    # and the library that is loaded only when the first login is recorded
    assert "libsqlite3-0" in declared


@common.dpkg
def test_debian_package_could_be_installed(package: common.DebianPackage) -> None:
    done = subprocess.run(["apt-get", "install", "--simulate", str(package[0])], capture_output=True, text=True)
    if done.returncode != 0 and not list(os.scandir("/var/lib/apt/lists")):
        pytest.skip("this machine has no package lists")
    assert done.returncode == 0 and "Inst ivarode" in done.stdout, done.stdout + done.stderr


@common.dpkg
def test_programs_of_the_debian_package_run(package: common.DebianPackage, tmp_path: pathlib.Path) -> None:
    _, root = package
    environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": str(tmp_path)}
    assert "usage: lab/lab" in common.run(root / "usr/bin/ivarode-lab", "--help", env=environment)
    # this one needs the libraries of the package, which it finds through the link as well
    assert "ivarodectl" in common.run(root / "usr/sbin/ivarodectl", "--help", env=environment)
    # the lab looks for its programs in the package, and for labs in the user's own folder
    done = subprocess.run([str(root / "usr/bin/ivarode-lab"), "status"], capture_output=True, text=True,
                          env=environment)
    assert done.returncode != 0 and "is not up" in done.stderr
    assert not list(root.rglob("__pycache__"))


@common.dpkg
def test_lab_of_the_debian_package_comes_up(package: common.DebianPackage, tmp_path: pathlib.Path) -> None:
    """The whole board from nothing but the package's files; nothing is written among them."""
    _, root = package
    cache = os.environ.get("IVARODE_LAB_CACHE") or os.path.join(
        os.environ.get("XDG_CACHE_HOME") or os.path.expanduser("~/.cache"), "ivarode-lab")
    environment = {"PATH": "/usr/sbin:/usr/bin:/sbin:/bin", "HOME": str(tmp_path), "IVARODE_LAB_CACHE": cache}
    before = common.files(root)
    lab = root / "usr/bin/ivarode-lab"
    try:
        assert "the daemon was ready" in common.run(lab, "up", env=environment, timeout=300)
        assert "ivarode.run" in common.run(lab, "ubus", "list", env=environment, timeout=60)
        common.run(lab, "ubus", "call", "ivarode.run", "run", env=environment, timeout=60)
    finally:
        subprocess.run([str(lab), "down"], env=environment, timeout=60)
    assert common.files(root) == before
