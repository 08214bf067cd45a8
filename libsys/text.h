// text: Owns growing bytes with a terminator behind them; empty at first. A failed allocation is remembered
// and shows in ok(): what was to be appended is then missing.
#pragma once

#include <cstdlib>
#include <cstring>
#include <string_view>

namespace libsys {

class text {
public:
    text() = default;
    text(const text &) = delete;
    text &operator=(const text &) = delete;
    ~text() { free(bytes_); }

    // Room for that many more bytes and a terminator; null when memory is short.
    char *reserve(size_t more)
    {
        if (room_ - length_ <= more) {
            size_t room = (length_ + more) * 2 + 64;
            auto *grown = static_cast<char *>(realloc(bytes_, room));
            if (grown == nullptr) {
                ok_ = false;
                return nullptr;
            }
            bytes_ = grown;
            room_ = room;
        }
        return bytes_ + length_;
    }
    void grew(size_t by) { cut(length_ + by); }
    void append(std::string_view more)
    {
        if (char *end = reserve(more.size())) {
            if (!more.empty()) {
                memcpy(end, more.data(), more.size());
            }
            grew(more.size());
        }
    }
    void append(char c) { append(std::string_view(&c, 1)); }
    // Back to a length that it had before.
    void cut(size_t length)
    {
        length_ = length;
        get()[length] = '\0';
    }
    void clear() { cut(0); }

    bool ok() const { return ok_; }
    // The bytes, which may be changed, and their terminator.
    char *get() { return bytes_ != nullptr ? bytes_ : nothing_; }
    std::string_view view() const { return {bytes_ != nullptr ? bytes_ : nothing_, length_}; }

private:
    char nothing_[1] = "";
    char *bytes_ = nullptr;
    size_t length_ = 0;
    size_t room_ = 0;
    bool ok_ = true;
};

} // namespace libsys
