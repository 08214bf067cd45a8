// Bus method "port_add": sets a switch port up as a LAN or WAN port with a default interface.

#include "board/board_map.h"
#include "core/arguments.h"
#include "core/bus_handlers.h"
#include "core/log.h"
#include "netintf/bridge.h"
#include "netintf/device.h"
#include "netintf/port_device.h"
#include "netintf/registry.h"
#include "platform/netdev.h"

int netintf_ubus_port_add(struct ubus_context *, struct ubus_object *, struct ubus_request_data *,
                          const char *, struct blob_attr *msg)
{
    arguments args(port_name_policy, msg);
    args.require({port_name}, "l3 port add  interface name error\n");
    const char *name = args.text(port_name, "intf_name is null\n", status_invalid_command);
    if (args.status() != status_ok) {
        return args.status();
    }
    NET_INFO("%s %d port_name=%s\n", __func__, 3084, name);
    // On purpose the name is resolved before its length is checked: the first failure decides the text.
    uint32_t port = 0;
    if (netintf_hwport_get_byname(name, &port) != rv_ok) {
        NET_ERROR("%s %d port_name=%s\n", __func__, 3090, name);
        return status_invalid_command;
    }
    const uint32_t type = netintf_port_name_type(name);
    if (type == intf_type_none) {
        NET_ERROR("intf_name is error\n");
        return status_invalid_command;
    }
    // The default interface has the port's MAC; the port device has its first byte increased by 2.
    uint32_t sequence = 0;
    uint8_t mac[mac_size] = {};
    netbd_seqport_get(port, &sequence);
    netintf_port_mac_get(sequence, mac);

    char default_name[16];
    text_format(default_name, sizeof(default_name), "%s_default", name);
    netintf_entry *entry = netintf_l3intf_init(port, default_name, type, mac, vlan_none, vlan_none);
    if (entry == nullptr) {
        NET_ERROR("%s %d\n", __func__, 3113);
        return status_invalid_command;
    }
    entry->enable = 1;
    entry->proto = proto_static;
    if (netintf_port_init(type, netintf_number_of(name), port) != rv_ok) {
        NET_ERROR("%s %d hw port init failed\n", __func__, 3123);
        return status_invalid_command;
    }
    if (netintf_bridge_create(default_name, proto_static, port, mac, vlan_none, vlan_none, 1) != rv_ok) {
        NET_ERROR("%s %d user if init failed\n", __func__, 3129);
        return status_invalid_command;
    }
    if (netintf_mac_is_zero(mac)) {
        netlib_eth_mac_get(default_name, entry->mac);
    }
    NET_INFO(" lan or wan port add success,port=%s\r\n", name);
    return status_ok;
}
