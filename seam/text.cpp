#include "text.h"

#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace seam {
namespace {

std::string escaped(char c)
{
    switch (c) {
    case '\n':
        return "\\n";
    case '\r':
        return "\\r";
    case '\t':
        return "\\t";
    case '"':
    case '\\':
        return {'\\', c};
    default:
        break;
    }
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= 0x20 && byte < 0x7f) {
        return {c};
    }
    char text[8];
    std::snprintf(text, sizeof(text), "\\x%02x", byte);
    return text;
}

} // namespace

std::string quote(std::string_view text)
{
    std::string out = "\"";
    for (const char c : text) {
        out += escaped(c);
    }
    return out + '"';
}

std::string quote(const char *text)
{
    return text == nullptr ? "null" : quote(std::string_view{text});
}

std::string unescaped(std::string_view text)
{
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\\' || i + 1 == text.size()) {
            out += text[i];
            continue;
        }
        const char c = text[++i];
        if (c == 'x') {
            out += static_cast<char>(std::strtoul(std::string{text.substr(i + 1, 2)}.c_str(), nullptr, 16));
            i += 2;
        } else {
            out += c == 'n' ? '\n' : c == 't' ? '\t' : c == 'r' ? '\r' : c;
        }
    }
    return out;
}

std::string unquoted(std::string_view text)
{
    const bool quoted = text.size() > 1 && text.front() == '"' && text.back() == '"';
    return unescaped(quoted ? text.substr(1, text.size() - 2) : text);
}

std::string plain(const char *text)
{
    return text == nullptr ? std::string{} : std::string{text};
}

std::string hex(uint32_t value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof(text), "0x%0*x", digits, value);
    return text;
}

std::string mac_text(const uint8_t *mac)
{
    if (mac == nullptr) {
        return "null";
    }
    char text[18];
    std::snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                  mac[5]);
    return text;
}

bool mac_of(const std::string &text, uint8_t *mac)
{
    return std::sscanf(text.c_str(), "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &mac[0], &mac[1], &mac[2], &mac[3],
                       &mac[4], &mac[5]) == 6;
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

std::vector<std::string> words(const std::string &text)
{
    constexpr const char *blanks = " \t\n\v\f\r";
    std::vector<std::string> out;
    for (size_t at = text.find_first_not_of(blanks); at != text.npos;) {
        const size_t end = text.find_first_of(blanks, at);
        out.push_back(text.substr(at, end - at));
        at = text.find_first_not_of(blanks, end);
    }
    return out;
}

std::vector<std::string> parts(const std::string &text, const std::string &between)
{
    std::vector<std::string> out;
    size_t at = 0;
    for (size_t end = 0; (end = text.find(between, at)) != text.npos; at = end + between.size()) {
        out.push_back(text.substr(at, end - at));
    }
    out.push_back(text.substr(at));
    return out;
}

std::optional<std::string> file_text(const std::string &path)
{
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return {};
    }
    std::string text;
    char block[4096];
    for (ssize_t n = 0; (n = read(fd, block, sizeof(block))) > 0;) {
        text.append(block, static_cast<size_t>(n));
    }
    syscall(SYS_close, fd);
    return text;
}

} // namespace seam
