// Looking objects up: one by its path, or a listing that goes on as fast as the client reads.
#include "broker.h"

namespace broker {

namespace {

// Adds the methods the client may call; false when there are some and it may call none.
bool put_signature(message_builder &body, const bus_client *client, const bus_object *object)
{
    const blob_attr *method;
    size_t rem;
    bool any = false;
    bool hidden = false;

    // As a whole: growing for each of many methods would copy a long signature again and again.
    body.ok = body.ok && blob_buf_grow(&body, static_cast<int>(blob_raw_len(object->type->signature)));
    void *nest = blob_nest_start(&body, UBUS_ATTR_SIGNATURE);
    body.check(nest);
    blob_for_each_attr(method, object->type->signature, rem)
    {
        if (!acl_allows(client, access_kind::call, object->path, blobmsg_name(method))) {
            hidden = true;
        } else if (body.ok) {
            any = true;
            body.check(blob_put_raw(&body, method, static_cast<unsigned int>(blob_pad_len(method))));
        }
    }
    if (body.ok) {
        blob_nest_end(&body, nest);
    }
    return any || !hidden;
}

// False when the object should have been sent and could not be.
bool send_object(bus_client *client, const bus_object *object, uint16_t seq, uint32_t peer)
{
    if (object->type == nullptr) {
        return true;
    }
    message_builder body;
    body.put_string(UBUS_ATTR_OBJPATH, object->path);
    body.put_u32(UBUS_ATTR_OBJID, object->id);
    body.put_u32(UBUS_ATTR_OBJTYPE, object->type->id);
    const bool visible = put_signature(body, client, object);
    // One that is too long for a message is left out, as other listings must not end because of it.
    if (!visible || (body.ok && !body.sendable())) {
        return true;
    }
    return send_to(client, UBUS_MSG_DATA, seq, peer, body);
}

bus_object *next_of(const running_listing &listing)
{
    bus_object *object;
    if (listing.last_path != nullptr) {
        object = object_after_path(listing.last_path);
    } else if (listing.prefix != nullptr) {
        object = object_find_path(listing.prefix);
        object = object != nullptr ? object : object_after_path(listing.prefix);
    } else {
        object = object_first_path();
    }
    if (object != nullptr && listing.prefix != nullptr &&
        strncmp(object->path, listing.prefix, strlen(listing.prefix)) != 0) {
        return nullptr;
    }
    return object;
}

void end_listing(bus_client *client, int status)
{
    received_request request = {};
    request.hdr.seq = client->listing.seq;
    request.hdr.peer = client->listing.peer;
    drop_listing(client);
    send_status(client, request, status);
    update_interest(client);
}

} // namespace

void drop_listing(bus_client *client)
{
    if (client->listing.prefix != nullptr) {
        discharge(client->account, {.bytes = strlen(client->listing.prefix)});
    }
    free(client->listing.prefix);
    free(client->listing.last_path);
    client->listing = {};
}

void continue_listing(bus_client *client)
{
    running_listing &listing = client->listing;

    // Objects may come and go between two calls, so the place is kept as a path.
    while (bus_object *object = next_of(listing)) {
        if (turn.work >= work_per_turn) {
            update_interest(client);
            return;
        }
        turn.work++;
        char *path = copy_text(object->path);
        if (path == nullptr) {
            end_listing(client, UBUS_STATUS_NO_MEMORY);
            return;
        }
        free(listing.last_path);
        listing.last_path = path;
        if (!send_object(client, object, listing.seq, listing.peer)) {
            end_listing(client, UBUS_STATUS_NO_MEMORY);
            return;
        }
        if (!list_empty(&client->tx)) {
            return;
        }
    }
    end_listing(client, UBUS_STATUS_OK);
}

int handle_lookup(bus_client *client, const received_request &msg)
{
    const char *path =
        msg.attr[UBUS_ATTR_OBJPATH] != nullptr ? blob_get_string(msg.attr[UBUS_ATTR_OBJPATH]) : nullptr;
    const size_t len = path != nullptr ? strlen(path) : 0;

    if (path != nullptr && !len) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (path != nullptr && path[len - 1] != '*') {
        const bus_object *object = object_find_path(path);
        if (object == nullptr) {
            return UBUS_STATUS_NOT_FOUND;
        }
        return send_object(client, object, msg.hdr.seq, msg.hdr.peer) ? UBUS_STATUS_OK
                                                                      : UBUS_STATUS_NO_MEMORY;
    }
    drop_listing(client);
    running_listing &listing = client->listing;
    if (path != nullptr) {
        const resource_cost cost = {.bytes = len - 1};
        if (!charge(client->account, cost)) {
            return UBUS_STATUS_NO_MEMORY;
        }
        listing.prefix = strndup(path, len - 1);
        if (listing.prefix == nullptr) {
            discharge(client->account, cost);
            return UBUS_STATUS_NO_MEMORY;
        }
        if (next_of(listing) == nullptr) {
            drop_listing(client);
            return UBUS_STATUS_NOT_FOUND;
        }
    }
    listing.running = true;
    listing.seq = msg.hdr.seq;
    listing.peer = msg.hdr.peer;
    continue_listing(client);
    return no_reply;
}

} // namespace broker
