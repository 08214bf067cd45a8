// The calls of the daemon into the C library, libubox and libubus. These definitions come first, whether the
// library is preloaded or linked into a program with the daemon's parts; what is not the daemon's goes on to
// the real function.

#include "call.h"
#include "message.h"
#include "platform/output.h"
#include "process.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <dlfcn.h>
#include <libubus.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

using namespace seam;

Process seam::process;
void (*seam::event_loop)() = [] {};

namespace {

constexpr unsigned long switch_read = 0x89F1;
constexpr unsigned long switch_write = 0x89F2;
constexpr unsigned long mii_read = 0x89F3;
constexpr unsigned long mii_write = 0x89F4;
// Numbers that no real descriptor of this process has.
constexpr int first_socket = 1000;

bool watching = false;
int next_socket = first_socket;

template <typename Function> Function *next(const char *name)
{
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

int driver(const std::string &socket, unsigned long number, const ifreq &request, const void *site)
{
    auto *word = reinterpret_cast<uint32_t *>(request.ifr_data);
    // On an interface other than eth0 the name shows it, so that no expectation for eth0 matches.
    const std::string interface {
        request.ifr_name, strnlen(request.ifr_name, IFNAMSIZ)
    };
    const auto call = [&](const char *name, auto effect, auto... arguments) {
        const std::string full = interface == "eth0" ? name : name + ("@" + interface);
        return Call({full.c_str(), site}, Call::Kind::action, arguments...)
            .prefix(socket)
            .act(effect, arguments...);
    };
    switch (number) {
    case switch_read:
        return call("switch_read", &Hardware::read, Hex{word[0]}, HexOut{&word[1]});
    case switch_write:
        return call("switch_write", &Hardware::write, Hex{word[0]}, Hex{word[1], 8});
    case mii_read:
        return call("phy_read", &Hardware::phy_read, word[0], word[1], HexOut{&word[3], 4});
    case mii_write:
        return call("phy_write", &Hardware::phy_write, word[0], word[1], Hex{word[2], 4});
    default:
        return Call({"ioctl", site}, Call::Kind::action, Hex{static_cast<uint32_t>(number)}).act([] {
            return -1;
        });
    }
}

// A descriptor that is none of the daemon's.
bool is_real(int fd, const void *site)
{
    return fd >= 0 && fd < first_socket && !from_daemon(site);
}

int waited(const Name &name, long long time)
{
    Call call(name, Call::Kind::action, time);
    call.demanded();
    return call.done(0);
}

void record_syslog(int level, const char *fmt, va_list args, const void *site)
{
    const std::string text = formatted(fmt, args);
    if (std::strcmp(fmt, "%s") == 0) {
        say({"syslog", site}, level, text.c_str());
    } else {
        ++process.misused;
        say({"syslog", site}, level, Word{"format " + quote(fmt)}, text.c_str());
    }
}

} // namespace

void seam::watch_begin()
{
    watching = true;
}

std::string Process::left_open() const
{
    if (sockets.empty() && files.empty() && !database_open) {
        return {};
    }
    return "sockets=" + std::to_string(sockets.size()) + " files=" + std::to_string(files.size()) +
           " databases=" + (database_open ? "1" : "0");
}

void seam::begin_in_process()
{
    watching = true;
    process = {};
    World fresh;
    std::swap(world, fresh);
    next_socket = first_socket;
    g_netd_dbg_shm = nullptr;
    demand_nothing();
    trace_to_memory();
}

extern "C" {

int socket(int domain, int type, int protocol)
{
    if (!watching) {
        return next<int(int, int, int)>("socket")(domain, type, protocol);
    }
    // The numbers differ from processor to processor.
    const bool datagram = domain == AF_INET && type == SOCK_DGRAM;
    Call call(__func__, Call::Kind::action, Word{datagram ? "AF_INET" : std::to_string(domain)},
              Word{datagram ? "SOCK_DGRAM" : std::to_string(type)}, protocol);
    const std::optional<long> wanted = call.demanded();
    if (wanted && *wanted < 0) {
        errno = EMFILE;
        return call.done(*wanted);
    }
    const int fd = wanted && *wanted > 0 ? static_cast<int>(*wanted) : next_socket++;
    process.sockets.insert(fd);
    return call.done(fd);
}

int ioctl(int fd, unsigned long number, ...) noexcept
{
    va_list args;
    va_start(args, number);
    void *data = va_arg(args, void *);
    va_end(args);
    if (!watching || is_real(fd, __builtin_return_address(0))) {
        return next<int(int, unsigned long, void *)>("ioctl")(fd, number, data);
    }
    const bool open = process.sockets.contains(fd);
    process.misused += open ? 0 : 1;
    const std::string socket = "ioctl[" + std::to_string(fd) + (open ? "] " : " closed] ");
    const int result = driver(socket, number, *static_cast<ifreq *>(data), __builtin_return_address(0));
    if (result < 0) {
        errno = EIO;
    }
    return result;
}

int close(int fd)
{
    if (!watching || is_real(fd, __builtin_return_address(0))) {
        return static_cast<int>(syscall(SYS_close, fd));
    }
    const bool open = process.sockets.erase(fd) != 0;
    process.misused += open ? 0 : 1;
    say(__func__, fd, Word{open ? "socket" : "not open"});
    return open ? 0 : -1;
}

std::FILE *fopen(const char *path, const char *mode)
{
    const bool is_table = std::strcmp(path, "/proc/net/dev") == 0;
    if (!watching || (!is_table && !from_daemon(__builtin_return_address(0)))) {
        return next<std::FILE *(const char *, const char *)>("fopen")(path, mode);
    }
    Call call(__func__, Call::Kind::action, path, mode);
    const std::optional<long> wanted = call.demanded();
    if ((wanted && *wanted != 0) || !is_table || !world.net_dev) {
        errno = ENOENT;
        call.done(-1);
        return nullptr;
    }
    // A stream over no bytes at all cannot be opened.
    static std::string content;
    content = *world.net_dev;
    std::FILE *file = content.empty()
                          ? next<std::FILE *(const char *, const char *)>("fopen")("/dev/null", "r")
                          : fmemopen(content.data(), content.size(), "r");
    process.files.insert(file);
    call.done(0);
    return file;
}

int fclose(std::FILE *file)
{
    if (watching && process.files.erase(file) != 0) {
        say(__func__);
    }
    return next<int(std::FILE *)>("fclose")(file);
}

void openlog(const char *ident, int option, int facility)
{
    say(__func__, ident, option, facility);
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
    if (!watching) {
        return static_cast<int>(syscall(SYS_kill, pid, number));
    }
    const std::string name = number == SIGUSR1   ? "SIGUSR1"
                             : number == SIGUSR2 ? "SIGUSR2"
                                                 : std::to_string(number);
    return act(__func__, nothing, pid, Word{name});
}

sighandler_t signal(int number, sighandler_t handler) noexcept
{
    if (watching) {
        say(__func__, number, Word{handler == SIG_IGN ? "ignore" : "handler"});
    }
    return next<sighandler_t(int, sighandler_t)>("signal")(number, handler);
}

// Time is virtual: no wait takes any.

unsigned sleep(unsigned seconds)
{
    // A demanded result is what a signal leaves of the wait.
    Call call(__func__, Call::Kind::action, seconds);
    return static_cast<unsigned>(call.done(std::max(call.demanded().value_or(0), 0L)));
}

int usleep(useconds_t us)
{
    return waited(__func__, us);
}

int nanosleep(const timespec *time, timespec * /*rest*/)
{
    return waited("usleep", time->tv_sec * 1000000LL + time->tv_nsec / 1000);
}

int uloop_init(void)
{
    return act(__func__, nothing);
}

int uloop_run_timeout(int timeout)
{
    say("uloop_run", timeout);
    event_loop();
    return 0;
}

int uloop_timeout_set(struct uloop_timeout *timeout, int msecs)
{
    return act(
        __func__, [&] { process.timer = timeout; }, msecs);
}

int ubus_send_reply(struct ubus_context *ctx, struct ubus_request_data *req, struct blob_attr *msg)
{
    const bool current = is_current_request(ctx, req);
    process.misused += current ? 0 : 1;
    return act(current ? "reply" : "reply to another request", nothing, Word{message_text(msg)});
}

} // extern "C"
