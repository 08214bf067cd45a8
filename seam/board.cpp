// Board, CPU registers, kernel query; output channel, debug area, clock, checked strings.

#include "platform/board.h"

#include "call.h"
#include "platform/output.h"
#include "platform/safestr.h"
#include "process.h"

#include <algorithm>
#include <cstdarg>
#include <cstring>

using namespace seam;

uint32_t *g_netd_dbg_shm = nullptr;

namespace {

alignas(8) uint32_t debug_area[16];

void say_text(const Name &name, const char *fmt, va_list args)
{
    say(name, Word{quote(formatted(fmt, args))});
}

// The answer to the query of ports.
struct WordsOut {
    uint32_t *at;
    size_t count;
};

std::string written(const WordsOut &answer)
{
    std::string out;
    for (size_t i = 0; i < answer.count; ++i) {
        out += (out.empty() ? "" : " ") + hex(answer.at[i]);
    }
    return out;
}

size_t size_of(const WordsOut &answer)
{
    return answer.count * sizeof(uint32_t);
}

void take(const WordsOut &answer, const std::string &text)
{
    const char *at = text.c_str();
    for (size_t i = 0; i < answer.count; ++i) {
        char *end = nullptr;
        answer.at[i] = static_cast<uint32_t>(std::strtoul(at, &end, 16));
        at = end;
    }
}

} // namespace

uint32_t *seam::debug_words()
{
    return debug_area;
}

uint64_t seam::debug_counter()
{
    uint64_t counter = 0;
    std::memcpy(&counter, debug_area + 4, sizeof(counter));
    return counter;
}

const uint8_t *sys_bdinfo_macbase_get(void)
{
    say(__func__);
    return world.mac.data();
}

uint32_t sys_bdinfo_cpuid_get(void)
{
    say(__func__);
    return world.cpu;
}

const struct netbd_ether *sys_bdinfo_ether_get(uint32_t index)
{
    say(__func__, index);
    return index < world.ports.size() && world.ports[index] ? &*world.ports[index] : nullptr;
}

int knl_send_and_wait_response(uint32_t type, const void *req, uint32_t req_len, void *reply,
                               uint32_t reply_size, uint32_t *reply_len)
{
    const auto answer = [&] {
        const std::array<uint32_t, 8> &words = world.hardware.port_words;
        const uint32_t size = std::min<uint32_t>(reply_size, sizeof(words));
        std::memcpy(reply, words.data(), size);
        if (reply_len != nullptr) {
            *reply_len = size;
        }
    };
    return act(__func__, answer, Hex{type}, Word{req == nullptr ? "null" : "data"}, req_len, reply_size,
               WordsOut{static_cast<uint32_t *>(reply), reply_size / sizeof(uint32_t)});
}

int outlib_client_init(int argc, char **argv)
{
    std::string arguments = std::to_string(argc);
    for (int i = 1; i < argc; ++i) {
        arguments += ", " + quote(argv[i]);
    }
    return act(__func__, nothing, Word{arguments});
}

#define OUTLIB(severity)                                                                                     \
    int outlib_##severity(const char *fmt, ...)                                                              \
    {                                                                                                        \
        va_list args;                                                                                        \
        va_start(args, fmt);                                                                                 \
        say_text(__func__, fmt, args);                                                                       \
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
    return act(__func__, [] { g_netd_dbg_shm = debug_area; });
}

char *strncpy_safe_record(char *dst, const char *src, unsigned n, const char *func, int line)
{
    if (shown.safe_strings) {
        say(__func__, src, n, func, line);
    }
    return dst == nullptr || src == nullptr ? dst : std::strncpy(dst, src, n);
}

int strncmp_safe_record(const char *a, const char *b, unsigned n, const char *func, int line)
{
    if (shown.safe_strings) {
        say(__func__, a, b, n, func, line);
    }
    return a == nullptr || b == nullptr ? -1 : std::strncmp(a, b, n);
}

void *memcpy_safe_record(void *dst, unsigned dstsize, const void *src, unsigned n, const char *func, int line)
{
    if (shown.safe_strings) {
        say(__func__, dstsize, n, func, line);
    }
    return dst == nullptr || src == nullptr ? dst : std::memcpy(dst, src, std::min(n, dstsize));
}
