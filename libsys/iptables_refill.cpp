#include "iptables_refill.h"

#include "internal.h"
#include "start.h"

#include <cstdint>
#include <cstring>
#include <syslog.h>
#include <utility>

namespace libsys {

namespace {

struct chain_refill {
    table_view *view;
    char table[32];
    char chain[32];  // empty: none
    size_t old;      // rules that were there
    size_t replaced; // of these
};

chain_refill refill;

bool goes_on_with_refill(const parsed_command &parsed)
{
    return parsed.option != nullptr && !parsed.by_path && !strcmp(parsed.option, "-A") &&
           !strcmp(parsed.table, refill.table) && !strcmp(parsed.chain, refill.chain);
}

// Puts the rule in the place of the next old one. False where there is none, or where that is refused: the
// rule may be wrong, or somebody else has removed rules meanwhile.
bool replace_next(const parsed_command &parsed, const argument_list &command)
{
    char number[24];
    snprintf(number, sizeof(number), "%zu", refill.replaced + 1);
    argument_list replacement;
    bool made = refill.replaced < refill.old;
    for (size_t i = 0; made && i < command.count(); ++i) {
        made = replacement.add(i == parsed.rule - 2 ? "-R" : command[i]) == 0 &&
               (i != parsed.rule - 1 || replacement.add(number) == 0);
    }
    if (!made || !change_quietly(parsed.table, replacement, parsed.rule - 2)) {
        return false;
    }
    ++refill.replaced;
    refill.view->rule_appended(parsed.table, parsed.chain, command, parsed.rule);
    return true;
}

// Each removal is proven by the next listing: one whose answer is missing must not be made twice.
bool remove_old_rules(const chain_refill &left)
{
    for (size_t before = SIZE_MAX;;) {
        size_t now = 0;
        left.view->forget(left.table);
        if (left.view->count_rules(left.table, left.chain, &now) != 0 || now >= before) {
            return false;
        }
        if (now <= left.replaced) {
            return true;
        }
        before = now;
        char number[24];
        snprintf(number, sizeof(number), "%zu", now);
        argument_list command;
        const char *const words[] = {"iptables", "-w", "-t", left.table, "-D", left.chain, number};
        for (const char *word : words) {
            if (command.add(word) != 0) {
                return false;
            }
        }
        change_quietly(left.table, command, 4);
    }
}

} // namespace

bool begin_refill(table_view &view, const char *table, const char *chain)
{
    bool there = false;
    size_t old = 0;
    if (!starting() || strlen(table) >= sizeof(refill.table) || strlen(chain) >= sizeof(refill.chain) ||
        view.has_chain(table, chain, &there) != 0 || !there || view.count_rules(table, chain, &old) != 0) {
        return false;
    }
    refill = {&view, {}, {}, old, 0};
    snprintf(refill.table, sizeof(refill.table), "%s", table);
    snprintf(refill.chain, sizeof(refill.chain), "%s", chain);
    view.chain_flushed(table, chain);
    return true;
}

bool refill_takes(const parsed_command &parsed, const argument_list &command)
{
    return goes_on_with_refill(parsed) && replace_next(parsed, command);
}

void finish_refill()
{
    const chain_refill left = std::exchange(refill, {});
    if (left.replaced < left.old && !remove_old_rules(left)) {
        left.view->forget_all();
        log_line(LOG_WARNING, "old rules of the chain %s in table %s cannot be removed", left.chain,
                 left.table);
    }
}

} // namespace libsys
