// Pausing and resuming the interfaces of a port with its link.

#include "board/board_map.h"
#include "core/log.h"
#include "core/result.h"
#include "netintf/bridge.h"
#include "netintf/proto.h"
#include "netintf/wan.h"
#include "platform/netdev.h"

namespace {

// Stores the link in the list head. *followed: whether the port's interfaces follow it; those of LAN 1's port
// never do. 0, or the board lookup's error.
int link_note(netintf_entry *head, uint32_t link, bool *followed)
{
    head->link = link;
    uint32_t lan1_port = 0;
    if (const int rv = netbd_lan_hwport_get(1, &lan1_port); rv != rv_ok) {
        return rv;
    }
    *followed = head->next != head && lan1_port != head->hw_port;
    return rv_ok;
}

int protocol_pause(const netintf_entry *head, netintf_entry *entry)
{
    switch (entry->proto) {
    case proto_static:
        if (head->intf_type == intf_type_wan) {
            netlib_intf_plcrt_del(entry->name, entry->defrt_pri);
        }
        break;
    case proto_dhcp:
        if (const int rv = netlib_intf_set_ip(entry->name, address_any); rv != 0) {
            NET_ERROR("%s %d set ip error,rv=%d\n", "netintf_proto_intf_down", 1026, rv);
            return rv_device;
        }
        return netintf_dhcp_client_release(entry);
    case proto_pppoe: // keeps dialling
        break;
    default:
        NET_WARNING("intf down proto error\n");
        break;
    }
    return rv_ok;
}

void static_resume(const netintf_entry *head, const netintf_entry *entry)
{
    if (head->intf_type != intf_type_wan || entry->enable == 0 || entry->gateway == 0) {
        return;
    }
    netintf_wan_gateway_add(entry);
    netlib_intf_plcrt_del(entry->name, entry->defrt_pri);
    netintf_wan_rule_add(entry);
}

int protocol_resume(const netintf_entry *head, const netintf_entry *entry)
{
    switch (entry->proto) {
    case proto_static:
        static_resume(head, entry);
        break;
    case proto_dhcp:
        return entry->enable != 0 ? netintf_dhcp_client_renew(entry) : rv_ok;
    case proto_pppoe:
        break;
    default:
        NET_WARNING("intf up proto error\n");
        break;
    }
    return rv_ok;
}

using device_operation = int(const char *name);

int device_of(const netintf_entry *entry, device_operation *operation)
{
    char device[128];
    netintf_bridge_name(device, sizeof(device), entry->name, entry->proto);
    return operation(device);
}

} // namespace

int netintf_intf_down(const netintf_entry *entry)
{
    return device_of(entry, netlib_eth_intf_down);
}

int netintf_intf_up(const netintf_entry *entry)
{
    return device_of(entry, netlib_eth_intf_up);
}

int netintf_proto_intf_down(netintf_entry *head)
{
    bool followed = false;
    if (const int rv = link_note(head, 0, &followed); rv != rv_ok || !followed) {
        return rv;
    }
    for (netintf_entry *entry : netintf_port_entries(head)) {
        if (const int rv = protocol_pause(head, entry); rv != rv_ok) {
            return rv;
        }
        if (netintf_intf_down(entry) != 0) {
            NET_WARNING("intf down %s error\n", entry->name);
        }
    }
    return rv_ok;
}

int netintf_proto_intf_up(netintf_entry *head)
{
    bool followed = false;
    if (const int rv = link_note(head, 1, &followed); rv != rv_ok || !followed) {
        return rv;
    }
    for (netintf_entry *entry : netintf_port_entries(head)) {
        if (entry->enable != 0 && netintf_intf_up(entry) != 0) {
            NET_WARNING("intf up  %s  error\n", entry->name);
        }
        if (const int rv = protocol_resume(head, entry); rv != rv_ok) {
            return rv;
        }
    }
    return rv_ok;
}
