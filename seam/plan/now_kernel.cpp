// Devices, addresses, routes and rules, by the routing socket of the platform library.

#include "../../libsys/netlink.h"
#include "plan/now.h"
#include "text.h"

#include <arpa/inet.h>
#include <linux/fib_rules.h>
#include <linux/if_link.h>
#include <net/if.h>

namespace seam::plan {

namespace {

namespace netlink = libsys::netlink;

constexpr uint32_t daemon_table = 10000;   // of static routes, and its rule
constexpr uint32_t connected_rule = 10001; // before those of the WANs
constexpr uint32_t first_wan_table = 10002;
constexpr uint32_t last_wan_table = 32765;

using Names = std::map<uint32_t, std::string>; // by index

std::string dotted(uint32_t in_network_order)
{
    char text[INET_ADDRSTRLEN];
    return inet_ntop(AF_INET, &in_network_order, text, sizeof(text));
}

std::string mask_of(unsigned prefix)
{
    return dotted(htonl(prefix == 0 ? 0 : ~uint32_t{0} << (32 - prefix)));
}

std::string text_in(const nlattr *attribute)
{
    char text[64];
    netlink::value_text(attribute, text, sizeof(text));
    return text;
}

template <class Body, class Visit> int each(uint16_t question, uint16_t kind, const Visit &visit)
{
    netlink::request request(question, NLM_F_DUMP);
    // Every one of these begins with its family.
    *reinterpret_cast<uint8_t *>(request.body<Body>()) = kind == RTM_NEWLINK ? AF_UNSPEC : AF_INET;
    netlink::reply answer;
    const int error = netlink::exchange(request, &answer);
    if (error == 0) {
        answer.each<Body>(kind, [&](const nlmsghdr &message, const Body &body) {
            visit(body, [&](uint16_t type) { return netlink::find(message, sizeof(body), type); });
        });
    }
    return error;
}

bool is_bridge_name(const std::string &name)
{
    return name.starts_with("lan") || name.starts_with("wan");
}

bool is_vlan_name(const std::string &name)
{
    return name.starts_with("eth0.") || name.starts_with("eth1.");
}

// As the platform library takes it for the daemon's; else with the difference.
std::string vlan_kind(const std::string &name, const nlattr *data, const std::string &lower)
{
    const std::string vid = std::to_string(netlink::value_u16(netlink::find(data, IFLA_VLAN_ID), 0));
    return "vlan " + (name == lower + "." + vid ? "" : vid + " ") + "of " + lower;
}

std::string bridge_kind(const nlattr *data)
{
    const bool waits = netlink::value_u32(netlink::find(data, IFLA_BR_STP_STATE), 0) != 0 ||
                       netlink::value_u32(netlink::find(data, IFLA_BR_FORWARD_DELAY), 0) != 0;
    return waits ? "bridge with forward delay" : "bridge";
}

// Of those that bear names as the daemon gives them, and the ports of the processor; what else there is, is
// others'. So are PPP links, which have the names of their WANs.
std::string kind_of(const std::string &name, const nlattr *info, const std::string &lower)
{
    const std::string kind = text_in(netlink::find(info, IFLA_INFO_KIND));
    const nlattr *data = netlink::find(info, IFLA_INFO_DATA);
    if (name == "eth0" || name == "eth1") {
        return "port";
    }
    if (kind == "ppp" || (!is_bridge_name(name) && !is_vlan_name(name))) {
        return "";
    }
    if (kind == "vlan" && is_vlan_name(name)) {
        return vlan_kind(name, data, lower);
    }
    return kind == "bridge" && is_bridge_name(name) ? bridge_kind(data) : kind;
}

// A bridge takes the MAC of one of its members, unless another was set. Without members it has none.
void find_own_macs(const System &system, const std::map<std::string, std::set<std::string>> &member_macs,
                   Now &now)
{
    for (const auto &[name, device] : system.devices) {
        const auto members = member_macs.find(name);
        const bool inherited = members != member_macs.end() && members->second.contains(device.mac);
        if (is_bridge_name(name) && !inherited && device.mac != "00:00:00:00:00:00") {
            now.own_macs.insert(name);
        }
    }
}

int read_devices(System &system, Names &names, Now &now)
{
    int error = each<ifinfomsg>(RTM_GETLINK, RTM_NEWLINK, [&](const ifinfomsg &body, const auto &find) {
        names[static_cast<uint32_t>(body.ifi_index)] = text_in(find(IFLA_IFNAME));
    });
    if (error != 0) {
        return error;
    }
    system.devices.clear();
    std::map<std::string, std::set<std::string>> member_macs;
    error = each<ifinfomsg>(RTM_GETLINK, RTM_NEWLINK, [&](const ifinfomsg &body, const auto &find) {
        const std::string name = text_in(find(IFLA_IFNAME));
        const std::string bridge = names[netlink::value_u32(find(IFLA_MASTER), 0)];
        std::string mac;
        if (const nlattr *found = find(IFLA_ADDRESS);
            found != nullptr && mnl_attr_get_payload_len(found) == 6) {
            mac = mac_text(static_cast<const uint8_t *>(mnl_attr_get_payload(found)));
        }
        member_macs[bridge].insert(mac);
        const std::string kind =
            kind_of(name, find(IFLA_LINKINFO), names[netlink::value_u32(find(IFLA_LINK), 0)]);
        if (kind.empty()) {
            return;
        }
        system.devices[name] = {kind, bridge, mac, {}, {}, (body.ifi_flags & IFF_UP) != 0};
    });
    find_own_macs(system, member_macs, now);
    return error;
}

int read_addresses(System &system, Names &names)
{
    return each<ifaddrmsg>(RTM_GETADDR, RTM_NEWADDR, [&](const ifaddrmsg &body, const auto &find) {
        const auto found = system.devices.find(names[body.ifa_index]);
        if (found != system.devices.end() && found->second.address.empty()) {
            found->second.address = dotted(netlink::value_u32(find(IFA_LOCAL), 0));
            found->second.mask = mask_of(body.ifa_prefixlen);
        }
    });
}

int read_routes(System &system, Names &names, Now &now)
{
    return each<rtmsg>(RTM_GETROUTE, RTM_NEWROUTE, [&](const rtmsg &body, const auto &find) {
        const uint32_t table = netlink::value_u32(find(RTA_TABLE), body.rtm_table);
        const std::string gateway = dotted(netlink::value_u32(find(RTA_GATEWAY), 0));
        if (body.rtm_type != RTN_UNICAST || find(RTA_GATEWAY) == nullptr) {
            return;
        }
        if (table == daemon_table) {
            const std::string route = std::to_string(table) + " " +
                                      dotted(netlink::value_u32(find(RTA_DST), 0)) + "/" +
                                      mask_of(body.rtm_dst_len) + " via " + gateway + " metric " +
                                      std::to_string(netlink::value_u32(find(RTA_PRIORITY), 0));
            system.route_add(route);
            now.route_devices[route] = names[netlink::value_u32(find(RTA_OIF), 0)];
        } else if (table >= first_wan_table && table <= last_wan_table && body.rtm_dst_len == 0) {
            system.gateways[{static_cast<int>(table), names[netlink::value_u32(find(RTA_OIF), 0)]}] = gateway;
        }
    });
}

// A rule does not say whose it is: it is of each WAN that has a route in its table.
int read_rules(System &system, Now &now)
{
    return each<fib_rule_hdr>(RTM_GETRULE, RTM_NEWRULE, [&](const fib_rule_hdr &body, const auto &find) {
        const uint32_t number = netlink::value_u32(find(FRA_PRIORITY), 0);
        const uint32_t table = netlink::value_u32(find(FRA_TABLE), body.table);
        if (number == daemon_table) {
            system.rule_add(static_cast<int>(number), "lookup " + std::to_string(table));
        } else if (number == connected_rule) {
            now.rules.insert(number);
        } else if (number == table && number >= first_wan_table && number <= last_wan_table) {
            now.rules.insert(number);
            for (const auto &[key, gateway] : system.gateways) {
                if (key.first == static_cast<int>(number)) {
                    system.policies.try_emplace(key);
                }
            }
        }
    });
}

} // namespace

bool is_of_the_daemon(const std::string &kind)
{
    return kind.starts_with("bridge") || kind.starts_with("vlan");
}

int read_kernel(System &system, Now &now)
{
    Names names;
    int error = read_devices(system, names, now);
    error = error != 0 ? error : read_addresses(system, names);
    error = error != 0 ? error : read_routes(system, names, now);
    return error != 0 ? error : read_rules(system, now);
}

} // namespace seam::plan
