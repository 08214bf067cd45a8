// Calls of the daemon into the C library.

#include "platform/switch_driver.h"
#include "record/complain.h"
#include "record/formatted.h"
#include "record/real.h"
#include "record/writer.h"

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <net/if.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

using namespace seam::record;
using namespace seam::format;

namespace {

template <class Function> Function *real(const char *name)
{
    return reinterpret_cast<Function *>(next_function(name));
}

int real_close(int fd)
{
    static auto *const next = real<int(int)>("close");
    return next(fd);
}

void put_driver_call(Entry &entry, const char *name, const ifreq &request)
{
    if (strncmp(request.ifr_name, "eth0", IFNAMSIZ) == 0) {
        entry.name(name);
        return;
    }
    char full[32 + IFNAMSIZ];
    snprintf(full, sizeof(full), "%s@%.*s", name, IFNAMSIZ, request.ifr_name);
    entry.name(full);
}

void put_driver(uint64_t begun, int fd, unsigned long number, const ifreq &request, int result)
{
    Entry entry(Kind::call, begun);
    char prefix[32];
    snprintf(prefix, sizeof(prefix), "ioctl[%d] ", fd);
    entry.text(prefix, Tag::prefix);
    const auto *words = reinterpret_cast<const uint32_t *>(request.ifr_data);
    uint32_t out = 0;
    int out_digits = 0;
    switch (number) {
    case switch_reg_read:
        put_driver_call(entry, "switch_read", request);
        entry.hex(words[0], 0);
        out = words[1];
        out_digits = 8;
        break;
    case switch_reg_write:
        put_driver_call(entry, "switch_write", request);
        entry.hex(words[0], 0);
        entry.hex(words[1], 8);
        break;
    case switch_mii_read:
        put_driver_call(entry, "phy_read", request);
        entry.number(words[0]);
        entry.number(words[1]);
        out = words[3];
        out_digits = 4;
        break;
    case switch_mii_write:
        put_driver_call(entry, "phy_write", request);
        entry.number(words[0]);
        entry.number(words[1]);
        entry.hex(words[2], 4);
        break;
    default:
        entry.name("ioctl");
        entry.hex(static_cast<uint32_t>(number), 0);
        break;
    }
    entry.tag(Tag::result);
    entry.number(result);
    if (result == 0 && out_digits != 0) {
        entry.hex(out, out_digits);
    }
}

void put_syslog(int level, const char *format, const char *text)
{
    Entry entry(Kind::say);
    entry.name("syslog");
    entry.number(level);
    // A text that is its own format would be a fault of the daemon's.
    if (strcmp(format, "%s") != 0) {
        entry.text("another format", Tag::word);
    }
    entry.text(text);
}

void log_and_put(int level, const char *format, va_list arguments, const void *site)
{
    const Formatted line(format, arguments);
    if (is_recorded(site)) {
        put_syslog(level, format, line.text());
    }
    static auto *const next = real<void(int, const char *, ...)>("syslog");
    next(level, "%s", line.text());
}

// Devices in the order of the table, to notice when one comes or goes.
uint32_t names_in(const char *table, size_t length)
{
    const char *const end = table + length;
    uint32_t sum = 0;
    while (table < end) {
        const auto *found = static_cast<const char *>(memchr(table, '\n', static_cast<size_t>(end - table)));
        const char *const line_end = found == nullptr ? end : found;
        for (; table < line_end && *table != ':' && *table != '|'; ++table) {
            sum = *table == ' ' ? sum : (sum ^ static_cast<unsigned char>(*table)) * 0x01000193;
        }
        table = line_end + 1;
    }
    return sum;
}

// In a program of 32 bits that is built for large files it goes by another name, where the C library has one.
const char *name_of_fopen()
{
    return sizeof(off_t) > sizeof(long) && find_symbol("fopen64") != nullptr ? "fopen64" : "fopen";
}

// Everything that the stream holds, behind the tag. Null where it is too long.
char *put_content(Entry &entry, FILE *file, size_t *length)
{
    entry.tag(Tag::hidden);
    size_t room = 4096;
    size_t used = 0;
    for (;;) {
        char *at = entry.room(room);
        if (at == nullptr) {
            return nullptr;
        }
        used += fread(at + used, 1, room - used, file);
        if (used < room) {
            entry.room_used(used);
            *length = used;
            return at;
        }
        room *= 2;
    }
}

} // namespace

extern "C" {

int socket(int domain, int type, int protocol)
{
    static auto *const next = real<int(int, int, int)>("socket");
    if (!is_recorded(__builtin_return_address(0))) {
        return next(domain, type, protocol);
    }
    const uint64_t begun = now();
    const int fd = next(domain, type, protocol);
    Entry entry(Kind::call, begun);
    entry.name("socket");
    entry.text(domain == AF_INET ? "AF_INET" : "another family", Tag::word);
    entry.text(type == SOCK_DGRAM ? "SOCK_DGRAM" : "another type", Tag::word);
    entry.number(protocol);
    entry.tag(Tag::result);
    entry.number(fd);
    return fd;
}

int ioctl(int fd, unsigned long number, ...)
{
    va_list arguments;
    va_start(arguments, number);
    void *data = va_arg(arguments, void *);
    va_end(arguments);
    static auto *const next = real<int(int, unsigned long, void *)>("ioctl");
    if (!is_recorded(__builtin_return_address(0))) {
        return next(fd, number, data);
    }
    const uint64_t begun = now();
    const int result = next(fd, number, data);
    put_driver(begun, fd, number, *static_cast<const ifreq *>(data), result);
    return result;
}

int close(int fd)
{
    if (is_recorded(__builtin_return_address(0))) {
        Entry entry(Kind::say);
        entry.name("close");
        entry.number(fd);
        entry.text("socket", Tag::word);
    }
    return real_close(fd);
}

// What the daemon reads is what is recorded: a table of the kernel is another one each time it is read.
FILE *fopen(const char *path, const char *mode)
{
    static auto *const next = real<FILE *(const char *, const char *)>(name_of_fopen());
    if (!is_recorded(__builtin_return_address(0))) {
        return next(path, mode);
    }
    const uint64_t begun = now();
    FILE *file = next(path, mode);
    Entry entry(Kind::call, begun);
    entry.name("fopen");
    entry.text(path);
    entry.text(mode);
    entry.tag(Tag::result);
    entry.number(file == nullptr ? -1 : 0);
    if (file == nullptr) {
        return nullptr;
    }
    size_t length = 0;
    char *content = put_content(entry, file, &length);
    if (content == nullptr || length == 0) {
        rewind(file);
        return file;
    }
    static uint32_t last_names = 0;
    if (const uint32_t names = names_in(content, length); names != last_names) {
        last_names = names;
        row_over();
    }
    FILE *copy = fmemopen(content, length, "r");
    if (copy == nullptr) {
        rewind(file);
        return file;
    }
    fclose(file);
    return copy;
}

int fclose(FILE *file)
{
    static auto *const next = real<int(FILE *)>("fclose");
    if (is_recorded(__builtin_return_address(0))) {
        Entry(Kind::say).name("fclose");
    }
    return next(file);
}

void openlog(const char *ident, int option, int facility)
{
    static auto *const next = real<void(const char *, int, int)>("openlog");
    next(ident, option, facility);
    if (is_recorded(__builtin_return_address(0))) {
        Entry entry(Kind::say);
        entry.name("openlog");
        entry.text(ident);
        entry.number(option);
        entry.number(facility);
    }
}

void syslog(int level, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log_and_put(level, format, arguments, __builtin_return_address(0));
    va_end(arguments);
}

// The name that fortified builds call.
void __syslog_chk(int level, int /*flag*/, const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    log_and_put(level, format, arguments, __builtin_return_address(0));
    va_end(arguments);
}

int kill(pid_t pid, int number)
{
    static auto *const next = real<int(pid_t, int)>("kill");
    if (!is_recorded(__builtin_return_address(0))) {
        return next(pid, number);
    }
    const uint64_t begun = now();
    const int result = next(pid, number);
    Entry entry(Kind::call, begun);
    entry.name("kill");
    entry.number(pid);
    if (number == SIGUSR1 || number == SIGUSR2) {
        entry.text(number == SIGUSR1 ? "SIGUSR1" : "SIGUSR2", Tag::word);
    } else {
        entry.number(number);
    }
    entry.tag(Tag::result);
    entry.number(result);
    return result;
}

unsigned sleep(unsigned seconds)
{
    static auto *const next = real<unsigned(unsigned)>("sleep");
    if (!is_recorded(__builtin_return_address(0))) {
        return next(seconds);
    }
    const uint64_t begun = now();
    const unsigned left = next(seconds);
    Entry entry(Kind::call, begun);
    entry.name("sleep");
    entry.number(seconds);
    entry.tag(Tag::result);
    entry.number(left);
    return left;
}

int usleep(useconds_t us)
{
    static auto *const next = real<int(useconds_t)>("usleep");
    if (!is_recorded(__builtin_return_address(0))) {
        return next(us);
    }
    const uint64_t begun = now();
    const int result = next(us);
    Entry entry(Kind::call, begun);
    entry.name("usleep");
    entry.number(us);
    entry.tag(Tag::result);
    entry.number(result);
    return result;
}

} // extern "C"

void seam::record::complain(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const Formatted line(format, arguments);
    va_end(arguments);
    static auto *const next = real<void(int, const char *, ...)>("syslog");
    next(LOG_WARNING | LOG_DAEMON, "ivarode: %s", line.text());
}
