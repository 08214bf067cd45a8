// Devices with their counters and addresses, routes and rules, by the routing socket.

#include "facts/router.h"
#include "libsys/netlink.h"
#include "processes.h"

#include <arpa/inet.h>
#include <cstring>
#include <linux/fib_rules.h>
#include <linux/if_link.h>
#include <net/if.h>

namespace ctl {

namespace {

namespace netlink = libsys::netlink;

// Visits each answer with its body and a way to find its attributes.
template <class Body, class Visit> bool each_answer(uint16_t question, uint16_t kind, Visit visit)
{
    netlink::request request(question, NLM_F_DUMP);
    // Every one of these begins with its family.
    *reinterpret_cast<uint8_t *>(request.body<Body>()) = kind == RTM_NEWLINK ? AF_UNSPEC : AF_INET;
    netlink::reply answer;
    if (netlink::exchange(request, &answer) != 0) {
        return false;
    }
    answer.each<Body>(kind, [&](const nlmsghdr &message, const Body &body) {
        visit(body, [&](uint16_t type) { return netlink::find(message, sizeof(body), type); });
    });
    return true;
}

struct device_name {
    char text[IF_NAMESIZE];

    explicit device_name(uint32_t index)
    {
        if (index == 0 || if_indextoname(index, text) == nullptr) {
            text[0] = '\0';
        }
    }
};

void put_device(json_object *into, const char *key, const nlattr *index)
{
    const device_name name(netlink::value_u32(index, 0));
    if (name.text[0] != '\0') {
        put(into, key, name.text);
    }
}

struct dotted {
    char text[INET_ADDRSTRLEN + 4];

    explicit dotted(uint32_t in_network_order) { inet_ntop(AF_INET, &in_network_order, text, sizeof(text)); }
    dotted(uint32_t in_network_order, unsigned prefix) : dotted(in_network_order)
    {
        const size_t length = strlen(text);
        snprintf(text + length, sizeof(text) - length, "/%u", prefix);
    }
};

void put_counters(json_object *made, const nlattr *attribute)
{
    rtnl_link_stats64 stats = {};
    if (attribute == nullptr || mnl_attr_get_payload_len(attribute) < sizeof(uint64_t) * 8) {
        return;
    }
    const size_t size = mnl_attr_get_payload_len(attribute);
    memcpy(&stats, mnl_attr_get_payload(attribute), size < sizeof(stats) ? size : sizeof(stats));
    const struct {
        const char *key;
        uint64_t value;
    } counters[] = {{"rx_bytes", stats.rx_bytes},     {"tx_bytes", stats.tx_bytes},
                    {"rx_packets", stats.rx_packets}, {"tx_packets", stats.tx_packets},
                    {"rx_errors", stats.rx_errors},   {"tx_errors", stats.tx_errors},
                    {"rx_dropped", stats.rx_dropped}, {"tx_dropped", stats.tx_dropped}};
    for (const auto &[key, value] : counters) {
        json_object_object_add(made, key, json_object_new_uint64(value));
    }
}

void put_mac(json_object *made, const nlattr *attribute)
{
    if (attribute != nullptr && mnl_attr_get_payload_len(attribute) == 6) {
        const auto *mac = static_cast<const uint8_t *>(mnl_attr_get_payload(attribute));
        char text[18];
        snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4],
                 mac[5]);
        put(made, "mac", text);
    }
}

bool add_devices(json_object *facts)
{
    json_object *devices = put_list(facts, "devices");
    const bool read = each_answer<ifinfomsg>(
        RTM_GETLINK, RTM_NEWLINK, [&](const ifinfomsg &body, const auto &find_attribute) {
            json_object *made = append_table(devices);
            char text[64];
            netlink::value_text(find_attribute(IFLA_IFNAME), text, sizeof(text));
            put(made, "name", text);
            const nlattr *info = find_attribute(IFLA_LINKINFO);
            netlink::value_text(info != nullptr ? netlink::find(info, IFLA_INFO_KIND) : nullptr, text,
                                sizeof(text));
            put(made, "kind", text);
            put_flag(made, "up", (body.ifi_flags & IFF_UP) != 0);
            put_flag(made, "carrier", (body.ifi_flags & IFF_RUNNING) != 0);
            put_mac(made, find_attribute(IFLA_ADDRESS));
            put_device(made, "bridge", find_attribute(IFLA_MASTER));
            put_device(made, "lower", find_attribute(IFLA_LINK));
            put_list(made, "addresses");
            put_counters(made, find_attribute(IFLA_STATS64));
        });
    if (!read) {
        json_object_object_del(facts, "devices");
    }
    return read;
}

bool add_addresses(json_object *devices)
{
    return each_answer<ifaddrmsg>(
        RTM_GETADDR, RTM_NEWADDR, [&](const ifaddrmsg &body, const auto &find_attribute) {
            const device_name name(body.ifa_index);
            const dotted address(netlink::value_u32(find_attribute(IFA_LOCAL), 0), body.ifa_prefixlen);
            if (json_object *device = find(devices, "name", name.text)) {
                append(get(device, "addresses"), address.text);
            }
        });
}

bool add_routes(json_object *facts)
{
    json_object *routes = put_list(facts, "routes");
    const bool read =
        each_answer<rtmsg>(RTM_GETROUTE, RTM_NEWROUTE, [&](const rtmsg &body, const auto &find_attribute) {
            const uint32_t in = netlink::value_u32(find_attribute(RTA_TABLE), body.rtm_table);
            if (body.rtm_type != RTN_UNICAST || in == RT_TABLE_LOCAL ||
                (body.rtm_flags & RTM_F_CLONED) != 0) {
                return;
            }
            json_object *made = append_table(routes);
            put_number(made, "table", in);
            put(made, "destination",
                dotted(netlink::value_u32(find_attribute(RTA_DST), 0), body.rtm_dst_len).text);
            if (const nlattr *gateway = find_attribute(RTA_GATEWAY)) {
                put(made, "gateway", dotted(netlink::value_u32(gateway, 0)).text);
            }
            put_device(made, "device", find_attribute(RTA_OIF));
            put_number(made, "metric", netlink::value_u32(find_attribute(RTA_PRIORITY), 0));
        });
    if (!read) {
        json_object_object_del(facts, "routes");
    }
    return read;
}

bool add_rules(json_object *facts)
{
    json_object *rules = put_list(facts, "rules");
    const bool read = each_answer<fib_rule_hdr>(
        RTM_GETRULE, RTM_NEWRULE, [&](const fib_rule_hdr &body, const auto &find_attribute) {
            json_object *made = append_table(rules);
            put_number(made, "preference", netlink::value_u32(find_attribute(FRA_PRIORITY), 0));
            put_number(made, "table", netlink::value_u32(find_attribute(FRA_TABLE), body.table));
        });
    if (!read) {
        json_object_object_del(facts, "rules");
    }
    return read;
}

} // namespace

void add_kernel(json_object *facts)
{
    if (!add_devices(facts) || !add_addresses(get(facts, "devices")) || !add_routes(facts) ||
        !add_rules(facts)) {
        note_unread(facts, "the kernel's devices and routes: %s", strerror(errno));
    }
    char forwarding[16];
    read_small_file("/proc/sys/net/ipv4/ip_forward", forwarding, sizeof(forwarding));
    if (forwarding[0] != '\0') {
        put_flag(facts, "forwarding", forwarding[0] != '0');
    }
}

} // namespace ctl
