// What is known of the iptables tables without asking again.
//
// A table is listed when the first question about it comes. From then on the view follows our
// own changes, so that further questions cost nothing. It is given up after any failure and when it is old:
// somebody else may have changed the table. A rule of ours that iptables may list in other words than it was
// given in is remembered as unknown, and a question that could depend on it makes a new listing: answers are
// always those of a listing.
//
// The functions that can fail give 0 or a positive errno value.
#pragma once

#include "command.h"

namespace libsys {

class table_view {
public:
    // These list the table when the view has nothing (certain) to say.
    int has_chain(const char *table, const char *chain, bool *answer);
    int has_rule(const char *table, const char *chain, const char *text, bool *answer);

    // Rules of a chain; 0 when there is no such chain.
    int count_rules(const char *table, const char *chain, size_t *count);

    // What we have just done. Nothing is learnt about a table that has not been listed.
    void chain_added(const char *table, const char *chain);
    // The rule is the words from `first` on.
    void rule_appended(const char *table, const char *chain, const argument_list &words, size_t first);
    void chain_flushed(const char *table, const char *chain);
    void forget(const char *table);
    void forget_all();

private:
    struct known_table {
        known_table *next;
        char name[32];
        long long listed_at; // seconds of the monotonic clock
        argument_list lines; // "-P CHAIN POLICY", "-N CHAIN", "-A CHAIN RULE", or "? CHAIN": an unknown rule
    };
    known_table *find(const char *table);
    int list(const char *table, known_table **out);
    int recent(const char *table, known_table **out);
    void learn(known_table *known, const char *format, const char *chain, const char *rest);

    known_table *tables_ = nullptr;
};

} // namespace libsys
