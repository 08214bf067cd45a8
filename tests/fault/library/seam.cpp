#include "seam.h"

#include "interpose.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <iterator>
#include <link.h>
#include <new>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>

namespace {

using seam::Fault;
using seam::partial;

const char *const names[] = {
    "socket", "bind",     "connect", "setsockopt", "getsockname",   "getsockopt", "sendto",     "sendmsg",
    "recv",   "recvfrom", "recvmsg", "accept4",    "listen",        "open",       "openat",     "read",
    "write",  "fsync",    "rename",  "flock",      "fchmod",        "mkdir",      "unlink",     "fstat",
    "lstat",  "stat",     "opendir", "mmap",       "shm_open",      "fallocate",  "ioctl",      "pipe2",
    "spawn",  "waitpid",  "fcntl",   "poll",       "epoll_create1", "epoll_ctl",  "epoll_wait", "getrandom",
    "malloc", "calloc",   "realloc", "strdup",     "dlopen",        "socketpair", "send",
};
constexpr size_t name_count = std::size(names);

struct Plan {
    std::atomic<pid_t> process; // 0 while not armed
    std::atomic<unsigned> calls[name_count];
    std::atomic<long> blocks;
    size_t target;
    unsigned occurrence;
    int error;
    std::atomic<bool> happened;
};
Plan *plan = nullptr;
// Addresses of the code of the libraries that are spared.
std::pair<uintptr_t, uintptr_t> spared[2];
size_t spared_count = 0;

int note_spared(dl_phdr_info *library, size_t, void *wanted)
{
    if (!strstr(library->dlpi_name, static_cast<const char *>(wanted))) {
        return 0;
    }
    for (int i = 0; i < library->dlpi_phnum; i++) {
        const ElfW(Phdr) &part = library->dlpi_phdr[i];
        if (part.p_type == PT_LOAD && (part.p_flags & PF_X)) {
            auto start = library->dlpi_addr + part.p_vaddr;
            spared[spared_count++] = {start, start + part.p_memsz};
            return 1;
        }
    }
    return 0;
}

size_t index_of(const char *call)
{
    size_t at = 0;
    while (at < name_count && strcmp(names[at], call) != 0) {
        at++;
    }
    return at;
}

bool watched()
{
    return plan && plan->process != 0 && plan->process == getpid();
}

void arm(pid_t process, size_t target, unsigned occurrence, int error)
{
    plan->process = 0;
    for (auto &count : plan->calls) {
        count = 0;
    }
    plan->blocks = 0;
    plan->target = target;
    plan->occurrence = occurrence;
    plan->error = error;
    plan->happened = false;
    plan->process = process;
}

} // namespace

int seam::verdict(const char *call)
{
    if (!watched()) {
        return 0;
    }
    size_t at = index_of(call);
    if (at == name_count) {
        return 0;
    }
    unsigned number = ++plan->calls[at];
    if (at != plan->target || number != plan->occurrence) {
        return 0;
    }
    plan->happened = true;
    if (plan->error == death) {
        kill(getpid(), SIGKILL);
    }
    return plan->error;
}

void seam::count_block(long by)
{
    if (watched()) {
        plan->blocks += by;
    }
}

void seam::spare(const char *library)
{
    if (spared_count == std::size(spared) || dl_iterate_phdr(note_spared, const_cast<char *>(library)) == 0) {
        fprintf(stderr, "%s: not a library of this program, or one too many\n", library);
        abort();
    }
}

bool seam::spares(const void *caller)
{
    auto place = reinterpret_cast<uintptr_t>(caller);
    for (size_t i = 0; i < spared_count; i++) {
        if (place >= spared[i].first && place < spared[i].second) {
            return true;
        }
    }
    return false;
}

const std::vector<Fault> &seam::faults()
{
    static const std::vector<Fault> all = {
        {"socket", EMFILE, false},
        {"socket", ENOBUFS, false},
        {"bind", ENOBUFS, false},
        {"connect", ECONNREFUSED, false},
        {"connect", EINTR, true},
        {"setsockopt", ENOBUFS, false},
        {"getsockname", ENOBUFS, false},
        {"getsockopt", ENOBUFS, false},
        {"socketpair", EMFILE, false},
        {"send", EPIPE, false},
        {"send", EINTR, true},
        {"send", partial, true},
        {"sendto", ENOBUFS, false},
        {"sendto", EINTR, true},
        {"sendmsg", EPIPE, false},
        {"sendmsg", EINTR, true},
        {"sendmsg", EAGAIN, true},
        {"sendmsg", partial, true},
        {"recv", EIO, false},
        {"recv", EINTR, true},
        {"recv", EAGAIN, true},
        {"recv", partial, true},
        {"recvfrom", ENOBUFS, false},
        {"recvfrom", EAGAIN, false},
        {"recvfrom", EIO, false},
        {"recvfrom", EINTR, true},
        {"recvmsg", EIO, false},
        {"recvmsg", EINTR, true},
        {"recvmsg", EAGAIN, true},
        {"recvmsg", partial, true},
        {"accept4", EMFILE, false},
        {"accept4", ECONNABORTED, false},
        {"accept4", EINTR, true},
        {"listen", ENOBUFS, false},
        {"open", EMFILE, false},
        {"open", EIO, false},
        {"open", EACCES, false},
        {"open", EINTR, true},
        {"openat", EMFILE, false},
        {"openat", EIO, false},
        {"openat", EINTR, true},
        {"read", EIO, false},
        {"read", EINTR, true},
        {"read", partial, true},
        {"write", ENOSPC, false},
        {"write", EIO, false},
        {"write", EINTR, true},
        {"write", partial, true},
        {"fsync", EIO, false},
        {"fsync", EINTR, true},
        {"rename", ENOSPC, false},
        {"rename", EIO, false},
        {"flock", ENOLCK, false},
        {"flock", EINTR, true},
        {"flock", EWOULDBLOCK, true},
        {"fchmod", EPERM, false},
        {"mkdir", ENOSPC, false},
        {"mkdir", EROFS, false},
        {"unlink", EIO, false},
        {"unlink", EROFS, false},
        {"fstat", EIO, false},
        {"lstat", EIO, false},
        {"stat", EIO, false},
        {"opendir", EMFILE, false},
        {"mmap", ENOMEM, false},
        {"shm_open", EMFILE, false},
        {"shm_open", EACCES, false},
        {"fallocate", ENOSPC, false},
        {"fallocate", EINTR, true},
        {"ioctl", EIO, false},
        {"ioctl", EINTR, true},
        {"pipe2", EMFILE, false},
        {"spawn", EAGAIN, false},
        {"spawn", ENOMEM, false},
        {"waitpid", EINTR, true},
        {"waitpid", ECHILD, false},
        {"fcntl", EINVAL, false},
        {"poll", EINTR, true},
        {"poll", ENOMEM, false},
        {"epoll_create1", EMFILE, false},
        {"epoll_ctl", ENOMEM, false},
        {"epoll_ctl", ENOSPC, false},
        {"epoll_wait", EINTR, true},
        {"getrandom", EINTR, true},
        {"getrandom", ENOSYS, false},
        {"malloc", ENOMEM, false},
        {"calloc", ENOMEM, false},
        {"realloc", ENOMEM, false},
        {"strdup", ENOMEM, false},
        {"dlopen", ENOENT, false},
    };
    return all;
}

std::string seam::describe(const Fault &fault, unsigned occurrence)
{
    return std::string(fault.call) + " no. " + std::to_string(occurrence) + ": " +
           (fault.error == partial ? "only a part" : strerror(fault.error));
}

void seam::prepare()
{
    if (!plan) {
        void *memory = mmap(nullptr, sizeof(Plan), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            perror("mmap");
            abort();
        }
        plan = new (memory) Plan{};
        spare("/libjson-c.");
        interpose::ask(verdict);
        tzset(); // what it takes it keeps; the first log line would count it
    }
}

void seam::count_calls(pid_t process)
{
    arm(process, name_count, 0, 0);
}

void seam::fail(pid_t process, const Fault &fault, unsigned occurrence)
{
    arm(process, index_of(fault.call), occurrence, fault.error);
}

void seam::disarm()
{
    plan->process = 0;
}

unsigned seam::calls(const char *call)
{
    return plan->calls[index_of(call)];
}

bool seam::happened()
{
    return plan->happened;
}

long seam::blocks()
{
    return plan->blocks;
}
