// Bus method "port_dump": prints what a port carries, the port itself first.

#include "core/bus_handlers.h"
#include "core/log.h"
#include "core/policies.h"
#include "core/result.h"
#include "netintf/registry.h"

int netintf_ubus_port_dump(struct ubus_context *, struct ubus_object *, struct ubus_request_data *,
                           const char *, struct blob_attr *msg)
{
    struct blob_attr *fields[port_dump_policy.count];
    policy_parse(port_dump_policy, fields, msg);
    if (fields[port_dump_port] == nullptr) {
        NET_ERROR("port dump param error\n");
        return status_invalid_argument;
    }
    // A port that the registry does not have is a missing link like any other.
    const netintf_entry *head = netintf_port_head_get(blobmsg_get_u32(fields[port_dump_port]));
    const netintf_entry *entry = head;
    do {
        if (entry == nullptr) {
            NET_ERROR("port dump intf null error");
            return status_invalid_argument;
        }
        NET_INFO("%s vid1=%d vid2=%d\n", entry->name, entry->vlanid1, entry->vlanid2);
        entry = entry->next;
    } while (entry != head);
    return status_ok;
}
