// A text made of a format and its arguments, of any length.
#pragma once

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

namespace seam::record {

class Formatted {
public:
    Formatted(const char *format, va_list arguments)
    {
        va_list again;
        va_copy(again, arguments);
        const int length = vsnprintf(inside_, sizeof(inside_), format, arguments);
        // Without memory for the whole it is cut.
        if (length >= static_cast<int>(sizeof(inside_))) {
            outside_ = static_cast<char *>(malloc(static_cast<size_t>(length) + 1));
            if (outside_ != nullptr) {
                vsnprintf(outside_, static_cast<size_t>(length) + 1, format, again);
            }
        }
        va_end(again);
    }
    Formatted(const Formatted &) = delete;
    Formatted &operator=(const Formatted &) = delete;
    ~Formatted() { free(outside_); }

    const char *text() const { return outside_ != nullptr ? outside_ : inside_; }

private:
    char inside_[1024];
    char *outside_ = nullptr;
};

} // namespace seam::record
