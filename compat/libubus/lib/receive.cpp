// Receiving: bytes to messages, messages to replies and calls. A message that arrives in pieces waits in the
// context for the rest, so a broker that stops in the middle of one does not stall the event loop.
#include "internal.h"
#include "wire.h"

#include <unistd.h>

namespace bus {

namespace {

using wire::header_len;
using wire::progress;

constexpr int messages_per_turn = 64;
constexpr int small_messages_before_shrinking = 16;
constexpr int max_queued = 1024;

received_message *receive_buffer(ubus_context *ctx)
{
    auto *body = reinterpret_cast<char *>(ctx->msgbuf.data);
    return body != nullptr ? reinterpret_cast<received_message *>(body - offsetof(received_message, body))
                           : nullptr;
}

void set_receive_buffer(ubus_context *ctx, received_message *rx)
{
    ctx->msgbuf.data = rx != nullptr ? reinterpret_cast<blob_attr *>(rx->body) : nullptr;
    ctx->msgbuf_data_len = rx != nullptr ? static_cast<uint32_t>(rx->capacity) : 0;
}

// The context's buffer with room for a body of this length, contents kept; null without memory.
received_message *ensure_capacity(ubus_context *ctx, size_t body_len)
{
    received_message *rx = receive_buffer(ctx);
    if (rx != nullptr && rx->capacity >= body_len) {
        return rx;
    }
    const size_t capacity = (body_len + UBUS_MSG_CHUNK_SIZE - 1) / UBUS_MSG_CHUNK_SIZE * UBUS_MSG_CHUNK_SIZE;
    auto *grown = static_cast<received_message *>(realloc(rx, sizeof(received_message) + capacity));
    if (grown == nullptr) {
        return nullptr;
    }
    if (rx == nullptr) {
        grown->have = 0;
        grown->fd = -1;
    }
    grown->capacity = capacity;
    set_receive_buffer(ctx, grown);
    return grown;
}

// Reads on towards `goal` bytes of the current message.
ssize_t read_towards(ubus_context *ctx, received_message *rx, size_t goal)
{
    const size_t body_have = wire::body_part(rx->have);
    const ssize_t got = wire::read_on(ctx->sock.fd, ctx->msgbuf.hdr, rx->have, rx->body + body_have,
                                      goal - header_len - body_have, rx->fd);
    if (got > 0) {
        rx->have += static_cast<size_t>(got);
    }
    return got;
}

progress receive_step(ubus_context *ctx)
{
    for (;;) {
        received_message *rx = ensure_capacity(ctx, sizeof(blob_attr));
        if (rx == nullptr) {
            return progress::broken;
        }
        const size_t goal = wire::goal(rx->have, rx->body);
        if (goal == 0) {
            return progress::broken;
        }
        if (rx->have == goal) {
            return progress::message;
        }
        rx = ensure_capacity(ctx, goal - header_len);
        if (rx == nullptr) {
            return progress::broken;
        }
        const progress step = wire::step_after(read_towards(ctx, rx, goal));
        if (step != progress::more) {
            return step;
        }
    }
}

// Large buffers stay for a while, as large messages come in series.
void give_back(ubus_context *ctx, received_message *rx)
{
    const bool small = rx->have <= UBUS_MSG_CHUNK_SIZE;
    if (rx->capacity > UBUS_MSG_CHUNK_SIZE) {
        ctx->msgbuf_reduction_counter = small ? ctx->msgbuf_reduction_counter + 1 : 0;
    }
    if (ctx->msgbuf.data != nullptr || (rx->capacity > UBUS_MSG_CHUNK_SIZE &&
                                        ctx->msgbuf_reduction_counter >= small_messages_before_shrinking)) {
        ctx->msgbuf_reduction_counter = 0;
        free(rx);
        return;
    }
    rx->have = 0;
    rx->fd = -1;
    set_receive_buffer(ctx, rx);
}

void dispatch(ubus_context *ctx, const ubus_msghdr &hdr, blob_attr *msg, int fd)
{
    switch (hdr.type) {
    case UBUS_MSG_STATUS:
    case UBUS_MSG_DATA:
        handle_reply(ctx, hdr, msg, fd);
        return;
    case UBUS_MSG_INVOKE:
    case UBUS_MSG_NOTIFY:
    case UBUS_MSG_UNSUBSCRIBE:
        if (ctx->stack_depth) {
            queue_object_message(ctx, hdr, msg, fd);
        } else {
            handle_object_message(ctx, hdr, msg, fd);
        }
        return;
    case UBUS_MSG_MONITOR:
        if (ctx->monitor_cb != nullptr) {
            ctx->monitor_cb(ctx, hdr.seq, msg);
        }
        break;
    default:
        break;
    }
    if (fd >= 0) {
        close(fd);
    }
}

void handle_message(ubus_context *ctx)
{
    received_message *rx = receive_buffer(ctx);
    ubus_msghdr hdr = ctx->msgbuf.hdr;
    hdr.seq = be16_to_cpu(hdr.seq);
    hdr.peer = be32_to_cpu(hdr.peer);

    set_receive_buffer(ctx, nullptr);
    if (hdr.version == 0) {
        dispatch(ctx, hdr, reinterpret_cast<blob_attr *>(rx->body), rx->fd);
    } else if (rx->fd >= 0) {
        close(rx->fd);
    }
    give_back(ctx, rx);
}

void connection_is_lost(ubus_context *ctx)
{
    ctx->sock.eof = true;
    ubus_flush_requests(ctx);
    if (ctx->connection_lost != nullptr && ctx->connection_lost != default_connection_lost) {
        // Out of the loop first: a dead socket stays readable, and the handler may free the context.
        uloop_fd_delete(&ctx->sock);
        ctx->connection_lost(ctx);
        return;
    }
    default_connection_lost(ctx);
    uloop_fd_delete(&ctx->sock);
}

} // namespace

void on_readable(uloop_fd *sock, unsigned int)
{
    ubus_context *ctx = container_of(sock, ubus_context, sock);
    // After a hang-up there is no further call, so everything still unread is read now.
    const bool last_chance = sock->eof || sock->error;

    for (int count = 0; count < messages_per_turn || last_chance; count++) {
        const progress step = receive_step(ctx);
        if (step == progress::nothing) {
            return;
        }
        if (step == progress::broken) {
            connection_is_lost(ctx);
            return;
        }
        handle_message(ctx);
        if (uloop_cancelling() || ctx->cancel_poll) {
            return;
        }
    }
}

void free_receive_buffer(ubus_context *ctx)
{
    received_message *rx = receive_buffer(ctx);
    if (rx != nullptr && rx->fd >= 0) {
        close(rx->fd);
    }
    free(rx);
    set_receive_buffer(ctx, nullptr);
}

queued_message *new_queued_message(const ubus_msghdr &hdr, const blob_attr *msg, int fd)
{
    auto *message = static_cast<queued_message *>(calloc(1, sizeof(queued_message)));
    if (message == nullptr) {
        return nullptr;
    }
    message->data = blob_memdup(msg);
    if (message->data == nullptr) {
        free(message);
        return nullptr;
    }
    message->hdr = hdr;
    message->fd = fd;
    return message;
}

void free_queued_message(queued_message *message)
{
    if (message->fd >= 0) {
        close(message->fd);
    }
    free(message->data);
    free(message);
}

void queue_object_message(ubus_context *ctx, const ubus_msghdr &hdr, blob_attr *msg, int fd)
{
    int count = 0;
    list_head *entry;
    list_for_each(entry, &ctx->pending)
    {
        count++;
    }

    queued_message *message = count < max_queued ? new_queued_message(hdr, msg, fd) : nullptr;
    if (message == nullptr) {
        if (fd >= 0) {
            close(fd);
        }
        refuse_call(ctx, hdr, msg, UBUS_STATUS_NO_MEMORY);
        return;
    }
    list_add_tail(&message->list, &ctx->pending);
}

void handle_queued_messages(ubus_context *ctx)
{
    while (!ctx->stack_depth && !list_empty(&ctx->pending)) {
        queued_message *message = list_first_entry(&ctx->pending, queued_message, list);
        list_del(&message->list);
        const int fd = message->fd;
        message->fd = -1;
        handle_object_message(ctx, message->hdr, message->data, fd);
        free_queued_message(message);
    }
}

void drop_queued_messages(ubus_context *ctx)
{
    while (!list_empty(&ctx->pending)) {
        queued_message *message = list_first_entry(&ctx->pending, queued_message, list);
        list_del(&message->list);
        free_queued_message(message);
    }
}

} // namespace bus
