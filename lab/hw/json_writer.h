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
        text += bracket;
        first = true;
        return *this;
    }
    JsonWriter &close(char bracket)
    {
        text += bracket;
        first = false;
        return *this;
    }
    JsonWriter &number(const char *key, uint64_t value) { return raw(key, std::to_string(value)); }
    JsonWriter &truth(const char *key, bool value) { return raw(key, value ? "true" : "false"); }
    JsonWriter &string(const char *key, const std::string &value) { return raw(key, quoted(value)); }

    const std::string &result() const { return text; }

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
        if (!first) {
            text += ',';
        }
        first = false;
        if (key) {
            text += '"';
            text += key;
            text += "\":";
        }
    }
    JsonWriter &raw(const char *key, const std::string &value)
    {
        begin(key);
        text += value;
        return *this;
    }

    std::string text;
    bool first = true;
};

} // namespace lab
