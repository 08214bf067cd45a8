"""What a stand-in exports is what a program may find in the real library of that name."""

import re

import pytest

from tests.package import common

EXPORTS = {
    "libblobmsg_json.so": {
        "blobmsg_add_json_element", "blobmsg_add_json_from_file", "blobmsg_add_json_from_string",
        "blobmsg_add_object", "blobmsg_format_json_value_with_cb", "blobmsg_format_json_with_cb",
    },
    "libubox.so": {
        "avl_blobcmp", "avl_delete", "avl_find", "avl_find_greaterequal", "avl_find_lessequal", "avl_init",
        "avl_insert", "avl_strcmp", "blob_attr_equal", "blob_buf_free", "blob_buf_grow", "blob_buf_init",
        "blob_check_type", "blob_fill_pad", "blob_memdup", "blob_nest_end", "blob_nest_start", "blob_new",
        "blob_parse", "blob_parse_untrusted", "blob_put", "blob_put_raw", "blob_set_raw_len", "blobmsg_add_field",
        "blobmsg_add_string_buffer", "blobmsg_alloc_string_buffer", "blobmsg_check_array", "blobmsg_check_array_len",
        "blobmsg_check_attr", "blobmsg_check_attr_len", "blobmsg_check_attr_list", "blobmsg_check_attr_list_len",
        "blobmsg_open_nested", "blobmsg_parse", "blobmsg_parse_array", "blobmsg_printf",
        "blobmsg_realloc_string_buffer", "blobmsg_vprintf", "uloop_cancelled", "uloop_cancelling", "uloop_done",
        "uloop_fd_add", "uloop_fd_delete", "uloop_fd_set_cb", "uloop_get_next_timeout", "uloop_handle_sigchld",
        "uloop_init", "uloop_process_add", "uloop_process_delete", "uloop_run_timeout", "uloop_timeout_add",
        "uloop_timeout_cancel", "uloop_timeout_remaining", "uloop_timeout_remaining64", "uloop_timeout_set",
    },
    "libubus.so": {
        "ubus_abort_request", "ubus_add_object", "ubus_complete_deferred_request", "ubus_complete_request",
        "ubus_complete_request_async", "ubus_connect", "ubus_connect_ctx", "ubus_flush_requests", "ubus_free",
        "ubus_invoke_async_fd", "ubus_invoke_fd", "ubus_lookup", "ubus_lookup_id", "ubus_reconnect",
        "ubus_register_event_handler", "ubus_remove_object", "ubus_send_event", "ubus_send_reply", "ubus_shutdown",
        "ubus_strerror",
    },
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
