#include "text.h"

#include <cstdio>
#include <vector>

namespace doubles {
namespace {

std::string escape_of(char c)
{
    switch (c) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    default:
        break;
    }
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte < 0x7f) {
        return {c};
    }
    char text[8];
    std::snprintf(text, sizeof text, "\\x%02x", byte);
    return text;
}

} // namespace

std::string escaped(std::string_view text, std::string_view also)
{
    std::string out;
    for (const char c : text) {
        out += also.find(c) == std::string_view::npos ? escape_of(c) : std::string{'\\', c};
    }
    return out;
}

std::string hex(uint32_t value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*x", digits, value);
    return text;
}

std::string mac_text(const uint8_t *mac)
{
    if (mac == nullptr) {
        return "null";
    }
    char text[18];
    std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                  mac[5]);
    return text;
}

std::string formatted(const char *fmt, va_list args)
{
    va_list again;
    va_copy(again, args);
    const int length = std::vsnprintf(nullptr, 0, fmt, again);
    va_end(again);
    std::vector<char> text(static_cast<size_t>(length) + 1);
    std::vsnprintf(text.data(), text.size(), fmt, args);
    return {text.data(), text.size() - 1};
}

} // namespace doubles
