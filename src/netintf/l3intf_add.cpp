// Bus method "add": a new LAN or WAN interface on a port that the board has.
//
// The one-time set-up of a port as LAN or WAN port is not part of it; "port_add" does that. When an address,
// a client or the WAN information row is refused, the result code leaves on the bus as it is.

#include "core/bus_handlers.h"
#include "core/log.h"
#include "netintf/l3intf_fields.h"
#include "netintf/lifecycle.h"
#include "netintf/uci_options.h"
#include "netintf/wan.h"

#include <stdlib.h>

namespace {

bus_status lan_add(const l3intf_request &request, intf_arguments &args)
{
    args.require({intf_ipaddr, intf_netmask}, "l3intf_config ipaddr or netmask null\n");
    const char *ipaddr = args.text(intf_ipaddr, "ip addr is null\n");
    const char *netmask = args.text(intf_netmask, "netmask is null\n");
    if (args.status() != status_ok) {
        return args.status();
    }
    netintf_entry *entry = netintf_lan_add(request.name, request.mac, request.vlanid1, request.vlanid2, 1);
    if (entry == nullptr) {
        NET_ERROR("lan if add failed\n");
        return status_invalid_command;
    }
    return handed_through(netintf_lan_addr_set(entry, ipaddr, netmask));
}

bus_status wan_add(const l3intf_request &request, intf_arguments &args)
{
    uint32_t link = 0;
    netintf_link_get_byname(request.name, &link);
    const char *proto_text = args.text(intf_proto, "wan if add proto is null\n");
    netintf_proto proto = proto_none;
    if (proto_text == nullptr || netintf_proto_strtoenum(proto_text, &proto) != rv_ok) {
        return status_invalid_argument;
    }
    const char *priority = args.text(intf_defrt_pri, "wan if add priority error\n", status_invalid_command);
    if (priority == nullptr) {
        return args.status();
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
    const wan_settings settings = {
        .proto = proto_text,
        .ipaddr = args.text(intf_ipaddr),
        .netmask = args.text(intf_netmask),
        .gateway = args.text(intf_gateway),
        .service = args.text(intf_ipaddr), // this method's callers name the PPPoE server there
        .username = args.text(intf_username),
        .password = args.text(intf_password),
    };
    return handed_through(netintf_wan_start(entry, request.name, settings, link, wan_by_add));
}

} // namespace

int netintf_ubus_l3intf_add(struct ubus_context *, struct ubus_object *, struct ubus_request_data *,
                            const char *, struct blob_attr *msg)
{
    intf_arguments args(intf_policy, msg);
    args.require({intf_name}, "l3intf_add interface name error\n");
    l3intf_request request = {};
    request.name = args.text(intf_name, "intf_name is null\n", status_invalid_command);
    if (args.status() != status_ok) {
        return args.status();
    }
    if (const char *mac = args.text(intf_mac); mac != nullptr) {
        netintf_mac_parse(mac, request.mac);
    }
    request.vlanid1 = l3intf_vlan(args[intf_vlanid1]);
    request.vlanid2 = l3intf_vlan(args[intf_vlanid2]);

    request.type = netintf_type_of(request.name);
    if (request.type == intf_type_none) {
        NET_ERROR("intf_name is error\n");
        return status_invalid_command;
    }
    const bus_status status = request.type == intf_type_lan ? lan_add(request, args) : wan_add(request, args);
    if (status == status_ok) {
        NET_INFO(" lan or wan intf add success,intf=%s\r\n", request.name);
    }
    return status;
}
