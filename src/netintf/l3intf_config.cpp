// Bus method "config": renames and reconfigures an interface.
//
// The old interface is torn down whole before anything of the new one is checked or built. The order is the
// point: protocol, bridge, VLAN, then the record, then the new protocol's name, VLAN, bridge, addresses. A
// failing step leaves what was done before it; the record stays registered under its new name. The interface
// keeps its hardware port, also when the new name stands for another port.

#include "core/bus_handlers.h"
#include "core/log.h"
#include "netintf/bridge.h"
#include "netintf/l3intf_fields.h"
#include "netintf/uci_options.h"
#include "netintf/vlan_intf.h"
#include "netintf/wan.h"
#include "platform/netdev.h"

#include <stdlib.h>
#include <unistd.h>

namespace {

constexpr int ppp_gone_asks = 2001;
constexpr useconds_t ppp_gone_pause = 1000; // microseconds between two asks

bus_status old_intf_exit(netintf_entry *entry, const char *old_name, const l3intf_request &request)
{
    if (request.type == intf_type_wan) {
        netintf_proto_stop(entry);
    }
    if (netintf_bridge_delete(old_name, entry->proto, entry->hw_port, entry->vlanid1, entry->vlanid2) !=
        rv_ok) {
        NET_ERROR("net config user old intf exit error ifname=%s port=%d v1=%d v2=%d\n", old_name,
                  entry->hw_port, entry->vlanid1, entry->vlanid2);
        return status_unknown_error;
    }
    if (entry->vlanid1 != vlan_none &&
        netintf_vlan_intf_delete(entry->intf_type, entry->hw_port, entry->vlanid1, entry->vlanid2) != rv_ok) {
        NET_ERROR("net config port vlan intf exit error\n");
        return status_unknown_error;
    }
    return status_ok;
}

// The PPP link has the interface's name and outlives its client for a moment; a new interface of that name
// cannot be built before it has gone.
bool ppp_device_gone(const char *name)
{
    for (int ask = 0; ask < ppp_gone_asks; ++ask) {
        if (ask > 0) {
            usleep(ppp_gone_pause);
        }
        if (netlib_eth_intf_exist(name) == 0) {
            return true;
        }
    }
    return false;
}

bus_status new_intf_init(netintf_entry *entry, const l3intf_request &request, netintf_proto proto)
{
    if (request.vlanid1 != vlan_none && netintf_vlan_intf_create(entry->intf_type, entry->hw_port,
                                                                 request.vlanid1, request.vlanid2) != rv_ok) {
        NET_ERROR("net config port vlan init error\n");
        return status_unknown_error;
    }
    if (netintf_bridge_create(request.name, proto, entry->hw_port, request.mac, request.vlanid1,
                              request.vlanid2, static_cast<int>(entry->enable)) != rv_ok) {
        NET_ERROR("net config user intf init error,%s %d %d %d %d %d\n", request.name, proto, entry->hw_port,
                  request.vlanid1, request.vlanid2, entry->enable);
        return status_unknown_error;
    }
    mac_copy(entry->mac, request.mac);
    return status_ok;
}

bus_status lan_config(netintf_entry *entry, intf_arguments &args)
{
    args.require({intf_ipaddr, intf_netmask}, "l3intf_config ipaddr netmask null\n");
    const char *ipaddr = args.text(intf_ipaddr, "intf_name is null\n");
    const char *netmask = args.text(intf_netmask, "intf_name is null\n");
    if (args.status() != status_ok) {
        return args.status();
    }
    if (const int rv = netintf_lan_addr_set(entry, ipaddr, netmask); rv != rv_ok) {
        NET_ERROR("config ip error,rv = %d\n", rv);
        return status_invalid_argument;
    }
    return status_ok;
}

// What the protocol needs, or false after a complaint; missing address fields are not reported, on purpose.
bool wan_settings_get(netintf_proto proto, intf_arguments &args, wan_settings *settings)
{
    if (proto == proto_static) {
        if (args[intf_ipaddr] == nullptr || args[intf_netmask] == nullptr) {
            return false;
        }
        settings->ipaddr = args.text(intf_ipaddr, "ipaddr is null\n");
        settings->netmask = args.text(intf_netmask, "netmask is null\n");
        settings->gateway = args.text(intf_gateway, "gateway is null\n");
    } else if (proto == proto_pppoe) {
        if (args[intf_username] == nullptr || args[intf_password] == nullptr) {
            NET_ERROR("pppoe config param error %p,%p\n", static_cast<void *>(args[intf_username]),
                      static_cast<void *>(args[intf_password]));
            return false;
        }
        settings->username = args.text(intf_username, "pppoe username is null\n");
        settings->password = args.text(intf_password, "pppoe password is null\n");
        if (args[intf_server] != nullptr) {
            settings->service = args.text(intf_server, "pppoe server is null\n");
        }
    }
    return args.status() == status_ok;
}

bool wan_config(netintf_entry *entry, const char *name, intf_arguments &args, netintf_proto proto)
{
    entry->proto = proto;
    const char *priority = args.text(intf_defrt_pri, "default route priority is null\n");
    if (priority == nullptr) {
        return false;
    }
    entry->defrt_pri = atoi(priority);
    uint32_t link = 0;
    netintf_link_get_byname(name, &link);
    wan_settings settings = {};
    return wan_settings_get(proto, args, &settings) &&
           netintf_wan_start(entry, name, settings, link, wan_by_config) == rv_ok;
}

bus_status addresses_config(netintf_entry *entry, const l3intf_request &request, intf_arguments &args,
                            netintf_proto proto)
{
    if (request.type == intf_type_lan) {
        return lan_config(entry, args);
    }
    if (request.type != intf_type_wan) {
        NET_ERROR("intf_name is error\n");
        return status_invalid_command;
    }
    if (!wan_config(entry, request.name, args, proto)) {
        NET_ERROR("wan proto config failed\n");
        return status_invalid_command;
    }
    return status_ok;
}

} // namespace

int netintf_ubus_l3intf_config(struct ubus_context *, struct ubus_object *, struct ubus_request_data *,
                               const char *, struct blob_attr *msg)
{
    intf_arguments args(intf_policy, msg);
    args.require({intf_name}, "l3intf_config interface name error\n");
    l3intf_request request = {};
    request.name = args.text(intf_name, "ubus config intf param intf_name is null\n");
    const char *old_name = args.text(intf_old_name, "ubus config intf param old intf_name is null\n");
    if (args.status() != status_ok) {
        return args.status();
    }
    request.type = netintf_type_of(request.name);
    request.vlanid1 = l3intf_vlan(args[intf_vlanid1]);
    request.vlanid2 = l3intf_vlan(args[intf_vlanid2]);
    netintf_entry *entry = netintf_entry_find_byname(old_name);
    if (entry == nullptr) {
        NET_ERROR("net config get intf byname error\n");
        return status_unknown_error;
    }
    if (const char *mac = args.text(intf_mac); mac != nullptr) {
        netintf_mac_parse(mac, request.mac);
    } else {
        mac_copy(request.mac, entry->mac);
    }

    if (const bus_status status = old_intf_exit(entry, old_name, request); status != status_ok) {
        return status;
    }
    text_copy(entry->name, request.name);
    entry->vlanid1 = request.vlanid1;
    entry->vlanid2 = request.vlanid2;
    mac_copy(entry->mac, request.mac);

    const char *proto_text = args.text(intf_proto);
    netintf_proto proto = proto_none;
    if (proto_text == nullptr || netintf_proto_strtoenum(proto_text, &proto) != rv_ok) {
        return status_invalid_argument;
    }
    if (request.type == intf_type_wan && entry->proto == proto_pppoe && name_equals(request.name, old_name) &&
        !ppp_device_gone(request.name)) {
        NET_ERROR("old ppp interface exist error\n");
        return status_invalid_argument;
    }
    if (const bus_status status = new_intf_init(entry, request, proto); status != status_ok) {
        return status;
    }
    if (const bus_status status = addresses_config(entry, request, args, proto); status != status_ok) {
        return status;
    }
    NET_INFO("lan vlan wan config success,intf_name=%s\n", request.name);
    return status_ok;
}
