// What the parts of the bus library share; nothing of it is exported.
//
// A received message lives in a received_message whose body the context's msgbuf.data points to. While a
// message is being handled it is taken out of the context, so that a handler's own bus calls receive into
// another one.
#pragma once

#include <cstddef>

// What is declared there is all that the library exports.
#pragma GCC visibility push(default)
#include <libubus.h>
#pragma GCC visibility pop

#include "builder.h"

namespace bus {

struct received_message {
    size_t have;     // bytes of header and body so far
    size_t capacity; // of body
    int fd;          // descriptor that came with it, or -1
    int unused;
    char body[];
};

// One message in a list, to be handled later.
struct queued_message {
    list_head list;
    ubus_msghdr hdr; // in host byte order
    int fd;
    blob_attr *data; // freed with the entry
};

// send.cpp: 0, or -1 and the connection marked as dead. Takes over fd.
int send_message(ubus_context *ctx, const blob_attr *msg, int type, uint16_t seq, uint32_t peer, int fd);

// receive.cpp
void on_readable(uloop_fd *sock, unsigned int events);
void free_receive_buffer(ubus_context *ctx);

// connection.cpp: the default handler of a lost connection.
void default_connection_lost(ubus_context *ctx);

// requests.cpp: peer and other header fields in host byte order. Takes over fd.
void handle_reply(ubus_context *ctx, const ubus_msghdr &hdr, blob_attr *msg, int fd);
int start_request(ubus_context *ctx, ubus_request *req, const wire::message_builder &msg, int type,
                  uint32_t peer, int fd = -1);

// objects.cpp: takes over fd.
void handle_object_message(ubus_context *ctx, const ubus_msghdr &hdr, blob_attr *msg, int fd);
void refuse_call(ubus_context *ctx, const ubus_msghdr &hdr, blob_attr *msg, int status);
// Registers all objects again after a reconnect; false when the connection broke meanwhile.
bool register_objects_again(ubus_context *ctx);

// pending calls to own objects (receive.cpp)
void queue_object_message(ubus_context *ctx, const ubus_msghdr &hdr, blob_attr *msg, int fd);
void handle_queued_messages(ubus_context *ctx);
void drop_queued_messages(ubus_context *ctx);
queued_message *new_queued_message(const ubus_msghdr &hdr, const blob_attr *msg, int fd);
void free_queued_message(queued_message *message);

} // namespace bus
