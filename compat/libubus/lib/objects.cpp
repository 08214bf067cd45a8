// Objects: publishing them, finding those of others, and serving the calls to our own.
#include "internal.h"
#include "wire.h"

#include <unistd.h>

namespace bus {

namespace {

void put_method(wire::message_builder &msg, const ubus_method &method)
{
    void *table = blobmsg_open_table(&msg, method.name);
    msg.check(table);
    for (int i = 0; i < method.n_policy && msg.ok; i++) {
        if (method.mask && !(method.mask & (1UL << i))) {
            continue;
        }
        msg.ok = blobmsg_add_u32(&msg, method.policy[i].name, method.policy[i].type) == 0;
    }
    if (msg.ok) {
        blobmsg_close_table(&msg, table);
    }
}

void put_type(wire::message_builder &msg, const ubus_object_type &type)
{
    if (type.id) {
        msg.put_u32(UBUS_ATTR_OBJTYPE, type.id);
        return;
    }
    void *nest = blob_nest_start(&msg, UBUS_ATTR_SIGNATURE);
    msg.check(nest);
    for (int i = 0; i < type.n_methods && msg.ok; i++) {
        put_method(msg, type.methods[i]);
    }
    if (msg.ok) {
        blob_nest_end(&msg, nest);
    }
}

void take_ids(ubus_request *req, int, blob_attr *msg)
{
    auto *obj = static_cast<ubus_object *>(req->priv);
    blob_attr *attributes[UBUS_ATTR_MAX];

    wire::parse(msg, attributes);
    if (attributes[UBUS_ATTR_OBJID] == nullptr) {
        return;
    }
    obj->id = blob_get_u32(attributes[UBUS_ATTR_OBJID]);
    if (attributes[UBUS_ATTR_OBJTYPE] != nullptr && obj->type != nullptr) {
        obj->type->id = blob_get_u32(attributes[UBUS_ATTR_OBJTYPE]);
    }
}

void forget_ids(ubus_request *req, int, blob_attr *msg)
{
    auto *obj = static_cast<ubus_object *>(req->priv);
    blob_attr *attributes[UBUS_ATTR_MAX];

    wire::parse(msg, attributes);
    if (attributes[UBUS_ATTR_OBJID] == nullptr) {
        return;
    }
    obj->id = 0;
    if (attributes[UBUS_ATTR_OBJTYPE] != nullptr && obj->type != nullptr) {
        obj->type->id = 0;
    }
}

ubus_object *find_object(ubus_context *ctx, const blob_attr *id_attr)
{
    const uint32_t id = blob_get_u32(id_attr);
    ubus_object *obj;
    return avl_find_element(&ctx->objects, &id, obj, avl);
}

const ubus_method *find_method(const ubus_object *obj, const char *name)
{
    for (int i = 0; i < obj->n_methods; i++) {
        const ubus_method &method = obj->methods[i];
        // A method without a name takes every call.
        if (method.name == nullptr || strcmp(method.name, name) == 0) {
            return &method;
        }
    }
    return nullptr;
}

int call_method(ubus_context *ctx, ubus_request_data *req, blob_attr **attributes)
{
    if (attributes[UBUS_ATTR_METHOD] == nullptr || attributes[UBUS_ATTR_DATA] == nullptr) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    ubus_object *obj = find_object(ctx, attributes[UBUS_ATTR_OBJID]);
    if (obj == nullptr) {
        return UBUS_STATUS_NOT_FOUND;
    }
    const char *name = blob_get_string(attributes[UBUS_ATTR_METHOD]);
    const ubus_method *method = find_method(obj, name);
    if (method == nullptr || method->handler == nullptr) {
        return UBUS_STATUS_METHOD_NOT_FOUND;
    }
    req->acl.object = obj->name;
    if (attributes[UBUS_ATTR_USER] != nullptr && attributes[UBUS_ATTR_GROUP] != nullptr) {
        req->acl.user = blob_get_string(attributes[UBUS_ATTR_USER]);
        req->acl.group = blob_get_string(attributes[UBUS_ATTR_GROUP]);
    }
    return method->handler(ctx, obj, req, name, attributes[UBUS_ATTR_DATA]);
}

void handle_invoke(ubus_context *ctx, const ubus_msghdr &hdr, blob_attr **attributes, int fd)
{
    const bool no_reply =
        attributes[UBUS_ATTR_NO_REPLY] != nullptr && (blob_get_u8(attributes[UBUS_ATTR_NO_REPLY]) != 0);
    ubus_request_data req = {};
    req.object = blob_get_u32(attributes[UBUS_ATTR_OBJID]);
    req.peer = hdr.peer;
    req.seq = hdr.seq;
    req.fd = -1;
    req.req_fd = fd;

    const int status = call_method(ctx, &req, attributes);
    if (req.req_fd >= 0) {
        close(req.req_fd);
    }
    if (req.deferred || no_reply) {
        return;
    }
    ubus_complete_deferred_request(ctx, &req, status);
}

void handle_state(ubus_context *ctx, blob_attr **attributes)
{
    ubus_object *obj = find_object(ctx, attributes[UBUS_ATTR_OBJID]);
    if (obj == nullptr || attributes[UBUS_ATTR_ACTIVE] == nullptr) {
        return;
    }
    obj->has_subscribers = blob_get_u8(attributes[UBUS_ATTR_ACTIVE]) != 0;
    if (obj->subscribe_cb != nullptr) {
        obj->subscribe_cb(ctx, obj);
    }
}

struct lookup_request {
    ubus_lookup_handler_t cb;
    void *priv;
    uint32_t *id;
};

void on_lookup_result(ubus_request *req, int, blob_attr *msg)
{
    auto *lookup = static_cast<lookup_request *>(req->priv);
    blob_attr *attributes[UBUS_ATTR_MAX];

    wire::parse(msg, attributes);
    if (attributes[UBUS_ATTR_OBJID] == nullptr || attributes[UBUS_ATTR_OBJPATH] == nullptr ||
        attributes[UBUS_ATTR_OBJTYPE] == nullptr) {
        return;
    }
    ubus_object_data data = {};
    data.id = blob_get_u32(attributes[UBUS_ATTR_OBJID]);
    data.path = blob_get_string(attributes[UBUS_ATTR_OBJPATH]);
    data.type_id = blob_get_u32(attributes[UBUS_ATTR_OBJTYPE]);
    data.signature = attributes[UBUS_ATTR_SIGNATURE];
    if (lookup->id != nullptr) {
        *lookup->id = data.id;
    }
    if (lookup->cb != nullptr) {
        lookup->cb(req->ctx, &data, lookup->priv);
    }
}

int run_lookup(ubus_context *ctx, const char *path, lookup_request lookup)
{
    wire::message_builder msg;
    ubus_request req;

    if (path != nullptr) {
        msg.put_string(UBUS_ATTR_OBJPATH, path);
    }
    const int status = start_request(ctx, &req, msg, UBUS_MSG_LOOKUP, 0);
    if (status) {
        return status;
    }
    req.raw_data_cb = on_lookup_result;
    req.priv = &lookup;
    return ubus_complete_request(ctx, &req, 0);
}

} // namespace

void handle_object_message(ubus_context *ctx, const ubus_msghdr &hdr, blob_attr *msg, int fd)
{
    blob_attr *attributes[UBUS_ATTR_MAX];

    wire::parse(msg, attributes);
    if (hdr.type == UBUS_MSG_INVOKE && attributes[UBUS_ATTR_OBJID] != nullptr) {
        handle_invoke(ctx, hdr, attributes, fd);
        return;
    }
    if (fd >= 0) {
        close(fd);
    }
    if (hdr.type == UBUS_MSG_NOTIFY && attributes[UBUS_ATTR_OBJID] != nullptr) {
        handle_state(ctx, attributes);
    }
}

void refuse_call(ubus_context *ctx, const ubus_msghdr &hdr, blob_attr *msg, int status)
{
    blob_attr *attributes[UBUS_ATTR_MAX];

    wire::parse(msg, attributes);
    if (hdr.type != UBUS_MSG_INVOKE || attributes[UBUS_ATTR_OBJID] == nullptr ||
        attributes[UBUS_ATTR_NO_REPLY] != nullptr) {
        return;
    }
    ubus_request_data req = {};
    req.object = blob_get_u32(attributes[UBUS_ATTR_OBJID]);
    req.peer = hdr.peer;
    req.seq = hdr.seq;
    req.fd = -1;
    ubus_complete_deferred_request(ctx, &req, status);
}

bool register_objects_again(ubus_context *ctx)
{
    ubus_object *obj;
    ubus_object *next;
    list_head objects;

    INIT_LIST_HEAD(&objects);
    avl_for_each_element_safe(&ctx->objects, obj, avl, next)
    {
        if (obj->type != nullptr) {
            obj->type->id = 0;
        }
        avl_delete(&ctx->objects, &obj->avl);
        list_add_tail(&obj->avl.list, &objects);
    }
    bool connected = true;
    list_for_each_entry_safe(obj, next, &objects, avl.list)
    {
        const uint32_t old_id = obj->id;
        list_del(&obj->avl.list);
        obj->id = 0;
        obj->has_subscribers = false;
        if (connected && ubus_add_object(ctx, obj) == UBUS_STATUS_OK) {
            continue;
        }
        // Kept under its old id, so that the next reconnect tries again.
        connected = connected && !ctx->sock.eof;
        obj->id = old_id;
        avl_insert(&ctx->objects, &obj->avl);
    }
    return connected;
}

} // namespace bus

using namespace bus;

int ubus_add_object(ubus_context *ctx, ubus_object *obj)
{
    wire::message_builder msg;
    ubus_request req;

    if (obj->name != nullptr && obj->type != nullptr) {
        msg.put_string(UBUS_ATTR_OBJPATH, obj->name);
        put_type(msg, *obj->type);
    }
    int status = start_request(ctx, &req, msg, UBUS_MSG_ADD_OBJECT, 0);
    if (status) {
        return status;
    }
    req.raw_data_cb = take_ids;
    req.priv = obj;
    status = ubus_complete_request(ctx, &req, 0);
    if (status) {
        // The ids may have come before the connection went; the next broker does not know them.
        obj->id = 0;
        if (obj->type != nullptr) {
            obj->type->id = 0;
        }
        return status;
    }
    if (!obj->id) {
        return UBUS_STATUS_NO_DATA;
    }
    obj->avl.key = &obj->id;
    avl_insert(&ctx->objects, &obj->avl);
    return UBUS_STATUS_OK;
}

int ubus_remove_object(ubus_context *ctx, ubus_object *obj)
{
    wire::message_builder msg;
    ubus_request req;

    msg.put_u32(UBUS_ATTR_OBJID, obj->id);
    int status = start_request(ctx, &req, msg, UBUS_MSG_REMOVE_OBJECT, 0);
    if (status) {
        return status;
    }
    // Out of the tree while its key is still the id it was filed under.
    const bool filed = avl_find(&ctx->objects, &obj->id) == &obj->avl;
    if (filed) {
        avl_delete(&ctx->objects, &obj->avl);
    }
    req.raw_data_cb = forget_ids;
    req.priv = obj;
    status = ubus_complete_request(ctx, &req, 0);
    if (status && filed) {
        avl_insert(&ctx->objects, &obj->avl);
        return status;
    }
    if (!status && obj->id) {
        return UBUS_STATUS_NO_DATA;
    }
    return status;
}

int ubus_lookup(ubus_context *ctx, const char *path, ubus_lookup_handler_t cb, void *priv)
{
    return run_lookup(ctx, path, {cb, priv, nullptr});
}

int ubus_lookup_id(ubus_context *ctx, const char *path, uint32_t *id)
{
    return run_lookup(ctx, path, {nullptr, nullptr, id});
}

int ubus_send_reply(ubus_context *ctx, ubus_request_data *req, blob_attr *msg)
{
    wire::message_builder buffer;

    buffer.put_u32(UBUS_ATTR_OBJID, req->object);
    buffer.put_data(UBUS_ATTR_DATA, msg);
    if (!buffer.ok || send_message(ctx, buffer.head, UBUS_MSG_DATA, req->seq, req->peer, -1) < 0) {
        return UBUS_STATUS_NO_DATA;
    }
    return UBUS_STATUS_OK;
}

void ubus_complete_deferred_request(ubus_context *ctx, ubus_request_data *req, int ret)
{
    // Built without the heap: the caller is to hear of the end even where there is no memory for more.
    const auto head = [](uint32_t id, size_t length) {
        return cpu_to_be32(id << BLOB_ATTR_ID_SHIFT | static_cast<uint32_t>(length));
    };
    const uint32_t message[5] = {head(0, sizeof(message)), head(UBUS_ATTR_STATUS, 2 * sizeof(uint32_t)),
                                 cpu_to_be32(static_cast<uint32_t>(ret)),
                                 head(UBUS_ATTR_OBJID, 2 * sizeof(uint32_t)), cpu_to_be32(req->object)};
    send_message(ctx, reinterpret_cast<const blob_attr *>(message), UBUS_MSG_STATUS, req->seq, req->peer,
                 req->fd);
}
