#include "lexer.h"

namespace uci {

namespace {

bool is_blank(int c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

} // namespace

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

void lexer::advance()
{
    bool newline = peek() == '\n';
    held_ = end;
    position_++;
    if (newline) {
        line_++;
        line_start_ = position_;
    }
}

void lexer::skip_blanks()
{
    for (;;) {
        int c = peek();
        if (is_blank(c)) {
            advance();
        } else if (c == '\\' && after_next() == '\n') {
            advance();
            advance();
        } else {
            return;
        }
    }
}

bool lexer::at_word_end() const
{
    int c = peek();
    return c == end || c == '\n' || c == ';' || c == '#' || is_blank(c);
}

bool lexer::fail(const char *reason)
{
    reason_ = reason;
    return false;
}

bool lexer::put(size_t &out, int c)
{
    if (c == 0) {
        return fail("zero byte");
    }
    advance();
    text_[out++] = static_cast<char>(c);
    return true;
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
            advance();
        } else {
            return true;
        }
    }
}

std::string_view lexer::keyword()
{
    size_t start = position_;
    while (!at_word_end()) {
        advance();
    }
    return {text_ + start, position_ - start};
}

word_kind lexer::next_word(char *&word)
{
    skip_blanks();
    if (at_word_end()) {
        return word_kind::none;
    }
    size_t out = position_;
    word = text_ + out;
    while (!at_word_end()) {
        int c = peek();
        bool taken = true;
        if (c == '\'') {
            taken = single_quoted(out);
        } else if (c == '"') {
            taken = double_quoted(out);
        } else if (c == '\\') {
            advance();
            c = peek();
            if (c == '\n') {
                advance();
            } else if (c != end) {
                taken = put(out, c);
            }
        } else {
            taken = put(out, c);
        }
        if (!taken) {
            return word_kind::error;
        }
    }
    if (out == position_) {
        held_ = peek();
    }
    text_[out] = '\0';
    return word_kind::word;
}

bool lexer::single_quoted(size_t &out)
{
    advance();
    for (int c; (c = peek()) != '\'';) {
        if (c == end) {
            return fail("unterminated '");
        }
        if (!put(out, c)) {
            return false;
        }
    }
    advance();
    return true;
}

bool lexer::double_quoted(size_t &out)
{
    advance();
    for (int c; (c = peek()) != '"';) {
        if (c == '\\') {
            advance();
            c = peek();
            if (c == '\n') {
                advance();
                continue;
            }
        }
        if (c == end) {
            return fail("unterminated \"");
        }
        if (!put(out, c)) {
            return false;
        }
    }
    advance();
    return true;
}

void lexer::skip_line()
{
    for (int c; (c = peek()) != end && c != '\n';) {
        advance();
    }
}

} // namespace uci
