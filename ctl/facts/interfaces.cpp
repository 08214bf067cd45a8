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
    const char *text = text_of(section, "proto", "static");
    return begins(text, "dhcp") ? "dhcp" : begins(text, "pppoe") ? "pppoe" : "static";
}

// Of an interface that no section describes, the VLAN is read off the device in its bridge: eth0.100.7.
void put_vlans_found(json_object *facts, json_object *made)
{
    for (json_object *device : items(get(facts, "devices"))) {
        const char *dot = strchr(shown(device, "name"), '.');
        if (!is_same(device, "bridge", made, "name") || dot == nullptr) {
            continue;
        }
        const int outer = atoi(dot + 1);
        const char *second = strchr(dot + 1, '.');
        if (outer != first_port_vlan + get_number(made, "port")) {
            put_number(made, "vlanid1", outer);
        }
        if (second != nullptr) {
            put_number(made, "vlanid2", atoi(second + 1));
        }
    }
}

// The device that carries the frames of an interface, below its bridge.
void put_member(json_object *facts, json_object *made)
{
    const int64_t vlan = get_number(made, "vlanid1", no_vlan);
    const int64_t inner = get_number(made, "vlanid2", no_vlan);
    const bool second = is_wan(text_of(made, "name")) && get_number(get(facts, "board"), "cpu_ports") == 2;
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
    json_object *device = find(get(facts, "devices"), "name", text_of(made, "device"));
    // The PPP link is a device that comes and goes above the bridge.
    const bool dials = device == nullptr && !is_same(made, "device", made, "bridge") &&
                       find(get(facts, "devices"), "name", text_of(made, "bridge")) != nullptr;
    put(made, "state", dials ? "dials" : state_of(device));
    if (device == nullptr) {
        put_list(made, "addresses");
    }
    for (const char *key : {"addresses", "mac", "rx_bytes", "tx_bytes"}) {
        share(device, key, made, key);
    }
    json_object *members = put_list(made, "members");
    for (json_object *other : items(get(facts, "devices"))) {
        if (is_same(other, "bridge", made, "bridge")) {
            append(members, text_of(other, "name"));
        }
    }
}

void put_way_out(json_object *facts, json_object *made)
{
    json_object *of = nullptr;
    for (json_object *route : items(get(facts, "routes"))) {
        if (of == nullptr && is(route, "destination", "0.0.0.0/0") &&
            is_same(route, "device", made, "device")) {
            of = route;
        }
    }
    if (of != nullptr) {
        json_object *way = put_table(made, "way_out");
        put(way, "gateway", text_of(of, "gateway", "-"));
        put_number(way, "table", get_number(of, "table"));
        put_flag(way, "rule", find(get(facts, "rules"), "table", get_number(of, "table")) != nullptr);
    }
}

void put_interface(json_object *facts, const char *name, json_object *section, json_object *made)
{
    put(made, "name", name);
    put_flag(made, "configured", section != nullptr);
    put_number(made, "port", port_of(facts, name));
    put(made, "proto", is_wan(name) ? protocol_in(section) : "static");
    for (const char *key : {"vlanid1", "vlanid2"}) {
        if (const int64_t vlan = option_number(section, key, no_vlan); vlan != no_vlan) {
            put_number(made, key, vlan);
        }
    }
    if (section == nullptr) {
        put_vlans_found(facts, made);
    }
    if (is_wan(name) && section != nullptr) {
        put_flag(made, "enabled", option_number(section, "enable", 0) != 0);
        put_number(made, "number", option_number(section, "defrt_pri", usual_number));
    }
    const bool dials = is(made, "proto", "pppoe");
    char bridge[64];
    snprintf(bridge, sizeof(bridge), "%.40s%s", name, dials ? "_pe" : "");
    put(made, "device", name);
    put(made, "bridge", bridge);
    put_member(facts, made);
    put_state(facts, made);
    put_way_out(facts, made);
    if (json_object *client = find(get(facts, "clients"), "name", name)) {
        json_object_object_add(made, "client", json_object_get(client));
    }
    if (json_object *row = find(get(facts, "rows"), "name", name)) {
        json_object_object_add(made, "row", json_object_get(row));
    }
}

// Bridges that no section has asked for.
void add_unconfigured(json_object *facts, json_object *interfaces)
{
    for (json_object *device : items(get(facts, "devices"))) {
        const char *name = text_of(device, "name");
        if (is(device, "kind", "bridge") && (is_lan(name) || is_wan(name)) &&
            find(interfaces, "bridge", name) == nullptr) {
            put_interface(facts, name, nullptr, append_table(interfaces));
        }
    }
}

} // namespace

void derive_interfaces(json_object *facts)
{
    json_object *interfaces = put_list(facts, "interfaces");
    for (const char *package : {"lan_intf", "wan_intf"}) {
        for (json_object *section : items(get(get(facts, "configuration"), package))) {
            const char *name = text_of(section, "name");
            if (package[0] == 'l' ? is_lan(name) : is_wan(name)) {
                put_interface(facts, name, section, append_table(interfaces));
            }
        }
    }
    add_unconfigured(facts, interfaces);
}

} // namespace ctl
