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
    each(get(facts, "routes"), [&](json_object *route) {
        if (get_number(route, "table") == route_table &&
            get_text(route, "destination") == get_text(wanted, "destination") &&
            get_text(route, "gateway") == get_text(wanted, "gateway") &&
            get_number(route, "metric") == get_number(wanted, "metric")) {
            found = route;
        }
    });
    return found;
}

json route_of(json_object *facts, json_object *section)
{
    json made = table();
    char destination[24] = "";
    const bool usable = destination_of(section, destination);
    const bool enabled = atoi(shown(section, "enable", "0")) == 1;
    put(made.get(), "name", get_text(section, "name"));
    put(made.get(), "line", get_text(section, "line"));
    put_flag(made.get(), "enabled", enabled);
    put(made.get(), "destination", destination);
    put(made.get(), "gateway", get_text(section, "gateway"));
    put_number(made.get(), "metric", atoi(shown(section, "metric", "0")));
    json_object *installed = usable ? installed_as(facts, made.get()) : nullptr;
    if (installed != nullptr) {
        put(made.get(), "device", get_text(installed, "device"));
    }
    put(made.get(), "state", installed != nullptr ? "installed" : enabled ? "missing" : "off");
    return made;
}

} // namespace

void derive_static_routes(json_object *facts)
{
    json routes = list();
    each(get(get(facts, "configuration"), "route_config"),
         [&](json_object *section) { append(routes.get(), route_of(facts, section)); });
    put(facts, "static_routes", std::move(routes));
}

} // namespace ctl
