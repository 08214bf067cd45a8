#include "iptables.h"
#include "iptables_stream.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <new>

namespace libsys {

namespace {

// Long enough for a start on a slow board, short enough that a person's change is seen.
constexpr long long seconds_valid = 10;

long long now()
{
    timespec time = {};
    clock_gettime(CLOCK_MONOTONIC, &time);
    return time.tv_sec;
}

// The text behind "PREFIX CHAIN", or null when the line is another one.
const char *behind(const char *line, const char *prefix, const char *chain)
{
    size_t prefix_length = strlen(prefix);
    size_t chain_length = strlen(chain);
    if (strncmp(line, prefix, prefix_length) != 0 ||
        strncmp(line + prefix_length, chain, chain_length) != 0) {
        return nullptr;
    }
    const char *rest = line + prefix_length + chain_length;
    return *rest == '\0' || *rest == ' ' ? rest : nullptr;
}

bool declares(const char *line, const char *chain)
{
    return behind(line, "-N ", chain) != nullptr || behind(line, "-P ", chain) != nullptr;
}

bool is_rule_of(const char *line, const char *chain)
{
    return behind(line, "-A ", chain) != nullptr || behind(line, "? ", chain) != nullptr;
}

bool any_line_declares(const argument_list &lines, const char *chain)
{
    for (size_t i = 0; i < lines.count(); ++i) {
        if (declares(lines[i], chain)) {
            return true;
        }
    }
    return false;
}

bool has_unknown_rule(const argument_list &lines, const char *chain)
{
    for (size_t i = 0; i < lines.count(); ++i) {
        if (behind(lines[i], "? ", chain) != nullptr) {
            return true;
        }
    }
    return false;
}

bool words_are(const argument_list &words, size_t first, std::initializer_list<const char *> wanted)
{
    for (const char *word : wanted) {
        if (first >= words.count() || strcmp(words[first++], word) != 0) {
            return false;
        }
    }
    return true;
}

// Whether iptables lists a rule in the very words that made it. Known of plain jumps, also behind the one
// match that the fixed rules use; everything else may come back with words added or in another order.
bool lists_unchanged(const argument_list &words, size_t first, const argument_list &lines)
{
    if (words_are(words, first, {"-m", "conntrack", "--ctstate", "RELATED,ESTABLISHED"})) {
        first += 4;
    }
    if (words.count() != first + 2 || strcmp(words[first], "-j") != 0) {
        return false;
    }
    const char *target = words[first + 1];
    constexpr const char *plain_targets[] = {"ACCEPT", "DROP", "RETURN"};
    for (const char *plain : plain_targets) {
        if (!strcmp(target, plain)) {
            return true;
        }
    }
    return any_line_declares(lines, target);
}

int listing_of(const char *table, text *listing)
{
    if (stream_list(table, listing)) {
        return 0;
    }
    listing->cut(0);
    argument_list command;
    int status = 0;
    int error = 0;
    for (const char *word : {"iptables", "-w", "-t", table, "-S"}) {
        error = error ? error : command.add(word);
    }
    error = error ? error : run(command, capture::output, listing, &status);
    return error || status == 0 ? error : EIO;
}

} // namespace

table_view::known_table *table_view::find(const char *table)
{
    for (known_table *known = tables_; known != nullptr; known = known->next) {
        if (!strcmp(known->name, table)) {
            return known;
        }
    }
    return nullptr;
}

void table_view::forget(const char *table)
{
    for (known_table **at = &tables_; *at != nullptr; at = &(*at)->next) {
        if (!strcmp((*at)->name, table)) {
            known_table *old = *at;
            *at = old->next;
            old->lines.clear();
            free(old);
            return;
        }
    }
}

void table_view::forget_all()
{
    while (tables_ != nullptr) {
        forget(tables_->name);
    }
}

int table_view::list(const char *table, known_table **out)
{
    *out = nullptr;
    forget(table);
    text listing;
    int error = strlen(table) < sizeof(known_table::name) ? listing_of(table, &listing) : EINVAL;
    auto *memory = error ? nullptr : malloc(sizeof(known_table));
    if (memory == nullptr) {
        return error ? error : ENOMEM;
    }
    auto *known = new (memory) known_table{};
    snprintf(known->name, sizeof(known->name), "%s", table);
    known->listed_at = now();
    char *rest = nullptr;
    for (char *line = strtok_r(listing.get(), "\n", &rest); line != nullptr && !error;
         line = strtok_r(nullptr, "\n", &rest)) {
        error = known->lines.add(line);
    }
    known->next = tables_;
    tables_ = known;
    if (error) {
        forget(table);
        return error;
    }
    *out = known;
    return 0;
}

int table_view::recent(const char *table, known_table **out)
{
    *out = find(table);
    return *out != nullptr && now() - (*out)->listed_at < seconds_valid ? 0 : list(table, out);
}

int table_view::has_chain(const char *table, const char *chain, bool *answer)
{
    known_table *known = nullptr;
    int error = recent(table, &known);
    *answer = error == 0 && any_line_declares(known->lines, chain);
    return error;
}

int table_view::has_rule(const char *table, const char *chain, const char *text, bool *answer)
{
    *answer = false;
    known_table *known = nullptr;
    int error = recent(table, &known);
    if (!error && has_unknown_rule(known->lines, chain)) {
        error = list(table, &known);
    }
    for (size_t i = 0; !error && !*answer && i < known->lines.count(); ++i) {
        const char *rule = behind(known->lines[i], "-A ", chain);
        *answer = rule != nullptr && strstr(rule, text) != nullptr;
    }
    return error;
}

int table_view::count_rules(const char *table, const char *chain, size_t *count)
{
    *count = 0;
    known_table *known = nullptr;
    int error = recent(table, &known);
    for (size_t i = 0; !error && i < known->lines.count(); ++i) {
        *count += static_cast<unsigned long>(is_rule_of(known->lines[i], chain));
    }
    return error;
}

// A view that cannot follow for want of memory is no view.
void table_view::learn(known_table *known, const char *format, const char *chain, const char *rest)
{
    char line[512];
    int length = snprintf(line, sizeof(line), format, chain, rest);
    if (length < 0 || length >= static_cast<int>(sizeof(line)) || known->lines.add(line) != 0) {
        forget(known->name);
    }
}

void table_view::chain_added(const char *table, const char *chain)
{
    if (known_table *known = find(table)) {
        learn(known, "-N %s%s", chain, "");
    }
}

void table_view::rule_appended(const char *table, const char *chain, const argument_list &words, size_t first)
{
    known_table *known = find(table);
    if (known == nullptr) {
        return;
    }
    if (!lists_unchanged(words, first, known->lines)) {
        learn(known, "? %s%s", chain, "");
        return;
    }
    char rule[256];
    size_t used = 0;
    for (; first < words.count() && used < sizeof(rule); ++first) {
        used += static_cast<size_t>(snprintf(rule + used, sizeof(rule) - used, " %s", words[first]));
    }
    if (used >= sizeof(rule)) {
        forget(table);
    } else {
        learn(known, "-A %s%s", chain, rule);
    }
}

void table_view::chain_flushed(const char *table, const char *chain)
{
    known_table *known = find(table);
    for (size_t i = known != nullptr ? known->lines.count() : 0; i-- > 0;) {
        if (is_rule_of(known->lines[i], chain)) {
            known->lines.remove(i);
        }
    }
}

} // namespace libsys
