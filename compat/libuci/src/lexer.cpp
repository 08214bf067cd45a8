#include "lexer.h"

#include "characters.h"

#include <cstring>

namespace uci {

lexer::lexer(char *text, size_t length)
    : cursor_(text), line_start_(text), line_end_(text), end_(text + length)
{
    *end_ = '\0';
}

bool lexer::join_line()
{
    if (line_end_ == end_) {
        return false;
    }
    auto *newline = static_cast<char *>(memchr(line_end_, '\n', static_cast<size_t>(end_ - line_end_)));
    line_ += newline ? 1 : 0;
    line_end_ = newline ? newline + 1 : end_;
    return true;
}

bool lexer::next_line()
{
    cursor_ = line_start_ = line_end_;
    dropped_ = false;
    if (!join_line()) {
        return false;
    }
    skip_blanks();
    return true;
}

void lexer::skip_blanks()
{
    while (!at_line_end() && has(*cursor_, blank)) {
        cursor_++;
    }
}

std::string_view lexer::keyword()
{
    auto separates = [](char c) { return c == ' ' || c == '\t'; };
    while (cursor_ != line_end_ && separates(*cursor_)) {
        cursor_++;
    }
    const char *start = cursor_;
    while (cursor_ != line_end_ && !separates(*cursor_)) {
        cursor_++;
    }
    return {start, static_cast<size_t>(cursor_ - start)};
}

void lexer::back_to(std::string_view keyword)
{
    cursor_ -= keyword.size();
}

bool lexer::fail(const char *reason)
{
    reason_ = reason;
    return false;
}

bool lexer::put()
{
    if (*cursor_ == '\0') {
        return fail("zero byte");
    }
    *out_++ = *cursor_++;
    return true;
}

void lexer::put_run(uint8_t stops)
{
    const char *start = cursor_;
    while (!has(*cursor_, stops)) {
        cursor_++;
    }
    const auto length = static_cast<size_t>(cursor_ - start);
    if (out_ != start) {
        memmove(out_, start, length);
    }
    out_ += length;
}

char *lexer::next_word()
{
    skip_blanks();
    if (at_line_end()) {
        return end_;
    }
    word_ = out_ = cursor_;
    while (!at_line_end() && !has(*cursor_, ends_word)) {
        if (!put_part()) {
            return nullptr;
        }
    }
    // The word's terminator goes where the word ends. Without quotes and backslashes that is over the
    // separator, and a semicolon is not seen as one any more: what is behind it is lost.
    const bool bare = out_ == cursor_;
    if (!at_line_end()) {
        if (*cursor_ == '#' || (*cursor_ == ';' && bare && out_ != word_)) {
            drop_line();
        } else if (*cursor_ != ';' || bare) {
            cursor_++;
        }
    }
    *out_ = '\0';
    return word_;
}

bool lexer::put_part()
{
    switch (*cursor_) {
    case '\'':
        return put_quoted('\'', stops_single, "EOF with unterminated '");
    case '"':
        return put_quoted('"', stops_double, "EOF with unterminated \"");
    case '\\':
        return put_escaped();
    case '\0':
        return put(); // fails, while a run would be empty for ever
    default:
        put_run(stops_bare);
        return true;
    }
}

bool lexer::put_escaped()
{
    cursor_++;
    if (at_line_end()) {
        return true;
    }
    if (*cursor_ == '\n') {
        cursor_++;
        join_line();
        return true;
    }
    return put();
}

bool lexer::put_quoted(char quote, uint8_t stops, const char *unterminated)
{
    cursor_++;
    // A word that begins with the quote begins behind it, and can stay where it is.
    if (out_ == word_) {
        word_ = out_ = cursor_;
    }
    while (!at_line_end() || join_line()) {
        put_run(stops);
        if (at_line_end()) {
            continue;
        }
        if (*cursor_ == quote) {
            cursor_++;
            return true;
        }
        if (!(*cursor_ == '\\' ? put_escaped() : put())) {
            return false;
        }
    }
    return fail(unterminated);
}

} // namespace uci
