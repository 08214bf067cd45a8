"""Packages laid out for the tests of a run, and what only a long run does."""

import shutil

import pytest

from tests.package import common


@pytest.fixture(scope="session")
def laid(tmp_path_factory: pytest.TempPathFactory) -> common.Packages:
    """Package name -> folder with "data", "control" and "conffiles"."""
    folder = tmp_path_factory.mktemp("feed")
    staging = folder / "staging/usr"
    for headers in common.BUS_HEADERS:
        shutil.copytree(headers, staging / "include", dirs_exist_ok=True)
    (staging / "lib").mkdir()
    for name in common.BUS_LIBRARIES:
        shutil.copy(common.BUILD / "lib" / name, staging / "lib")
    common.run("make", "-C", common.FEED / "ivarode", f"TOPDIR={common.SDK}", f"BUILD_DIR={folder / 'build'}",
               f"STAGING_DIR={folder / 'staging'}", f"OUT={folder / 'out'}")
    return {path.name: path for path in (folder / "out").iterdir()}


@pytest.fixture(scope="session")
def package(tmp_path_factory: pytest.TempPathFactory) -> common.DebianPackage:
    """The package, made from the build as it is in a folder of its own."""
    folder = tmp_path_factory.mktemp("deb")
    common.run("cpack", "--config", common.BUILD / "CPackConfig.cmake", "-B", folder, cwd=folder)
    found = list(folder.glob("*.deb"))
    assert len(found) == 1
    common.run("dpkg-deb", "-x", found[0], folder / "root")
    return found[0], folder / "root"
