// Bus method "add": a new LAN or WAN interface on a port that the board has.
//
// The one-time set-up of a port as LAN or WAN port is not part of it; "port_add" does that.

#include "core/bus_handlers.h"
#include "core/log.h"
#include "core/result.h"
#include "netintf/device.h"
#include "netintf/l3intf_fields.h"
#include "netintf/lifecycle.h"
#include "netintf/proto.h"
#include "netintf/uci_options.h"
#include "platform/netdev.h"

#include <stdlib.h>

namespace {

struct add_request {
    const char *name;
    uint8_t mac[mac_size];
    uint16_t vlanid1;
    uint16_t vlanid2;
};

int lan_add(const add_request &request, const intf_fields &fields)
{
    if (fields[intf_ipaddr] == nullptr || fields[intf_netmask] == nullptr) {
        NET_ERROR("l3intf_config ipaddr or netmask null\n");
        return status_invalid_argument;
    }
    const char *ipaddr = blobmsg_get_string(fields[intf_ipaddr]);
    if (ipaddr == nullptr) {
        NET_ERROR("ip addr is null\n");
        return status_invalid_argument;
    }
    const char *netmask = blobmsg_get_string(fields[intf_netmask]);
    if (netmask == nullptr) {
        NET_ERROR("netmask is null\n");
        return status_invalid_argument;
    }
    netintf_entry *entry = netintf_lan_add(request.name, request.mac, request.vlanid1, request.vlanid2, 1);
    if (entry == nullptr) {
        NET_ERROR("lan if add failed\n");
        return status_invalid_command;
    }
    return netintf_lan_addr_set(entry, ipaddr, netmask);
}

int wan_static_start(netintf_entry *entry, const intf_fields &fields, uint32_t link)
{
    const int rv = netintf_proto_config_static(entry, blobmsg_get_string(fields[intf_ipaddr]),
                                               blobmsg_get_string(fields[intf_netmask]),
                                               blobmsg_get_string(fields[intf_gateway]), entry->defrt_pri);
    if (rv != rv_ok) {
        return rv;
    }
    if (link != 0 && entry->enable != 0) {
        netlib_intf_plcrt_add(entry->name, entry->defrt_pri);
    }
    return rv_ok;
}

int wan_proto_start(netintf_entry *entry, const char *name, const intf_fields &fields, uint32_t link)
{
    int rv = rv_ok;
    switch (entry->proto) {
    case proto_static:
        return wan_static_start(entry, fields, link);
    case proto_dhcp:
        rv = netintf_proto_config_dhcp(entry);
        if (rv != rv_ok) {
            NET_ERROR("wan dhcp config error,if=%s\n", name);
        }
        return rv;
    default:
        // This method's callers name the PPPoE server in "ipaddr".
        rv = netintf_proto_config_pppoe(entry, 1, blobmsg_get_string(fields[intf_ipaddr]),
                                        blobmsg_get_string(fields[intf_username]),
                                        blobmsg_get_string(fields[intf_password]));
        if (rv != rv_ok) {
            NET_ERROR("wan pppoe config error,if=%s\n", name);
        }
        return rv;
    }
}

int wan_add(const add_request &request, const intf_fields &fields)
{
    uint32_t link = 0;
    netintf_link_get_byname(request.name, &link);
    const char *proto_text = blobmsg_get_string(fields[intf_proto]);
    if (proto_text == nullptr) {
        NET_ERROR("wan if add proto is null\n");
        return status_invalid_argument;
    }
    netintf_proto proto = proto_none;
    if (netintf_proto_strtoenum(proto_text, &proto) != rv_ok) {
        return status_invalid_argument;
    }
    const char *priority = blobmsg_get_string(fields[intf_defrt_pri]);
    if (priority == nullptr) {
        NET_ERROR("wan if add priority error\n");
        return status_invalid_command;
    }
    netintf_entry *entry =
        netintf_wan_add(request.name, proto, request.mac, request.vlanid1, request.vlanid2, 1);
    if (entry == nullptr) {
        NET_ERROR("wan if add failed\n");
        return status_invalid_command;
    }
    entry->enable = 1;
    entry->proto = proto;
    entry->defrt_pri = atoi(priority);
    if (const int rv = wan_proto_start(entry, request.name, fields, link); rv != rv_ok) {
        return rv;
    }
    const int rv =
        netlib_waninfo_db_insert(request.name, proto_text, l3intf_address_or_any(fields[intf_ipaddr]),
                                 l3intf_address_or_any(fields[intf_netmask]),
                                 l3intf_address_or_any(fields[intf_gateway]), "0.0.0.0", "0.0.0.0");
    if (rv != 0) {
        NET_ERROR("wan info db insert error,if=%s\n", request.name);
    }
    return rv;
}

} // namespace

int netintf_ubus_l3intf_add(struct ubus_context *, struct ubus_object *, struct ubus_request_data *,
                            const char *, struct blob_attr *msg)
{
    intf_fields fields;
    policy_parse(intf_policy, fields, msg);
    if (fields[intf_name] == nullptr) {
        NET_ERROR("l3intf_add interface name error\n");
        return status_invalid_argument;
    }
    add_request request = {};
    request.name = blobmsg_get_string(fields[intf_name]);
    if (request.name == nullptr) {
        NET_ERROR("intf_name is null\n");
        return status_invalid_command;
    }
    if (const char *mac = blobmsg_get_string(fields[intf_mac]); mac != nullptr) {
        netintf_mac_parse(mac, request.mac);
    }
    request.vlanid1 = l3intf_vlan(fields[intf_vlanid1]);
    request.vlanid2 = l3intf_vlan(fields[intf_vlanid2]);

    int status = status_invalid_command;
    if (l3intf_name_is_lan(request.name)) {
        status = lan_add(request, fields);
    } else if (l3intf_name_is_wan(request.name)) {
        status = wan_add(request, fields);
    } else {
        NET_ERROR("intf_name is error\n");
        return status_invalid_command;
    }
    if (status == status_ok) {
        NET_INFO(" lan or wan intf add success,intf=%s\r\n", request.name);
    }
    return status;
}
