#include "secrets_file.h"

namespace libsys {

namespace {

constexpr size_t longest_word = 1023; // pppd cuts longer ones

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

int digit(char c, int base)
{
    int value = c >= '0' && c <= '9'   ? c - '0'
                : c >= 'a' && c <= 'f' ? c - 'a' + 10
                : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                       : base;
    return value < base ? value : -1;
}

// Reads entries and compares their first two words with a pair of names while it decodes them.
class entry_reader {
public:
    entry_reader(std::string_view content, std::string_view client, std::string_view server)
        : content_(content), wanted_{client, server}
    {}

    bool at_end() const { return i_ == content_.size(); }
    // The next entry's bytes with the newline that ends it.
    std::string_view next();
    // About the entry that was read last.
    bool names_pair() const { return matches_ == 2; }
    bool ended() const { return ended_; }
    bool open() const { return quote_ != 0; }

private:
    char peek() const { return content_[i_]; }
    bool at_joint() const
    {
        return i_ + 1 < content_.size() && content_[i_] == '\\' && content_[i_ + 1] == '\n';
    }
    // The last byte of the file; pppd drops it.
    bool at_dangling_backslash() const { return i_ + 1 == content_.size() && content_[i_] == '\\'; }
    bool skip_blanks();
    char escape();
    bool word(std::string_view wanted);

    std::string_view content_;
    std::string_view wanted_[2];
    size_t i_ = 0;
    int matches_ = 0;
    bool ended_ = true;
    char quote_ = 0;
};

// False at the end of an entry, past its newline.
bool entry_reader::skip_blanks()
{
    bool comment = false;
    for (; !at_end(); ++i_) {
        if (peek() == '\n') {
            i_++;
            ended_ = true;
            return false;
        }
        comment = comment || peek() == '#';
        if (comment || is_blank(peek()) || at_dangling_backslash()) {
            continue;
        }
        if (!at_joint()) {
            return true;
        }
        i_++;
    }
    return false;
}

// The character that a backslash and what follows it stand for.
char entry_reader::escape()
{
    constexpr std::string_view letters = "abfnrst";
    constexpr std::string_view meanings = "\a\b\f\n\r \t";
    char c = content_[i_++];
    size_t letter = letters.find(c);
    if (letter != letters.npos) {
        return meanings[letter];
    }
    int base = c == 'x' ? 16 : 8;
    int most = c == 'x' ? 2 : 3;
    if (c != 'x' && digit(c, 8) < 0) {
        return c;
    }
    i_ -= c == 'x' ? 0 : 1;
    int value = 0;
    for (int count = 0; count < most && !at_end() && digit(peek(), base) >= 0; ++count) {
        value = value * base + digit(content_[i_++], base);
    }
    return static_cast<char>(value);
}

bool entry_reader::word(std::string_view wanted)
{
    size_t matched = 0;
    bool equal = true;
    while (!at_end()) {
        char c = peek();
        if (at_joint()) {
            i_ += 2;
            continue;
        }
        if (!quote_ && (c == '\n' || c == '#' || is_blank(c))) {
            break;
        }
        if (at_dangling_backslash()) {
            i_++;
            break;
        }
        i_++;
        if (quote_ ? c == quote_ : c == '"' || c == '\'') {
            quote_ = quote_ ? '\0' : c;
            continue;
        }
        if (c == '\\') {
            c = escape();
        }
        equal = equal && matched < wanted.size() && wanted[matched] == c;
        matched++;
    }
    return equal && matched == wanted.size() && quote_ == 0;
}

std::string_view entry_reader::next()
{
    size_t start = i_;
    matches_ = 0;
    ended_ = false;
    for (int position = 0; skip_blanks(); ++position) {
        bool name = position < 2;
        if (word(name ? wanted_[position] : std::string_view()) && name) {
            matches_++;
        }
    }
    return {content_.data() + start, i_ - start};
}

bool is_plain(char c)
{
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           strchr("._:/*+=@%-", c) != nullptr;
}

void append_word(text &out, std::string_view word)
{
    bool plain = !word.empty();
    for (char c : word) {
        plain = plain && is_plain(c);
    }
    if (plain) {
        out.append(word);
        return;
    }
    out.append('"');
    for (char c : word) {
        if (c == '"' || c == '\\') {
            out.append('\\');
        }
        out.append(c);
    }
    out.append('"');
}

} // namespace

bool secrets_word_possible(const char *word)
{
    size_t length = strlen(word);
    for (size_t i = 0; i < length; ++i) {
        auto c = static_cast<unsigned char>(word[i]);
        if (c == 127 || (c < ' ' && c != '\t')) {
            return false;
        }
    }
    return length <= longest_word;
}

void append_secret(text &out, const char *client, const char *server, const char *secret, const char *address)
{
    append_word(out, client);
    out.append(' ');
    append_word(out, server);
    out.append(' ');
    append_word(out, secret);
    if (*address) {
        out.append(' ');
        append_word(out, address);
    }
    out.append('\n');
}

replaced_secrets replace_secret(std::string_view content, std::string_view client, std::string_view server,
                                std::string_view entry, text &out)
{
    replaced_secrets result;
    entry_reader reader(content, client, server);
    while (!reader.at_end()) {
        std::string_view whole = reader.next();
        result.ended = reader.ended() || reader.names_pair();
        result.open = reader.open();
        if (!reader.names_pair()) {
            out.append(whole);
        } else if (result.found++ == 0) {
            out.append(entry);
        }
    }
    return result;
}

} // namespace libsys
