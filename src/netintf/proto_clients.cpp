// The two protocols that run as supervised clients: their command lines, starts and stops.

#include "core/log.h"
#include "core/result.h"
#include "netintf/bridge.h"
#include "netintf/proto.h"
#include "platform/command.h"
#include "platform/netdev.h"

#include <signal.h>
#include <sys/types.h>

namespace {

constexpr const char *dhcp_service = "dhcp";
constexpr const char *pppoe_service = "pppoe";
constexpr size_t pid_file_size = 64;

// An option with a value, in two parts; both empty when the value is not given.
struct option_item {
    const char *option;
    const char *value;
};

option_item item_of(const char *option, const char *value)
{
    return value != nullptr ? option_item{option, value} : option_item{"", ""};
}

void pid_file_path(const netintf_entry *entry, char (&path)[pid_file_size])
{
    text_format(path, sizeof(path), "/var/run/udhcpc-%s.pid", entry->name);
}

// 0, or the result of the failing pid lookup.
int client_signal(const netintf_entry *entry, int number)
{
    char pid_file[pid_file_size];
    pid_file_path(entry, pid_file);
    int pid = 0;
    if (const int rv = cmdlib_get_proc_id(pid_file, &pid); rv != 0) {
        return rv;
    }
    kill(pid, number);
    return rv_ok;
}

} // namespace

int netintf_proto_config_dhcp(netintf_entry *entry)
{
    char pid_file[pid_file_size];
    pid_file_path(entry, pid_file);
    char line[256];
    // The doubled blank is part of the line.
    text_format(line, sizeof(line), "/sbin/udhcpc  -t 0 -i %s -s /lib/ivarode/empty.sh -C -p %s -f -m %d",
                entry->name, pid_file, entry->defrt_pri);
    const int rv = cmdlib_procd_start_inst(dhcp_service, entry->name, line, 0);
    if (rv == 0) {
        entry->proto = proto_dhcp;
    }
    return rv;
}

int netintf_proto_config_pppoe(netintf_entry *entry, uint32_t start_count, const char *service,
                               const char *user, const char *password)
{
    char device[name_size];
    char nic[name_size];
    netintf_bridge_name(device, sizeof(device), entry->name, proto_pppoe);
    text_format(nic, sizeof(nic), "nic-%s", device);
    const option_item user_item = item_of("user ", user);
    const option_item password_item = item_of("password ", password);
    const option_item service_item = item_of("rp_pppoe_service ", service);
    for (uint32_t started = 0; started != start_count; ++started) {
        // Each item is followed by one blank. Some items hold blanks themselves and a missing one is empty:
        // the runs of blanks are part of the line.
        char line[512];
        text_format(
            line, sizeof(line),
            "/usr/sbin/pppd nodetach ipparam 'pppoec,%d' ifname %s  +ipv6  nodefaultroute  usepeerdns  "
            "persist  maxfail  0 %s%s %s%s mtu 1492 mru 1492 plugin  rp-pppoe.so %s%s %s ",
            entry->defrt_pri, entry->name, user_item.option, user_item.value, password_item.option,
            password_item.value, service_item.option, service_item.value, nic);
        NET_INFO("%s %d cmd_line=%s\n", __func__, 920, line);
        if (const int rv = cmdlib_procd_start_inst(pppoe_service, entry->name, line, 0); rv != 0) {
            NET_ERROR("start process failed\n");
            return rv;
        }
    }
    entry->proto = proto_pppoe;
    return rv_ok;
}

int netintf_proto_dhcp_stop(netintf_entry *entry)
{
    if (netintf_proto_static_stop(entry) != rv_ok) {
        return rv_fail;
    }
    cmdlib_procd_del_inst(dhcp_service, entry->name);
    return rv_ok;
}

int netintf_proto_pppoe_stop(netintf_entry *entry)
{
    cmdlib_procd_del_inst(pppoe_service, entry->name);
    return rv_ok;
}

int netintf_dhcp_client_renew(const netintf_entry *entry)
{
    if (client_signal(entry, SIGUSR1) != 0) {
        NET_ERROR("intf up dhcp pid get error\n");
        return rv_proto;
    }
    return rv_ok;
}

int netintf_dhcp_client_release(const netintf_entry *entry)
{
    if (const int rv = client_signal(entry, SIGUSR2); rv != 0) {
        NET_ERROR("intf down dhcp pid get error,rv=%d\n", rv);
        return rv_proto;
    }
    return rv_ok;
}
