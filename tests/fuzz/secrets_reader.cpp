#include "secrets_reader.h"

#include <optional>

namespace fuzz {

namespace {

// One character after backslashes are done with.
struct Char {
    char c;
    bool literal; // came with a backslash: neither quote nor blank nor comment
};

// A line joined over escaped newlines: decoded lazily, because a backslash means something in words alone.
class Line {
public:
    explicit Line(std::string_view text) : text_{text} {}

    bool done() const { return at_ >= text_.size(); }
    char peek() const { return text_[at_]; }
    size_t at() const { return at_; }
    void skip() { at_++; }
    // A backslash with nothing behind it, which stands for nothing.
    bool dangling() const { return text_.substr(at_) == "\\"; }
    // Steps over escaped newlines; true when there was one.
    bool joint()
    {
        if (text_.substr(at_, 2) == "\\\n") {
            at_ += 2;
            return true;
        }
        return false;
    }
    Char take()
    {
        const char c = text_[at_++];
        if (c != '\\') {
            return {c, false};
        }
        return {escaped(), true};
    }

private:
    std::optional<int> digit(int base) const
    {
        if (done()) {
            return std::nullopt;
        }
        static constexpr std::string_view digits = "0123456789abcdef";
        char c = peek();
        c = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
        const size_t value = digits.find(c);
        return value < static_cast<size_t>(base) ? std::optional{static_cast<int>(value)} : std::nullopt;
    }
    char number(int base, int most)
    {
        int value = 0;
        for (int i = 0; i < most; i++) {
            const std::optional<int> next = digit(base);
            if (!next) {
                break;
            }
            value = value * base + *next;
            at_++;
        }
        return static_cast<char>(value);
    }
    char escaped()
    {
        if (digit(8)) {
            return number(8, 3);
        }
        const char c = text_[at_++];
        switch (c) {
        case 'a':
            return '\a';
        case 'b':
            return '\b';
        case 'f':
            return '\f';
        case 'n':
            return '\n';
        case 'r':
            return '\r';
        case 's':
            return ' ';
        case 't':
            return '\t';
        case 'x':
            return number(16, 2);
        default:
            return c;
        }
    }

    std::string_view text_;
    size_t at_ = 0;
};

bool blank(char c)
{
    return std::string_view{" \t\r\v\f"}.find(c) != std::string_view::npos;
}

// A word, and the quote that stays open at the end of the text.
std::string word(Line &line, char &quote)
{
    std::string out;
    while (!line.done()) {
        if (line.joint()) {
            continue;
        }
        if (line.dangling()) {
            line.skip();
            break;
        }
        const char c = line.peek();
        if (quote == '\0' && (c == '\n' || c == '#' || blank(c))) {
            return out;
        }
        const Char next = line.take();
        if (!next.literal && quote != '\0' && next.c == quote) {
            quote = '\0';
        } else if (!next.literal && quote == '\0' && (next.c == '"' || next.c == '\'')) {
            quote = next.c;
        } else {
            out += next.c;
        }
    }
    return out;
}

Secret entry(std::string_view text)
{
    Secret secret;
    Line line(text);
    char quote = '\0';
    bool comment = false;
    while (!line.done()) {
        if (line.peek() == '\n') {
            line.skip();
            break;
        }
        if (comment || blank(line.peek()) || line.dangling()) {
            line.skip();
        } else if (line.peek() == '#') {
            comment = true;
        } else if (!line.joint()) {
            secret.words.push_back(word(line, quote));
        }
    }
    secret.open = quote != '\0';
    secret.raw = std::string{text.substr(0, line.at())};
    return secret;
}

} // namespace

bool Secret::names(std::string_view client, std::string_view server) const
{
    return words.size() >= (open ? 3U : 2U) && words[0] == client && words[1] == server;
}

std::vector<Secret> read_secrets(std::string_view text)
{
    std::vector<Secret> all;
    while (!text.empty()) {
        all.push_back(entry(text));
        text.remove_prefix(all.back().raw.size());
    }
    return all;
}

} // namespace fuzz
