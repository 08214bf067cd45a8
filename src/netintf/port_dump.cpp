// Bus method "port_dump": prints what a port carries, the port itself first.

#include "core/arguments.h"
#include "core/bus_handlers.h"
#include "core/log.h"
#include "netintf/registry.h"

namespace {

void record_print(const netintf_entry *entry)
{
    NET_INFO("%s vid1=%d vid2=%d\n", entry->name, entry->vlanid1, entry->vlanid2);
}

} // namespace

int netintf_ubus_port_dump(struct ubus_context *, struct ubus_object *, struct ubus_request_data *,
                           const char *, struct blob_attr *msg)
{
    arguments args(port_dump_policy, msg);
    args.require({port_dump_port}, "port dump param error\n");
    if (args.status() != status_ok) {
        return args.status();
    }
    // The number is not checked: a port that the registry does not have counts as a broken list.
    netintf_entry *head = netintf_port_head_get(blobmsg_get_u32(args[port_dump_port]));
    if (head != nullptr) {
        record_print(head);
    }
    netintf_port_entries entries(head);
    for (const netintf_entry *entry : entries) {
        record_print(entry);
    }
    if (entries.broken()) {
        NET_ERROR("port dump intf null error");
        return status_invalid_argument;
    }
    return status_ok;
}
