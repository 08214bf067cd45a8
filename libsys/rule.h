// IPv4 policy rules whose action is a table look-up.
//
// The functions give 0 or a positive errno value.
#pragma once

#include <cstdint>

namespace libsys {

constexpr int no_suppression = -1;

struct policy_rule {
    uint32_t preference;
    uint32_t table;
    int suppress_prefix = no_suppression; // results with a prefix this long or shorter do not count
};

// What stands at a preference.
enum class rule_state { absent, same, different };

// Compares what stands at the preference with `wanted`; several rules there are "different".
int look_up_rule(const policy_rule &wanted, rule_state *state);
// 0 when the very rule is there already, EEXIST when another stands at its preference. One whose removal has
// been put off makes room.
int ensure_rule(const policy_rule &wanted);
// Removes every rule of a preference; none is fine.
int remove_rules(uint32_t preference);
// Whether a rule "P: lookup P" stands between two preferences.
int any_self_named_rule(uint32_t lowest, uint32_t highest, bool *found);

} // namespace libsys
