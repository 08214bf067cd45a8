// Network devices, bridges, addresses, routes, policy rules and the WAN information rows.
//
// Addresses are dotted-quad text, MACs 6 bytes. All results: 0 success, non-zero failure, except
// netlib_eth_intf_exist.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// VLAN devices; the device of vid on master is named master.vid.
int netilib_vintf_create(const char *master, int vid);
int netlib_vintf_delete(const char *name);

int netlib_eth_mac_set(const char *name, const uint8_t *mac);
int netlib_eth_mac_get(const char *name, uint8_t *mac);
int netlib_eth_intf_up(const char *name);
int netlib_eth_intf_down(const char *name);
// 0 when the device no longer exists.
int netlib_eth_intf_exist(const char *name);

int netlib_br_create(const char *name);
int netlib_br_delete(const char *name);
int netlib_br_addif(const char *br, const char *member);
int netlib_br_delif(const char *br, const char *member);

// "0.0.0.0" removes the address.
int netlib_intf_set_ip(const char *name, const char *ip);
int netlib_intf_set_netmask(const char *name, const char *mask);

// A WAN's default route; both priorities are the same number, the routing table's.
int netlib_intf_gateway_add(int priority, const char *gateway, const char *name, int priority2);
int netlib_intf_gateway_del(int priority, const char *gateway, const char *name, int priority2);
// A WAN's policy rule at a priority. Within a start (output.h) a removed rule may stay until its end, and one
// that is added again is not touched.
int netlib_intf_plcrt_add(const char *name, int priority);
int netlib_intf_plcrt_del(const char *name, int priority);

// One row for each WAN; an address may be null. Within a start (output.h) an inserted row without any address
// leaves one of the same protocol whose address its device has.
int netlib_waninfo_db_insert(const char *name, const char *proto, const char *ipaddr, const char *netmask,
                             const char *gateway, const char *addr4, const char *addr5);
int netlib_waninfo_db_update(const char *name, const char *proto, const char *ipaddr, const char *netmask,
                             const char *gateway, const char *addr4, const char *addr5);
int netlib_waninfo_db_del_byname(const char *name);

// A gateway route in a table. A null or empty dev: the kernel chooses.
int netlib_rt_add_gw(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev,
                     int metric);
int netlib_rt_del_gw(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev,
                     int metric);

// The policy rule of a number; selector is its action, as in "lookup 10000". Within a start (output.h) as a
// WAN's.
int netlib_ip_rule_add(uint32_t number, const char *selector);
int netlib_ip_rule_del(uint32_t number);

#ifdef __cplusplus
}
#endif
