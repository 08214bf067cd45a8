// The daemon's one message buffer, for replies and for calls of other objects. Each user initialises it
// first and looks at every result: a message that memory does not suffice for must not be sent. Nothing keeps
// it beyond its handler.
#pragma once

#include <libubus.h>
#include <string.h>

inline struct blob_buf netintf_reply;

// Appends a text field, terminator included; key may be null. 0, or -1 when the buffer cannot grow.
inline int netintf_bmsg_add_string(const char *key, const char *text)
{
    return blobmsg_add_field(&netintf_reply, BLOBMSG_TYPE_STRING, key, text,
                             static_cast<unsigned>(strlen(text) + 1));
}
