// The chain from configuration to frames, as a table of checks in the order in which they depend on each
// other. A check looks at the facts and gives a verdict with a sentence; the first that fails is the cause of
// those behind it.
#pragma once

#include "facts/router.h"

namespace ctl {

enum class verdict { good, bad, unsure, skipped };

// What a look gives, and what it said last: the sentence, and with what is bad the way out. There is one of
// it, because there is one look at a time.
using finding = verdict;

struct statement {
    char sentence[240];
    char remedy[240];
};
extern statement said;

[[gnu::format(printf, 1, 2)]] finding good(const char *format, ...);
[[gnu::format(printf, 1, 2)]] finding unsure(const char *format, ...);
[[gnu::format(printf, 2, 3)]] finding bad(const char *remedy, const char *format, ...);
// Bad, with the way out written behind the sentence.
[[gnu::format(printf, 2, 3)]] finding with_remedy(finding of, const char *format, ...);
constexpr finding skipped()
{
    return verdict::skipped;
}

enum kinds : unsigned { an_interface = 1, a_port = 2, a_route = 4, an_account = 8, an_uplink = 16 };

// What is explained. "own" is its element of "interfaces", "ports", "static_routes" or "ppp_users".
struct subject {
    kinds kind;
    json_object *facts;
    json_object *own;

    const char *name() const { return shown(own, "name"); }
    bool is_uplink() const { return kind == an_interface && is_wan(text_of(own, "name")); }
    int64_t port() const { return get_number(own, "port", -1); }
    json_object *section() const;
    json_object *device(const char *device_name) const;
};

struct check {
    const char *name;
    unsigned of;     // kinds; an_uplink stands for the interfaces of WANs
    bool deliberate; // somebody may have wanted it so: no problem unless it is asked for
    finding (*look)(const subject &);
};

extern const check checks[];
extern const size_t check_count;

// The looks, file by file.
finding look_section(const subject &);
finding look_options(const subject &);
finding look_number_of_board(const subject &);
finding look_process(const subject &);
finding look_port_own(const subject &);
finding look_cable(const subject &);
finding look_pvid(const subject &);
finding look_entry(const subject &);
finding look_entry_cpu(const subject &);
finding look_untagged(const subject &);
finding look_cpu_device(const subject &);
finding look_vlan_device(const subject &);
finding look_bridge(const subject &);
finding look_member(const subject &);
finding look_enabled(const subject &);
finding look_up(const subject &);
finding look_number(const subject &);
finding look_supervisor(const subject &);
finding look_client(const subject &);
finding look_address(const subject &);
finding look_row(const subject &);
finding look_way_out(const subject &);
finding look_rule(const subject &);
finding look_in_front(const subject &);
finding look_rules_before(const subject &);
finding look_skeleton(const subject &);
finding look_rules_of_chains(const subject &);
finding look_forwarding(const subject &);
finding look_resolver(const subject &);
finding look_broker(const subject &);
finding look_sibling(const subject &);
finding look_answer(const subject &);
finding look_route_section(const subject &);
finding look_route_enabled(const subject &);
finding look_route_hidden(const subject &);
finding look_route_gateway(const subject &);
finding look_route_installed(const subject &);
finding look_route_rule(const subject &);
finding look_account(const subject &);
finding look_account_provider(const subject &);

// "problems": a table for each subject with something bad: "subject", "check", "sentence", "remedy". A cause
// that several share is listed once. Their number.
size_t find_problems(json_object *facts);

// The section checks of every section, up to the first that is bad.
finding broken_section(json_object *facts);

} // namespace ctl
