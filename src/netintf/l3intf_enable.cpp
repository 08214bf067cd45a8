// Bus method "enable": switches interfaces on or off, in the order given, up to the first that fails.
//
// The link of the first name's port decides for all names: without link, "on" lowers the device too, and the
// port's next link event raises it.

#include "core/arguments.h"
#include "core/bus_handlers.h"
#include "core/log.h"
#include "netintf/wan.h"
#include "platform/netdev.h"

namespace {

constexpr int enable_capacity = 16;

bus_status protocol_on(const netintf_entry *entry)
{
    if (entry->proto == proto_static && entry->intf_type == intf_type_wan) {
        netlib_intf_plcrt_del(entry->name, entry->defrt_pri);
        if (entry->gateway != 0) {
            netintf_wan_gateway_add(entry);
            netintf_wan_rule_add(entry);
        }
    } else if (entry->proto == proto_dhcp && netintf_dhcp_client_renew(entry) != rv_ok) {
        return status_invalid_command;
    }
    return status_ok;
}

bus_status protocol_off(const netintf_entry *entry)
{
    if (entry->proto == proto_static && entry->intf_type == intf_type_wan) {
        netlib_intf_plcrt_del(entry->name, entry->defrt_pri);
    } else if (entry->proto == proto_dhcp) {
        if (netlib_intf_set_ip(entry->name, address_any) != 0) {
            return handed_through(rv_device);
        }
        return handed_through(netintf_dhcp_client_release(entry));
    }
    return status_ok;
}

bus_status intf_enable(const char *name, uint32_t enable, uint32_t link)
{
    netintf_entry *entry = netintf_entry_find_byname(name);
    if (entry == nullptr) {
        // The misspelling is part of the text: log watchers look for it.
        NET_ERROR("vlan enalbe get intf name error,intf=%s\n", name);
        return status_invalid_argument;
    }
    const bool on = enable != 0 && link != 0;
    if ((on ? netintf_intf_up(entry) : netintf_intf_down(entry)) != 0) {
        NET_ERROR("%s enable failed\n", name);
        return status_invalid_command;
    }
    entry->enable = enable;
    if (const bus_status status = on ? protocol_on(entry) : protocol_off(entry); status != status_ok) {
        return status;
    }
    NET_INFO(" intf=%s enable=%d success\n", name, enable);
    return status_ok;
}

} // namespace

int netintf_ubus_l3intf_enable(struct ubus_context *, struct ubus_object *, struct ubus_request_data *,
                               const char *, struct blob_attr *msg)
{
    arguments args(intf_enable_policy, msg);
    if (args[intf_enable_value] == nullptr) {
        NET_ERROR("intf enable enable param error,%p\n", static_cast<void *>(args[intf_enable_value]));
        return status_invalid_argument;
    }
    name_list<enable_capacity> names;
    if (names.read(args[intf_enable_names]) != 0) {
        NET_ERROR("intf enable pool get strlist error,%p\n", static_cast<void *>(args[intf_enable_names]));
        return status_invalid_argument;
    }
    uint32_t link = 0;
    if (netintf_link_get_byname(names.first(), &link) != rv_ok) {
        // Nothing is switched, and the answer is success on purpose: callers expect no status here.
        NET_ERROR("port link get error\r\n");
        return status_ok;
    }
    const uint32_t enable = blobmsg_get_u32(args[intf_enable_value]);
    for (const char *name : names) {
        if (const bus_status status = intf_enable(name, enable, link); status != status_ok) {
            return status;
        }
    }
    return status_ok;
}
