// The daemon's one message buffer, for replies and for calls of other objects. Each user initialises it
// first and looks at every result: a message that memory does not suffice for must not be sent. Nothing keeps
// it beyond its handler.
#pragma once

#include "core/result.h"

#include <libubus.h>
#include <string.h>

inline struct blob_buf netintf_reply;

// Appends a text field, terminator included; key may be null. 0, or -1 when the buffer cannot grow.
inline int netintf_bmsg_add_string(const char *key, const char *text)
{
    return blobmsg_add_field(&netintf_reply, BLOBMSG_TYPE_STRING, key, text,
                             static_cast<unsigned>(strlen(text) + 1));
}

// Sends the message as the reply. The status of the request: unknown error when it cannot be sent.
inline bus_status netintf_reply_send(struct ubus_context *ctx, struct ubus_request_data *req)
{
    return ubus_send_reply(ctx, req, netintf_reply.head) == 0 ? status_ok : status_unknown_error;
}
