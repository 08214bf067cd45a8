// Devices, bridges, addresses, WAN routing, routes, rules and the WAN information rows.

#include "platform/netdev.h"

#include "call.h"
#include "model.h"

#include <array>

using namespace recorder;

namespace {

// What a device without a MAC of its own answers with.
constexpr uint8_t own_mac[6] = {0x0a, 0, 0, 0, 0, 0x01};
// The tables and rule numbers that the platform leaves to WANs.
constexpr int first_wan_table = 10002;
constexpr int last_wan_table = 32765;

bool wan_table(int number)
{
    return number >= first_wan_table && number <= last_wan_table;
}

// A WAN's row in the database, without its name.
using Row = std::array<const char *, 6>;

Call row_call(std::string_view function, const char *name, const Row &row, const void *site)
{
    Call call(function, Call::Kind::action, site);
    call.text(name);
    for (const char *column : row) {
        call.text(column);
    }
    return call;
}

std::string row_text(const Row &row)
{
    std::string out;
    const char *between = "";
    for (const char *column : row) {
        out += between;
        between = " ";
        out += column == nullptr ? "-" : column;
    }
    return out;
}

struct Route {
    uint32_t table;
    const char *dst;
    const char *mask;
    const char *gw;
    const char *dev;
    int metric;
};

Call route_call(std::string_view function, const Route &route, const void *site)
{
    return Call(function, Call::Kind::action, site)
        .number(route.table)
        .text(route.dst)
        .text(route.mask)
        .text(route.gw)
        .text(route.dev)
        .number(route.metric);
}

std::string route_key(const Route &route)
{
    return "route " + std::to_string(route.table) + " " + plain(route.dst) + "/" + plain(route.mask) +
           " via " + plain(route.gw) + (route.dev == nullptr ? "" : " dev " + std::string{route.dev}) +
           " metric " + std::to_string(route.metric);
}

} // namespace

int netilib_vintf_create(const char *master, int vid)
{
    return Call("netilib_vintf_create").text(master).number(vid).act([&] {
        return model.vlan_create(plain(master), vid);
    });
}

int netlib_vintf_delete(const char *name)
{
    return Call("netlib_vintf_delete").text(name).act([&] { return model.device_delete(plain(name)); });
}

int netlib_eth_mac_set(const char *name, const uint8_t *mac)
{
    return Call("netlib_eth_mac_set").text(name).mac(mac).act([&] {
        return model.device_mac_set(plain(name), mac_text(mac));
    });
}

int netlib_eth_mac_get(const char *name, uint8_t *mac)
{
    return Call("netlib_eth_mac_get")
        .text(name)
        .act(
            [&] {
                if (!model.has("device " + plain(name))) {
                    return -1;
                }
                for (int i = 0; i < 6; i++) {
                    mac[i] = own_mac[i];
                }
                const std::string set = model.get("mac " + plain(name));
                if (!set.empty()) {
                    for (int i = 0; i < 6; i++) {
                        mac[i] = static_cast<uint8_t>(
                            std::stoi(set.substr(static_cast<size_t>(i) * 3, 2), nullptr, 16));
                    }
                }
                return 0;
            },
            [&] { return mac_text(mac); });
}

int netlib_eth_intf_up(const char *name)
{
    return Call("netlib_eth_intf_up").text(name).act([&] { return model.device_up(plain(name), true); });
}

int netlib_eth_intf_down(const char *name)
{
    return Call("netlib_eth_intf_down").text(name).act([&] { return model.device_up(plain(name), false); });
}

int netlib_eth_intf_exist(const char *name)
{
    return Call("netlib_eth_intf_exist", Call::Kind::question).text(name).ask([&] {
        return model.has("device " + plain(name)) ? 1 : 0;
    });
}

int netlib_br_create(const char *name)
{
    return Call("netlib_br_create").text(name).act([&] { return model.bridge_create(plain(name)); });
}

int netlib_br_delete(const char *name)
{
    return Call("netlib_br_delete").text(name).act([&] { return model.device_delete(plain(name)); });
}

int netlib_br_addif(const char *br, const char *member)
{
    return Call("netlib_br_addif").text(br).text(member).act([&] {
        return model.bridge_join(plain(br), plain(member));
    });
}

int netlib_br_delif(const char *br, const char *member)
{
    return Call("netlib_br_delif").text(br).text(member).act([&] {
        return model.bridge_leave(plain(br), plain(member));
    });
}

int netlib_intf_set_ip(const char *name, const char *ip)
{
    return Call("netlib_intf_set_ip").text(name).text(ip).act([&] {
        return model.address_set(plain(name), plain(ip));
    });
}

int netlib_intf_set_netmask(const char *name, const char *mask)
{
    return Call("netlib_intf_set_netmask").text(name).text(mask).act([&] {
        return model.netmask_set(plain(name), plain(mask));
    });
}

int netlib_intf_gateway_add(int priority, const char *gateway, const char *name, int priority2)
{
    return Call("netlib_intf_gateway_add")
        .number(priority)
        .text(gateway)
        .text(name)
        .number(priority2)
        .act([&] {
            if (!wan_table(priority) || !model.has("device " + plain(name))) {
                return -1;
            }
            model.set("gateway " + std::to_string(priority) + " " + plain(name), plain(gateway));
            return 0;
        });
}

int netlib_intf_gateway_del(int priority, const char *gateway, const char *name, int priority2)
{
    return Call("netlib_intf_gateway_del")
        .number(priority)
        .text(gateway)
        .text(name)
        .number(priority2)
        .act([&] {
            model.drop("gateway " + std::to_string(priority) + " " + plain(name));
            return 0;
        });
}

int netlib_intf_plcrt_add(const char *name, int priority)
{
    return Call("netlib_intf_plcrt_add").text(name).number(priority).act([&] {
        if (!wan_table(priority)) {
            return -1;
        }
        model.set("policy " + std::to_string(priority) + " " + plain(name));
        return 0;
    });
}

int netlib_intf_plcrt_del(const char *name, int priority)
{
    return Call("netlib_intf_plcrt_del").text(name).number(priority).act([&] {
        model.drop("policy " + std::to_string(priority) + " " + plain(name));
        return 0;
    });
}

int netlib_waninfo_db_insert(const char *name, const char *proto, const char *ipaddr, const char *netmask,
                             const char *gateway, const char *addr4, const char *addr5)
{
    const Row row{proto, ipaddr, netmask, gateway, addr4, addr5};
    return row_call("netlib_waninfo_db_insert", name, row, __builtin_return_address(0)).act([&] {
        model.set("wan " + plain(name), row_text(row));
        return 0;
    });
}

int netlib_waninfo_db_update(const char *name, const char *proto, const char *ipaddr, const char *netmask,
                             const char *gateway, const char *addr4, const char *addr5)
{
    const Row row{proto, ipaddr, netmask, gateway, addr4, addr5};
    return row_call("netlib_waninfo_db_update", name, row, __builtin_return_address(0)).act([&] {
        if (!model.has("wan " + plain(name))) {
            return -1;
        }
        model.set("wan " + plain(name), row_text(row));
        return 0;
    });
}

int netlib_waninfo_db_del_byname(const char *name)
{
    return Call("netlib_waninfo_db_del_byname").text(name).act([&] {
        model.drop("wan " + plain(name));
        return 0;
    });
}

int netlib_rt_add_gw(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev,
                     int metric)
{
    const Route route{table, dst, mask, gw, dev, metric};
    return route_call("netlib_rt_add_gw", route, __builtin_return_address(0)).act([&] {
        model.set(route_key(route));
        return 0;
    });
}

int netlib_rt_del_gw(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev,
                     int metric)
{
    const Route route{table, dst, mask, gw, dev, metric};
    return route_call("netlib_rt_del_gw", route, __builtin_return_address(0)).act([&] {
        const std::string key = route_key(route);
        const int result = model.has(key) ? 0 : -1;
        model.drop(key);
        return result;
    });
}

int netlib_ip_rule_add(uint32_t number, const char *selector)
{
    return Call("netlib_ip_rule_add").number(number).text(selector).act([&] {
        model.set("rule " + std::to_string(number), plain(selector));
        return 0;
    });
}

int netlib_ip_rule_del(uint32_t number)
{
    return Call("netlib_ip_rule_del").number(number).act([&] {
        model.drop("rule " + std::to_string(number));
        return 0;
    });
}
