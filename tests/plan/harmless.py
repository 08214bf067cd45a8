"""Whether the calls that strace has written down change nothing: no file, nothing in the kernel, no signal."""

from __future__ import annotations

import pathlib
import re

# Calls that read, wait, keep house in the process itself, or speak to a socket; below, what they may be used for.
ALLOWED = set("""
    access alarm arch_prctl bind brk clock_gettime clone clone3 close close_range connect dup dup2 epoll_create1
    epoll_ctl epoll_pwait epoll_wait execve exit exit_group faccessat faccessat2 fcntl flock fork fstat fstatfs
    futex getcwd getdents64 getegid geteuid getgid getpeername getpid getppid getrandom getrlimit getsockname
    getsockopt getuid ioctl lseek lstat madvise memfd_create mmap mprotect mremap munmap nanosleep newfstatat
    open openat pipe pipe2 poll ppoll pselect6 prctl pread64 prlimit64 read readlink readlinkat readv recvfrom
    recvmsg restart_syscall rseq rt_sigaction rt_sigprocmask rt_sigreturn rt_sigtimedwait select sendmsg sendto
    set_robust_list set_tid_address setpgid setrlimit setsockopt shutdown sigaltstack signalfd4 socket
    socketpair stat statfs statx sysinfo umask uname vfork wait4 waitid write writev
    chdir clock_nanosleep dup3 getpgrp gettid rt_sigsuspend sched_getaffinity sendfile setpgrp sigreturn""".split())
# Files in memory, the lock of iptables, the memory that registers are mapped from.
WRITABLE = re.compile(r'"(/dev/mem|/dev/null|/proc/self/fd/\d+|/run/xtables\.lock|[^"]*/(memory|phys))"')
IOCTL = re.compile(r"SIOCDEVPRIVATE|_IOC|0x89f[13]|TCGETS|TIOCGWINSZ|SIOCGIF")
# Questions, and the two ends of a batch with nothing between them.
NETLINK = re.compile(r"RTM_GET\w+|NFNL_SUBSYS_NFTABLES<<8\|NFT_MSG_GET\w+|"
                     r"NFNL_SUBSYS_NFT_COMPAT<<8\|NFNL_MSG_COMPAT_GET|NFNL_MSG_BATCH_(BEGIN|END)|"
                     r"0x(12|16|1a|22)")     # RTM_GETLINK, -ADDR, -ROUTE, -RULE where strace has no names


def calls_in(trace: pathlib.Path) -> int:
    """How many there are; fails on one that changes something."""
    calls = [match.groups() for line in trace.read_text(errors="replace").splitlines()
             if (match := re.match(r"\d+ +(\w+)\((.*)", line))]
    unknown = {name for name, _ in calls} - ALLOWED
    assert unknown == set()
    for name, rest in calls:
        if name in ("open", "openat") and re.search(r"O_(WRONLY|RDWR|CREAT|TRUNC)", rest) and " = -1 " not in rest:
            assert WRITABLE.search(rest), rest
        elif name == "ioctl":
            assert IOCTL.search(rest), rest
        elif name in ("sendto", "sendmsg") and "NETLINK" in rest:
            types = re.findall(r"nlmsg_type=([\w<|]+)", rest)
            assert types and all(NETLINK.fullmatch(kind) for kind in types), rest
    return len(calls)
