// The two protocols that run as supervised clients: their command lines, starts and stops.

#include "core/log.h"
#include "core/result.h"
#include "netintf/bridge.h"
#include "netintf/proto.h"
#include "platform/command.h"
#include "platform/netdev.h"

#include <signal.h>
#include <stdarg.h>
#include <stdio.h>
#include <sys/types.h>

namespace {

constexpr const char *dhcp_service = "dhcp";
constexpr const char *pppoe_service = "pppoe";
constexpr size_t pid_file_size = 64;

// A command line that grows item by item and is cut at its buffer's end.
template <size_t Size> class command_line {
public:
    __attribute__((format(printf, 2, 3))) void add(const char *format, ...)
    {
        va_list args;
        va_start(args, format);
        const int length = vsnprintf(text_ + used_, Size - used_, format, args);
        va_end(args);
        if (length > 0) {
            used_ += static_cast<size_t>(length);
        }
        if (used_ >= Size) {
            used_ = Size - 1;
        }
    }
    // An option with a value, or an empty item where there is none.
    void add_option(const char *option, const char *value)
    {
        if (value != nullptr) {
            add("%s %s", option, value);
        }
        add(" ");
    }
    const char *text() const { return text_; }

private:
    char text_[Size] = {};
    size_t used_ = 0;
};

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
    command_line<256> line;
    // The doubled blank is part of the line.
    line.add("/sbin/udhcpc  -t 0 -i %s -s /lib/ivarode/empty.sh -C -p %s -f -m %d", entry->name, pid_file,
             entry->defrt_pri);
    const int rv = cmdlib_procd_start_inst(dhcp_service, entry->name, line.text(), 0);
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
    for (uint32_t started = 0; started != start_count; ++started) {
        // Each item is followed by one blank. Some items hold blanks themselves and a missing one is empty:
        // the runs of blanks are part of the line.
        command_line<512> line;
        line.add("/usr/sbin/pppd nodetach ipparam 'pppoec,%d' ifname %s ", entry->defrt_pri, entry->name);
        line.add(" +ipv6  nodefaultroute  usepeerdns  persist  maxfail  0 ");
        line.add_option("user", user);
        line.add_option("password", password);
        line.add("mtu 1492 mru 1492 plugin  rp-pppoe.so ");
        line.add_option("rp_pppoe_service", service);
        line.add("%s ", nic);
        NET_INFO("%s %d cmd_line=%s\n", __func__, 920, line.text());
        if (const int rv = cmdlib_procd_start_inst(pppoe_service, entry->name, line.text(), 0); rv != 0) {
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
