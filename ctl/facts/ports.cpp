// What the front ports serve, and how the switch's table is used.

#include "facts/router.h"
#include "facts/switch.h"

namespace ctl {

namespace {

constexpr int64_t first_user_entry = 5;
constexpr int64_t entry_count = 16;

void add_served(json_object *serves, json_object *served, int64_t port, const char *kind)
{
    for (json_object *element : items(served)) {
        if (get_number(element, "port", -1) == port) {
            char name[24];
            snprintf(name, sizeof(name), "%s %s", kind, shown(element, "number"));
            append(serves, name);
        }
    }
}

// The VLAN device of a port that is its own; null for one that is not.
json_object *own_device(json_object *facts, int64_t port)
{
    for (const char *master : {"eth0", "eth1"}) {
        char name[32];
        snprintf(name, sizeof(name), "%s.%d", master, static_cast<int>(first_port_vlan + port));
        if (json_object *device = find(get(facts, "devices"), "name", name)) {
            return device;
        }
    }
    return nullptr;
}

// What a port alone has carried: the counters of its device, where no other front port is in its VLAN.
void put_port_counters(json_object *facts, json_object *port, json_object *device)
{
    unsigned members = 0;
    for (json_object *member : items(
             get(find(get(facts, "vlans"), "vid", first_port_vlan + get_number(port, "port")), "members"))) {
        members += json_object_get_int64(member) < front_ports ? 1 : 0;
    }
    if (members == 1 && get(device, "rx_bytes") != nullptr) {
        for (const char *key : {"rx_bytes", "tx_bytes"}) {
            json_object_object_add(port, key, json_object_get(get(device, key)));
        }
    }
}

} // namespace

void derive_ports(json_object *facts)
{
    for (json_object *port : items(get(facts, "ports"))) {
        const int64_t number = get_number(port, "port");
        json_object *serves = put_list(port, "serves");
        add_served(serves, get(get(facts, "board"), "lans"), number, "LAN");
        add_served(serves, get(get(facts, "board"), "wans"), number, "WAN");
        json_object *device = own_device(facts, number);
        put_flag(port, "own", device != nullptr || get_number(port, "pvid") == first_port_vlan + number);
        if (device != nullptr) {
            put(port, "device", shown(device, "name"));
            put_port_counters(facts, port, device);
        }
    }
    if (get(facts, "vlans") != nullptr) {
        int64_t used = 0;
        for (json_object *entry : items(get(facts, "vlans"))) {
            used +=
                get_number(entry, "entry") >= first_user_entry && count_of(get(entry, "members")) > 0 ? 1 : 0;
        }
        put_number(facts, "entries_used", used);
        put_number(facts, "entries_free", entry_count - first_user_entry - used);
    }
}

} // namespace ctl
