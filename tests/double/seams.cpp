// The libc, libubox and libubus seams of the daemon: the library is preloaded, so its definitions come first.

#include "call.h"
#include "message.h"
#include "model.h"
#include "script.h"
#include "steps.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <libubus.h>
#include <net/if.h>
#include <set>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

using namespace recorder;

namespace {

constexpr unsigned long switch_read = 0x89F1;
constexpr unsigned long switch_write = 0x89F2;
constexpr unsigned long mii_read = 0x89F3;
constexpr unsigned long mii_write = 0x89F4;
// Numbers that no real descriptor of this process has.
constexpr int first_socket = 1000;

std::set<int> sockets;
int next_socket = first_socket;
std::set<std::FILE *> files;

template <typename Function> Function *next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

std::string phy_key(uint32_t phy, uint32_t reg)
{
    return "phy " + std::to_string(phy) + " " + std::to_string(reg);
}

// The driver's name for an ioctl on an interface other than eth0 shows that interface, so that no expectation
// for eth0 matches it.
std::string driver_call(const char *name, const ifreq &request)
{
    const std::string interface {
        request.ifr_name, strnlen(request.ifr_name, IFNAMSIZ)
    };
    return interface == "eth0" ? name : name + ("@" + interface);
}

int driver(const std::string &socket, unsigned long number, const ifreq &request, const void *site)
{
    auto *word = reinterpret_cast<uint32_t *>(request.ifr_data);
    const auto start = [&](const char *name) {
        return Call(driver_call(name, request), Call::Kind::action, site).prefix(socket);
    };
    switch (number) {
    case switch_read:
        return start("switch_read")
            .hex(word[0])
            .act(
                [&] {
                    word[1] = model.register_get(register_key(word[0]));
                    return 0;
                },
                [&] { return hex(word[1], 8); });
    case switch_write:
        return start("switch_write").hex(word[0]).hex(word[1], 8).act([&] {
            model.register_set(register_key(word[0]), word[1]);
            return 0;
        });
    case mii_read:
        return start("phy_read")
            .number(word[0])
            .number(word[1])
            .act(
                [&] {
                    word[3] = model.register_get(phy_key(word[0], word[1]));
                    return 0;
                },
                [&] { return hex(word[3], 4); });
    case mii_write:
        return start("phy_write").number(word[0]).number(word[1]).hex(word[2], 4).act([&] {
            model.register_set(phy_key(word[0], word[1]), word[2]);
            return 0;
        });
    default:
        return Call("ioctl", Call::Kind::action, site).hex(static_cast<uint32_t>(number)).act([] {
            return -1;
        });
    }
}

// One allocation on the daemon's behalf; shown only when it is made to fail.
bool allocation_refused()
{
    Call call("alloc");
    const std::optional<long> wanted = call.demanded();
    return wanted && *wanted != 0 && call.done(*wanted) != 0;
}

void record_syslog(int level, const char *fmt, va_list args, const void *site)
{
    char text[4096];
    std::vsnprintf(text, sizeof text, fmt, args);
    Call call("syslog", Call::Kind::saying, site);
    call.number(level);
    if (std::strcmp(fmt, "%s") != 0) {
        call.raw("format " + quote(fmt));
    }
    call.text(text).say();
}

} // namespace

unsigned recorder::sockets_open()
{
    return static_cast<unsigned>(sockets.size());
}

unsigned recorder::files_open()
{
    return static_cast<unsigned>(files.size());
}

extern "C" {

int socket(int domain, int type, int protocol)
{
    if (!scenario.scripted) {
        return next<int(int, int, int)>("socket")(domain, type, protocol);
    }
    Call call("socket");
    if (domain == AF_INET && type == SOCK_DGRAM) {
        call.raw("AF_INET").raw("SOCK_DGRAM").number(protocol);
    } else {
        call.number(domain).number(type).number(protocol);
    }
    if (const std::optional<long> wanted = call.demanded(); wanted && *wanted < 0) {
        errno = EMFILE;
        return call.done(*wanted);
    }
    sockets.insert(next_socket);
    return call.done(next_socket++);
}

int ioctl(int fd, unsigned long number, ...) noexcept
{
    va_list args;
    va_start(args, number);
    void *data = va_arg(args, void *);
    va_end(args);
    if (!scenario.scripted) {
        return next<int(int, unsigned long, void *)>("ioctl")(fd, number, data);
    }
    const std::string socket = "ioctl[" + std::to_string(fd) + (sockets.count(fd) != 0 ? "] " : " closed] ");
    const int result = driver(socket, number, *static_cast<ifreq *>(data), __builtin_return_address(0));
    if (result < 0) {
        errno = EIO;
    }
    return result;
}

int close(int fd)
{
    if (!scenario.scripted) {
        return static_cast<int>(syscall(SYS_close, fd));
    }
    const bool known = sockets.erase(fd) != 0;
    Call("close", Call::Kind::saying).number(fd).raw(known ? "socket" : "not open").say();
    return known ? 0 : -1;
}

std::FILE *fopen(const char *path, const char *mode)
{
    if (!scenario.scripted) {
        return next<std::FILE *(const char *, const char *)>("fopen")(path, mode);
    }
    Call call("fopen");
    call.text(path).text(mode);
    const std::optional<long> wanted = call.demanded();
    const bool readable = std::strcmp(path, "/proc/net/dev") == 0 && scenario.net_dev_readable;
    if ((wanted && *wanted != 0) || !readable) {
        errno = ENOENT;
        call.done(-1);
        return nullptr;
    }
    // One byte more than the text: a stream over no bytes at all cannot be opened.
    static std::string content;
    content = scenario.net_dev;
    std::FILE *file = content.empty()
                          ? next<std::FILE *(const char *, const char *)>("fopen")("/dev/null", "r")
                          : fmemopen(content.data(), content.size(), "r");
    files.insert(file);
    call.done(0);
    return file;
}

int fclose(std::FILE *file)
{
    if (files.erase(file) != 0) {
        Call("fclose", Call::Kind::saying).say();
    }
    return next<int(std::FILE *)>("fclose")(file);
}

void openlog(const char *ident, int option, int facility)
{
    Call("openlog", Call::Kind::saying).text(ident).number(option).number(facility).say();
}

void syslog(int level, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    record_syslog(level, fmt, args, __builtin_return_address(0));
    va_end(args);
}

// The name that fortified builds call.
void __syslog_chk(int level, int /*flag*/, const char *fmt, ...)
{
    va_list args;
    va_start(args, fmt);
    record_syslog(level, fmt, args, __builtin_return_address(0));
    va_end(args);
}

int kill(pid_t pid, int number) noexcept
{
    if (!scenario.scripted) {
        return static_cast<int>(syscall(SYS_kill, pid, number));
    }
    const std::string name = number == SIGUSR1   ? "SIGUSR1"
                             : number == SIGUSR2 ? "SIGUSR2"
                                                 : std::to_string(number);
    return Call("kill").number(pid).raw(name).act([] { return 0; });
}

sighandler_t signal(int number, sighandler_t handler) noexcept
{
    if (!scenario.scripted) {
        return next<sighandler_t(int, sighandler_t)>("signal")(number, handler);
    }
    Call("signal", Call::Kind::saying).number(number).raw(handler == SIG_IGN ? "ignore" : "handler").say();
    return SIG_DFL;
}

unsigned sleep(unsigned seconds)
{
    // A demanded result is what a signal leaves of the wait.
    Call call("sleep");
    const long left = call.number(seconds).demanded().value_or(0);
    return static_cast<unsigned>(call.done(left > 0 ? left : 0));
}

int usleep(useconds_t us)
{
    Call call("usleep");
    call.number(us).demanded();
    return call.done(0);
}

int nanosleep(const timespec *wait, timespec * /*rest*/)
{
    Call call("usleep");
    call.number(wait->tv_sec * 1000000LL + wait->tv_nsec / 1000).demanded();
    return call.done(0);
}

int uloop_init(void)
{
    return Call("uloop_init").act([] { return 0; });
}

int uloop_run_timeout(int timeout)
{
    Call("uloop_run", Call::Kind::saying).number(timeout).say();
    run_steps();
    return 0;
}

int uloop_timeout_set(struct uloop_timeout *timeout, int msecs)
{
    return Call("uloop_timeout_set").number(msecs).act([&] {
        scenario.timer = timeout;
        return 0;
    });
}

int ubus_send_reply(struct ubus_context *ctx, struct ubus_request_data *req, struct blob_attr *msg)
{
    return Call(is_current_request(ctx, req) ? "reply" : "reply to another request")
        .raw(message_text(msg))
        .act([] { return 0; });
}

void *malloc(size_t size)
{
    static void *(*real)(size_t) = next<void *(size_t)>("malloc");
    if (from_daemon(__builtin_return_address(0)) && allocation_refused()) {
        return nullptr;
    }
    return real(size);
}

void *calloc(size_t count, size_t size)
{
    static void *(*real)(size_t, size_t) = next<void *(size_t, size_t)>("calloc");
    if (from_daemon(__builtin_return_address(0)) && allocation_refused()) {
        return nullptr;
    }
    return real(count, size);
}

// A message that the daemon builds grows by the message library's own allocations.
int blob_buf_init(struct blob_buf *buf, int id)
{
    const bool refused = from_daemon(__builtin_return_address(0)) && allocation_refused();
    return refused ? -ENOMEM : next<int(struct blob_buf *, int)>("blob_buf_init")(buf, id);
}

int blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data, unsigned length)
{
    const bool refused = from_daemon(__builtin_return_address(0)) && allocation_refused();
    return refused ? -1
                   : next<int(struct blob_buf *, int, const char *, const void *, unsigned)>(
                         "blobmsg_add_field")(buf, type, name, data, length);
}

void *blobmsg_open_nested(struct blob_buf *buf, const char *name, bool array)
{
    const bool refused = from_daemon(__builtin_return_address(0)) && allocation_refused();
    return refused
               ? nullptr
               : next<void *(struct blob_buf *, const char *, bool)>("blobmsg_open_nested")(buf, name, array);
}

} // extern "C"
