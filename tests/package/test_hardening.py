"""What guards against exploits, read out of the binaries of every package."""

import pathlib
import re
from collections.abc import Iterable

import pytest

from tests.package import common

pytestmark = common.dpkg

# Programs and libraries without an array on the stack have nothing to guard.
NO_CANARY = {"lab-shim.so"}
# Those that ask for no string function of the C library which the compiler cannot prove harmless.
NO_FORTIFIED_CALL = {"lab-shim.so", "libubox.so", "libuci.so", "uci"}
MACHINE_WITH_SHADOW_STACK = "X86-64"


def binaries(folder: pathlib.Path) -> dict[str, pathlib.Path]:
    return {path.name: path for path in sorted(folder.rglob("*")) if common.is_elf(path)}


@pytest.fixture(scope="module")
def shipped(laid: common.Packages, package: common.DebianPackage) -> dict[str, pathlib.Path]:
    """What says where it is from -> a binary of a package."""
    found = {f"{name}: {file}": path for name, folder in laid.items()
             for file, path in binaries(folder / "data").items()}
    found |= {f"debian: {file}": path for file, path in binaries(package[1]).items()}
    assert {"ivarode: ivarode", "libsys: libsys.so", "ivarode: ivarodectl", "debian: ubusd",
            "debian: lab-agent"} <= set(found)
    return found


def lacking(shipped: dict[str, pathlib.Path], tool: list[str], wanted: str, without: Iterable[str] = ()) -> list[str]:
    return [name for name, path in shipped.items()
            if name.split(": ")[1] not in without and not re.search(wanted, common.run(*tool, path))]


def test_code_moves_and_the_stack_holds_none(shipped: dict[str, pathlib.Path]) -> None:
    assert not lacking(shipped, ["readelf", "-h"], r"Type:\s+DYN")
    assert not lacking(shipped, ["readelf", "-lW"], r"GNU_STACK.* RW +0x")


def test_addresses_of_the_libraries_are_read_only(shipped: dict[str, pathlib.Path]) -> None:
    assert not lacking(shipped, ["readelf", "-lW"], r"GNU_RELRO")
    assert not lacking(shipped, ["readelf", "-d"], r"BIND_NOW|FLAGS_1.*NOW")


def test_the_stack_has_canaries(shipped: dict[str, pathlib.Path]) -> None:
    assert not lacking(shipped, ["nm", "-D", "--undefined-only"], r"__stack_chk_fail", NO_CANARY)


def test_calls_that_write_know_how_much_room_there_is(shipped: dict[str, pathlib.Path]) -> None:
    assert not lacking(shipped, ["nm", "-D", "--undefined-only"], r"_chk@", NO_FORTIFIED_CALL)


def test_returns_have_a_shadow_where_the_machine_offers_one(shipped: dict[str, pathlib.Path]) -> None:
    on = {name: path for name, path in shipped.items()
          if MACHINE_WITH_SHADOW_STACK in common.run("readelf", "-h", path)}
    if not on:
        pytest.skip("no such machine")
    assert not lacking(on, ["readelf", "-nW"], r"SHSTK")


def test_large_frames_are_probed() -> None:
    """No mark of it is left in a binary; the build says which sources it was asked for."""
    commands = (common.BUILD / "compile_commands.json").read_text()
    probed = re.findall(r'"command": "[^"]*-fstack-clash-protection', commands)
    assert len(probed) == len(re.findall(r'"command": "[^"]*-fstack-protector-strong', commands)) > 100
