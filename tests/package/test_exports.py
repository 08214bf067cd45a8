"""What a stand-in exports is what a program may find in the real library of that name."""

import re

import pytest

from tests.package import common

EXPORTS = {
    "libuci.so": {
        "uci_add_delta_path", "uci_alloc_context", "uci_export", "uci_free_context", "uci_get_errorstr",
        "uci_list_configs", "uci_load", "uci_lookup_next", "uci_lookup_ptr", "uci_parse_ptr", "uci_perror",
        "uci_set_conf2dir", "uci_set_confdir", "uci_set_savedir", "uci_unload",
    },
}


@pytest.mark.parametrize("name", sorted(EXPORTS))
def test_a_stand_in_exports_these_names_alone(name: str) -> None:
    library = common.BUILD / "lib" / name
    if not library.exists():
        pytest.skip(f"{name} is not built: the installed one is used")
    assert set(re.findall(r" \w (\S+)$", common.run("nm", "-D", "--defined-only", library), re.M)) == EXPORTS[name]
