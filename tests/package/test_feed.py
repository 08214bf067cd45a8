"""The feed's package files, built and laid out through a small stand-in of an image builder's SDK."""

import pathlib
import re

import pytest

from tests.package import common

# Who brings a library: names of a distribution's packages, not of its files.
OWNERS = {"libubox.so": "libubox", "libubus.so": "libubus", "libuci.so": "libuci", "libmnl.so.0": "libmnl",
          "libjson-c.so.5": "libjson-c", "libsys.so": "libsys", "libblobmsg_json.so": "libblobmsg-json"}
# What every image has: the C library's own.
BASE = {"libc.so.6", "ld-linux-x86-64.so.2", "libgcc_s.so.1"}


def test_warnings_are_no_errors_for_who_builds_a_package(laid: common.Packages) -> None:
    (commands,) = laid["ivarode"].parents[1].glob("build/*/build/compile_commands.json")
    assert "-Wall" in commands.read_text() and "-Werror" not in commands.read_text()


@pytest.mark.parametrize("lab", ["ON", "OFF"])
def test_programs_for_this_machine_know_where_foreign_libraries_are(laid: common.Packages, tmp_path: pathlib.Path,
                                                                    lab: str) -> None:
    staging = laid["ivarode"].parents[1] / "staging/usr"
    common.run("cmake", "-S", common.ROOT, "-B", tmp_path, "-G", "Ninja", "-DIVARODE_TESTS=OFF", "-DIVARODE_LAB=" + lab,
               f"-DCMAKE_PREFIX_PATH={staging}")
    written = (tmp_path / "build.ninja").read_text().replace('"', "")
    assert (f"-Wl,-rpath,\\$$ORIGIN/../lib:{staging}/lib" in written) == (lab == "ON")


def control(folder: pathlib.Path) -> dict[str, str]:
    return dict(line.partition(": ")[::2] for line in (folder / "control").read_text().splitlines())


def depends(folder: pathlib.Path) -> set[str]:
    return {word.lstrip("+") for word in control(folder).get("DEPENDS", "").split()}


def data(folder: pathlib.Path) -> list[str]:
    return common.files(folder / "data")


def test_the_packages(laid: common.Packages) -> None:
    assert set(laid) == {"ivarode", "libsys", "ivarode-plan", "ivarode-record", "ivarode-sibling", "ivarode-man",
                         "ivarode-www"}
    for folder in laid.values():
        assert re.fullmatch(r"\d+\.\d+\.\d+-r\d+", control(folder)["VERSION"])


def test_version_is_that_of_the_tree(laid: common.Packages) -> None:
    version = re.findall(r"project\(ivarode VERSION (\S+)", (common.ROOT / "CMakeLists.txt").read_text())[0]
    assert {control(folder)["VERSION"].split("-")[0] for folder in laid.values()} == {version}


def test_no_file_is_in_two_packages(laid: common.Packages) -> None:
    names = [name for folder in laid.values() for name in data(folder)]
    assert len(names) == len(set(names))


def test_everything_of_the_image_is_in_a_package(laid: common.Packages) -> None:
    wanted = set(common.files(common.IMAGE)) - {"sbin/udhcpc"}
    assert set(data(laid["ivarode"])) == wanted | {"usr/libexec/ivarode-udhcpc", "usr/sbin/ivarode",
                                                   "usr/sbin/ivarodectl"}
    assert data(laid["libsys"]) == ["usr/lib/libsys.so"]
    assert data(laid["ivarode-plan"]) == ["usr/lib/ivarode-plan/libsys.so", "usr/sbin/ivarode-plan"]
    assert data(laid["ivarode-record"]) == ["usr/lib/libivarode-record.so"]
    assert data(laid["ivarode-sibling"]) == ["usr/libexec/rpcd/ombrine.run"]
    pages = ["man5/ivarode.5", "man8/ivarode-plan.8", "man8/ivarode.8", "man8/ivarodectl.8"]
    assert data(laid["ivarode-man"]) == ["usr/share/man/" + page for page in pages]
    assert data(laid["ivarode-www"]) == [f"www/{name}" for name in common.files(common.ROOT / "image/www")]


def test_no_stand_in_gets_into_an_image(laid: common.Packages) -> None:
    for folder in laid.values():
        for name in data(folder):
            assert name.rsplit("/", 1)[-1] not in common.BUS_LIBRARIES + ("ubus", "ubusd", "uci")


def test_modes_and_owners(laid: common.Packages) -> None:
    programs = {"usr/sbin/ivarode", "usr/libexec/ivarode-udhcpc", "usr/sbin/ivarodectl",
                "usr/lib/libsys.so", "usr/lib/libivarode-record.so", "usr/lib/ivarode-plan/libsys.so",
                "usr/sbin/ivarode-plan", "usr/libexec/rpcd/ombrine.run"}
    for folder in laid.values():
        for name in data(folder):
            mode = (folder / "data" / name).stat().st_mode & 0o7777
            if name in programs:
                assert mode == 0o755, name
            elif name.startswith("etc/config/"):
                assert mode == 0o600, name       # a PPPoE password may be in it
            elif name.startswith(("usr/share/man/", "www/")):
                assert mode == 0o644, name
            else:
                assert mode == (common.IMAGE / name).stat().st_mode & 0o7777 and not mode & 0o022, name


def test_a_new_library_starts_the_daemon_again(laid: common.Packages) -> None:
    """Only that package needs a script: the system's own stop and start the service of an upgraded one."""
    assert [name for name, folder in laid.items() if (folder / "postinst").exists()] == ["libsys"]
    assert (laid["libsys"] / "postinst").read_text() == common.library_script()


def test_conffiles_are_the_configuration(laid: common.Packages) -> None:
    wanted = ["/" + name for name in common.files(common.IMAGE) if name.startswith("etc/config/")]
    assert sorted((laid["ivarode"] / "conffiles").read_text().split()) == wanted
    keep = (common.IMAGE / "lib/upgrade/keep.d/ivarode").read_text().split()
    assert set(wanted) <= set(keep)


def test_the_clients_wrapper_is_an_alternative_to_the_applet(laid: common.Packages) -> None:
    priority, link, target = control(laid["ivarode"])["ALTERNATIVES"].split(":")
    assert int(priority) > 0 and link == "/sbin/udhcpc" and (laid["ivarode"] / "data" / target[1:]).is_file()


def test_dependencies_cover_every_library(laid: common.Packages) -> None:
    seen = set()
    for name, folder in laid.items():
        for path in (folder / "data").rglob("*"):
            if common.is_elf(path):
                for library in set(common.needed(path)) - BASE:
                    seen.add(library)
                    assert OWNERS[library] in depends(folder) | {name}, (name, path.name, library)
    assert {"libubus.so", "libubox.so", "libuci.so", "libmnl.so.0", "libsys.so"} <= seen


def test_no_cxx_library_is_needed(laid: common.Packages) -> None:
    for folder in laid.values():
        for path in (folder / "data").rglob("*"):
            assert not common.is_elf(path) or "libstdc++.so.6" not in common.needed(path)


# Commands that the daemon or the scripts of the image run -> who brings them.
COMMANDS = {"iptables": "iptables", "ip": "ip-full", "ubus": "ubus", "pppd": "ppp"}


def test_dependencies_cover_every_command(laid: common.Packages) -> None:
    text = "\n".join(path.read_text() for path in common.IMAGE.rglob("*") if path.is_file() and path.suffix != ".db")
    text += "\n".join(path.read_text() for path in (common.ROOT / "src").rglob("*.cpp"))
    for command, package in COMMANDS.items():
        assert re.search(fr"\b{command}\b", text), command
        assert package in depends(laid["ivarode"]), package
    assert {"ppp-mod-pppoe", "kmod-ppp"} <= depends(laid["ivarode"])
    # loaded at run time only
    assert "libsqlite3" in depends(laid["libsys"])
    assert depends(laid["ivarode-sibling"]) == {"rpcd"}
    assert depends(laid["ivarode-www"]) == {"ivarode", "rpcd", "uhttpd", "uhttpd-mod-ubus"}


def test_who_would_fight_over_chains_is_a_conflict(laid: common.Packages) -> None:
    assert {"firewall", "firewall4"} <= set(control(laid["ivarode"])["CONFLICTS"].split())


def test_without_bus_libraries_there_is_no_package(tmp_path: pathlib.Path) -> None:
    """The stand-ins stay out even where the real ones are missing: then the build ends."""
    with pytest.raises(AssertionError, match="compat"):
        common.run("make", "-C", common.FEED / "ivarode", f"TOPDIR={common.SDK}", f"BUILD_DIR={tmp_path}",
                   f"STAGING_DIR={tmp_path / 'empty'}", f"OUT={tmp_path / 'out'}",
                   "CMAKE_OPTIONS=-DIVARODE_LAB=OFF -DIVARODE_STANDINS=ON")
