// How the doubles of the platform write what they are given: texts, numbers and calls as they stand in a
// trace. Used by the recorder and by the double in process, which differ in their quotes.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <string>
#include <string_view>

namespace doubles {

// C escapes for what does not print, and a backslash before each character of also.
std::string escaped(std::string_view text, std::string_view also = {});
std::string hex(uint32_t value, int digits = 0);
// A null pointer as null.
std::string mac_text(const uint8_t *mac);
std::string formatted(const char *fmt, va_list args);

// A call as it is written: its name, then one argument after the other. Kind is the class that is a call.
template <class Kind> class CallText {
public:
    Kind &raw(std::string_view value)
    {
        text_ += first_ ? "" : ", ";
        text_ += value;
        first_ = false;
        return static_cast<Kind &>(*this);
    }
    Kind &number(long long value) { return raw(std::to_string(value)); }
    Kind &hex(uint32_t value, int digits = 0) { return raw(doubles::hex(value, digits)); }
    Kind &mac(const uint8_t *value) { return raw(mac_text(value)); }

protected:
    explicit CallText(std::string_view name) : text_{name} { text_ += "("; }
    std::string whole() const { return text_ + ")"; }

private:
    std::string text_;
    bool first_ = true;
};

} // namespace doubles
