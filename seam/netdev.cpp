// Devices, bridges, addresses, WAN routing, routes, rules and the WAN information rows.

#include "platform/netdev.h"

#include "call.h"

using namespace seam;

namespace {

System::Row row(const char *proto, const char *ipaddr, const char *netmask, const char *gateway,
                const char *addr4, const char *addr5)
{
    const auto column = [](const char *text) { return text == nullptr ? Text{} : Text{text}; };
    return {column(proto), column(ipaddr), column(netmask), column(gateway), column(addr4), column(addr5)};
}

std::string route(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev,
                  int metric)
{
    return std::to_string(table) + " " + plain(dst) + "/" + plain(mask) + " via " + plain(gw) +
           (dev == nullptr ? "" : " dev " + std::string{dev}) + " metric " + std::to_string(metric);
}

} // namespace

int netilib_vintf_create(const char *master, int vid)
{
    return act(__func__, &System::vlan_create, master, vid);
}

int netlib_vintf_delete(const char *name)
{
    return act(__func__, &System::device_delete, name);
}

int netlib_eth_mac_set(const char *name, const uint8_t *mac)
{
    return act(__func__, &System::mac_set, name, MacIn{mac});
}

int netlib_eth_mac_get(const char *name, uint8_t *mac)
{
    return act(__func__, &System::mac_get, name, MacOut{mac});
}

int netlib_eth_intf_up(const char *name)
{
    return act(__func__, &System::up, name);
}

int netlib_eth_intf_down(const char *name)
{
    return act(__func__, &System::down, name);
}

int netlib_eth_intf_exist(const char *name)
{
    return ask(__func__, &System::exists, name);
}

int netlib_br_create(const char *name)
{
    return act(__func__, &System::bridge_create, name);
}

int netlib_br_delete(const char *name)
{
    return act(__func__, &System::device_delete, name);
}

int netlib_br_addif(const char *br, const char *member)
{
    return act(__func__, &System::bridge_join, br, member);
}

int netlib_br_delif(const char *br, const char *member)
{
    return act(__func__, &System::bridge_leave, br, member);
}

int netlib_intf_set_ip(const char *name, const char *ip)
{
    return act(__func__, &System::address_set, name, ip);
}

int netlib_intf_set_netmask(const char *name, const char *mask)
{
    return act(__func__, &System::mask_set, name, mask);
}

int netlib_intf_gateway_add(int priority, const char *gateway, const char *name, int priority2)
{
    return act(__func__, &System::gateway_add, priority, gateway, name, priority2);
}

int netlib_intf_gateway_del(int priority, const char *gateway, const char *name, int priority2)
{
    return act(__func__, &System::gateway_del, priority, gateway, name, priority2);
}

int netlib_intf_plcrt_add(const char *name, int priority)
{
    return act(__func__, &System::policy_add, name, priority);
}

int netlib_intf_plcrt_del(const char *name, int priority)
{
    return act(__func__, &System::policy_del, name, priority);
}

int netlib_waninfo_db_insert(const char *name, const char *proto, const char *ipaddr, const char *netmask,
                             const char *gateway, const char *addr4, const char *addr5)
{
    const auto insert = [&] {
        return world.system.row_insert(plain(name), row(proto, ipaddr, netmask, gateway, addr4, addr5));
    };
    return act(__func__, insert, name, proto, ipaddr, netmask, gateway, addr4, addr5);
}

int netlib_waninfo_db_update(const char *name, const char *proto, const char *ipaddr, const char *netmask,
                             const char *gateway, const char *addr4, const char *addr5)
{
    const auto update = [&] {
        return world.system.row_update(plain(name), row(proto, ipaddr, netmask, gateway, addr4, addr5));
    };
    return act(__func__, update, name, proto, ipaddr, netmask, gateway, addr4, addr5);
}

int netlib_waninfo_db_del_byname(const char *name)
{
    return act(__func__, &System::row_delete, name);
}

int netlib_rt_add_gw(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev,
                     int metric)
{
    const auto add = [&] { return world.system.route_add(route(table, dst, mask, gw, dev, metric)); };
    return act(__func__, add, table, dst, mask, gw, dev, metric);
}

int netlib_rt_del_gw(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev,
                     int metric)
{
    const auto del = [&] { return world.system.route_del(route(table, dst, mask, gw, dev, metric)); };
    return act(__func__, del, table, dst, mask, gw, dev, metric);
}

int netlib_ip_rule_add(uint32_t number, const char *selector)
{
    return act(__func__, &System::rule_add, number, selector);
}

int netlib_ip_rule_del(uint32_t number)
{
    return act(__func__, &System::rule_del, number);
}
