// Events: calls of the broker's own object.
#include "internal.h"

namespace {

int on_event(ubus_context *ctx, ubus_object *obj, ubus_request_data *, const char *type, blob_attr *msg)
{
    ubus_event_handler *ev = container_of(obj, ubus_event_handler, obj);
    ev->cb(ctx, ev, type, msg);
    return 0;
}

const ubus_method event_method = {nullptr, on_event, 0, 0, nullptr, 0};

int call_event_object(ubus_context *ctx, const char *method, const wire::message_builder &args)
{
    if (!args.ok) {
        return UBUS_STATUS_NO_MEMORY;
    }
    return ubus_invoke(ctx, UBUS_SYSTEM_OBJECT_EVENT, method, args.head, nullptr, nullptr, 0);
}

} // namespace

int ubus_register_event_handler(ubus_context *ctx, ubus_event_handler *ev, const char *pattern)
{
    wire::message_builder args;

    if (!ev->obj.id) {
        ev->obj.methods = &event_method;
        ev->obj.n_methods = 1;
        const int status = ubus_add_object(ctx, &ev->obj);
        if (status) {
            return status;
        }
    }
    args.ok = args.ok && blobmsg_add_u32(&args, "object", ev->obj.id) == 0 &&
              (pattern == nullptr || blobmsg_add_string(&args, "pattern", pattern) == 0);
    return call_event_object(ctx, "register", args);
}

int ubus_send_event(ubus_context *ctx, const char *id, blob_attr *data)
{
    wire::message_builder args;

    args.ok = args.ok && blobmsg_add_string(&args, "id", id) == 0 &&
              blobmsg_add_field(&args, BLOBMSG_TYPE_TABLE, "data", blob_data(data),
                                static_cast<unsigned int>(blob_len(data))) == 0;
    return call_event_object(ctx, "send", args);
}
