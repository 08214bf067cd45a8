"""The calls of the kernel that the daemon and what it starts may make, and those that nothing of it is to make."""

import json
import re
from collections.abc import Sequence

from tests.package import common

FILTER = "etc/seccomp/ivarode.json"

# Kernel modules, mounts, other processes' memory, other users, the clock, a reboot, servers, files that are programs.
FORBIDDEN = """accept accept4 acct add_key adjtimex bpf capset chmod chown chroot clock_adjtime clock_settime
delete_module finit_module init_module io_uring_setup kexec_load keyctl link linkat listen mknod mknodat mount
move_mount open_by_handle_at perf_event_open personality pidfd_getfd pivot_root process_vm_readv
process_vm_writev ptrace reboot request_key seccomp setgid sethostname setns setpriority setrlimit setsid settimeofday
setuid swapon symlink symlinkat syslog umount2 unshare userfaultfd""".split()
# What fails, but does not end the program: on MIPS the loader of glibc asks for the mode of the floating-point unit.
REFUSED = ["prctl"]


def numbers(compiler: Sequence[str]) -> dict[str, int]:
    """Name -> number, for the processor that the compiler writes code for."""
    header = "#include <asm/unistd.h>\n"
    macros = common.run(*compiler, "-E", "-dM", "-x", "c++", "-", input=header)
    names = re.findall(r"^#define __NR_([a-z0-9_]+) ", macros, re.M)
    text = header + "".join(f"={name} __NR_{name}\n" for name in names)
    lines = re.findall(r"^=(\w+) (.*)$", common.run(*compiler, "-E", "-P", "-x", "c++", "-", input=text), re.M)
    # a number, or a sum in brackets
    return {name: sum(int(part) for part in value.strip("()").split("+")) for name, value in lines}


def allowed() -> list[str]:
    return named("SCMP_ACT_ALLOW")


def named(action: str) -> list[str]:
    document = json.loads((common.IMAGE / FILTER).read_text())
    return [name for rule in document["syscalls"] if rule["action"] == action for name in rule["names"]]
