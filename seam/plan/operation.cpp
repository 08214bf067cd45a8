#include "plan/operation.h"

#include "text.h"

#include <algorithm>
#include <cstdlib>

namespace seam::plan {

namespace {

constexpr const char *masked = "(password)";
constexpr unsigned phy_power_down = 0x0800;

// {0} stands for the first argument.
struct Row {
    const char *call;
    Area area;
    const char *words;
};

constexpr Row rows[] = {
    {"netilib_vintf_create", Area::kernel, "create VLAN device {0}.{1}"},
    {"netlib_vintf_delete", Area::kernel, "delete device {0}"},
    {"netlib_eth_mac_set", Area::kernel, "{0}: MAC {1}"},
    {"netlib_eth_intf_up", Area::kernel, "{0}: up"},
    {"netlib_eth_intf_down", Area::kernel, "{0}: down"},
    {"netlib_br_create", Area::kernel, "create bridge {0}"},
    {"netlib_br_delete", Area::kernel, "delete bridge {0}"},
    {"netlib_br_addif", Area::kernel, "bridge {0}: member {1} joins"},
    {"netlib_br_delif", Area::kernel, "bridge {0}: member {1} leaves"},
    {"netlib_intf_set_ip", Area::kernel, "{0}: address {1}"},
    {"netlib_intf_set_netmask", Area::kernel, "{0}: netmask {1}"},
    {"netlib_intf_gateway_add", Area::kernel, "route default via {1} dev {2}, table {0}"},
    {"netlib_intf_gateway_del", Area::kernel, "delete route default via {1} dev {2}, table {0}"},
    {"netlib_intf_plcrt_add", Area::kernel, "rule {1}: WAN {0} looks up table {1}"},
    {"netlib_intf_plcrt_del", Area::kernel, "delete rule {1} of WAN {0}"},
    {"netlib_rt_add_gw", Area::kernel, "route {1}/{2} via {3}, metric {5}, table {0}"},
    {"netlib_rt_del_gw", Area::kernel, "delete route {1}/{2} via {3}, metric {5}, table {0}"},
    {"netlib_ip_rule_add", Area::kernel, "rule {0}: {1}"},
    {"netlib_ip_rule_del", Area::kernel, "delete rule {0}"},
    {"iptlib_chain_new", Area::firewall, "{0}: new chain {1}"},
    {"iptlib_rule_append", Area::firewall, "{0}: {1} gets {2}"},
    {"iptlib_rules_flush", Area::firewall, "{0}: empty chain {1}"},
    {"cmdlib_procd_start_inst", Area::clients, "start {0} client of {1}: {2}"},
    {"cmdlib_procd_del_inst", Area::clients, "stop {0} client of {1}"},
    {"cmdlib_kill_processes", Area::clients, "end all clients"},
    {"kill", Area::clients, "signal {1} to process {0}"},
    {"netlib_waninfo_db_insert", Area::files, "row of {0}: {1}, address {2}, netmask {3}, gateway {4}"},
    {"netlib_waninfo_db_update", Area::files, "row of {0}: {1}, address {2}, netmask {3}, gateway {4}"},
    {"netlib_waninfo_db_del_byname", Area::files, "delete row of {0}"},
    {"cslib_entry_add", Area::files, "account {0} of provider {1}, address {3}"},
    {"cslib_entry_del", Area::files, "delete account {0} of provider {1}"},
    {"sqlite3_db_open", Area::files, "open database {0}"},
    {"sqlite3_db_execsql", Area::files, "database: {1}"},
    {"ubuslib_task_status_wait", Area::bus, "wait until {0} answers, at most {1} s"},
    {"ubuslib_invoke_init", Area::bus, "offer {1}"},
    {"ubuslib_invoke_call", Area::bus, "call {0} {1}"},
    {"switch_write", Area::hardware, "register {0} = {1}"},
    {"mtklib_cpu_reg_wr", Area::hardware, "register at {0} = {1}"},
    {"sleep", Area::time, "wait {0} s"},
    {"usleep", Area::time, "wait {0} us"},
};

std::string filled(const char *pattern, const TraceCall &call)
{
    std::string out;
    for (const char *at = pattern; *at != '\0'; ++at) {
        if (at[0] == '{' && at[1] != '\0' && at[2] == '}') {
            out += call.argument(static_cast<size_t>(at[1] - '0'));
            at += 2;
        } else {
            out += *at;
        }
    }
    return out;
}

// Of clients' command lines. A password may hold blanks and quotes, so what is known to follow ends it.
std::string hide_password(std::string text)
{
    constexpr std::string_view option = " password ";
    for (size_t at = 0; (at = text.find(option, at)) != text.npos;) {
        at += option.size();
        const size_t end = std::min(text.find(" mtu ", at), text.size());
        text.replace(at, end - at, masked);
    }
    return text;
}

std::string phy_words(const TraceCall &call)
{
    const auto value = static_cast<unsigned>(std::strtoul(call.argument(2).c_str(), nullptr, 16));
    const bool control = call.argument(1) == "0";
    return "port " + call.argument(0) + ": PHY " +
           (control ? (value & phy_power_down) != 0 ? "off" : "on, finds its mode"
                    : "register " + call.argument(1) + " = " + call.argument(2));
}

// A command line of iptables, in the words of the calls that do the same.
std::string iptables_words(const std::string &line)
{
    std::vector<std::string> all = words(line);
    std::string table = "filter";
    if (all.size() > 2 && all[1] == "-t") {
        table = all[2];
        all.erase(all.begin() + 1, all.begin() + 3);
    }
    if (all.size() == 3 && all[1] == "-N") {
        return table + ": new chain " + all[2];
    }
    if (all.size() < 4 || all[1] != "-A") {
        return line;
    }
    std::string rule;
    for (size_t i = 3; i < all.size(); ++i) {
        rule += " " + all[i];
    }
    return table + ": " + all[2] + " gets" + rule;
}

} // namespace

const char *name_of(Area area)
{
    switch (area) {
    case Area::kernel:
        return "kernel";
    case Area::hardware:
        return "switch";
    case Area::firewall:
        return "firewall";
    case Area::clients:
        return "clients";
    case Area::files:
        return "files";
    case Area::bus:
        return "bus";
    case Area::time:
        break;
    }
    return "time";
}

std::optional<Operation> operation_of(const TraceCall &call)
{
    const long result = call.result.value_or(0);
    if (call.name == "phy_write") {
        return Operation{Area::hardware, phy_words(call), call.name, result, {}};
    }
    if (call.name == "cmdlib_do_iptables_cmd") {
        return Operation{Area::firewall, iptables_words(call.argument(0)), call.name, result, {}};
    }
    const auto *row =
        std::find_if(std::begin(rows), std::end(rows), [&](const Row &one) { return call.name == one.call; });
    if (row == std::end(rows)) {
        return {};
    }
    return Operation{row->area, hide_password(filled(row->words, call)), call.name, result, {}};
}

std::string without_password(const std::string &fact)
{
    constexpr std::string_view secret = "secret ";
    if (!fact.starts_with(secret)) {
        return hide_password(fact);
    }
    // A secret's value is the password and the address.
    const size_t at = fact.find(" = ");
    return at == fact.npos ? fact : fact.substr(0, at + 3) + masked + fact.substr(fact.rfind(' '));
}

} // namespace seam::plan
