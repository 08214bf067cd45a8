// The skeleton of chains that the daemon lays, with its order, and the rules in it that carry traffic.

#include "explain/explain.h"
#include "explain/skeleton.h"

#include <cstring>

namespace ctl {

namespace {

constexpr const char *established = "-m conntrack --ctstate RELATED,ESTABLISHED -j ACCEPT";

struct rule_of_chain {
    const char *table;
    const char *chain;
    const char *rule;
};

constexpr rule_of_chain rules[] = {
    {"mangle", "PREROUTING", established},
    {"filter", "FORWARD", established},
    {"mangle", "FORWARD", established},
    {"mangle", "ipt_fwd_mangle_rules_def",
     "-p tcp -m tcp --tcp-flags SYN,RST SYN -j TCPMSS --clamp-mss-to-pmtu"},
    {"filter", "ipt_input_filter_rules_all", established},
    {"filter", "input_filter_rules_drop", "-i wan+ -j DROP"},
    {"nat", "intf_sip_mesquerade", "-j MASQUERADE"},
};

constexpr const char *restart =
    "/etc/init.d/ivarode restart lays the chains in their order; a jump that is appended "
    "by hand stands last";

json_object *chain_named(const subject &about, const char *in, const char *name)
{
    return find(get(get(about.facts, "chains"), in), "chain", name);
}

// The place of the first rule that is this jump; -1 for none.
int place_of_jump(json_object *chain, const char *to)
{
    int place = 0;
    int found = -1;
    for (json_object *rule : items(get(chain, "rules"))) {
        if (found < 0 && is(rule, "target", to)) {
            found = place;
        }
        ++place;
    }
    return found;
}

} // namespace

finding look_skeleton(const subject &about)
{
    if (get(about.facts, "chains") == nullptr) {
        return unsure("the chains could not be read");
    }
    int place = -1;
    const skeleton_jump *before = nullptr;
    for (const skeleton_jump &jump : skeleton) {
        json_object *parent = chain_named(about, jump.table, jump.parent);
        if (chain_named(about, jump.table, jump.chain) == nullptr) {
            return bad(restart, "chain %s of table %s is missing", jump.chain, jump.table);
        }
        const int found = place_of_jump(parent, jump.chain);
        if (found < 0) {
            return bad(restart, "%s of table %s does not jump to %s", jump.parent, jump.table, jump.chain);
        }
        const bool same = before != nullptr && strcmp(before->table, jump.table) == 0 &&
                          strcmp(before->parent, jump.parent) == 0;
        if (same && found < place) {
            return bad(restart, "in %s of table %s, %s comes before %s", jump.parent, jump.table, jump.chain,
                       before->chain);
        }
        place = found;
        before = &jump;
    }
    return good("all chains are there, with their jumps in order");
}

finding look_rules_of_chains(const subject &about)
{
    if (get(about.facts, "chains") == nullptr) {
        return skipped();
    }
    for (const rule_of_chain &rule : rules) {
        json_object *chain = chain_named(about, rule.table, rule.chain);
        if (find(get(chain, "rules"), "rule", rule.rule) == nullptr) {
            return bad(restart, "chain %s of table %s has no rule %s", rule.chain, rule.table, rule.rule);
        }
    }
    return good("their rules are there");
}

} // namespace ctl
