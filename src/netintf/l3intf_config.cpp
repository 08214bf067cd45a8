// Bus method "config": renames and reconfigures an interface.
//
// The old interface is torn down whole before anything of the new one is checked or built. The order is the
// point: protocol, bridge, VLAN, then the record, then the new protocol's name, VLAN, bridge, addresses. A
// failing step leaves what was done before it; the record stays registered under its new name. The interface
// keeps its hardware port whatever port the new name stands for.

#include "core/bus_handlers.h"
#include "core/log.h"
#include "core/result.h"
#include "netintf/bridge.h"
#include "netintf/device.h"
#include "netintf/l3intf_fields.h"
#include "netintf/l3intf_wan_config.h"
#include "netintf/proto.h"
#include "netintf/uci_options.h"
#include "netintf/vlan_intf.h"
#include "platform/netdev.h"

#include <stdlib.h>
#include <unistd.h>

namespace {

constexpr int ppp_gone_asks = 2001;
constexpr useconds_t ppp_gone_pause = 1000; // microseconds between two asks

struct config_request {
    const char *name;
    const char *old_name;
    uint8_t mac[mac_size];
    uint16_t vlanid1;
    uint16_t vlanid2;
};

int names_get(const intf_fields &fields, config_request *request)
{
    if (fields[intf_name] == nullptr) {
        NET_ERROR("l3intf_config interface name error\n");
        return status_invalid_argument;
    }
    request->name = blobmsg_get_string(fields[intf_name]);
    if (request->name == nullptr) {
        NET_ERROR("ubus config intf param intf_name is null\n");
        return status_invalid_argument;
    }
    request->old_name = blobmsg_get_string(fields[intf_old_name]);
    if (request->old_name == nullptr) {
        NET_ERROR("ubus config intf param old intf_name is null\n");
        return status_invalid_argument;
    }
    return status_ok;
}

int old_intf_exit(netintf_entry *entry, const config_request &request)
{
    if (l3intf_name_is_wan(request.name)) {
        netintf_proto_stop(entry);
    }
    int rv =
        netintf_bridge_delete(request.old_name, entry->proto, entry->hw_port, entry->vlanid1, entry->vlanid2);
    if (rv != rv_ok) {
        NET_ERROR("net config user old intf exit error ifname=%s port=%d v1=%d v2=%d\n", request.old_name,
                  entry->hw_port, entry->vlanid1, entry->vlanid2);
        return status_unknown_error;
    }
    if (entry->vlanid1 == vlan_none) {
        return status_ok;
    }
    rv = netintf_vlan_intf_delete(static_cast<int>(entry->intf_type), entry->hw_port, entry->vlanid1,
                                  entry->vlanid2);
    if (rv != rv_ok) {
        NET_ERROR("net config port vlan intf exit error\n");
        return status_unknown_error;
    }
    return status_ok;
}

void mac_store(netintf_entry *entry, const config_request &request)
{
    memcpy_safe_record(entry->mac, sizeof(entry->mac), request.mac, mac_size, __func__, __LINE__);
}

// The PPP link has the interface's own name and outlives its client for a moment; a new interface of that
// name cannot be built before it has gone.
bool ppp_device_gone(const char *name)
{
    for (int ask = 0; ask < ppp_gone_asks; ask++) {
        if (ask > 0) {
            usleep(ppp_gone_pause);
        }
        if (netlib_eth_intf_exist(name) == 0) {
            return true;
        }
    }
    return false;
}

int new_intf_init(netintf_entry *entry, const config_request &request, netintf_proto proto)
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
    mac_store(entry, request);
    return status_ok;
}

int lan_config(netintf_entry *entry, const intf_fields &fields)
{
    if (fields[intf_ipaddr] == nullptr || fields[intf_netmask] == nullptr) {
        NET_ERROR("l3intf_config ipaddr netmask null\n");
        return status_invalid_argument;
    }
    const char *ipaddr = blobmsg_get_string(fields[intf_ipaddr]);
    const char *netmask = blobmsg_get_string(fields[intf_netmask]);
    if (ipaddr == nullptr || netmask == nullptr) {
        NET_ERROR("intf_name is null\n");
        return status_invalid_argument;
    }
    if (const int rv = netintf_lan_addr_set(entry, ipaddr, netmask); rv != rv_ok) {
        NET_ERROR("config ip error,rv = %d\n", rv);
        return status_invalid_argument;
    }
    return status_ok;
}

int addresses_config(netintf_entry *entry, const config_request &request, const intf_fields &fields,
                     netintf_proto proto)
{
    if (l3intf_name_is_lan(request.name)) {
        return lan_config(entry, fields);
    }
    if (!l3intf_name_is_wan(request.name)) {
        NET_ERROR("intf_name is error\n");
        return status_invalid_command;
    }
    if (l3intf_wan_config(entry, request.name, fields, proto) != rv_ok) {
        NET_ERROR("wan proto config failed\n");
        return status_invalid_command;
    }
    return status_ok;
}

} // namespace

int netintf_ubus_l3intf_config(struct ubus_context *, struct ubus_object *, struct ubus_request_data *,
                               const char *, struct blob_attr *msg)
{
    intf_fields fields;
    policy_parse(intf_policy, fields, msg);
    config_request request = {};
    if (const int status = names_get(fields, &request); status != status_ok) {
        return status;
    }
    request.vlanid1 = l3intf_vlan(fields[intf_vlanid1]);
    request.vlanid2 = l3intf_vlan(fields[intf_vlanid2]);
    netintf_entry *entry = netintf_entry_find_byname(request.old_name);
    if (entry == nullptr) {
        NET_ERROR("net config get intf byname error\n");
        return status_unknown_error;
    }
    if (const char *mac = blobmsg_get_string(fields[intf_mac]); mac != nullptr) {
        netintf_mac_parse(mac, request.mac);
    } else {
        memcpy_safe_record(request.mac, mac_size, entry->mac, mac_size, __func__, __LINE__);
    }

    if (const int status = old_intf_exit(entry, request); status != status_ok) {
        return status;
    }
    text_copy(entry->name, request.name, __func__, __LINE__);
    entry->vlanid1 = request.vlanid1;
    entry->vlanid2 = request.vlanid2;
    mac_store(entry, request);

    const char *proto_text = blobmsg_get_string(fields[intf_proto]);
    netintf_proto proto = proto_none;
    if (proto_text == nullptr || netintf_proto_strtoenum(proto_text, &proto) != rv_ok) {
        return status_invalid_argument;
    }
    if (l3intf_name_is_wan(request.name) && entry->proto == proto_pppoe &&
        strncmp_safe_record(request.name, request.old_name, name_size, __func__, __LINE__) == 0 &&
        !ppp_device_gone(request.name)) {
        NET_ERROR("old ppp interface exist error\n");
        return status_invalid_argument;
    }
    if (const int status = new_intf_init(entry, request, proto); status != status_ok) {
        return status;
    }
    if (const int status = addresses_config(entry, request, fields, proto); status != status_ok) {
        return status;
    }
    NET_INFO("lan vlan wan config success,intf_name=%s\n", request.name);
    return status_ok;
}
