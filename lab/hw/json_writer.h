// Builds one line of JSON text. Keys are ours and need no escaping; values may be anything.
#pragma once

#include <cstdint>
#include <string>

namespace lab {

class JsonWriter {
public:
    JsonWriter &open(char bracket, const char *key = nullptr)
    {
        begin(key);
        text_ += bracket;
        first_ = true;
        return *this;
    }
    JsonWriter &close(char bracket)
    {
        text_ += bracket;
        first_ = false;
        return *this;
    }
    JsonWriter &number(const char *key, uint64_t value) { return raw(key, std::to_string(value)); }
    JsonWriter &truth(const char *key, bool value) { return raw(key, value ? "true" : "false"); }
    JsonWriter &string(const char *key, const std::string &value) { return raw(key, quoted(value)); }

    const std::string &result() const { return text_; }

private:
    // Bytes that are not printable ASCII become question marks: nothing but names and messages is written.
    static std::string quoted(const std::string &value)
    {
        std::string out(1, '"');
        for (const char c : value) {
            if (c == '"' || c == '\\') {
                out += '\\';
            }
            out += c >= ' ' && c <= '~' ? c : '?';
        }
        out += '"';
        return out;
    }
    void begin(const char *key)
    {
        if (!first_) {
            text_ += ',';
        }
        first_ = false;
        if (key != nullptr) {
            text_ += '"';
            text_ += key;
            text_ += "\":";
        }
    }
    JsonWriter &raw(const char *key, const std::string &value)
    {
        begin(key);
        text_ += value;
        return *this;
    }

    std::string text_;
    bool first_ = true;
};

} // namespace lab
