// What a WAN needs beyond an interface: client, number, table, rule, resolver.

#include "explain/explain.h"

#include <cinttypes>
#include <cstring>

namespace ctl {

namespace {

bool is_dialled(const subject &about)
{
    return is(about.own, "proto", "pppoe");
}

bool has_client(const subject &about)
{
    return is_dialled(about) || is(about.own, "proto", "dhcp");
}

constexpr const char *ask_provider = "ask the provider: DHCP server or PPP peer has to name it";

// By its row, which holds what DHCP server or PPP peer has named.
bool was_given_none(const subject &about, const char *key)
{
    json_object *row = get(about.own, "row");
    return has_client(about) && get(row, "ipaddr") != nullptr && !is(row, "ipaddr", "0.0.0.0") &&
           is(row, key, "0.0.0.0");
}

// Whether a way out is to be there at all: a static WAN may have no gateway.
bool wants_way_out(const subject &about)
{
    return has_client(about) || strcmp(text_of(about.section(), "gateway", "0.0.0.0"), "0.0.0.0") != 0;
}

int64_t table_of(const subject &about)
{
    json_object *way = get(about.own, "way_out");
    return way != nullptr ? get_number(way, "table") : get_number(about.own, "number", usual_number);
}

json_object *rule_to(const subject &about, int64_t in)
{
    json_object *found = nullptr;
    for (json_object *rule : items(get(about.facts, "rules"))) {
        if (get_number(rule, "preference") == in && get_number(rule, "table") == in) {
            found = rule;
        }
    }
    return found;
}

} // namespace

finding look_number(const subject &about)
{
    if (get(about.own, "number") == nullptr) {
        return skipped();
    }
    const int64_t number = get_number(about.own, "number");
    if (number < first_number || number > last_number) {
        return bad("give it a defrt_pri from 10002 to 32765, then restart",
                   "defrt_pri %" PRId64 " of %s is not between 10002 and 32765: it gets no default route",
                   number, about.name());
    }
    return good("its number is %" PRId64, number);
}

finding look_supervisor(const subject &about)
{
    if (!has_client(about)) {
        return skipped();
    }
    const bool is_missing = is(about.facts, "supervisor", "missing");
    if (is_missing || is(about.facts, "supervisor", "silent") || is(about.facts, "supervisor", "fails")) {
        return bad("look at the supervisor (procd), which runs the clients",
                   is_missing ? "the supervisor is not on the bus"
                              : "the supervisor does not answer within 3 s");
    }
    return is(about.facts, "supervisor", "answers") ? good("the supervisor answers")
                                                    : unsure("the supervisor could not be asked");
}

finding look_client(const subject &about)
{
    if (!has_client(about) || !get_flag(about.own, "configured")) {
        return skipped();
    }
    json_object *client = get(about.own, "client");
    const char *kind = is_dialled(about) ? "PPPoE" : "DHCP";
    if (get(about.facts, "clients") == nullptr) {
        return unsure("its %s client could not be looked up", kind);
    }
    const char *remedy =
        "ubus call ivarode.intf config for it under its own name, or /etc/init.d/ivarode restart";
    if (client == nullptr) {
        return bad(remedy, "the supervisor runs no %s client for %s", kind, about.name());
    }
    if (!get_flag(client, "running")) {
        return bad(remedy, "the %s client of %s does not run: it ended with status %s", kind, about.name(),
                   shown(client, "exit_code", "unknown"));
    }
    return good("its %s client runs, since %" PRId64 " s", kind, get_number(client, "uptime_s"));
}

finding look_row(const subject &about)
{
    json_object *row = get(about.own, "row");
    if (row == nullptr) {
        return bad("/etc/init.d/ivarode restart writes it", "%s has no row in /var/run/ivarode/wan",
                   about.name());
    }
    if (has_client(about) && count_of(get(about.own, "addresses")) == 0) {
        return skipped();
    }
    if (has_client(about) && strcmp(text_of(row, "ipaddr", "0.0.0.0"), "0.0.0.0") == 0) {
        return bad("look whether the event scripts of the client run: logread | grep ivarode",
                   "the row of %s has no address, although the interface has one", about.name());
    }
    return good("its row says %s", shown(row, "ipaddr"));
}

finding look_way_out(const subject &about)
{
    if (get(about.facts, "routes") == nullptr) {
        return unsure("the routes could not be read");
    }
    if (json_object *way = get(about.own, "way_out")) {
        return good("default via %s (table %s)", shown(way, "gateway"), shown(way, "table"));
    }
    if (!get_flag(about.own, "configured") || !wants_way_out(about)) {
        return good("it is to have no default route");
    }
    if (was_given_none(about, "gateway")) {
        return bad(ask_provider, "%s was given no gateway with its address", about.name());
    }
    return with_remedy(bad("", "table %" PRId64 " has no default route of %s", table_of(about), about.name()),
                       "ubus call ivarode.intf enable '{\"intf\":[\"%s\"],\"enable\":1}' lays it again",
                       about.name());
}

finding look_rule(const subject &about)
{
    if (get(about.own, "way_out") == nullptr || get(about.facts, "rules") == nullptr) {
        return skipped();
    }
    const int64_t in = table_of(about);
    if (rule_to(about, in) == nullptr) {
        return with_remedy(bad("", "%s has its default route in table %" PRId64 ", but no rule leads there",
                               about.name(), in),
                           "ubus call ivarode.intf enable '{\"intf\":[\"%s\"],\"enable\":1}' lays it again",
                           about.name());
    }
    return good("rule %" PRId64 " leads there", in);
}

finding look_in_front(const subject &about)
{
    json_object *way = get(about.own, "way_out");
    if (way == nullptr) {
        return skipped();
    }
    json_object *first = nullptr;
    for (json_object *route : items(get(about.facts, "routes"))) {
        if (get_number(route, "table") == get_number(way, "table") && is(route, "destination", "0.0.0.0/0") &&
            (first == nullptr || get_number(route, "metric") < get_number(first, "metric"))) {
            first = route;
        }
    }
    if (first != nullptr && !is_same(first, "device", about.own, "device")) {
        return bad("give each WAN its own defrt_pri",
                   "%s stands in front of %s: both have number %s, and the first carries the traffic",
                   shown(first, "device"), about.name(), shown(way, "table"));
    }
    return good("no other WAN stands in front of it");
}

finding look_rules_before(const subject &about)
{
    if (get(about.own, "way_out") == nullptr || get(about.facts, "rules") == nullptr) {
        return skipped();
    }
    if (rule_to(about, route_table) == nullptr) {
        return bad("ip rule add pref 10000 lookup 10000, or /etc/init.d/ivarode restart",
                   "rule 10000 is missing: no static route counts");
    }
    if (find(get(about.facts, "rules"), "preference", connected_table) == nullptr) {
        return bad(
            "ip rule add pref 10001 lookup main suppress_prefixlength 0, or /etc/init.d/ivarode restart",
            "rule 10001 is missing: traffic between the LANs leaves through a WAN");
    }
    return good("rules 10000 and 10001 are there");
}

finding look_resolver(const subject &about)
{
    if (!has_client(about) || get(about.own, "way_out") == nullptr) {
        return skipped();
    }
    json_object *servers = get(about.facts, "resolvers");
    if (servers == nullptr || count_of(servers) == 0) {
        if (was_given_none(about, "addr4")) {
            return bad(ask_provider, "%s was given no name server with its address", about.name());
        }
        return bad("the client's event script writes it with the next lease or link",
                   "%s names no name server", shown(about.facts, "resolver_file", "/etc/resolv.conf"));
    }
    return good("name server %s", json_object_get_string(json_object_array_get_idx(servers, 0)));
}

} // namespace ctl
