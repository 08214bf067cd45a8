// Bus method "port_del": removes every interface of a port and gives the port back to LAN 1's VLAN.

#include "core/bus_handlers.h"
#include "core/log.h"
#include "core/policies.h"
#include "core/result.h"
#include "netintf/lifecycle.h"
#include "netintf/port_device.h"
#include "netintf/port_name.h"
#include "netintf/registry.h"

namespace {

// The port's name, not the entry's, decides which removal is used.
int interfaces_remove(uint32_t port, uint32_t type)
{
    const netintf_entry *head = netintf_port_head_get(port);
    const netintf_entry *entry = head->next;
    while (entry != head) {
        if (entry == nullptr) {
            NET_ERROR("intf info error\n");
            return status_invalid_argument;
        }
        const netintf_entry *next = entry->next;
        char name[name_size];
        text_copy(name, entry->name, __func__, __LINE__);
        NET_INFO("%s vid1=%d vid2=%d type=%d\n", name, entry->vlanid1, entry->vlanid2, type);
        if (type == intf_type_lan && netintf_lan_del(name) != rv_ok) {
            NET_INFO("lan del err,intf=%s\r\n", name);
            return status_invalid_command;
        }
        if (type == intf_type_wan && netintf_wan_del(name) != rv_ok) {
            NET_INFO("wan del err,intf=%s\r\n", name);
            return status_invalid_command;
        }
        entry = next;
    }
    return status_ok;
}

} // namespace

int netintf_ubus_port_del(struct ubus_context *, struct ubus_object *, struct ubus_request_data *,
                          const char *, struct blob_attr *msg)
{
    struct blob_attr *fields[port_name_policy.count];
    policy_parse(port_name_policy, fields, msg);
    if (fields[port_name] == nullptr) {
        NET_ERROR("l3 port del  interface name error\n");
        return status_invalid_argument;
    }
    const char *name = blobmsg_get_string(fields[port_name]);
    if (name == nullptr) {
        NET_ERROR("intf_name is null\n");
        return status_invalid_command;
    }
    uint32_t port = 0;
    if (netintf_hwport_get_byname(name, &port) != rv_ok) {
        return status_invalid_command;
    }
    const uint32_t type = netintf_port_name_type(name);
    if (type == 0) {
        NET_ERROR("intf_name is error\n");
        return status_invalid_command;
    }
    if (const int status = interfaces_remove(port, type); status != status_ok) {
        return status;
    }
    if (netintf_hw_port_exit(type, port) != rv_ok) {
        NET_ERROR("%s %d hw port exit error\n", __func__, 3255);
        return status_invalid_command;
    }
    NET_INFO(" lan or wan port del success,port=%s\r\n", name);
    return status_ok;
}
