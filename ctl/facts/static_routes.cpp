// The static routes of the configuration beside those that the kernel has in their table.

#include "facts/router.h"
#include "libsys/ipv4.h"

#include <cstdlib>

namespace ctl {

namespace {

// "10.20.0.0/16" of address and mask; false when the kernel would not take them.
bool destination_of(json_object *section, char (&out)[24])
{
    uint32_t address = 0;
    uint8_t prefix = 0;
    if (!libsys::parse_ipv4(shown(section, "dstaddr", ""), &address) ||
        !libsys::parse_mask(shown(section, "netmask", ""), &prefix)) {
        return false;
    }
    snprintf(out, sizeof(out), "%u.%u.%u.%u/%u", address >> 24, address >> 16 & 0xFF, address >> 8 & 0xFF,
             address & 0xFF, prefix);
    return true;
}

json_object *installed_as(json_object *facts, json_object *wanted)
{
    json_object *found = nullptr;
    for (json_object *route : items(get(facts, "routes"))) {
        if (get_number(route, "table") == route_table &&
            is_same(route, "destination", wanted, "destination") &&
            is_same(route, "gateway", wanted, "gateway") &&
            get_number(route, "metric") == get_number(wanted, "metric")) {
            found = route;
        }
    }
    return found;
}

void put_route(json_object *facts, json_object *section, json_object *made)
{
    char destination[24] = "";
    const bool usable = destination_of(section, destination);
    const bool enabled = atoi(shown(section, "enable", "0")) == 1;
    put(made, "name", text_of(section, "name"));
    put(made, "line", text_of(section, "line"));
    put_flag(made, "enabled", enabled);
    put(made, "destination", destination);
    put(made, "gateway", text_of(section, "gateway"));
    put_number(made, "metric", atoi(shown(section, "metric", "0")));
    json_object *installed = usable ? installed_as(facts, made) : nullptr;
    if (installed != nullptr) {
        put(made, "device", text_of(installed, "device"));
    }
    put(made, "state", installed != nullptr ? "installed" : enabled ? "missing" : "off");
}

} // namespace

void derive_static_routes(json_object *facts)
{
    json_object *routes = put_list(facts, "static_routes");
    for (json_object *section : items(get(get(facts, "configuration"), "route_config"))) {
        put_route(facts, section, append_table(routes));
    }
}

} // namespace ctl
