// Calls of the platform that no one statement describes: texts with arguments of any number, handles, answers
// that stay the platform's, walks over the configuration.

#include "platform/board.h"
#include "platform/command.h"
#include "platform/config.h"
#include "platform/output.h"
#include "record/formatted.h"
#include "record/mask.h"
#include "record/real.h"
#include "record/writer.h"

#include <cstdarg>
#include <cstring>
#include <uci.h>

using namespace seam::record;
using namespace seam::format;

namespace {

void put_result(Entry &entry, long long result)
{
    entry.tag(Tag::result);
    entry.number(result);
}

void put_handle(Entry &entry, const sqlite3 *db)
{
    entry.text(db == nullptr ? "null" : "db", Tag::word);
}

// A walk is written down with its first section, or at its end.
struct Walk {
    ucilib_section_cb callback;
    void *argument;
    const char *package;
    const char *type;
    bool written;
};

void write_walk(Walk &walk)
{
    if (!walk.written) {
        walk.written = true;
        Entry entry(Kind::walk);
        entry.text(walk.package);
        entry.text(walk.type);
    }
}

int walked(uci_context *context, uci_section *section, void *argument)
{
    Walk &walk = *static_cast<Walk *>(argument);
    write_walk(walk);
    Entry(Kind::section).text(section->e.name);
    return walk.callback(context, section, walk.argument);
}

} // namespace

int outlib_client_init(int argc, char **argv)
{
    const auto real = real_function<outlib_client_init>(__func__);
    const int result = real(argc, argv);
    if (is_recorded(__builtin_return_address(0))) {
        Entry entry(Kind::call);
        entry.name(__func__);
        entry.number(argc);
        for (int i = 1; i < argc; ++i) {
            entry.text(argv[i]);
        }
        put_result(entry, result);
    }
    return result;
}

#define OUTLIB(severity)                                                                                     \
    int outlib_##severity(const char *format, ...)                                                           \
    {                                                                                                        \
        va_list arguments;                                                                                   \
        va_start(arguments, format);                                                                         \
        const Formatted line(format, arguments);                                                             \
        va_end(arguments);                                                                                   \
        if (is_recorded(__builtin_return_address(0))) {                                                      \
            Entry entry(Kind::say);                                                                          \
            entry.name(__func__);                                                                            \
            entry.text(line.text());                                                                         \
        }                                                                                                    \
        return real_function<outlib_##severity>(__func__)("%s", line.text());                                \
    }
OUTLIB(error)
OUTLIB(warning)
OUTLIB(notice)
OUTLIB(info)
OUTLIB(debug)
#undef OUTLIB

const uint8_t *sys_bdinfo_macbase_get(void)
{
    const uint8_t *mac = real_function<sys_bdinfo_macbase_get>(__func__)();
    if (is_recorded(__builtin_return_address(0))) {
        Entry entry(Kind::say);
        entry.name(__func__);
        entry.tag(Tag::hidden);
        entry.mac(mac);
    }
    return mac;
}

uint32_t sys_bdinfo_cpuid_get(void)
{
    const uint32_t id = real_function<sys_bdinfo_cpuid_get>(__func__)();
    if (is_recorded(__builtin_return_address(0))) {
        Entry entry(Kind::say);
        entry.name(__func__);
        entry.tag(Tag::hidden);
        entry.number(id);
    }
    return id;
}

const struct netbd_ether *sys_bdinfo_ether_get(uint32_t index)
{
    const netbd_ether *port = real_function<sys_bdinfo_ether_get>(__func__)(index);
    if (is_recorded(__builtin_return_address(0))) {
        Entry entry(Kind::say);
        entry.name(__func__);
        entry.number(index);
        entry.tag(Tag::hidden);
        if (port != nullptr) {
            entry.number(port->role);
            entry.number(port->hw_port);
        }
    }
    return port;
}

int knl_send_and_wait_response(uint32_t type, const void *req, uint32_t req_len, void *reply,
                               uint32_t reply_size, uint32_t *reply_len)
{
    const auto real = real_function<knl_send_and_wait_response>(__func__);
    if (!is_recorded(__builtin_return_address(0))) {
        return real(type, req, req_len, reply, reply_size, reply_len);
    }
    const uint64_t begun = now();
    const int result = real(type, req, req_len, reply, reply_size, reply_len);
    Entry entry(Kind::call, begun);
    entry.name(__func__);
    entry.hex(type, 0);
    entry.text(req == nullptr ? "null" : "data", Tag::word);
    entry.number(req_len);
    entry.number(reply_size);
    put_result(entry, result);
    const auto *words = static_cast<const uint32_t *>(reply);
    for (size_t i = 0; result == 0 && i < reply_size / sizeof(uint32_t); ++i) {
        entry.hex(words[i], 0);
    }
    return result;
}

int cmdlib_do_iptables_cmd(const char *format, ...)
{
    va_list arguments;
    va_start(arguments, format);
    const Formatted line(format, arguments);
    va_end(arguments);
    const uint64_t begun = now();
    const int result = real_function<cmdlib_do_iptables_cmd>(__func__)("%s", line.text());
    if (is_recorded(__builtin_return_address(0))) {
        Entry entry(Kind::call, begun);
        entry.name(__func__);
        entry.text(line.text());
        put_result(entry, result);
    }
    return result;
}

int sqlite3_db_open(const char *path, sqlite3 **db)
{
    const uint64_t begun = now();
    const int result = real_function<sqlite3_db_open>(__func__)(path, db);
    if (is_recorded(__builtin_return_address(0))) {
        Entry entry(Kind::call, begun);
        entry.name(__func__);
        entry.text(path);
        put_result(entry, result);
    }
    return result;
}

int sqlite3_db_execsql(sqlite3 *db, const char *sql)
{
    const uint64_t begun = now();
    const int result = real_function<sqlite3_db_execsql>(__func__)(db, sql);
    if (is_recorded(__builtin_return_address(0))) {
        Entry entry(Kind::call, begun);
        entry.name(__func__);
        put_handle(entry, db);
        entry.text(sql);
        put_result(entry, result);
    }
    return result;
}

int sqlite3_db_colse(sqlite3 *db)
{
    const uint64_t begun = now();
    const int result = real_function<sqlite3_db_colse>(__func__)(db);
    if (is_recorded(__builtin_return_address(0))) {
        Entry entry(Kind::call, begun);
        entry.name(__func__);
        put_handle(entry, db);
        put_result(entry, result);
    }
    return result;
}

int ucilib_foreach_section(const char *package, const char *type, ucilib_section_cb cb, void *arg)
{
    const auto real = real_function<ucilib_foreach_section>(__func__);
    if (!is_recorded(__builtin_return_address(0))) {
        return real(package, type, cb, arg);
    }
    const uint64_t begun = now();
    Walk walk{cb, arg, package, type, false};
    const int result = real(package, type, walked, &walk);
    if (result == 0 || walk.written) {
        write_walk(walk);
        Entry(Kind::walk_end).number(result);
        return result;
    }
    Entry entry(Kind::call, begun);
    entry.name(__func__);
    entry.text(package);
    entry.text(type);
    put_result(entry, result);
    return result;
}

const char *ucilib_lookup_option_string(struct uci_context *ctx, struct uci_section *s, const char *option,
                                        const char *def)
{
    const char *value = real_function<ucilib_lookup_option_string>(__func__)(ctx, s, option, def);
    if (is_recorded(__builtin_return_address(0))) {
        Entry entry(Kind::option);
        entry.text(s->e.name);
        entry.text(option);
        if (is_secret_name(option)) {
            entry.secret(value);
        } else {
            entry.text(value);
        }
        entry.tag(Tag::hidden);
        entry.number(value == def ? 1 : 0);
    }
    return value;
}
