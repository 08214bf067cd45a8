// Opening, restoring and closing the connection to the broker.
#include "internal.h"
#include "wire.h"

#include <cerrno>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

// The broker greets at once; one that accepts and stays silent must not hold up a reconnecting daemon.
constexpr int greeting_ms = 5000;

struct greeting_message {
    ubus_msghdr hdr;
    uint32_t root;
};
static_assert(sizeof(greeting_message) == 12);

int connect_socket(const char *path)
{
    sockaddr_un address = {};
    const size_t len = strlen(path);
    if (len >= sizeof(address.sun_path)) {
        return -1;
    }
    address.sun_family = AF_UNIX;
    memcpy(address.sun_path, path, len);

    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        return -1;
    }
    int result;
    do {
        result = connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address));
    } while (result < 0 && errno == EINTR);
    if (result < 0) {
        close(fd);
        return -1;
    }
    return fd;
}

bool read_greeting(int fd, greeting_message *greeting)
{
    auto *bytes = reinterpret_cast<char *>(greeting);
    size_t have = 0;

    while (have < sizeof(*greeting)) {
        pollfd waiting = {fd, POLLIN, 0};
        const int ready = poll(&waiting, 1, greeting_ms);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            return false;
        }
        const ssize_t got = recv(fd, bytes + have, sizeof(*greeting) - have, MSG_DONTWAIT);
        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) {
            return false;
        }
        have += got > 0 ? static_cast<size_t>(got) : 0;
    }
    const auto *root = reinterpret_cast<const blob_attr *>(&greeting->root);
    return greeting->hdr.version == 0 && greeting->hdr.type == UBUS_MSG_HELLO &&
           blob_raw_len(root) == sizeof(blob_attr);
}

void close_socket(ubus_context *ctx)
{
    if (ctx->sock.fd < 0) {
        return;
    }
    uloop_fd_delete(&ctx->sock);
    close(ctx->sock.fd);
    ctx->sock.fd = -1;
}

void on_pending_timer(uloop_timeout *timer)
{
    ubus_context *ctx = container_of(timer, ubus_context, pending_timer);
    bus::handle_queued_messages(ctx);
}

} // namespace

void bus::default_connection_lost(ubus_context *ctx)
{
    if (ctx->sock.registered) {
        uloop_end();
    }
}

int ubus_reconnect(ubus_context *ctx, const char *path)
{
    close_socket(ctx);
    bus::free_receive_buffer(ctx);
    // The callers of the old connection cannot be answered any more.
    bus::drop_queued_messages(ctx);
    ctx->sock.eof = false;
    ctx->sock.error = false;

    ctx->sock.fd = connect_socket(path != nullptr ? path : UBUS_UNIX_SOCKET);
    if (ctx->sock.fd < 0) {
        return UBUS_STATUS_CONNECTION_FAILED;
    }
    greeting_message greeting;
    if (!read_greeting(ctx->sock.fd, &greeting)) {
        close_socket(ctx);
        return UBUS_STATUS_UNKNOWN_ERROR;
    }
    ctx->local_id = greeting.hdr.peer;
    fcntl(ctx->sock.fd, F_SETFL, fcntl(ctx->sock.fd, F_GETFL) | O_NONBLOCK);
    return bus::register_objects_again(ctx) ? UBUS_STATUS_OK : UBUS_STATUS_CONNECTION_FAILED;
}

int ubus_connect_ctx(ubus_context *ctx, const char *path)
{
    uloop_init();
    memset(ctx, 0, sizeof(*ctx));
    ctx->sock.fd = -1;
    ctx->sock.cb = bus::on_readable;
    ctx->connection_lost = bus::default_connection_lost;
    ctx->pending_timer.cb = on_pending_timer;
    INIT_LIST_HEAD(&ctx->requests);
    INIT_LIST_HEAD(&ctx->pending);
    INIT_LIST_HEAD(&ctx->auto_subscribers);
    avl_init(&ctx->objects, wire::compare_ids, false, nullptr);
    return ubus_reconnect(ctx, path) == UBUS_STATUS_OK ? 0 : -1;
}

ubus_context *ubus_connect(const char *path)
{
    auto *ctx = static_cast<ubus_context *>(calloc(1, sizeof(ubus_context)));
    if (ctx == nullptr) {
        return nullptr;
    }
    if (ubus_connect_ctx(ctx, path) != 0) {
        free(ctx);
        return nullptr;
    }
    return ctx;
}

void ubus_shutdown(ubus_context *ctx)
{
    close_socket(ctx);
    uloop_timeout_cancel(&ctx->pending_timer);
    bus::drop_queued_messages(ctx);
    bus::free_receive_buffer(ctx);
}

void ubus_free(ubus_context *ctx)
{
    ubus_shutdown(ctx);
    free(ctx);
}
