// Bus method "port_del": removes every interface of a port and gives the port back to LAN 1's VLAN.

#include "core/arguments.h"
#include "core/bus_handlers.h"
#include "core/log.h"
#include "netintf/lifecycle.h"
#include "netintf/port_device.h"
#include "netintf/registry.h"

namespace {

// The port's name, not the entry's, decides between LAN and WAN removal.
bus_status interfaces_remove(uint32_t port, uint32_t type)
{
    netintf_port_entries entries(netintf_port_head_get(port));
    for (const netintf_entry *entry : entries) {
        char name[name_size];
        text_copy(name, entry->name);
        NET_INFO("%s vid1=%d vid2=%d type=%d\n", name, entry->vlanid1, entry->vlanid2, type);
        if (type == intf_type_lan && netintf_lan_del(name) != rv_ok) {
            NET_INFO("lan del err,intf=%s\r\n", name);
            return status_invalid_command;
        }
        if (type == intf_type_wan && netintf_wan_del(name) != rv_ok) {
            NET_INFO("wan del err,intf=%s\r\n", name);
            return status_invalid_command;
        }
    }
    if (entries.broken()) {
        NET_ERROR("intf info error\n");
        return status_invalid_argument;
    }
    return status_ok;
}

} // namespace

int netintf_ubus_port_del(struct ubus_context *, struct ubus_object *, struct ubus_request_data *,
                          const char *, struct blob_attr *msg)
{
    arguments args(port_name_policy, msg);
    args.require({port_name}, "l3 port del  interface name error\n");
    const char *name = args.text(port_name, "intf_name is null\n", status_invalid_command);
    if (args.status() != status_ok) {
        return args.status();
    }
    uint32_t port = 0;
    if (netintf_hwport_get_byname(name, &port) != rv_ok) {
        return status_invalid_command;
    }
    const uint32_t type = netintf_port_name_type(name);
    if (type == intf_type_none) {
        NET_ERROR("intf_name is error\n");
        return status_invalid_command;
    }
    if (const bus_status status = interfaces_remove(port, type); status != status_ok) {
        return status;
    }
    if (netintf_hw_port_exit(type, port) != rv_ok) {
        NET_ERROR("%s %d hw port exit error\n", __func__, 3255);
        return status_invalid_command;
    }
    NET_INFO(" lan or wan port del success,port=%s\r\n", name);
    return status_ok;
}
