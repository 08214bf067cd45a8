// The commands of a package file.
#include "internal.h"
#include "lexer.h"
#include "section_index.h"

#include <algorithm>

namespace uci {

namespace {

enum class command { package, config, option, list, unknown };

struct keyword {
    std::string_view text;
    command meaning;
};

constexpr keyword keywords[] = {
    {"package", command::package},
    {"config", command::config},
    {"option", command::option},
    {"list", command::list},
};

// A word is never empty, and its first letter tells which it can be alone.
command command_of(std::string_view word)
{
    for (const keyword &known : keywords) {
        if (word.front() == known.text.front()) {
            return word.size() == 1 || word == known.text ? known.meaning : command::unknown;
        }
    }
    return command::unknown;
}

// One command with its words; executes it on the package, which was empty before the first.
class package_parser {
public:
    package_parser(uci_package *package, lexer &text) : package_(package), text_(text) {}

    // UCI_OK, UCI_ERR_MEM or UCI_ERR_PARSE with a reason.
    int run_command();
    const char *reason() const { return reason_; }

private:
    int reject(const char *reason)
    {
        reason_ = reason;
        return UCI_ERR_PARSE;
    }
    int read_words(int least);
    int config();
    int option(bool list);

    uci_package *package_;
    lexer &text_;
    section_index sections_;
    uci_section *section_ = nullptr;
    char *words_[2] = {};
    const char *reason_ = nullptr;
};

int package_parser::read_words(int least)
{
    int count = 0;
    std::fill(std::begin(words_), std::end(words_), nullptr);
    for (;;) {
        char *word = nullptr;
        switch (text_.next_word(word)) {
        case word_kind::error:
            return reject(text_.reason());
        case word_kind::none:
            return count < least ? reject("insufficient arguments") : UCI_OK;
        case word_kind::word:
            if (count == 2) {
                return reject("too many arguments");
            }
            words_[count++] = word;
        }
    }
}

int package_parser::config()
{
    section_ = nullptr;
    if (int code = read_words(1)) {
        return code;
    }
    char *type = words_[0];
    char *name = words_[1] && *words_[1] ? words_[1] : nullptr;
    if (!valid_type(type)) {
        return reject("invalid section type");
    }
    if (name && !valid_name(name)) {
        return reject("invalid section name");
    }
    if (uci_section *known = name ? sections_.find(name) : nullptr) {
        if (std::string_view(known->type) != type) {
            return reject("section exists with another type");
        }
        section_ = known;
        return UCI_OK;
    }
    section_ = new_section(package_, type, name);
    return section_ && sections_.add(section_) ? UCI_OK : UCI_ERR_MEM;
}

int package_parser::option(bool list)
{
    if (int code = read_words(1)) {
        return code;
    }
    char *name = words_[0];
    // A value that is not there is empty, like what is left behind the name.
    char *value = words_[1] ? words_[1] : name + strlen(name);
    if (!valid_name(name)) {
        return reject("invalid option name");
    }
    if (!section_) {
        return reject("option outside of a section");
    }
    if (list) {
        return add_to_list(section_, name, value) ? UCI_OK : UCI_ERR_MEM;
    }
    // An empty value is no value: it neither creates the option nor takes an earlier one away.
    return !*value || set_string(section_, name, value) ? UCI_OK : UCI_ERR_MEM;
}

int package_parser::run_command()
{
    switch (command_of(text_.keyword())) {
    case command::package:
        // The package's name is that of its file.
        if (int code = read_words(1)) {
            return code;
        }
        return words_[1] ? reject("too many arguments") : UCI_OK;
    case command::config:
        return config();
    case command::option:
        return option(false);
    case command::list:
        return option(true);
    case command::unknown:
        break;
    }
    return reject("invalid command");
}

} // namespace

int parse_package(uci_context *ctx, uci_package *package, char *text, size_t length)
{
    lexer source(text, length);
    package_parser parser(package, source);
    while (source.next_command()) {
        int code = parser.run_command();
        if (code == UCI_ERR_MEM) {
            return code;
        }
        if (code != UCI_OK) {
            if (ctx->flags & UCI_FLAG_STRICT) {
                *ctx->pctx = {parser.reason(), source.line(), source.byte()};
                return code;
            }
            source.skip_line();
        }
    }
    return UCI_OK;
}

} // namespace uci
