// Devices, bridges, addresses, WAN routing, routes, rules and the WAN information rows.

#include "platform/netdev.h"

#include "described.h"
#include "text.h"

using namespace seam;

int netilib_vintf_create(const char *master, int vid)
{
    return act<netilib_vintf_create, &System::vlan_create>(__func__, master, vid);
}

int netlib_vintf_delete(const char *name)
{
    return act<netlib_vintf_delete, &System::device_delete>(__func__, name);
}

int netlib_eth_mac_set(const char *name, const uint8_t *mac)
{
    return act<netlib_eth_mac_set, &System::mac_set>(__func__, name, MacIn{mac});
}

int netlib_eth_mac_get(const char *name, uint8_t *mac)
{
    return act<netlib_eth_mac_get, &System::mac_get>(__func__, name, MacOut{mac});
}

int netlib_eth_intf_up(const char *name)
{
    return act<netlib_eth_intf_up, &System::up>(__func__, name);
}

int netlib_eth_intf_down(const char *name)
{
    return act<netlib_eth_intf_down, &System::down>(__func__, name);
}

int netlib_eth_intf_exist(const char *name)
{
    return ask<netlib_eth_intf_exist, &System::exists>(__func__, name);
}

int netlib_br_create(const char *name)
{
    return act<netlib_br_create, &System::bridge_create>(__func__, name);
}

int netlib_br_delete(const char *name)
{
    return act<netlib_br_delete, &System::device_delete>(__func__, name);
}

int netlib_br_addif(const char *br, const char *member)
{
    return act<netlib_br_addif, &System::bridge_join>(__func__, br, member);
}

int netlib_br_delif(const char *br, const char *member)
{
    return act<netlib_br_delif, &System::bridge_leave>(__func__, br, member);
}

int netlib_intf_set_ip(const char *name, const char *ip)
{
    return act<netlib_intf_set_ip, &System::address_set>(__func__, name, ip);
}

int netlib_intf_set_netmask(const char *name, const char *mask)
{
    return act<netlib_intf_set_netmask, &System::mask_set>(__func__, name, mask);
}

int netlib_intf_gateway_add(int priority, const char *gateway, const char *name, int priority2)
{
    return act<netlib_intf_gateway_add, &System::gateway_add>(__func__, priority, gateway, name, priority2);
}

int netlib_intf_gateway_del(int priority, const char *gateway, const char *name, int priority2)
{
    return act<netlib_intf_gateway_del, &System::gateway_del>(__func__, priority, gateway, name, priority2);
}

int netlib_intf_plcrt_add(const char *name, int priority)
{
    return act<netlib_intf_plcrt_add, &System::policy_add>(__func__, name, priority);
}

int netlib_intf_plcrt_del(const char *name, int priority)
{
    return act<netlib_intf_plcrt_del, &System::policy_del>(__func__, name, priority);
}

int netlib_waninfo_db_insert(const char *name, const char *proto, const char *ipaddr, const char *netmask,
                             const char *gateway, const char *addr4, const char *addr5)
{
    const auto insert = [&] {
        return world.system.row_insert(plain(name), row_of(proto, ipaddr, netmask, gateway, addr4, addr5));
    };
    return act<netlib_waninfo_db_insert>(__func__, insert, name, proto, ipaddr, netmask, gateway, addr4,
                                         addr5);
}

int netlib_waninfo_db_update(const char *name, const char *proto, const char *ipaddr, const char *netmask,
                             const char *gateway, const char *addr4, const char *addr5)
{
    const auto update = [&] {
        return world.system.row_update(plain(name), row_of(proto, ipaddr, netmask, gateway, addr4, addr5));
    };
    return act<netlib_waninfo_db_update>(__func__, update, name, proto, ipaddr, netmask, gateway, addr4,
                                         addr5);
}

int netlib_waninfo_db_del_byname(const char *name)
{
    return act<netlib_waninfo_db_del_byname, &System::row_delete>(__func__, name);
}

int netlib_rt_add_gw(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev,
                     int metric)
{
    const auto add = [&] { return world.system.route_add(route_of(table, dst, mask, gw, dev, metric)); };
    return act<netlib_rt_add_gw>(__func__, add, table, dst, mask, gw, dev, metric);
}

int netlib_rt_del_gw(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev,
                     int metric)
{
    const auto del = [&] { return world.system.route_del(route_of(table, dst, mask, gw, dev, metric)); };
    return act<netlib_rt_del_gw>(__func__, del, table, dst, mask, gw, dev, metric);
}

int netlib_ip_rule_add(uint32_t number, const char *selector)
{
    return act<netlib_ip_rule_add, &System::rule_add>(__func__, number, selector);
}

int netlib_ip_rule_del(uint32_t number)
{
    return act<netlib_ip_rule_del, &System::rule_del>(__func__, number);
}
