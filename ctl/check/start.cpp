#include "check/start.h"

#include "check/options.h"

#include <cstring>

namespace ctl {

namespace {

constexpr int front_ports = 5;
constexpr unsigned port_vlan_base = 4090;
constexpr unsigned no_vlan = 65535;
constexpr int most_vlans = 11;
constexpr size_t longest_device = 15;
constexpr const char *any_address = "0.0.0.0";

unsigned vlan_of(const section &which, const char *option)
{
    const char *text = which.text(option);
    return text != nullptr ? static_cast<uint16_t>(number_in(text)) : no_vlan;
}

// What the row of a WAN may hold.
bool is_plain(const char *text)
{
    return text == nullptr || text[strspn(text, "0123456789abcdefghijklmnopqrstuvwxyz"
                                                "ABCDEFGHIJKLMNOPQRSTUVWXYZ.:/_-")] == '\0';
}

} // namespace

int start_walk::port_of(const section &which, const int (&ports)[16])
{
    const int number = number_in(which.name + 3);
    const int port = number >= 1 && number <= 16 ? ports[number - 1] : -1;
    if (port < 0 || port >= front_ports) {
        found_.add({which.file, which.name}, effect::ends, start_ends, "the board has no %.3s %d%s",
                   which.name, number, port < 0 ? "" : " in front");
        return -1;
    }
    return port;
}

bool start_walk::make(const place &where, const char *device)
{
    if (strlen(device) > longest_device) {
        found_.add(where, effect::ends, start_ends, "%s is too long for a device", device);
        return false;
    }
    if (get(devices_.get(), device) == nullptr) {
        put(devices_.get(), device, "");
    }
    return true;
}

bool start_walk::has_room_for(unsigned vid)
{
    char key[8];
    snprintf(key, sizeof(key), "%u", vid);
    if (get(vlans_.get(), key) == nullptr && json_object_object_length(vlans_.get()) == most_vlans) {
        return false;
    }
    put_flag(vlans_.get(), key, true);
    return true;
}

bool start_walk::takes_vlan(const section &which, const char *carrier, char *device)
{
    const unsigned outer = vlan_of(which, "vlanid1");
    const unsigned inner = vlan_of(which, "vlanid2");
    const place first = {which.file, which.name, "vlanid1"};
    const place second = {which.file, which.name, "vlanid2"};
    if (!is_vlan(outer)) {
        found_.add(first, effect::ends, start_ends, "%u is no VLAN", outer);
        return false;
    }
    if (!has_room_for(outer)) {
        found_.add(first, effect::ends, start_ends, "the switch has room for %d VLANs", most_vlans);
        return false;
    }
    if (outer >= port_vlan_base) {
        found_.add(first, effect::broken, "the interface shares the port's device",
                   "%u is the VLAN of port %u itself", outer, outer - port_vlan_base);
    }
    // Behind the second CPU port a VLAN is one of the port's device; its bridge asks for one of the CPU's.
    const bool nested = strcmp(carrier, "eth0") != 0;
    char under[64];
    snprintf(under, sizeof(under), "%s.%u", nested ? device : carrier, outer);
    if (!make(first, under)) {
        return false;
    }
    snprintf(device, longest_device + 20, "%s.%u", carrier, outer);
    if (inner == no_vlan) {
        return true;
    }
    if (!is_vlan(inner)) {
        found_.add(second, effect::ends, start_ends, "%u is no VLAN", inner);
        return false;
    }
    char above[96];
    snprintf(above, sizeof(above), "%s.%u", under, inner);
    snprintf(device + strlen(device), 8, ".%u", inner);
    return make(second, above);
}

bool start_walk::join(const place &where, const char *bridge, const char *member)
{
    if (strlen(bridge) > longest_device) {
        found_.add(where, effect::ends, start_ends, "%.40s is too long for a device", bridge);
        return false;
    }
    if (get(devices_.get(), member) == nullptr) {
        found_.add(where, effect::ends, start_ends, "there is no %s on a board with two CPU ports", member);
        return false;
    }
    const char *other = shown(devices_.get(), member);
    if (*other != '\0' && strcmp(other, bridge) != 0) {
        found_.add(where, effect::ends, start_ends, "%s is in the bridge of %s already", member, other);
        return false;
    }
    put(devices_.get(), member, bridge);
    return true;
}

void start_walk::address(const section &which)
{
    const char *mask = which.text("netmask");
    if (mask != nullptr && strcmp(mask, any_address) != 0 && which.text("ipaddr") == nullptr) {
        found_.add({which.file, which.name, "netmask"}, effect::ends, start_ends,
                   "there is no ipaddr that it goes with");
    }
}

void start_walk::take(const section &which, const char *kind, const int (&ports)[16], unsigned protocol)
{
    if (strncmp(which.name, kind, 3) != 0) {
        found_.add({which.file, which.name}, effect::ignored, "the section is ignored",
                   "its name does not begin with %s", kind);
        return;
    }
    const int port = board_.known ? port_of(which, ports) : -1;
    if (port < 0) {
        return;
    }
    const char *carrier = protocol != 0 && board_.two_cpu_ports ? "eth1" : "eth0";
    char device[longest_device + 20];
    snprintf(device, sizeof(device), "%s.%u", carrier, port_vlan_base + static_cast<unsigned>(port));
    const bool on_vlan = vlan_of(which, "vlanid1") != no_vlan;
    if (!on_vlan && vlan_of(which, "vlanid2") != no_vlan) {
        found_.add({which.file, which.name, "vlanid2"}, effect::ignored, "the option is ignored",
                   "there is no vlanid1");
    }
    const place where = {which.file, which.name, on_vlan ? "vlanid1" : nullptr};
    make(where, device);
    char bridge[80];
    snprintf(bridge, sizeof(bridge), "%.60s%s", which.name, protocol == by_pppoe ? "_pe" : "");
    if (on_vlan && !takes_vlan(which, carrier, device)) {
        return;
    }
    if (join(strlen(bridge) > longest_device ? place{which.file, which.name} : where, bridge, device) &&
        (protocol == 0 || protocol == by_static)) {
        address(which);
    }
}

void start_walk::wan(const section &which)
{
    const char *text = which.text("proto");
    const unsigned protocol = text != nullptr ? protocol_of(text) : unsigned{by_static};
    if (protocol == 0) {
        return; // found already, and the walk goes no further
    }
    take(which, "wan", board_.wan_port, protocol);
    const char *gateway = which.text("gateway");
    if (protocol == by_static && !is_plain(gateway)) {
        found_.add({which.file, which.name, "gateway"}, effect::ends, start_ends,
                   "there is a character in it that no address has");
    }
}

} // namespace ctl
