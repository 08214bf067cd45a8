// Static routes: record, destination, gateway, table 10000 and its rule.

#include "explain/explain.h"
#include "libsys/ipv4.h"

#include <cstdlib>
#include <cstring>

namespace ctl {

namespace {

constexpr const char *mend =
    "mend the section in /etc/config/route_config, then restart, or send ivarode.route edit";

bool is_installed(const subject &about)
{
    return is(about.own, "state", "installed");
}

bool contains(const char *network, uint32_t address)
{
    char text[24];
    snprintf(text, sizeof(text), "%s", network);
    char *slash = strchr(text, '/');
    uint32_t base = 0;
    if (slash == nullptr) {
        return false;
    }
    *slash = '\0';
    const uint32_t mask = libsys::mask_of(static_cast<unsigned>(atoi(slash + 1)));
    return libsys::parse_ipv4(text, &base) && (base & mask) == (address & mask);
}

// The device of the connected network that an address is in; null for none.
json_object *device_towards(const subject &about, uint32_t address)
{
    json_object *found = nullptr;
    for (json_object *device : items(get(about.facts, "devices"))) {
        for (json_object *own : items(get(device, "addresses"))) {
            if (found == nullptr && get_flag(device, "up") &&
                contains(json_object_get_string(own), address)) {
                found = device;
            }
        }
    }
    return found;
}

} // namespace

finding look_route_section(const subject &about)
{
    json_object *section = about.section();
    uint32_t address = 0;
    constexpr size_t longest = 31; // of a record's texts
    if (strlen(about.name()) > longest) {
        return bad("give it a shorter name, then restart",
                   "the name %s has more than 31 characters: it is recorded under another one", about.name());
    }
    for (const char *option : {"dstaddr", "netmask", "gateway"}) {
        if (!libsys::parse_ipv4(shown(section, option, ""), &address)) {
            return bad(mend, "route %s: option %s is \"%.40s\", which the kernel refuses", about.name(),
                       option, shown(section, option, ""));
        }
    }
    if (is(about.own, "destination", "")) {
        return bad(mend, "route %s: option netmask is \"%.40s\", no mask", about.name(),
                   shown(section, "netmask", ""));
    }
    if (is(section, "line", "")) {
        return bad(mend, "route %s has no line: the kernel refuses it", about.name());
    }
    return good("to %s via %s", shown(about.own, "destination"), shown(about.own, "gateway"));
}

finding look_route_enabled(const subject &about)
{
    if (!get_flag(about.own, "enabled") && !is_installed(about)) {
        return bad("set option enable to 1 in its section, then restart; or ubus call ivarode.route enable",
                   "route %s is disabled in its section", about.name());
    }
    return good("it is enabled");
}

finding look_route_hidden(const subject &about)
{
    json_object *by = nullptr;
    bool behind = false;
    for (json_object *other : items(get(about.facts, "static_routes"))) {
        behind = behind || other == about.own;
        const bool same = is_same(other, "destination", about.own, "destination") &&
                          get_number(other, "metric") == get_number(about.own, "metric");
        if (!behind && same && get_flag(other, "enabled")) {
            by = other;
        }
    }
    if (by != nullptr && !is_installed(about)) {
        return with_remedy(
            bad("", "route %s is hidden by %s: same destination and metric", about.name(), shown(by, "name")),
            "give it another metric");
    }
    return good("no other route of its destination and metric stands before it");
}

finding look_route_gateway(const subject &about)
{
    uint32_t address = 0;
    if (get(about.facts, "devices") == nullptr ||
        !libsys::parse_ipv4(shown(about.own, "gateway", ""), &address)) {
        return skipped();
    }
    const char *line = text_of(about.own, "line");
    if (!begins(line, "auto")) {
        json_object *device = about.device(line);
        if (device == nullptr || !get_flag(device, "up")) {
            return bad("bring that interface up; the route follows with its address", "its device %s is %s",
                       shown(about.own, "line"), device == nullptr ? "missing" : "down");
        }
    }
    json_object *towards = device_towards(about, address);
    if (towards == nullptr) {
        return bad("correct the gateway, or bring up the interface whose network it is in",
                   "gateway %s is in no connected network", shown(about.own, "gateway"));
    }
    return good("gateway %s is reached through %s", shown(about.own, "gateway"), shown(towards, "name"));
}

finding look_route_installed(const subject &about)
{
    if (get(about.facts, "routes") == nullptr) {
        return unsure("the routes could not be read");
    }
    if (!is_installed(about)) {
        return with_remedy(bad("", "route %s is not in table 10000", about.name()),
                           "ubus call ivarode.route enable '{\"name\":[\"%s\"],\"enable\":1}' tries it again",
                           about.name());
    }
    return good("it is in table 10000");
}

finding look_route_rule(const subject &about)
{
    if (get(about.facts, "rules") == nullptr) {
        return skipped();
    }
    if (find(get(about.facts, "rules"), "preference", route_table) == nullptr) {
        return bad("ip rule add pref 10000 lookup 10000, or /etc/init.d/ivarode restart",
                   "rule 10000 is missing: no static route counts");
    }
    return good("rule 10000 leads to the table");
}

finding look_account(const subject &about)
{
    return good("%s is in /etc/ppp/chap-secrets, with address %s", about.name(), shown(about.own, "address"));
}

finding look_account_provider(const subject &about)
{
    unsigned count = 0;
    for (json_object *other : items(get(about.facts, "ppp_users"))) {
        count +=
            is_same(other, "name", about.own, "name") && is_same(other, "provider", about.own, "provider")
                ? 1
                : 0;
    }
    if (count > 1) {
        return bad("remove the lines too many from /etc/ppp/chap-secrets",
                   "%s stands %u times in /etc/ppp/chap-secrets for provider %s: the first counts",
                   about.name(), count, shown(about.own, "provider"));
    }
    return good("for provider %s", shown(about.own, "provider"));
}

} // namespace ctl
