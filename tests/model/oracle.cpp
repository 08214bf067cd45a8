// Names, ports, VLANs, bridges.

#include "oracle.h"

#include "text.h"

#include <algorithm>
#include <cstdlib>

namespace model {

namespace {

constexpr int device_error = -13;
constexpr int fail = -1;

Type type_of(const std::string &name)
{
    return name.starts_with("lan") ? Type::lan : name.starts_with("wan") ? Type::wan : Type::none;
}

const char *word(Type type)
{
    return type == Type::lan ? "lan" : "wan";
}

} // namespace

Oracle::Oracle(BoardPlan plan) : plan_{std::move(plan)} {}

std::optional<unsigned> Oracle::port_of(const std::string &name) const
{
    const Type type = type_of(name);
    const int number = type == Type::none ? 0 : std::atoi(name.c_str() + 3);
    std::vector<unsigned> wans;
    for (size_t i = plan_.ethernet.size(); i-- > 0;) {
        if (plan_.ethernet[i].first & 2) {
            wans.push_back(plan_.ethernet[i].second);
        }
    }
    const auto at = static_cast<size_t>(number) - 1;
    if (number < 1) {
        return std::nullopt;
    }
    if (type == Type::lan && at < plan_.ethernet.size() && (plan_.ethernet[at].first & 1)) {
        return plan_.ethernet[at].second;
    }
    if (type == Type::wan && at < wans.size()) {
        return wans[at];
    }
    return std::nullopt;
}

unsigned Oracle::sequence(unsigned port) const
{
    std::set<unsigned> all;
    for (const auto &[role, number] : plan_.ethernet) {
        all.insert(number);
    }
    for (unsigned i = 0; i < plan_.ethernet.size(); i++) {
        if (plan_.ethernet[i].second == port && (plan_.ethernet[i].first & 1)) {
            return i;
        }
    }
    unsigned wan = 1;
    while (port_of("wan" + std::to_string(wan)) != port) {
        wan++;
    }
    return static_cast<unsigned>(all.size()) - wan;
}

Mac Oracle::port_mac(unsigned port, unsigned on_first_byte) const
{
    Mac mac = plan_.base;
    const unsigned low = (mac[3] * 65536U + mac[4] * 256U + mac[5] + sequence(port)) % 0x1000000;
    mac[0] = static_cast<uint8_t>((mac[0] + on_first_byte) % 256);
    mac[3] = static_cast<uint8_t>(low / 65536);
    mac[4] = static_cast<uint8_t>(low / 256 % 256);
    mac[5] = static_cast<uint8_t>(low % 256);
    return mac;
}

Oracle::Master Oracle::master(Type type) const
{
    return type == Type::wan && plan_.two_cpu_ports ? Master{"eth1", 5} : Master{"eth0", 6};
}

std::optional<bool> Oracle::link_of(const std::string &name) const
{
    const auto port = port_of(name);
    if (!port) {
        return std::nullopt;
    }
    return *port == lan1() || ports[*port].link;
}

Interface *Oracle::find(const std::string &name)
{
    const auto port = port_of(name);
    if (!port) {
        return nullptr;
    }
    for (Interface &entry : ports[*port].interfaces) {
        if (entry.name == name) {
            return &entry;
        }
    }
    return nullptr;
}

void Oracle::drop(const Interface *gone)
{
    auto &list = ports[gone->port].interfaces;
    list.erase(list.begin() + (gone - list.data()));
}

int Oracle::vlan_device(const std::string &lower, unsigned vid, const Mac &mac)
{
    const std::string name = lower + "." + std::to_string(vid);
    const bool done = kernel.vlan_create(lower, static_cast<int>(vid)) == 0 &&
                      (mac == Mac{} || kernel.mac_set(name, mac.data()) == 0) && kernel.up(name) == 0;
    return done ? 0 : device_error;
}

int Oracle::vlan_device_gone(const std::string &name)
{
    return kernel.down(name) == 0 && kernel.device_delete(name) == 0 ? 0 : device_error;
}

int Oracle::port_own(Type type, int number, unsigned port)
{
    const auto [device, cpu] = master(type);
    sw.leave_entry(lan1(), port_vlan(lan1()), port);
    sw.pvid[port] = port_vlan(port);
    sw.join_entry(port, port_vlan(port), port);
    sw.join_entry(port, port_vlan(port), cpu);
    if (const int error = vlan_device(device, port_vlan(port), port_mac(port, 2)); error != 0) {
        return error;
    }
    ports[port].type = type;
    ports[port].says = port;
    ports[port].name = word(type) + std::to_string(number);
    return 0;
}

int Oracle::vlan_make(Type type, unsigned port, unsigned vlan1, unsigned vlan2)
{
    auto [lower, cpu] = master(type);
    if (cpu == 5) {
        lower += "." + std::to_string(port_vlan(port));
    }
    for (const unsigned member : {port, cpu}) {
        if (const int error = sw.join(vlan1, member); error != 0) {
            return error;
        }
    }
    const Mac mac = port_mac(port, 2);
    const int error = vlan_device(lower, vlan1, mac);
    if (error != 0 || vlan2 == no_vlan) {
        return error;
    }
    return vlan_device(lower + "." + std::to_string(vlan1), vlan2, mac);
}

int Oracle::vlan_users(Type type, unsigned vlan1, unsigned vlan2) const
{
    int users = 0;
    for (const Port &port : ports) {
        // The first of each port is never counted.
        for (size_t i = 1; i < port.interfaces.size(); i++) {
            const Interface &other = port.interfaces[i];
            users += master(other.type).device == master(type).device && other.vlan1 == vlan1 &&
                     (vlan2 == no_vlan || other.vlan2 == vlan2);
        }
    }
    return users;
}

int Oracle::vlan_remove(Type type, unsigned port, unsigned vlan1, unsigned vlan2)
{
    const auto [device, cpu] = master(type);
    const std::string outer =
        device + (cpu == 5 ? "." + std::to_string(port_vlan(port)) : "") + "." + std::to_string(vlan1);
    if (vlan2 != no_vlan) {
        const int users = vlan_users(type, vlan1, vlan2);
        if (users == 0) {
            return fail;
        }
        if (users == 1) {
            if (const int error = vlan_device_gone(outer + "." + std::to_string(vlan2)); error != 0) {
                return error;
            }
        }
    }
    const int users = vlan_users(type, vlan1, no_vlan);
    if (users == 0) {
        return fail;
    }
    if (users == 1) {
        if (const int error = vlan_device_gone(outer); error != 0) {
            return error;
        }
    }
    if (const int error = sw.leave(vlan1, port); error != 0) {
        return error;
    }
    return sw.leave(vlan1, cpu);
}

// The bridge and its member.
std::pair<std::string, std::string> Oracle::bridge_names(const Interface &interface) const
{
    const std::string device = master(type_of(interface.name)).device;
    std::string member = device + "." + std::to_string(port_vlan(interface.port));
    if (interface.vlan1 != no_vlan) {
        member = device + "." + std::to_string(interface.vlan1);
        if (interface.vlan2 != no_vlan) {
            member += "." + std::to_string(interface.vlan2);
        }
    }
    return {interface.name + (interface.proto == Proto::pppoe ? "_pe" : ""), member};
}

int Oracle::bridge_make(const Interface &interface, bool up)
{
    if (type_of(interface.name) == Type::none) {
        return bad_argument;
    }
    const auto [bridge, member] = bridge_names(interface);
    if (kernel.bridge_create(bridge) != 0) {
        return fail;
    }
    if (interface.mac != Mac{} && kernel.mac_set(bridge, interface.mac.data()) != 0) {
        return device_error;
    }
    if (kernel.up(bridge) != 0 || kernel.bridge_join(bridge, member) != 0) {
        return fail;
    }
    // A port without a known link is no failure.
    return up && link_of(interface.name).value_or(false) && kernel.up(bridge) != 0 ? fail : 0;
}

int Oracle::bridge_remove(const Interface &interface)
{
    if (type_of(interface.name) == Type::none) {
        return bad_argument;
    }
    const auto [bridge, member] = bridge_names(interface);
    return kernel.bridge_leave(bridge, member) == 0 && kernel.down(bridge) == 0 &&
                   kernel.device_delete(bridge) == 0
               ? 0
               : fail;
}

std::string Oracle::picture() const
{
    std::string out;
    for (unsigned p = 0; p < front_ports; p++) {
        const Port &port = ports[p];
        out += "port " + std::to_string(p) + " '" + port.name + "' type " +
               std::to_string(static_cast<int>(port.type)) + " says " + std::to_string(port.says) +
               (port.link ? " up\n" : " down\n");
        for (const Interface &entry : port.interfaces) {
            out += "  " + entry.name + " type " + std::to_string(static_cast<int>(entry.type)) + " on " +
                   std::to_string(entry.port) + " vlan " + std::to_string(entry.vlan1) + " " +
                   std::to_string(entry.vlan2) + " mac " + seam::mac_text(entry.mac.data()) + " " + entry.ip +
                   " " + entry.mask + " " + entry.gateway + (entry.enable ? " enabled" : " disabled") +
                   " number " + std::to_string(entry.number) + " proto " +
                   std::to_string(static_cast<int>(entry.proto)) + "\n";
        }
    }
    return out;
}

} // namespace model
