// Board, CPU registers, kernel query; output channel, debug area, clock, checked strings.

#include "platform/board.h"

#include "call.h"
#include "model.h"
#include "platform/output.h"
#include "platform/safestr.h"
#include "script.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

using namespace recorder;

uint32_t *g_netd_dbg_shm = nullptr;

namespace {

alignas(8) uint32_t debug_area[16];

void say(const char *name, const char *fmt, va_list args, const void *site)
{
    Call(name, Call::Kind::saying, site).raw(quote(doubles::formatted(fmt, args))).say();
}

std::string words_text()
{
    std::string out;
    for (const uint32_t word : scenario.port_words) {
        out += out.empty() ? "" : " ";
        out += hex(word);
    }
    return out;
}

} // namespace

uint32_t *recorder::debug_words()
{
    return debug_area;
}

int sys_bdinfo_init(void)
{
    return Call("sys_bdinfo_init").act([] { return 0; });
}

const uint8_t *sys_bdinfo_macbase_get(void)
{
    Call("sys_bdinfo_macbase_get", Call::Kind::saying).say();
    return scenario.mac.data();
}

uint32_t sys_bdinfo_cpuid_get(void)
{
    Call("sys_bdinfo_cpuid_get", Call::Kind::saying).say();
    return scenario.cpu;
}

const struct netbd_ether *sys_bdinfo_ether_get(uint32_t index)
{
    Call("sys_bdinfo_ether_get", Call::Kind::saying).number(index).say();
    if (index >= scenario.ports.size() || !scenario.ports[index].present) {
        return nullptr;
    }
    return &scenario.ports[index].ether;
}

int mtklib_cpu_reg_rd(uint32_t addr, uint32_t *value)
{
    return Call("mtklib_cpu_reg_rd")
        .hex(addr)
        .act(
            [&] {
                *value = model.register_get(register_key(addr - register_block));
                return 0;
            },
            [&] { return hex(*value, 8); });
}

int mtklib_cpu_reg_wr(uint32_t addr, uint32_t value)
{
    return Call("mtklib_cpu_reg_wr").hex(addr).hex(value, 8).act([&] {
        model.register_set(register_key(addr - register_block), value);
        return 0;
    });
}

int knl_send_and_wait_response(uint32_t type, const void *req, uint32_t req_len, void *reply,
                               uint32_t reply_size, uint32_t *reply_len)
{
    return Call("knl_send_and_wait_response")
        .hex(type)
        .raw(req == nullptr ? "null" : "data")
        .number(req_len)
        .number(reply_size)
        .act(
            [&] {
                const uint32_t size = std::min<uint32_t>(reply_size, sizeof scenario.port_words);
                std::memcpy(reply, scenario.port_words.data(), size);
                if (reply_len != nullptr) {
                    *reply_len = size;
                }
                return 0;
            },
            words_text);
}

int outlib_client_init(int argc, char **argv)
{
    Call call("outlib_client_init");
    call.number(argc);
    for (int i = 1; i < argc; i++) {
        call.text(argv[i]);
    }
    return call.act([] { return 0; });
}

#define OUTLIB(severity)                                                                                     \
    int outlib_##severity(const char *fmt, ...)                                                              \
    {                                                                                                        \
        va_list args;                                                                                        \
        va_start(args, fmt);                                                                                 \
        say("outlib_" #severity, fmt, args, __builtin_return_address(0));                                    \
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
    return Call("netdbg_shm_init").act([] {
        g_netd_dbg_shm = debug_area;
        return 0;
    });
}

int libsys_dbg_init(void)
{
    return Call("libsys_dbg_init").act([] { return 0; });
}

int sys_gpio_init2(void)
{
    return Call("sys_gpio_init2").act([] { return 0; });
}

int timelib_curtime_str_get(char *buf, int size)
{
    return Call("timelib_curtime_str_get")
        .number(size)
        .act(
            [&] {
                std::snprintf(buf, static_cast<size_t>(size), "%s", scenario.time.c_str());
                return 0;
            },
            [&] { return quote(buf); });
}

char *strncpy_safe_record(char *dst, const char *src, unsigned n, const char *func, int line)
{
    if (scenario.show_safe) {
        Call("strncpy_safe_record", Call::Kind::saying).text(src).number(n).text(func).number(line).say();
    }
    return dst == nullptr || src == nullptr ? dst : std::strncpy(dst, src, n);
}

int strncmp_safe_record(const char *a, const char *b, unsigned n, const char *func, int line)
{
    if (scenario.show_safe) {
        Call("strncmp_safe_record", Call::Kind::saying)
            .text(a)
            .text(b)
            .number(n)
            .text(func)
            .number(line)
            .say();
    }
    return a == nullptr || b == nullptr ? -1 : std::strncmp(a, b, n);
}

void *memcpy_safe_record(void *dst, unsigned dstsize, const void *src, unsigned n, const char *func, int line)
{
    if (scenario.show_safe) {
        Call("memcpy_safe_record", Call::Kind::saying)
            .number(dstsize)
            .number(n)
            .text(func)
            .number(line)
            .say();
    }
    return dst == nullptr || src == nullptr ? dst : std::memcpy(dst, src, std::min(n, dstsize));
}
