#include "secrets_file.h"

namespace libsys {

namespace {

constexpr size_t longest_word = 1023; // pppd cuts longer ones

bool is_blank(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f';
}

// One entry's bytes, up to and with the newline that ends it.
std::string_view next_entry(std::string_view content)
{
    for (size_t i = 0; i < content.size(); i++) {
        if (content[i] == '\\') {
            i++;
        } else if (content[i] == '\n') {
            return {content.data(), i + 1};
        }
    }
    return content;
}

// Compares the next word of an entry with a text while it is decoded; the entry loses the word. A comment or
// the end of the entry is no word, and an unclosed quote makes the entry one that we do not understand.
bool word_equals(std::string_view &entry, std::string_view wanted)
{
    size_t i = 0;
    bool equal = true;
    size_t matched = 0;
    auto take = [&](char c) {
        equal = equal && matched < wanted.size() && wanted[matched] == c;
        matched++;
    };
    auto at_joint = [&] { return i + 1 < entry.size() && entry[i] == '\\' && entry[i + 1] == '\n'; };
    while (i < entry.size() && (is_blank(entry[i]) || at_joint())) {
        i += is_blank(entry[i]) ? 1 : 2;
    }
    if (i == entry.size() || entry[i] == '\n' || entry[i] == '#') {
        entry = {};
        return false;
    }
    char quote = 0;
    for (; i < entry.size(); i++) {
        char c = entry[i];
        if (c == '\\' && i + 1 < entry.size()) {
            i++;
            if (entry[i] != '\n') {
                take(entry[i]);
            }
        } else if (c == '\n' || (!quote && is_blank(c))) {
            break;
        } else if (quote ? c == quote : c == '"' || c == '\'') {
            quote = quote ? 0 : c;
        } else {
            take(c);
        }
    }
    entry.remove_prefix(i);
    return equal && matched == wanted.size() && !quote;
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
    for (size_t i = 0; i < length; i++) {
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

size_t replace_secret(std::string_view content, std::string_view client, std::string_view server,
                      std::string_view entry, text &out)
{
    size_t found = 0;
    while (!content.empty()) {
        std::string_view whole = next_entry(content);
        content.remove_prefix(whole.size());
        std::string_view rest = whole;
        if (word_equals(rest, client) && word_equals(rest, server)) {
            out.append(found++ == 0 ? entry : std::string_view());
        } else {
            out.append(whole);
        }
    }
    return found;
}

} // namespace libsys
