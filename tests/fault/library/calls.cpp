// The functions themselves. rename, fsync, flock, fchmod, write and ioctl are those of the contract tests,
// which ask the same verdict.

#include "seam.h"

#include <cerrno>
#include <cstdarg>
#include <cstring>
#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

using seam::count_block;
using seam::verdict;

// What the headers promise of these functions to an optimizer says nothing about their types.
#pragma GCC diagnostic ignored "-Wignored-attributes"

namespace {

// The next definition behind the program's own. Looked up with the program's other statics, before any plan
// is armed (the look-up may take memory), or by the first caller where a library starts even earlier.
template <typename Function> struct Next {
    const char *name;
    Function found = nullptr;

    bool look_up()
    {
        found = reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
        return found != nullptr;
    }
    template <typename... Arguments> auto call(Arguments... arguments)
    {
        if (!found) {
            look_up();
        }
        return found(arguments...);
    }
};

bool refused(const char *call)
{
    int error = verdict(call);
    if (error > 0) {
        errno = error;
    }
    return error > 0;
}

// Half of the bytes when only a part is to be brought; refused when 0.
size_t allowed(const char *call, size_t size, bool *no)
{
    int error = verdict(call);
    *no = error > 0;
    if (*no) {
        errno = error;
    }
    return error < 0 ? (size + 1) / 2 : size;
}

} // namespace

#define FORWARD(name)                                                                                        \
    static constinit Next<decltype(&::name)> next_##name{#name};                                             \
    [[maybe_unused]] static const bool found_##name = next_##name.look_up()

FORWARD(socket);
FORWARD(bind);
FORWARD(connect);
FORWARD(setsockopt);
FORWARD(getsockname);
FORWARD(getsockopt);
FORWARD(sendto);
FORWARD(sendmsg);
FORWARD(recv);
FORWARD(recvfrom);
FORWARD(recvmsg);
FORWARD(accept4);
FORWARD(listen);
FORWARD(open);
FORWARD(open64);
FORWARD(openat);
FORWARD(read);
FORWARD(mkdir);
FORWARD(unlink);
FORWARD(fstat);
FORWARD(fstat64);
FORWARD(lstat);
FORWARD(stat);
FORWARD(opendir);
FORWARD(mmap);
FORWARD(mmap64);
FORWARD(shm_open);
FORWARD(posix_fallocate);
FORWARD(pipe2);
FORWARD(posix_spawn);
FORWARD(socketpair);
FORWARD(send);
FORWARD(waitpid);
FORWARD(fcntl);
FORWARD(fcntl64);
FORWARD(poll);
FORWARD(epoll_create1);
FORWARD(epoll_ctl);
FORWARD(epoll_wait);
FORWARD(getrandom);
FORWARD(dlopen);

#undef FORWARD

#define FAIL_OR_PASS(name, counted, failure, arguments)                                                      \
    return refused(counted) ? (failure) : next_##name.call arguments

extern "C" {

int socket(int domain, int type, int protocol) noexcept
{
    FAIL_OR_PASS(socket, "socket", -1, (domain, type, protocol));
}

int bind(int fd, const sockaddr *address, socklen_t size) noexcept
{
    FAIL_OR_PASS(bind, "bind", -1, (fd, address, size));
}

int connect(int fd, const sockaddr *address, socklen_t size)
{
    FAIL_OR_PASS(connect, "connect", -1, (fd, address, size));
}

int setsockopt(int fd, int level, int name, const void *value, socklen_t size) noexcept
{
    FAIL_OR_PASS(setsockopt, "setsockopt", -1, (fd, level, name, value, size));
}

int getsockname(int fd, sockaddr *address, socklen_t *size) noexcept
{
    FAIL_OR_PASS(getsockname, "getsockname", -1, (fd, address, size));
}

int getsockopt(int fd, int level, int name, void *value, socklen_t *size) noexcept
{
    FAIL_OR_PASS(getsockopt, "getsockopt", -1, (fd, level, name, value, size));
}

int socketpair(int domain, int type, int protocol, int *ends) noexcept
{
    FAIL_OR_PASS(socketpair, "socketpair", -1, (domain, type, protocol, ends));
}

ssize_t send(int fd, const void *data, size_t size, int flags)
{
    bool no = false;
    size = allowed("send", size, &no);
    return no ? -1 : next_send.call(fd, data, size, flags);
}

ssize_t sendto(int fd, const void *data, size_t size, int flags, const sockaddr *to, socklen_t to_size)
{
    FAIL_OR_PASS(sendto, "sendto", -1, (fd, data, size, flags, to, to_size));
}

ssize_t sendmsg(int fd, const msghdr *message, int flags)
{
    bool no = false;
    size_t size = message->msg_iovlen ? message->msg_iov[0].iov_len : 0;
    size_t part = allowed("sendmsg", size, &no);
    if (no) {
        return -1;
    }
    if (part == size) {
        return next_sendmsg.call(fd, message, flags);
    }
    iovec first = {message->msg_iov[0].iov_base, part};
    msghdr shorter = *message;
    shorter.msg_iov = &first;
    shorter.msg_iovlen = 1;
    return next_sendmsg.call(fd, &shorter, flags);
}

ssize_t recv(int fd, void *data, size_t size, int flags)
{
    bool no = false;
    size = allowed("recv", size, &no);
    return no ? -1 : next_recv.call(fd, data, size, flags);
}

ssize_t recvfrom(int fd, void *data, size_t size, int flags, sockaddr *from, socklen_t *from_size)
{
    FAIL_OR_PASS(recvfrom, "recvfrom", -1, (fd, data, size, flags, from, from_size));
}

ssize_t recvmsg(int fd, msghdr *message, int flags)
{
    bool no = false;
    size_t size = message->msg_iovlen ? message->msg_iov[0].iov_len : 0;
    size_t part = allowed("recvmsg", size, &no);
    if (no) {
        return -1;
    }
    if (part == size) {
        return next_recvmsg.call(fd, message, flags);
    }
    iovec first = {message->msg_iov[0].iov_base, part};
    iovec *all = message->msg_iov;
    size_t count = message->msg_iovlen;
    message->msg_iov = &first;
    message->msg_iovlen = 1;
    ssize_t got = next_recvmsg.call(fd, message, flags);
    message->msg_iov = all;
    message->msg_iovlen = count;
    return got;
}

int accept4(int fd, sockaddr *address, socklen_t *size, int flags)
{
    FAIL_OR_PASS(accept4, "accept4", -1, (fd, address, size, flags));
}

int listen(int fd, int backlog) noexcept
{
    FAIL_OR_PASS(listen, "listen", -1, (fd, backlog));
}

int open(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    mode_t mode = flags & (O_CREAT | __O_TMPFILE) ? va_arg(args, mode_t) : 0;
    va_end(args);
    FAIL_OR_PASS(open, "open", -1, (path, flags, mode));
}

int open64(const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    mode_t mode = flags & (O_CREAT | __O_TMPFILE) ? va_arg(args, mode_t) : 0;
    va_end(args);
    FAIL_OR_PASS(open64, "open", -1, (path, flags, mode));
}

int openat(int folder, const char *path, int flags, ...)
{
    va_list args;
    va_start(args, flags);
    mode_t mode = flags & (O_CREAT | __O_TMPFILE) ? va_arg(args, mode_t) : 0;
    va_end(args);
    FAIL_OR_PASS(openat, "openat", -1, (folder, path, flags, mode));
}

ssize_t read(int fd, void *data, size_t size)
{
    bool no = false;
    size = allowed("read", size, &no);
    return no ? -1 : next_read.call(fd, data, size);
}

int mkdir(const char *path, mode_t mode) noexcept
{
    FAIL_OR_PASS(mkdir, "mkdir", -1, (path, mode));
}

int unlink(const char *path) noexcept
{
    FAIL_OR_PASS(unlink, "unlink", -1, (path));
}

int fstat(int fd, struct stat *info) noexcept
{
    FAIL_OR_PASS(fstat, "fstat", -1, (fd, info));
}

int fstat64(int fd, struct stat64 *info) noexcept
{
    FAIL_OR_PASS(fstat64, "fstat", -1, (fd, info));
}

int lstat(const char *path, struct stat *info) noexcept
{
    FAIL_OR_PASS(lstat, "lstat", -1, (path, info));
}

int stat(const char *path, struct stat *info) noexcept
{
    FAIL_OR_PASS(stat, "stat", -1, (path, info));
}

DIR *opendir(const char *path)
{
    FAIL_OR_PASS(opendir, "opendir", nullptr, (path));
}

void *mmap(void *at, size_t size, int protection, int flags, int fd, off_t offset) noexcept
{
    FAIL_OR_PASS(mmap, "mmap", MAP_FAILED, (at, size, protection, flags, fd, offset));
}

void *mmap64(void *at, size_t size, int protection, int flags, int fd, off64_t offset) noexcept
{
    FAIL_OR_PASS(mmap64, "mmap", MAP_FAILED, (at, size, protection, flags, fd, offset));
}

int shm_open(const char *name, int flags, mode_t mode)
{
    FAIL_OR_PASS(shm_open, "shm_open", -1, (name, flags, mode));
}

// The two that give their error as the result.
int posix_fallocate(int fd, off_t offset, off_t size)
{
    int error = verdict("fallocate");
    return error ? error : next_posix_fallocate.call(fd, offset, size);
}

int posix_spawn(pid_t *pid, const char *path, const posix_spawn_file_actions_t *actions,
                const posix_spawnattr_t *attributes, char *const *argv, char *const *environment)
{
    int error = verdict("spawn");
    return error ? error : next_posix_spawn.call(pid, path, actions, attributes, argv, environment);
}

int pipe2(int *ends, int flags) noexcept
{
    FAIL_OR_PASS(pipe2, "pipe2", -1, (ends, flags));
}

pid_t waitpid(pid_t pid, int *status, int options)
{
    FAIL_OR_PASS(waitpid, "waitpid", -1, (pid, status, options));
}

int fcntl(int fd, int command, ...)
{
    va_list args;
    va_start(args, command);
    void *argument = va_arg(args, void *);
    va_end(args);
    FAIL_OR_PASS(fcntl, "fcntl", -1, (fd, command, argument));
}

int fcntl64(int fd, int command, ...)
{
    va_list args;
    va_start(args, command);
    void *argument = va_arg(args, void *);
    va_end(args);
    FAIL_OR_PASS(fcntl64, "fcntl", -1, (fd, command, argument));
}

int poll(pollfd *set, nfds_t count, int milliseconds)
{
    FAIL_OR_PASS(poll, "poll", -1, (set, count, milliseconds));
}

int epoll_create1(int flags) noexcept
{
    FAIL_OR_PASS(epoll_create1, "epoll_create1", -1, (flags));
}

int epoll_ctl(int set, int operation, int fd, epoll_event *event) noexcept
{
    FAIL_OR_PASS(epoll_ctl, "epoll_ctl", -1, (set, operation, fd, event));
}

int epoll_wait(int set, epoll_event *events, int most, int milliseconds)
{
    FAIL_OR_PASS(epoll_wait, "epoll_wait", -1, (set, events, most, milliseconds));
}

ssize_t getrandom(void *bytes, size_t size, unsigned flags)
{
    FAIL_OR_PASS(getrandom, "getrandom", -1, (bytes, size, flags));
}

void *dlopen(const char *file, int mode) noexcept
{
    FAIL_OR_PASS(dlopen, "dlopen", nullptr, (file, mode));
}

// Memory is needed before anything can be looked up, so these have the C library's own second names.
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *block, size_t size);
void __libc_free(void *block);

// Counted by the caller, for seam::spares().
void *take(const char *call, const void *caller, size_t size)
{
    bool counted = !seam::spares(caller);
    if (counted && refused(call)) {
        return nullptr;
    }
    void *block = __libc_malloc(size);
    count_block(block ? 1 : 0);
    return block;
}

void *malloc(size_t size) noexcept
{
    return take("malloc", __builtin_return_address(0), size);
}

char *strdup(const char *text) noexcept
{
    size_t size = strlen(text) + 1;
    void *copy = take("strdup", __builtin_return_address(0), size);
    return copy ? static_cast<char *>(memcpy(copy, text, size)) : nullptr;
}

void *calloc(size_t count, size_t size) noexcept
{
    bool counted = !seam::spares(__builtin_return_address(0));
    void *block = counted && refused("calloc") ? nullptr : __libc_calloc(count, size);
    count_block(block ? 1 : 0);
    return block;
}

void *realloc(void *old, size_t size) noexcept
{
    bool counted = !seam::spares(__builtin_return_address(0));
    if (counted && refused("realloc")) {
        return nullptr;
    }
    void *block = __libc_realloc(old, size);
    count_block(!old && block ? 1 : 0);
    return block;
}

void free(void *block) noexcept
{
    int saved = errno;
    count_block(block ? -1 : 0);
    __libc_free(block);
    errno = saved;
}

} // extern "C"
