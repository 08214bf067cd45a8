// The platform library's calls.

#include "../double/blob.h"
#include "double.h"
#include "message.h"
#include "platform/bus.h"
#include "platform/command.h"
#include "platform/config.h"
#include "platform/output.h"
#include "platform/safestr.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <uci.h>

using namespace unit;

uint32_t *g_netd_dbg_shm = nullptr;

namespace {

alignas(8) uint32_t debug_area[8];
constexpr uint32_t switch_block = 0x10110000;

void say(const char *name, const char *format, va_list args)
{
    Call(name).raw(quote(doubles::formatted(format, args))).done();
}

// The section that a walk is at.
struct Walk {
    uci_context *ctx;
    uci_section *record;
    const Section *section;
};
Walk walk{};

} // namespace

void unit::debug_area_map()
{
    std::memset(debug_area, 0, sizeof debug_area);
    g_netd_dbg_shm = debug_area;
}

void unit::debug_bits_set(uint32_t bits)
{
    debug_area[0] = bits;
}

uint64_t unit::debug_counter()
{
    uint64_t value = 0;
    std::memcpy(&value, debug_area + 4, sizeof value);
    return value;
}

int outlib_client_init(int argc, char **argv)
{
    return Call("outlib_client_init").number(argc).text(argv[0]).result();
}

#define OUTLIB(severity)                                                                                     \
    int outlib_##severity(const char *fmt, ...)                                                              \
    {                                                                                                        \
        va_list args;                                                                                        \
        va_start(args, fmt);                                                                                 \
        say("outlib_" #severity, fmt, args);                                                                 \
        va_end(args);                                                                                        \
        return 0;                                                                                            \
    }
OUTLIB(error)
OUTLIB(warning)
OUTLIB(notice)
OUTLIB(info)
OUTLIB(debug)
#undef OUTLIB

int netdbg_shm_init(void)
{
    return Call("netdbg_shm_init").result();
}

int libsys_dbg_init(void)
{
    return Call("libsys_dbg_init").result();
}

int sys_gpio_init2(void)
{
    return Call("sys_gpio_init2").result();
}

int timelib_curtime_str_get(char *buf, int size)
{
    std::snprintf(buf, static_cast<size_t>(size), "%s", world.time.c_str());
    return Call("timelib_curtime_str_get").number(size).result();
}

char *strncpy_safe_record(char *dst, const char *src, unsigned n, const char *, int)
{
    return std::strncpy(dst, src, n);
}

int strncmp_safe_record(const char *a, const char *b, unsigned n, const char *func, int)
{
    if (func == world.equal_in) {
        return 0;
    }
    return a == nullptr || b == nullptr ? -1 : std::strncmp(a, b, n);
}

void *memcpy_safe_record(void *dst, unsigned dstsize, const void *src, unsigned n, const char *, int)
{
    return std::memcpy(dst, src, std::min(n, dstsize));
}

int sys_bdinfo_init(void)
{
    return Call("sys_bdinfo_init", Shown::board).result();
}

const uint8_t *sys_bdinfo_macbase_get(void)
{
    Call("sys_bdinfo_macbase_get", Shown::board).done();
    return world.mac.data();
}

uint32_t sys_bdinfo_cpuid_get(void)
{
    Call("sys_bdinfo_cpuid_get", Shown::board).done();
    return world.cpuid;
}

const struct netbd_ether *sys_bdinfo_ether_get(uint32_t index)
{
    Call("sys_bdinfo_ether_get", Shown::board).number(index).done();
    return world.ports.at(index) ? &*world.ports[index] : nullptr;
}

int mtklib_cpu_reg_rd(uint32_t addr, uint32_t *value)
{
    *value = world.registers[addr - switch_block];
    return Call("mtklib_cpu_reg_rd", Shown::registers).hex(addr).result();
}

int mtklib_cpu_reg_wr(uint32_t addr, uint32_t value)
{
    const int result = Call("mtklib_cpu_reg_wr", Shown::registers).hex(addr).hex(value, 8).result();
    if (result == 0) {
        world.registers[addr - switch_block] = value;
    }
    return result;
}

int knl_send_and_wait_response(uint32_t type, const void *req, uint32_t req_len, void *reply,
                               uint32_t reply_size, uint32_t *reply_len)
{
    const int result = Call("knl_send_and_wait_response")
                           .hex(type)
                           .raw(req == nullptr ? "null" : "data")
                           .number(req_len)
                           .number(reply_size)
                           .result();
    if (result == 0) {
        const uint32_t size = std::min<uint32_t>(reply_size, sizeof world.port_words);
        std::memcpy(reply, world.port_words.data(), size);
        *reply_len = size;
    }
    return result;
}

int ubuslib_connect_init(void)
{
    return Call("ubuslib_connect_init").result();
}

int ubuslib_task_status_wait(const char *object, int timeout)
{
    return Call("ubuslib_task_status_wait").text(object).number(timeout).result();
}

int ubuslib_invoke_init(int flag, struct ubus_object **objects, int count)
{
    handed.objects.assign(objects, objects + count);
    return Call("ubuslib_invoke_init").number(flag).number(count).result();
}

int ubuslib_invoke_exit(int flag, struct ubus_object **objects, int count)
{
    return Call("ubuslib_invoke_exit")
        .number(flag)
        .raw(objects == handed.objects.data() ? "objects" : "?")
        .number(count)
        .result();
}

int ubuslib_invoke_call(const char *object, const char *method, struct blob_buf *msg,
                        ubus_data_handler_t reply, void *priv)
{
    return Call("ubuslib_invoke_call")
        .text(object)
        .text(method)
        .raw(message_text(msg->head))
        .raw(reply == nullptr && priv == nullptr ? "null" : "?")
        .result();
}

int ubuslib_bmsg_strlist_get(struct blob_attr *array, char **out, int capacity)
{
    const std::optional<long> wanted =
        Call("ubuslib_bmsg_strlist_get").raw(array == nullptr ? "null" : "list").number(capacity).done();
    return wanted ? static_cast<int>(*wanted) : doubles::list_texts(array, out, capacity);
}

int ucilib_foreach_section(const char *package, const char *type, ucilib_section_cb cb, void *arg)
{
    const std::optional<long> wanted = Call("ucilib_foreach_section").text(package).text(type).done();
    if (wanted || !world.packages.contains(package)) {
        return static_cast<int>(wanted.value_or(-1));
    }
    for (Section &section : world.sections) {
        if (section.package != package || section.type != type) {
            continue;
        }
        uci_context context{};
        uci_section record{};
        record.e.name = section.name.data();
        record.type = section.type.data();
        walk = {&context, &record, &section};
        const int result = cb(&context, &record, arg);
        walk = {};
        if (result != 0) {
            return result;
        }
    }
    return 0;
}

const char *ucilib_lookup_option_string(struct uci_context *ctx, struct uci_section *s, const char *option,
                                        const char *def)
{
    if (walk.ctx != ctx || walk.record != s) {
        return "not the section of this walk";
    }
    const auto found = walk.section->options.find(option);
    return found == walk.section->options.end() ? def : found->second.c_str();
}

int nl_init(const char *client)
{
    return Call("nl_init").text(client).result();
}

int nl_rx_event_reg(int type, int (*cb)(const struct nl_link_event *event))
{
    handed.on_link = cb;
    return Call("nl_rx_event_reg").number(type).result();
}

int nl_duplex_init(void)
{
    return Call("nl_duplex_init").result();
}

int nl_rtmsg_init(void)
{
    return Call("nl_rtmsg_init").result();
}

int nl_rtmsg_handler_reg(int type, int (*cb)(const struct nl_addr_event *event))
{
    handed.on_address = cb;
    return Call("nl_rtmsg_handler_reg").number(type).result();
}
