// Requests of our own and the replies to them. A reply belongs to the request with the same sequence number
// and the same peer.
#include "internal.h"
#include "wire.h"

#include <cerrno>
#include <ctime>
#include <poll.h>
#include <unistd.h>

namespace bus {

namespace {

void complete(ubus_request *req)
{
    if (req->complete_cb != nullptr) {
        req->complete_cb(req, req->status_code);
    }
}

void call_data_callbacks(ubus_request *req, int type, blob_attr *msg)
{
    if (req->raw_data_cb != nullptr) {
        req->raw_data_cb(req, type, msg);
    }
    if (req->data_cb != nullptr) {
        blob_attr *attributes[UBUS_ATTR_MAX];
        wire::parse(msg, attributes);
        if (attributes[UBUS_ATTR_DATA] != nullptr) {
            req->data_cb(req, type, attributes[UBUS_ATTR_DATA]);
        }
    }
}

void drop_queued_data(ubus_request *req)
{
    while (!list_empty(&req->pending)) {
        queued_message *message = list_first_entry(&req->pending, queued_message, list);
        list_del(&message->list);
        free_queued_message(message);
    }
}

// What arrives while a data callback of this request runs waits until that callback returns, the end
// included.
void deliver_data(ubus_request *req, int type, blob_attr *msg)
{
    req->blocked = true;
    call_data_callbacks(req, type, msg);
    while (!req->cancelled && !list_empty(&req->pending)) {
        queued_message *message = list_first_entry(&req->pending, queued_message, list);
        list_del(&message->list);
        call_data_callbacks(req, message->hdr.type, message->data);
        free_queued_message(message);
    }
    req->blocked = false;
    if (req->status_msg && !req->cancelled) {
        complete(req);
    }
}

void finish(ubus_context *ctx, ubus_request *req, int status)
{
    list_del_init(&req->list);
    req->status_code = status;
    req->status_msg = true;
    if (ctx->stack_depth) {
        ctx->cancel_poll = true;
    }
    if (!req->blocked) {
        complete(req);
    }
}

ubus_request *find_request(ubus_context *ctx, const ubus_msghdr &hdr)
{
    ubus_request *req;
    list_for_each_entry(req, &ctx->requests, list)
    {
        if (req->seq == hdr.seq && req->peer == hdr.peer) {
            return req;
        }
    }
    return nullptr;
}

void pass_fd(ubus_request *req, int fd)
{
    if (fd < 0) {
        return;
    }
    if (req != nullptr && req->fd_cb != nullptr) {
        req->fd_cb(req, fd);
    } else {
        close(fd);
    }
}

int64_t now_ms()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000 + ts.tv_nsec / 1000000;
}

// Waits for something to read and handles it; false when the deadline has passed.
bool serve_until(ubus_context *ctx, bool limited, int64_t deadline)
{
    int64_t wait_ms = limited ? deadline - now_ms() : -1;
    if (limited && wait_ms <= 0) {
        return false;
    }
    pollfd waiting = {ctx->sock.fd, POLLIN, 0};
    if (poll(&waiting, 1, static_cast<int>(wait_ms)) > 0) {
        ctx->cancel_poll = false;
        on_readable(&ctx->sock, ULOOP_READ);
    }
    return true;
}

} // namespace

void handle_reply(ubus_context *ctx, const ubus_msghdr &hdr, blob_attr *msg, int fd)
{
    ubus_request *req = find_request(ctx, hdr);
    if (req == nullptr) {
        pass_fd(nullptr, fd);
        return;
    }
    if (hdr.type == UBUS_MSG_STATUS) {
        blob_attr *attributes[UBUS_ATTR_MAX];
        wire::parse(msg, attributes);
        const blob_attr *status = attributes[UBUS_ATTR_STATUS];
        pass_fd(req, fd);
        finish(ctx, req, status != nullptr ? blob_get_int32(status) : UBUS_STATUS_INVALID_ARGUMENT);
        return;
    }
    pass_fd(nullptr, fd);
    if (!req->blocked) {
        deliver_data(req, hdr.type, msg);
    } else if (queued_message *message = new_queued_message(hdr, msg, -1)) {
        list_add_tail(&message->list, &req->pending);
    }
}

int start_request(ubus_context *ctx, ubus_request *req, const wire::message_builder &msg, int type,
                  uint32_t peer, int fd)
{
    memset(req, 0, sizeof(*req));
    INIT_LIST_HEAD(&req->list);
    INIT_LIST_HEAD(&req->pending);
    req->ctx = ctx;
    req->peer = peer;
    req->seq = ++ctx->request_seq;
    req->fd = -1;
    if (!msg.sendable() || ctx->sock.fd < 0) {
        pass_fd(nullptr, fd);
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    if (send_message(ctx, msg.head, type, req->seq, peer, fd) < 0) {
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    return UBUS_STATUS_OK;
}

} // namespace bus

using namespace bus;

void ubus_complete_request_async(ubus_context *ctx, ubus_request *req)
{
    if (list_empty(&req->list)) {
        list_add(&req->list, &ctx->requests);
    }
}

void ubus_abort_request(ubus_context *, ubus_request *req)
{
    req->cancelled = true;
    drop_queued_data(req);
    if (!list_empty(&req->list)) {
        list_del_init(&req->list);
    }
}

void ubus_flush_requests(ubus_context *ctx)
{
    // Callbacks may start or abort requests, so the old ones are taken out first.
    list_head lost;
    INIT_LIST_HEAD(&lost);
    list_splice_init(&ctx->requests, &lost);
    while (!list_empty(&lost)) {
        finish(ctx, list_first_entry(&lost, ubus_request, list), UBUS_STATUS_TIMEOUT);
    }
}

int ubus_complete_request(ubus_context *ctx, ubus_request *req, int timeout)
{
    const int64_t deadline = now_ms() + timeout;
    int status = UBUS_STATUS_OK;

    ubus_complete_request_async(ctx, req);
    ctx->stack_depth++;
    while (!req->status_msg) {
        if (ctx->sock.eof) {
            ubus_abort_request(ctx, req);
            status = UBUS_STATUS_CONNECTION_FAILED;
            break;
        }
        if (!serve_until(ctx, timeout > 0, deadline)) {
            ubus_abort_request(ctx, req);
            status = UBUS_STATUS_TIMEOUT;
            break;
        }
    }
    if (req->status_msg) {
        // A lost connection ends every request with a time-out; for a caller that waits it has its own
        // status.
        const bool lost = ctx->sock.eof && req->status_code == UBUS_STATUS_TIMEOUT;
        status = lost ? UBUS_STATUS_CONNECTION_FAILED : req->status_code;
    }
    ctx->stack_depth--;
    if (!ctx->stack_depth) {
        ctx->cancel_poll = false;
        if (!list_empty(&ctx->pending)) {
            if (ctx->sock.registered) {
                uloop_timeout_set(&ctx->pending_timer, 1);
            } else {
                handle_queued_messages(ctx);
            }
        }
    }
    return status;
}

int ubus_invoke_async_fd(ubus_context *ctx, uint32_t obj, const char *method, blob_attr *msg,
                         ubus_request *req, int fd)
{
    wire::message_builder buffer;
    buffer.put_u32(UBUS_ATTR_OBJID, obj);
    buffer.put_string(UBUS_ATTR_METHOD, method);
    buffer.put_data(UBUS_ATTR_DATA, msg);
    return start_request(ctx, req, buffer, UBUS_MSG_INVOKE, obj, fd);
}

int ubus_invoke_fd(ubus_context *ctx, uint32_t obj, const char *method, blob_attr *msg,
                   ubus_data_handler_t cb, void *priv, int timeout, int fd)
{
    ubus_request req;
    const int status = ubus_invoke_async_fd(ctx, obj, method, msg, &req, fd);
    if (status) {
        return status;
    }
    req.data_cb = cb;
    req.priv = priv;
    return ubus_complete_request(ctx, &req, timeout);
}
