// The interfaces: those of the configuration, and those that the kernel has besides, made over the bus.

#include "facts/router.h"

#include <cstdlib>
#include <cstring>

namespace ctl {

namespace {

constexpr const char *without_link = "no link";

int64_t option_number(json_object *section, const char *key, int64_t absent)
{
    json_object *value = get(section, key);
    return value != nullptr ? atoi(json_object_get_string(value)) : absent;
}

// As the daemon reads the text: by its first letters.
const char *protocol_in(json_object *section)
{
    const std::string_view text = get_text(section, "proto", "static");
    return text.starts_with("dhcp") ? "dhcp" : text.starts_with("pppoe") ? "pppoe" : "static";
}

// Of an interface that no section describes, the VLAN is read off the device in its bridge: eth0.100.7.
void put_vlans_found(json_object *facts, json_object *made)
{
    each(get(facts, "devices"), [&](json_object *device) {
        const char *dot = strchr(shown(device, "name"), '.');
        if (get_text(device, "bridge") != get_text(made, "name") || dot == nullptr) {
            return;
        }
        const int outer = atoi(dot + 1);
        const char *second = strchr(dot + 1, '.');
        if (outer != first_port_vlan + get_number(made, "port")) {
            put_number(made, "vlanid1", outer);
        }
        if (second != nullptr) {
            put_number(made, "vlanid2", atoi(second + 1));
        }
    });
}

// The device that carries the frames of an interface, below its bridge.
void put_member(json_object *facts, json_object *made)
{
    const int64_t vlan = get_number(made, "vlanid1", no_vlan);
    const int64_t inner = get_number(made, "vlanid2", no_vlan);
    const bool second = is_wan(get_text(made, "name")) && get_number(get(facts, "board"), "cpu_ports") == 2;
    const char *master = second ? "eth1" : "eth0";
    char name[64];
    if (vlan == no_vlan) {
        snprintf(name, sizeof(name), "%s.%d", master,
                 static_cast<int>(first_port_vlan + get_number(made, "port")));
    } else if (inner == no_vlan) {
        snprintf(name, sizeof(name), "%s.%d", master, static_cast<int>(vlan));
    } else {
        snprintf(name, sizeof(name), "%s.%d.%d", master, static_cast<int>(vlan), static_cast<int>(inner));
    }
    put(made, "member", name);
}

const char *state_of(json_object *device)
{
    return device == nullptr             ? "missing"
           : !get_flag(device, "up")     ? "down"
           : get_flag(device, "carrier") ? "up"
                                         : without_link;
}

void put_state(json_object *facts, json_object *made)
{
    json_object *device = find(get(facts, "devices"), "name", get_text(made, "device"));
    // The PPP link is a device that comes and goes above the bridge.
    const bool dials = device == nullptr && get_text(made, "device") != get_text(made, "bridge") &&
                       find(get(facts, "devices"), "name", get_text(made, "bridge")) != nullptr;
    put(made, "state", dials ? "dials" : state_of(device));
    put(made, "addresses", device != nullptr ? json{json_object_get(get(device, "addresses"))} : list());
    for (const char *key : {"mac", "rx_bytes", "tx_bytes"}) {
        if (get(device, key) != nullptr) {
            json_object_object_add(made, key, json_object_get(get(device, key)));
        }
    }
    json members = list();
    each(get(facts, "devices"), [&](json_object *other) {
        if (get_text(other, "bridge") == get_text(made, "bridge")) {
            json_object_array_add(members.get(), text(get_text(other, "name")));
        }
    });
    put(made, "members", std::move(members));
}

void put_way_out(json_object *facts, json_object *made)
{
    json_object *of = nullptr;
    each(get(facts, "routes"), [&](json_object *route) {
        if (of == nullptr && get_text(route, "destination") == "0.0.0.0/0" &&
            get_text(route, "device") == get_text(made, "device")) {
            of = route;
        }
    });
    if (of != nullptr) {
        json way = table();
        put(way.get(), "gateway", get_text(of, "gateway", "-"));
        put_number(way.get(), "table", get_number(of, "table"));
        put_flag(way.get(), "rule", find(get(facts, "rules"), "table", get_number(of, "table")) != nullptr);
        put(made, "way_out", std::move(way));
    }
}

json interface_named(json_object *facts, std::string_view name, json_object *section)
{
    json made = table();
    put(made.get(), "name", name);
    put_flag(made.get(), "configured", section != nullptr);
    put_number(made.get(), "port", port_of(facts, name));
    put(made.get(), "proto", is_wan(name) ? protocol_in(section) : "static");
    for (const char *key : {"vlanid1", "vlanid2"}) {
        if (const int64_t vlan = option_number(section, key, no_vlan); vlan != no_vlan) {
            put_number(made.get(), key, vlan);
        }
    }
    if (section == nullptr) {
        put_vlans_found(facts, made.get());
    }
    if (is_wan(name) && section != nullptr) {
        put_flag(made.get(), "enabled", option_number(section, "enable", 0) != 0);
        put_number(made.get(), "number", option_number(section, "defrt_pri", usual_number));
    }
    const bool dials = get_text(made.get(), "proto") == "pppoe";
    char bridge[64];
    snprintf(bridge, sizeof(bridge), "%.*s%s", static_cast<int>(name.size() < 40 ? name.size() : 40),
             name.data(), dials ? "_pe" : "");
    put(made.get(), "device", name);
    put(made.get(), "bridge", bridge);
    put_member(facts, made.get());
    put_state(facts, made.get());
    put_way_out(facts, made.get());
    if (json_object *client = find(get(facts, "clients"), "name", name)) {
        json_object_object_add(made.get(), "client", json_object_get(client));
    }
    if (json_object *row = find(get(facts, "rows"), "name", name)) {
        json_object_object_add(made.get(), "row", json_object_get(row));
    }
    return made;
}

// Bridges that no section has asked for.
void add_unconfigured(json_object *facts, json_object *interfaces)
{
    each(get(facts, "devices"), [&](json_object *device) {
        const std::string_view name = get_text(device, "name");
        if (get_text(device, "kind") == "bridge" && (is_lan(name) || is_wan(name)) &&
            find(interfaces, "bridge", name) == nullptr) {
            append(interfaces, interface_named(facts, name, nullptr));
        }
    });
}

} // namespace

void derive_interfaces(json_object *facts)
{
    json interfaces = list();
    for (const char *package : {"lan_intf", "wan_intf"}) {
        each(get(get(facts, "configuration"), package), [&](json_object *section) {
            const std::string_view name = get_text(section, "name");
            if (package[0] == 'l' ? is_lan(name) : is_wan(name)) {
                append(interfaces.get(), interface_named(facts, name, section));
            }
        });
    }
    add_unconfigured(facts, interfaces.get());
    put(facts, "interfaces", std::move(interfaces));
}

} // namespace ctl
