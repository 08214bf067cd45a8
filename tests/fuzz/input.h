// What the targets share: the bytes of one input taken piece by piece, and promises that abort when broken.
//
// Taking from an empty input gives zeros, so that every prefix of an input is an input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

// The entry that the fuzzer and the replay call. Always 0.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace fuzz {

// Aborts with the text when a promise does not hold; stays in optimised builds.
inline void promise(bool held, const char *what)
{
    if (!held) {
        std::fprintf(stderr, "broken promise: %s\n", what);
        std::abort();
    }
}

class Input {
public:
    Input(const uint8_t *data, size_t size) : rest_{reinterpret_cast<const char *>(data), size} {}
    explicit Input(std::string_view text) : rest_{text} {}

    bool empty() const { return rest_.empty(); }
    std::string_view rest() const { return rest_; }
    uint8_t u8()
    {
        if (rest_.empty()) {
            return 0;
        }
        const auto value = static_cast<uint8_t>(rest_.front());
        rest_.remove_prefix(1);
        return value;
    }
    uint16_t u16()
    {
        const auto high = static_cast<unsigned>(u8());
        return static_cast<uint16_t>(high << 8 | u8());
    }
    uint32_t u32()
    {
        const auto high = static_cast<uint32_t>(u16());
        return high << 16 | u16();
    }
    // At most that many bytes.
    std::string_view bytes(size_t count)
    {
        const std::string_view taken = rest_.substr(0, count);
        rest_.remove_prefix(taken.size());
        return taken;
    }
    // Up to the separator, which is taken too and not given.
    std::string_view until(char separator)
    {
        const size_t end = rest_.find(separator);
        const std::string_view taken = rest_.substr(0, end);
        rest_.remove_prefix(end == rest_.npos ? rest_.size() : end + 1);
        return taken;
    }

private:
    std::string_view rest_;
};

} // namespace fuzz
