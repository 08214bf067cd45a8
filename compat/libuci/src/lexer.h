/*
 * Takes configuration text apart into lines and words, in place: words are decoded into the memory they came
 * from, so they stay valid as long as the text and nothing is allocated.
 *
 * The text must be followed by one writable byte.
 *
 * Where a line and its parts end is as in the real library, odd cases included, because a file must mean
 * here what it means on a router; and so are the places of errors: a line counts once its newline is read,
 * so the last one has no number without one, and a byte is the number of those before it on the
 * line, or on all lines that a quote or a backslash joined.
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace uci {

class lexer {
public:
    lexer(char *text, size_t length);

    // Goes to the next line, past its leading blanks. False at the end of the text.
    bool next_line();
    // Whether nothing is left of the line.
    bool at_line_end() const { return dropped_ || cursor_ == line_end_; }
    void drop_line() { dropped_ = true; }
    // Goes past the line's next characters up to a blank or a tab. Not at the end of the line.
    std::string_view keyword();
    // Errors of the command as a whole point to its keyword.
    void back_to(std::string_view keyword);
    // The command's next word, decoded; empty when there is none, null for an error with a reason.
    char *next_word();

    const char *reason() const { return reason_; }
    int line() const { return line_; }
    int byte() const { return static_cast<int>(cursor_ - line_start_); }

private:
    // The next line becomes part of this one. False at the end of the text.
    bool join_line();
    void skip_blanks();
    // A part of a word: characters without quotes, one behind a backslash, or what is within quotes.
    bool put_part();
    bool put_escaped();
    bool put_quoted(char quote, uint8_t stops, const char *unterminated);
    // The word's next characters: the one at the cursor, or all up to one with a trait in `stops`.
    bool put();
    void put_run(uint8_t stops);
    bool fail(const char *reason);

    char *cursor_;
    char *line_start_;
    char *line_end_; // behind the newline
    char *end_;      // a zero byte
    char *word_ = nullptr;
    char *out_ = nullptr; // where the word's next character goes
    int line_ = 0;
    bool dropped_ = false;
    const char *reason_ = nullptr;
};

} // namespace uci
