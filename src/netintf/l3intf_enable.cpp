// Bus method "enable": switches interfaces on or off, in the order given, up to the first that fails.
//
// The link of the first name's port decides for all names: without link, "on" lowers the device too, and the
// port's next link event raises it.

#include "core/bus_handlers.h"
#include "core/log.h"
#include "core/policies.h"
#include "core/result.h"
#include "netintf/proto.h"
#include "netintf/registry.h"
#include "platform/bus.h"
#include "platform/netdev.h"

#include <signal.h>

namespace {

constexpr int enable_capacity = 16;

void static_wan_on(const netintf_entry *entry)
{
    netlib_intf_plcrt_del(entry->name, entry->defrt_pri);
    if (entry->gateway == 0) {
        return;
    }
    char gateway[address_text_size];
    netintf_address_text(entry->gateway, gateway);
    netlib_intf_gateway_add(entry->defrt_pri, gateway, entry->name, entry->defrt_pri);
    if (netlib_intf_plcrt_add(entry->name, entry->defrt_pri) != 0) {
        NET_ERROR("static if plcrt add error\n");
    }
}

int protocol_on(const netintf_entry *entry)
{
    if (entry->proto == proto_static && entry->intf_type == intf_type_wan) {
        static_wan_on(entry);
    } else if (entry->proto == proto_dhcp && netintf_dhcp_client_kill(entry, SIGUSR1) != 0) {
        NET_ERROR("intf up dhcp pid get error\n");
        return status_invalid_command;
    }
    return status_ok;
}

int protocol_off(const netintf_entry *entry)
{
    if (entry->proto == proto_static && entry->intf_type == intf_type_wan) {
        netlib_intf_plcrt_del(entry->name, entry->defrt_pri);
    } else if (entry->proto == proto_dhcp) {
        if (netlib_intf_set_ip(entry->name, "0.0.0.0") != 0) {
            return rv_device;
        }
        if (const int rv = netintf_dhcp_client_kill(entry, SIGUSR2); rv != 0) {
            NET_ERROR("intf down dhcp pid get error,rv=%d\n", rv);
            return rv_proto;
        }
    }
    return status_ok;
}

int intf_enable(const char *name, uint32_t enable, uint32_t link)
{
    netintf_entry *entry = netintf_entry_find_byname(name);
    if (entry == nullptr) {
        NET_ERROR("vlan enalbe get intf name error,intf=%s\n", name);
        return status_invalid_argument;
    }
    const bool on = enable != 0 && link != 0;
    if ((on ? netintf_intf_up(entry) : netintf_intf_down(entry)) != 0) {
        NET_ERROR("%s enable failed\n", name);
        return status_invalid_command;
    }
    entry->enable = enable;
    if (const int status = on ? protocol_on(entry) : protocol_off(entry); status != status_ok) {
        return status;
    }
    NET_INFO(" intf=%s enable=%d success\n", name, enable);
    return status_ok;
}

} // namespace

int netintf_ubus_l3intf_enable(struct ubus_context *, struct ubus_object *, struct ubus_request_data *,
                               const char *, struct blob_attr *msg)
{
    struct blob_attr *fields[intf_enable_policy.count];
    policy_parse(intf_enable_policy, fields, msg);
    if (fields[intf_enable_value] == nullptr) {
        NET_ERROR("intf enable enable param error,%p\n", static_cast<void *>(fields[intf_enable_value]));
        return status_invalid_argument;
    }
    char *names[enable_capacity] = {};
    if (ubuslib_bmsg_strlist_get(fields[intf_enable_names], names, enable_capacity) != 0) {
        NET_ERROR("intf enable pool get strlist error,%p\n", static_cast<void *>(fields[intf_enable_names]));
        return status_invalid_argument;
    }
    uint32_t link = 0;
    if (netintf_link_get_byname(names[0], &link) != rv_ok) {
        NET_ERROR("port link get error\r\n");
        return status_ok;
    }
    const uint32_t enable = blobmsg_get_u32(fields[intf_enable_value]);
    for (const char *name : names) {
        if (name == nullptr) {
            break;
        }
        if (const int status = intf_enable(name, enable, link); status != status_ok) {
            return status;
        }
    }
    return status_ok;
}
