// The libc, event loop and bus calls of the daemon. The test is linked so that they come here first; what is
// not the daemon's goes on to the real function.

#include "double.h"
#include "message.h"

#include <cerrno>
#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <libubus.h>
#include <net/if.h>
#include <sys/socket.h>

using namespace unit;

unsigned databases_open_count();

namespace {

// Numbers that no descriptor of this process has.
constexpr int first_socket = 100000;

std::set<int> sockets;
int next_socket = first_socket;
std::set<std::FILE *> tables;
std::jmp_buf before_exit;
bool exit_expected = false;

// The driver's four private calls; the line names the device when it is not the switch's.
int driver(unsigned long request, const ifreq &ifr)
{
    auto *word = reinterpret_cast<uint32_t *>(ifr.ifr_data);
    const std::string device{ifr.ifr_name, strnlen(ifr.ifr_name, IFNAMSIZ)};
    const std::string at = device == "eth0" ? "" : "@" + device;
    int result = 0;
    switch (request) {
    case 0x89F1:
        result = Call("switch_read" + at, Shown::registers).hex(word[0]).result();
        word[1] = world.registers[word[0]];
        return result;
    case 0x89F2:
        result = Call("switch_write" + at, Shown::registers).hex(word[0]).hex(word[1], 8).result();
        if (result == 0) {
            world.registers[word[0]] = word[1];
        }
        return result;
    case 0x89F3:
        result = Call("phy_read" + at, Shown::registers).number(word[0]).number(word[1]).result();
        word[3] = world.phys[{word[0], word[1]}];
        return result;
    case 0x89F4:
        result =
            Call("phy_write" + at, Shown::registers).number(word[0]).number(word[1]).hex(word[2], 4).result();
        if (result == 0) {
            world.phys[{word[0], word[1]}] = word[2];
        }
        return result;
    default:
        return Call("ioctl").hex(static_cast<uint32_t>(request)).result(-1);
    }
}

} // namespace

unsigned unit::open_handles()
{
    return static_cast<unsigned>(sockets.size() + tables.size()) + databases_open_count();
}

bool unit::runs_into_exit(void (*function)())
{
    exit_expected = true;
    const bool exited = setjmp(before_exit) != 0;
    if (!exited) {
        function();
    }
    exit_expected = false;
    return exited;
}

extern "C" {

int __real_close(int fd);
std::FILE *__real_fopen(const char *path, const char *mode);
int __real_fclose(std::FILE *file);
void *__real_calloc(size_t count, size_t size);
[[noreturn]] void __real_exit(int status);

int __wrap_socket(int domain, int type, int protocol)
{
    // The numbers differ from processor to processor.
    const bool datagram = domain == AF_INET && type == SOCK_DGRAM;
    const int result = Call("socket", Shown::registers)
                           .raw(datagram ? "IPv4 datagram" : "?")
                           .number(protocol)
                           .result(next_socket);
    if (result >= 0) {
        sockets.insert(next_socket++);
    }
    return result;
}

int __wrap_ioctl(int fd, unsigned long request, ...)
{
    va_list args;
    va_start(args, request);
    const auto *ifr = va_arg(args, const ifreq *);
    va_end(args);
    EXPECT_TRUE(sockets.contains(fd)) << "ioctl on descriptor " << fd;
    return driver(request, *ifr);
}

int __wrap_close(int fd)
{
    if (fd < first_socket) {
        return __real_close(fd);
    }
    EXPECT_EQ(sockets.erase(fd), 1U) << "close of descriptor " << fd;
    return 0;
}

std::FILE *__wrap_fopen(const char *path, const char *mode)
{
    if (std::strcmp(path, "/proc/net/dev") != 0) {
        return __real_fopen(path, mode);
    }
    Call("fopen").text(path).text(mode).done();
    if (!world.net_dev) {
        errno = ENOENT;
        return nullptr;
    }
    std::FILE *file = world.net_dev->empty() ? __real_fopen("/dev/null", "r")
                                             : fmemopen(world.net_dev->data(), world.net_dev->size(), "r");
    tables.insert(file);
    return file;
}

// The same where file offsets are made wider than the processor's words.
std::FILE *__wrap_fopen64(const char *path, const char *mode)
{
    return __wrap_fopen(path, mode);
}

int __wrap_fclose(std::FILE *file)
{
    tables.erase(file);
    return __real_fclose(file);
}

void *__wrap_calloc(size_t count, size_t size)
{
    if (world.calloc_failing != 0 && --world.calloc_failing == 0) {
        errno = ENOMEM;
        return nullptr;
    }
    return __real_calloc(count, size);
}

void __wrap_exit(int status)
{
    if (!exit_expected) {
        __real_exit(status);
    }
    Call("exit").number(status).done();
    std::longjmp(before_exit, 1);
}

void __wrap_openlog(const char *identity, int options, int facility)
{
    Call("openlog").text(identity).number(options).number(facility).done();
}

void __wrap_syslog(int level, const char *format, ...)
{
    char text[4096];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    EXPECT_STREQ(format, "%s");
    Call("syslog").number(level).text(text).done();
}

int __wrap_kill(pid_t pid, int signal_number)
{
    return Call("kill").number(pid).number(signal_number).result();
}

unsigned __wrap_sleep(unsigned seconds)
{
    return static_cast<unsigned>(Call("sleep").number(seconds).result());
}

int __wrap_usleep(unsigned microseconds)
{
    return Call("usleep").number(microseconds).result();
}

void (*__wrap_signal(int number, void (*handler)(int)))(int)
{
    handed.on_signal = handler;
    Call("signal").number(number).done();
    return handler;
}

int __wrap_atexit(void (*function)())
{
    handed.at_exit = function;
    return Call("atexit").result();
}

int __wrap_uloop_init()
{
    return Call("uloop_init").result();
}

int __wrap_uloop_run_timeout(int timeout)
{
    return Call("uloop_run").number(timeout).result();
}

int __wrap_uloop_timeout_set(uloop_timeout *timeout, int milliseconds)
{
    handed.timer = timeout;
    return Call("uloop_timeout_set").number(milliseconds).result();
}

int __wrap_ubus_send_reply(ubus_context *ctx, ubus_request_data *req, blob_attr *message)
{
    EXPECT_TRUE(is_current_request(ctx, req));
    return Call("reply").raw(message_text(message)).result();
}

// Parts of the daemon between whose files the linker puts these; the names are the compiler's.

int __real__Z19mtksw_port_link_getjPj(uint32_t port, uint32_t *link);
int __real__Z17netbd_seqport_getjPj(uint32_t port, uint32_t *sequence);
int __real__Z14mtksw_reg_readjPj(uint32_t offset, uint32_t *value);
int __real__Z23netintf_link_get_bynamePKcPj(const char *name, uint32_t *link);

int __wrap__Z19mtksw_port_link_getjPj(uint32_t port, uint32_t *link)
{
    const auto found = world.port_links.find(port);
    if (found == world.port_links.end()) {
        return __real__Z19mtksw_port_link_getjPj(port, link);
    }
    *link = found->second.second;
    return found->second.first;
}

int __wrap__Z17netbd_seqport_getjPj(uint32_t port, uint32_t *sequence)
{
    return world.sequence_result != 0 ? world.sequence_result
                                      : __real__Z17netbd_seqport_getjPj(port, sequence);
}

int __wrap__Z14mtksw_reg_readjPj(uint32_t offset, uint32_t *value)
{
    const int wanted = std::exchange(world.reg_read_once, 0);
    return wanted != 0 ? wanted : __real__Z14mtksw_reg_readjPj(offset, value);
}

int __wrap__Z23netintf_link_get_bynamePKcPj(const char *name, uint32_t *link)
{
    if (world.link_asks_failing > 0) {
        world.link_asks_failing--;
        return -1;
    }
    return __real__Z23netintf_link_get_bynamePKcPj(name, link);
}

} // extern "C"
