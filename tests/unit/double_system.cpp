// The platform library's calls that change the system: devices, routes, rules, processes, secrets, database.

#include "double.h"
#include "platform/command.h"
#include "platform/netdev.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

using namespace unit;

struct sqlite3 {
    int number;
};

namespace {

sqlite3 database{1};
unsigned databases_open = 0;

Call &texts(Call &call, std::initializer_list<const char *> values)
{
    for (const char *value : values) {
        call.text(value);
    }
    return call;
}

int device_call(const char *name, std::initializer_list<const char *> values)
{
    Call call(name);
    return texts(call, values).result();
}

int gateway_call(const char *function, int priority, const char *gateway, const char *name, int priority2)
{
    return Call(function).number(priority).text(gateway).text(name).number(priority2).result();
}

int route_call(const char *function, uint32_t table, std::initializer_list<const char *> values, int metric)
{
    Call call(function);
    call.number(table);
    return texts(call, values).number(metric).result();
}

std::string chain_key(const char *table, const char *chain)
{
    return std::string{table} + " " + chain;
}

} // namespace

unsigned databases_open_count()
{
    return databases_open;
}

int netilib_vintf_create(const char *master, int vid)
{
    return Call("netilib_vintf_create").text(master).number(vid).result();
}

int netlib_eth_mac_set(const char *name, const uint8_t *mac)
{
    return Call("netlib_eth_mac_set").text(name).mac(mac).result();
}

int netlib_eth_mac_get(const char *name, uint8_t *mac)
{
    const int result = Call("netlib_eth_mac_get").text(name).result();
    if (result == 0) {
        std::copy(world.device_mac.begin(), world.device_mac.end(), mac);
    }
    return result;
}

int netlib_eth_intf_exist(const char *name)
{
    const int result = Call("netlib_eth_intf_exist").text(name).result(world.device_asks > 0 ? 1 : 0);
    world.device_asks--;
    return result;
}

int netlib_vintf_delete(const char *name)
{
    return device_call(__func__, {name});
}

int netlib_eth_intf_up(const char *name)
{
    return device_call(__func__, {name});
}

int netlib_eth_intf_down(const char *name)
{
    return device_call(__func__, {name});
}

int netlib_br_create(const char *name)
{
    return device_call(__func__, {name});
}

int netlib_br_delete(const char *name)
{
    return device_call(__func__, {name});
}

int netlib_br_addif(const char *br, const char *member)
{
    return device_call(__func__, {br, member});
}

int netlib_br_delif(const char *br, const char *member)
{
    return device_call(__func__, {br, member});
}

int netlib_intf_set_ip(const char *name, const char *ip)
{
    return device_call(__func__, {name, ip});
}

int netlib_intf_set_netmask(const char *name, const char *mask)
{
    return device_call(__func__, {name, mask});
}

int netlib_intf_gateway_add(int priority, const char *gateway, const char *name, int priority2)
{
    return gateway_call(__func__, priority, gateway, name, priority2);
}

int netlib_intf_gateway_del(int priority, const char *gateway, const char *name, int priority2)
{
    return gateway_call(__func__, priority, gateway, name, priority2);
}

int netlib_intf_plcrt_add(const char *name, int priority)
{
    return Call(__func__).text(name).number(priority).result();
}

int netlib_intf_plcrt_del(const char *name, int priority)
{
    return Call(__func__).text(name).number(priority).result();
}

int netlib_waninfo_db_insert(const char *name, const char *proto, const char *ipaddr, const char *netmask,
                             const char *gateway, const char *addr4, const char *addr5)
{
    return device_call(__func__, {name, proto, ipaddr, netmask, gateway, addr4, addr5});
}

int netlib_waninfo_db_update(const char *name, const char *proto, const char *ipaddr, const char *netmask,
                             const char *gateway, const char *addr4, const char *addr5)
{
    return device_call(__func__, {name, proto, ipaddr, netmask, gateway, addr4, addr5});
}

int netlib_waninfo_db_del_byname(const char *name)
{
    return device_call(__func__, {name});
}

int netlib_rt_add_gw(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev,
                     int metric)
{
    return route_call(__func__, table, {dst, mask, gw, dev}, metric);
}

int netlib_rt_del_gw(uint32_t table, const char *dst, const char *mask, const char *gw, const char *dev,
                     int metric)
{
    return route_call(__func__, table, {dst, mask, gw, dev}, metric);
}

int netlib_ip_rule_add(uint32_t number, const char *selector)
{
    return Call(__func__).number(number).text(selector).result();
}

int netlib_ip_rule_del(uint32_t number)
{
    return Call(__func__).number(number).result();
}

int iptlib_chain_is_exist(const char *table, const char *chain)
{
    return Call(__func__).text(table).text(chain).result(world.chains.contains(chain_key(table, chain)));
}

int iptlib_rule_is_exist(const char *table, const char *chain, const char *text)
{
    const std::vector<std::string> &rules = world.rules[chain_key(table, chain)];
    const bool found = std::any_of(rules.begin(), rules.end(), [text](const std::string &rule) {
        return rule.find(text) != std::string::npos;
    });
    return Call(__func__).text(table).text(chain).text(text).result(found);
}

int iptlib_chain_new(const char *table, const char *chain)
{
    return device_call(__func__, {table, chain});
}

int iptlib_rule_append(const char *table, const char *chain, const char *rule)
{
    return device_call(__func__, {table, chain, rule});
}

int iptlib_rules_flush(const char *table, const char *chain)
{
    return device_call(__func__, {table, chain});
}

int cmdlib_do_iptables_cmd(const char *fmt, ...)
{
    char line[1024];
    va_list args;
    va_start(args, fmt);
    std::vsnprintf(line, sizeof line, fmt, args);
    va_end(args);
    return device_call(__func__, {line});
}

int cmdlib_procd_start_inst(const char *service, const char *instance, const char *cmdline, int flag)
{
    return Call(__func__).text(service).text(instance).text(cmdline).number(flag).result();
}

int cmdlib_procd_del_inst(const char *service, const char *instance)
{
    return device_call(__func__, {service, instance});
}

int cmdlib_get_proc_id(const char *pidfile, int *pid)
{
    const auto found = world.pids.find(pidfile);
    const int result = Call(__func__).text(pidfile).result(found == world.pids.end() ? -1 : 0);
    if (result == 0) {
        *pid = found->second;
    }
    return result;
}

int cmdlib_kill_processes(void)
{
    return Call(__func__).result();
}

int cslib_entry_add(const char *user, const char *provider, const char *password, const char *ipaddr)
{
    return device_call(__func__, {user, provider, password, ipaddr});
}

int cslib_entry_del(const char *user, const char *provider)
{
    return device_call(__func__, {user, provider});
}

int sqlite3_db_open(const char *path, sqlite3 **db)
{
    const int result = Call(__func__).text(path).result();
    if (result == 0) {
        databases_open++;
        *db = &database;
    }
    return result;
}

int sqlite3_db_execsql(sqlite3 *db, const char *sql)
{
    return Call(__func__).raw(db == &database ? "db" : "?").text(sql).result();
}

int sqlite3_db_colse(sqlite3 *db)
{
    databases_open--;
    return Call(__func__).raw(db == &database ? "db" : "?").result();
}
