// Monitoring: clients that see every message the broker takes and sends, except their own.
#include "broker.h"

namespace broker {

namespace {

// Numbers of the attributes in a monitor's messages; not those of other messages.
enum monitor_attribute { attr_client, attr_peer, attr_send, attr_seq, attr_type, attr_data };

list_head monitors = LIST_HEAD_INIT(monitors);

} // namespace

int handle_monitor_call(bus_client *client, const char *method)
{
    if (client->identity.uid != 0 || client->identity.gid != 0) {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    if (strcmp(method, "add") == 0) {
        if (!client->monitoring) {
            client->monitoring = true;
            list_add(&client->in_monitors, &monitors);
        }
        return UBUS_STATUS_OK;
    }
    if (strcmp(method, "remove") == 0) {
        if (!client->monitoring) {
            return UBUS_STATUS_NOT_FOUND;
        }
        monitor_remove(client);
        return UBUS_STATUS_OK;
    }
    return UBUS_STATUS_METHOD_NOT_FOUND;
}

void monitor_remove(bus_client *client)
{
    if (client->monitoring) {
        client->monitoring = false;
        list_del_init(&client->in_monitors);
    }
}

void monitor_message(const bus_client *client, const ubus_msghdr &hdr, const blob_attr *body,
                     bool sent_by_broker)
{
    if (list_empty(&monitors)) {
        return;
    }
    message_builder copy;
    bool built = false;
    bus_client *monitor;

    list_for_each_entry(monitor, &monitors, in_monitors)
    {
        if (monitor == client || !has_room(monitor, blob_raw_len(body))) {
            continue;
        }
        if (!built) {
            built = true;
            copy.put_u32(attr_client, client->id);
            copy.put_u32(attr_peer, hdr.peer);
            copy.put_u8(attr_send, sent_by_broker ? 1 : 0);
            copy.put_u32(attr_seq, hdr.seq);
            copy.put_u32(attr_type, hdr.type);
            copy.put_data(attr_data, body);
        }
        send_to(monitor, UBUS_MSG_MONITOR, ++monitor->monitor_seq, 0, copy);
    }
}

} // namespace broker
