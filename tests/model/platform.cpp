// The platform library's calls that change the system, answered by the kernel below the daemon.

#include "platform.h"

#include "double.h"
#include "platform/command.h"
#include "platform/netdev.h"

#include <algorithm>

namespace {

std::string shown(const char *value)
{
    return value == nullptr ? "(none)" : value;
}

} // namespace

namespace model {

Kernel below;

} // namespace model

using model::below;

// Of this double's databases none is ever opened.
unsigned databases_open_count()
{
    return 0;
}

int netilib_vintf_create(const char *master, int vid)
{
    return below.vlan_create(master, vid);
}

int netlib_vintf_delete(const char *name)
{
    return below.vlan_delete(name);
}

int netlib_eth_mac_set(const char *name, const uint8_t *mac)
{
    model::Mac copy;
    std::copy_n(mac, copy.size(), copy.begin());
    return below.mac_set(name, copy);
}

int netlib_eth_mac_get(const char *name, uint8_t *mac)
{
    model::Mac copy{};
    const int result = below.mac_get(name, copy);
    if (result == 0) {
        std::copy(copy.begin(), copy.end(), mac);
    }
    return result;
}

int netlib_eth_intf_exist(const char *name)
{
    return below.exists(name) ? 1 : 0;
}

int netlib_eth_intf_up(const char *name)
{
    return below.up(name);
}

int netlib_eth_intf_down(const char *name)
{
    return below.down(name);
}

int netlib_br_create(const char *name)
{
    return below.bridge_create(name);
}

int netlib_br_delete(const char *name)
{
    return below.bridge_delete(name);
}

int netlib_br_addif(const char *br, const char *member)
{
    return below.bridge_join(br, member);
}

int netlib_br_delif(const char *br, const char *member)
{
    return below.bridge_leave(br, member);
}

int netlib_intf_set_ip(const char *name, const char *ip)
{
    return below.address_set(name, ip);
}

int netlib_intf_set_netmask(const char *name, const char *mask)
{
    return below.mask_set(name, mask);
}

int netlib_intf_gateway_add(int priority, const char *gateway, const char *name, int)
{
    return below.gateway_add(priority, gateway, name);
}

int netlib_intf_gateway_del(int priority, const char *gateway, const char *name, int)
{
    return below.gateway_del(priority, gateway, name);
}

int netlib_intf_plcrt_add(const char *name, int priority)
{
    return below.rule_add(name, priority);
}

int netlib_intf_plcrt_del(const char *name, int priority)
{
    return below.rule_del(name, priority);
}

int netlib_waninfo_db_insert(const char *name, const char *proto, const char *ipaddr, const char *netmask,
                             const char *gateway, const char *addr4, const char *addr5)
{
    return below.row_insert(
        {name, proto, shown(ipaddr), shown(netmask), shown(gateway), shown(addr4), shown(addr5)});
}

int netlib_waninfo_db_update(const char *name, const char *proto, const char *ipaddr, const char *netmask,
                             const char *gateway, const char *addr4, const char *addr5)
{
    return netlib_waninfo_db_insert(name, proto, ipaddr, netmask, gateway, addr4, addr5);
}

int netlib_waninfo_db_del_byname(const char *name)
{
    return below.row_delete(name);
}

int cmdlib_procd_start_inst(const char *service, const char *instance, const char *cmdline, int)
{
    return below.client_start(service, instance, cmdline);
}

int cmdlib_procd_del_inst(const char *service, const char *instance)
{
    return below.client_stop(service, instance);
}

int cmdlib_get_proc_id(const char *pidfile, int *pid)
{
    return below.client_pid(pidfile, *pid);
}

// Routes, firewall, secrets and databases take no part in this; each call fails where a test would see it.

int cmdlib_kill_processes(void)
{
    return unit::Call(__func__).result();
}

int netlib_rt_add_gw(uint32_t, const char *, const char *, const char *, const char *, int)
{
    return -1;
}

int netlib_rt_del_gw(uint32_t, const char *, const char *, const char *, const char *, int)
{
    return -1;
}

int netlib_ip_rule_add(uint32_t, const char *)
{
    return -1;
}

int netlib_ip_rule_del(uint32_t)
{
    return -1;
}

int iptlib_chain_is_exist(const char *, const char *)
{
    return -1;
}

int iptlib_rule_is_exist(const char *, const char *, const char *)
{
    return -1;
}

int iptlib_chain_new(const char *, const char *)
{
    return -1;
}

int iptlib_rule_append(const char *, const char *, const char *)
{
    return -1;
}

int iptlib_rules_flush(const char *, const char *)
{
    return -1;
}

int cmdlib_do_iptables_cmd(const char *, ...)
{
    return -1;
}

int cslib_entry_add(const char *, const char *, const char *, const char *)
{
    return -1;
}

int cslib_entry_del(const char *, const char *)
{
    return -1;
}

int sqlite3_db_open(const char *, sqlite3 **)
{
    return -1;
}

int sqlite3_db_execsql(sqlite3 *, const char *)
{
    return -1;
}

int sqlite3_db_colse(sqlite3 *)
{
    return -1;
}
