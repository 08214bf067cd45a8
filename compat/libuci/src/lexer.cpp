#include "lexer.h"

#include "characters.h"

#include <cstring>

namespace uci {

lexer::lexer(char *text, size_t length) : text_(text), length_(length)
{
    text_[length_] = '\0';
}

int lexer::peek() const
{
    if (held_ != end) {
        return held_;
    }
    return position_ < length_ ? static_cast<unsigned char>(text_[position_]) : end;
}

int lexer::after_next() const
{
    return position_ + 1 < length_ ? static_cast<unsigned char>(text_[position_ + 1]) : end;
}

void lexer::advance(int passed)
{
    held_ = end;
    position_++;
    if (passed == '\n') {
        line_++;
        line_start_ = position_;
    }
}

void lexer::skip_blanks()
{
    for (;;) {
        int c = peek();
        if (c != end && has(static_cast<char>(c), blank)) {
            advance(c);
        } else if (c == '\\' && after_next() == '\n') {
            advance(c);
            advance('\n');
        } else {
            return;
        }
    }
}

bool lexer::at_word_end() const
{
    int c = peek();
    return c == end || has(static_cast<char>(c), ends_word);
}

bool lexer::fail(const char *reason)
{
    reason_ = reason;
    return false;
}

bool lexer::put(int c)
{
    if (c == 0) {
        return fail("zero byte");
    }
    advance(c);
    text_[out_++] = static_cast<char>(c);
    return true;
}

void lexer::put_run(uint8_t stops)
{
    const size_t start = position_;
    while (!has(text_[position_], stops)) {
        position_++;
    }
    const size_t length = position_ - start;
    if (out_ != start) {
        memmove(text_ + out_, text_ + start, length);
    }
    out_ += length;
}

bool lexer::next_command()
{
    for (;;) {
        skip_blanks();
        int c = peek();
        if (c == end) {
            return false;
        }
        if (c == '#') {
            skip_line();
        } else if (c == '\n' || c == ';') {
            advance(c);
        } else {
            return true;
        }
    }
}

std::string_view lexer::keyword()
{
    size_t start = position_;
    while (position_ < length_ && !has(text_[position_], ends_word)) {
        position_++;
    }
    return {text_ + start, position_ - start};
}

word_kind lexer::next_word(char *&word)
{
    skip_blanks();
    if (at_word_end()) {
        return word_kind::none;
    }
    begin_word();
    do {
        if (!put_part()) {
            return word_kind::error;
        }
    } while (!at_word_end());
    if (out_ == position_) {
        held_ = peek();
    }
    text_[out_] = '\0';
    word = text_ + start_;
    return word_kind::word;
}

void lexer::begin_word()
{
    start_ = position_;
    out_ = position_;
}

bool lexer::put_part()
{
    switch (int c = peek()) {
    case '\'':
        return single_quoted();
    case '"':
        return double_quoted();
    case '\\':
        advance(c);
        c = peek();
        if (c == '\n') {
            advance(c);
            return true;
        }
        return c == end || put(c);
    case 0:
        return put(c); // fails, while a run would be empty for ever
    default:
        put_run(stops_bare);
        return true;
    }
}

void lexer::open_quote()
{
    position_++;
    // A word that begins with the quote begins behind it, and can stay where it is.
    if (out_ == start_) {
        begin_word();
    }
}

bool lexer::single_quoted()
{
    open_quote();
    for (;;) {
        put_run(stops_single);
        switch (int c = peek()) {
        case '\'':
            advance(c);
            return true;
        case end:
            return fail("unterminated '");
        default:
            if (!put(c)) {
                return false;
            }
        }
    }
}

bool lexer::double_quoted()
{
    open_quote();
    for (;;) {
        put_run(stops_double);
        int c = peek();
        if (c == '"') {
            advance(c);
            return true;
        }
        if (c == '\\') {
            advance(c);
            c = peek();
            if (c == '\n') {
                advance(c);
                continue;
            }
        }
        if (c == end) {
            return fail("unterminated \"");
        }
        if (!put(c)) {
            return false;
        }
    }
}

void lexer::skip_line()
{
    for (int c; (c = peek()) != end && c != '\n';) {
        advance(c);
    }
}

} // namespace uci
