"""Variants of the bus and configuration libraries' headers: as images of different years have them.

Made of the stand-ins' headers by edits, each of which must find what it changes. No header of libubox has C++ linkage
guards in any of them, and static initialisers of trees name their members out of order.
"""

import pathlib
import re
import shutil

from tests.package import common

TREE_MACROS = """
#define AVL_TREE_INIT(_name, _comp, _dups, _ptr) \\
    { .list_head = LIST_HEAD_INIT(_name.list_head), .comp = _comp, .allow_dups = _dups, .cmp_ptr = _ptr }
"""
# Newer ones name the members as the structures order them; C++ refuses the older ones.
METHOD_MACROS = {
    "today": """
#define UBUS_METHOD_MASK(_name, _handler, _policy, _mask) \\
    { .name = _name, .handler = _handler, .mask = _mask, .tags = 0, .policy = _policy, .n_policy = ARRAY_SIZE(_policy) }
""",
    "oldest": """
#define UBUS_METHOD_MASK(_name, _handler, _policy, _mask) \\
    { .name = _name, .mask = _mask, .handler = _handler, .policy = _policy, .n_policy = ARRAY_SIZE(_policy) }
"""}
METHOD_USERS = """
#define UBUS_METHOD(_name, _handler, _policy) UBUS_METHOD_MASK(_name, _handler, _policy, 0)
#define UBUS_OBJECT_TYPE(_name, _methods) \\
    { .name = _name, .id = 0, .methods = _methods, .n_methods = ARRAY_SIZE(_methods) }
"""
INTERVALS = """
struct uloop_interval;
struct uloop_signal;
typedef void (*uloop_interval_handler)(struct uloop_interval *t);
typedef void (*uloop_signal_handler)(struct uloop_signal *s);
struct uloop_interval {
    uloop_interval_handler cb;
    uint64_t expirations;
    union {
        struct uloop_fd ufd;
        struct {
            int64_t fired;
            unsigned int msecs;
        } time;
    } priv;
};
struct uloop_signal {
    struct list_head list;
    struct sigaction orig;
    bool pending;
    uloop_signal_handler cb;
    int signo;
};
int uloop_interval_set(struct uloop_interval *timer, unsigned int msecs);
int uloop_interval_cancel(struct uloop_interval *timer);
int64_t uloop_interval_remaining(struct uloop_interval *timer);
int uloop_signal_add(struct uloop_signal *s);
int uloop_signal_delete(struct uloop_signal *s);
"""
OLD_SOCKET = "/var/run/ubus.sock"

# The stand-ins' own macros of methods, which name no member.
OWN_MACROS = ("libubus.h",
              r"#define UBUS_METHOD_FIELDS_\(.*?#define UBUS_OBJECT_TYPE\(_name, _methods\).*?\n    \}\n", "")

# File, what is there, what is there instead.
TODAY = [
    ("libubox/uloop.h", r"\Z", INTERVALS),
    ("libubox/avl.h", r"\Z", TREE_MACROS),
    OWN_MACROS,
    ("ubus_common.h", r"\Z", METHOD_MACROS["today"] + METHOD_USERS),
]
OLDEST = [
    ("libubox/avl.h", r"\Z", TREE_MACROS),
    OWN_MACROS,
    ("ubus_common.h", r"\Z", METHOD_MACROS["oldest"] + METHOD_USERS),
    ("ubus_common.h", r'(#define UBUS_UNIX_SOCKET) "[^"]*"', fr'\1 "{OLD_SOCKET}"'),
    ("libubus.h", r"    unsigned long tags;\n", ""),
    ("libubus.h", r"#define UBUS_TAG_\w+ \d\n", ""),
    ("libubus.h", r"    union \{\n        struct \{\n            struct list_head auto_subscribers;.*?\n    \};\n", ""),
    ("ubusmsg.h", r"    UBUS_STATUS_(NO_MEMORY|PARSE_ERROR|SYSTEM_ERROR),\n", ""),
    ("libubox/uloop.h", r"\n    __attribute__\(\(deprecated\(.*?\)\)\);\nint64_t uloop_timeout_remaining64\(.*?\);",
     ";"),
    ("libubox/blob.h", r"(blob_memdup)\(const (struct blob_attr)", r"\1(\2"),
    ("libubox/blobmsg.h", r",\n    BLOBMSG_CAST_INT64 = __BLOBMSG_TYPE_LAST", ""),
    ("libubox/blobmsg.h", r"static inline int blobmsg_parse_(array_)?attr\(.*?\n\}\n", ""),
    ("libubox/blobmsg.h", r"static inline u?int64_t blobmsg_cast_[us]64\(.*?\n\}\n", ""),
    ("uci.h", r"    char \*conf2dir;\n", ""),
    ("uci.h", r"int uci_set_conf2dir\(.*?\);\n", ""),
]
VARIANTS = {"today": TODAY, "oldest": OLDEST}


def make(folder: pathlib.Path, variant: str) -> pathlib.Path:
    """Writes a variant's headers into a folder; returns the folder."""
    for headers in common.BUS_HEADERS:
        shutil.copytree(headers, folder, dirs_exist_ok=True)
    for name, pattern, replacement in VARIANTS[variant]:
        path = folder / name
        new = replacement if "\\1" in replacement else replacement.replace("\\", r"\\")
        text, count = re.subn(pattern, new, path.read_text(), flags=re.S)
        assert count >= 1, (name, pattern)
        path.write_text(text)
    return folder
