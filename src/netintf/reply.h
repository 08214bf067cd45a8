// The daemon's one message buffer, for replies and for calls of other objects. Each user initialises it
// first and looks at every result: a message that memory does not suffice for must not be sent. Nothing keeps
// it beyond its handler.
#pragma once

#include <libubus.h>

extern struct blob_buf netintf_reply;

// Appends a text field, terminator included; key may be null. 0, or -1 when the buffer cannot grow.
int netintf_bmsg_add_string(const char *key, const char *text);
// Sends it. The status for the caller: 0, or 9 when there was no memory to send it with.
int netintf_reply_send(struct ubus_context *ctx, struct ubus_request_data *req);
