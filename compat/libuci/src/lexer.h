/*
 * Splits configuration text into commands and words, in place: words are decoded into the memory they came
 * from, so they stay valid as long as the text and nothing is allocated.
 *
 * The text must be followed by one writable byte. An error is a reason in English; line() and byte() then
 * tell where (both from 1).
 */
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace uci {

enum class word_kind { word, none, error };

class lexer {
public:
    lexer(char *text, size_t length);

    // Goes to the next command, past blank lines, comments and separators. False at the end of the text.
    bool next_command();
    // The bare characters of a command's first word.
    std::string_view keyword();
    // The next word of the command; none when the command is over.
    word_kind next_word(char *&word);
    // Drops what is left of the line.
    void skip_line();

    const char *reason() const { return reason_; }
    int line() const { return line_; }
    int byte() const { return static_cast<int>(position_ - line_start_) + 1; }

private:
    static constexpr int end = -1;

    int peek() const;
    int after_next() const;
    void advance(int passed); // the character at position_
    void skip_blanks();
    bool at_word_end() const;
    void begin_word();
    // A part of a word: characters without quotes, one behind a backslash, or what is within quotes.
    bool put_part();
    void open_quote();
    bool single_quoted();
    bool double_quoted();
    // The word's next characters: the one at position_, or all up to one with a trait in `stops`.
    bool put(int c);
    void put_run(uint8_t stops);
    bool fail(const char *reason);

    char *text_;
    size_t length_;
    size_t position_ = 0;
    size_t start_ = 0; // of the word, and where its next character goes
    size_t out_ = 0;
    size_t line_start_ = 0;
    int line_ = 1;
    int held_ = end; // the byte at position_, when a word's terminator had to be written over it
    const char *reason_ = nullptr;
};

} // namespace uci
