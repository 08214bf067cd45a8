// The commands of a package file.
#include "internal.h"
#include "lexer.h"
#include "section_index.h"

namespace uci {

namespace {

// Executes one command after the other on a package, which was empty before the first. Each gives UCI_OK,
// UCI_ERR_MEM, or UCI_ERR_PARSE with a reason.
class package_parser {
public:
    package_parser(uci_package *package, lexer &text, bool strict)
        : package_(package), text_(text), strict_(strict)
    {}

    int run_command();
    const char *reason() const { return reason_; }

private:
    int package();
    int config();
    int option(bool list);

    bool fail(const char *reason)
    {
        reason_ = reason;
        return false;
    }
    int reject_command(const char *reason)
    {
        text_.back_to(keyword_);
        reason_ = reason;
        return UCI_ERR_PARSE;
    }
    // False with a reason; a word that is not there is empty.
    bool read(char *&word) { return (word = text_.next_word()) || fail(text_.reason()); }
    bool read_field(char *&word, bool (*valid)(const char *), const char *invalid);
    bool read_name(char *&word, bool (*valid)(const char *) = valid_name)
    {
        return read_field(word, valid, "invalid character in name field");
    }
    bool is_given(const char *word) { return *word || fail("insufficient arguments"); }
    bool read_end();

    struct command {
        std::string_view name;
        int (*run)(package_parser &);
    };
    static const command commands[];

    uci_package *package_;
    lexer &text_;
    const bool strict_;
    section_index sections_;
    uci_section *section_ = nullptr;
    std::string_view keyword_;
    const char *reason_ = nullptr;
};

const package_parser::command package_parser::commands[] = {
    {"package", [](package_parser &parser) { return parser.package(); }},
    {"config", [](package_parser &parser) { return parser.config(); }},
    {"option", [](package_parser &parser) { return parser.option(false); }},
    {"list", [](package_parser &parser) { return parser.option(true); }},
};

bool package_parser::read_field(char *&word, bool (*valid)(const char *), const char *invalid)
{
    return read(word) && (!*word || valid(word) || fail(invalid));
}

bool package_parser::read_end()
{
    char *word = nullptr;
    return read(word) && (!*word || !strict_ || fail("too many arguments"));
}

int package_parser::package()
{
    if (text_.at_line_end()) {
        return reject_command("package without name");
    }
    // The package's name is that of its file.
    char *name = nullptr;
    return read_name(name, valid_package_name) && is_given(name) && read_end() ? UCI_OK : UCI_ERR_PARSE;
}

int package_parser::config()
{
    section_ = nullptr;
    char *type = nullptr;
    char *name = nullptr;
    if (!read_field(type, valid_type, "invalid character in type field") || !is_given(type) ||
        !read_name(name) || !read_end()) {
        return UCI_ERR_PARSE;
    }
    if (uci_section *known = *name ? sections_.find(name) : nullptr) {
        if (strict_ && strcmp(known->type, type) != 0) {
            fail("section of different type overwrites prior section with same name");
            return UCI_ERR_PARSE;
        }
        known->type = type;
        section_ = known;
        return UCI_OK;
    }
    section_ = new_section(package_, type, *name ? name : nullptr);
    return section_ && sections_.add(section_) ? UCI_OK : UCI_ERR_MEM;
}

int package_parser::option(bool list)
{
    if (!section_) {
        return reject_command("option/list command found before the first section");
    }
    char *name = nullptr;
    char *value = nullptr;
    if (!read_name(name) || !is_given(name) || !read(value) || !read_end()) {
        return UCI_ERR_PARSE;
    }
    if (list) {
        return add_to_list(section_, name, value) ? UCI_OK : UCI_ERR_MEM;
    }
    // An empty value is no value: it neither creates the option nor takes an earlier one away.
    return !*value || set_string(section_, name, value) ? UCI_OK : UCI_ERR_MEM;
}

int package_parser::run_command()
{
    keyword_ = text_.keyword();
    if (keyword_.empty() || keyword_.front() == '#') {
        text_.drop_line();
        return UCI_OK;
    }
    for (const command &known : commands) {
        if (keyword_.front() == known.name.front() && (keyword_.size() == 1 || keyword_ == known.name)) {
            return known.run(*this);
        }
    }
    return reject_command("invalid command");
}

} // namespace

int parse_package(uci_context *ctx, uci_package *package, char *text, size_t length)
{
    const bool strict = ctx->flags & UCI_FLAG_STRICT;
    lexer source(text, length);
    package_parser parser(package, source, strict);
    while (source.next_line()) {
        while (!source.at_line_end()) {
            const int code = parser.run_command();
            if (code == UCI_ERR_MEM) {
                return code;
            }
            if (code == UCI_ERR_PARSE) {
                *ctx->pctx = {parser.reason(), source.line(), source.byte()};
                if (strict) {
                    return code;
                }
                set_error(ctx, code);
                uci_perror(ctx, nullptr);
                source.drop_line();
            }
        }
    }
    return UCI_OK;
}

} // namespace uci
