// What to do with each type of message.
#include "broker.h"
#include "wire.h"

namespace broker {

namespace {

int handle_ping(bus_client *client, const received_request &msg)
{
    ubus_msghdr hdr = msg.hdr;
    hdr.type = UBUS_MSG_DATA;
    send_raw(client, hdr, msg.body);
    return UBUS_STATUS_OK;
}

// An answer of an object's owner. Ignored when the sender does not own the object or the caller has gone.
int handle_answer(bus_client *client, const received_request &msg)
{
    const bool status = msg.hdr.type == UBUS_MSG_STATUS;
    if (msg.attr[UBUS_ATTR_OBJID] == nullptr ||
        msg.attr[status ? UBUS_ATTR_STATUS : UBUS_ATTR_DATA] == nullptr) {
        return no_reply;
    }
    bus_object *object = object_find(blob_get_u32(msg.attr[UBUS_ATTR_OBJID]));
    bus_client *caller = client_find(msg.hdr.peer);
    if (object == nullptr || object->client != client || caller == nullptr) {
        return no_reply;
    }
    ubus_msghdr hdr = msg.hdr;
    hdr.version = 0;
    hdr.peer = object->id;
    send_raw(caller, hdr, msg.body, status ? msg.fd : nullptr);
    return no_reply;
}

int forward_call(bus_client *from, const bus_object *to, const received_request &msg, const char *method)
{
    if (!has_room(to->client, blob_raw_len(msg.body))) {
        return UBUS_STATUS_NO_MEMORY;
    }
    object_message call;
    build_call(call, from, msg, method, false);
    call.address_to(to->id);
    // The names may have pushed a message of just the permitted size over the limit.
    if (call.ok && !call.sendable()) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    return send_to(to->client, UBUS_MSG_INVOKE, msg.hdr.seq, from->id, call, msg.fd) ? no_reply
                                                                                     : UBUS_STATUS_NO_MEMORY;
}

int call_own_object(bus_client *client, uint32_t id, const received_request &msg, const char *method)
{
    switch (id) {
    case UBUS_SYSTEM_OBJECT_EVENT:
        return handle_event_call(client, msg, method);
    case UBUS_SYSTEM_OBJECT_ACL:
        return handle_acl_call(client, msg, method);
    case UBUS_SYSTEM_OBJECT_MONITOR:
        return handle_monitor_call(client, method);
    default:
        return UBUS_STATUS_NOT_FOUND;
    }
}

int handle_invoke(bus_client *client, const received_request &msg)
{
    if (msg.attr[UBUS_ATTR_OBJID] == nullptr || msg.attr[UBUS_ATTR_METHOD] == nullptr) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    const uint32_t id = blob_get_u32(msg.attr[UBUS_ATTR_OBJID]);
    const char *method = blob_get_string(msg.attr[UBUS_ATTR_METHOD]);
    if (id < UBUS_SYSTEM_OBJECT_MAX) {
        return call_own_object(client, id, msg, method);
    }
    bus_object *object = object_find(id);
    if (object == nullptr) {
        return UBUS_STATUS_NOT_FOUND;
    }
    if (object->path != nullptr && !acl_allows(client, access_kind::call, object->path, method)) {
        return UBUS_STATUS_PERMISSION_DENIED;
    }
    return forward_call(client, object, msg, method);
}

using message_handler = int (*)(bus_client *, const received_request &);

constexpr message_handler handlers[__UBUS_MSG_LAST] = {
    nullptr,          handle_answer,      handle_answer,     handle_ping,
    handle_lookup,    handle_invoke,      handle_add_object, handle_remove_object,
    handle_subscribe, handle_unsubscribe, handle_notify,     nullptr};

} // namespace

void build_call(object_message &call, const bus_client *from, const received_request &msg, const char *method,
                bool silent)
{
    if (silent) {
        call.put_u8(UBUS_ATTR_NO_REPLY, 1);
    }
    call.put_id();
    call.put_string(UBUS_ATTR_METHOD, method);
    call.put_string(UBUS_ATTR_USER, from->identity.user);
    call.put_string(UBUS_ATTR_GROUP, from->identity.group);
    if (msg.attr[UBUS_ATTR_DATA] != nullptr) {
        call.put_data(UBUS_ATTR_DATA, msg.attr[UBUS_ATTR_DATA]);
    }
}

void handle_message(bus_client *client, const ubus_msghdr &hdr, blob_attr *body, int *fd)
{
    received_request msg = {};
    msg.hdr = hdr;
    msg.body = body;
    msg.fd = fd;
    wire::parse(msg.body, msg.attr);

    const message_handler handler = hdr.type < __UBUS_MSG_LAST ? handlers[hdr.type] : nullptr;
    const int status =
        handler != nullptr ? handler(client, msg) : static_cast<int>(UBUS_STATUS_INVALID_COMMAND);
    if (status != no_reply) {
        send_status(client, msg, status);
    }
}

} // namespace broker
