#include "bus_call.h"

#include "internal.h"

#include <cstdarg>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

namespace libsys {

namespace {

// Whether the broker greets one who connects. It is looked for where our own objects are served; without
// those, or where anything fails at once, the bus library finds out for itself.
bool broker_greets(int limit_ms)
{
    sockaddr_un place = {};
    socklen_t length = sizeof(place);
    auto *address = reinterpret_cast<sockaddr *>(&place);
    if (getpeername(serving_socket(), address, &length) != 0) {
        return true;
    }
    unique_fd probe(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!probe) {
        return true;
    }
    if (connect(probe.get(), address, length) != 0) {
        return errno != EAGAIN; // so many wait for it already
    }
    pollfd greeting = {probe.get(), POLLIN, 0};
    return retry_eintr([&] { return poll(&greeting, 1, limit_ms); }) != 0;
}

class connection {
public:
    connection() : open_(ubus_connect_ctx(&context_, nullptr) == 0) {}
    connection(const connection &) = delete;
    connection &operator=(const connection &) = delete;
    ~connection()
    {
        if (open_) {
            ubus_shutdown(&context_);
        }
    }
    // Null when the bus could not be reached.
    ubus_context *get() { return open_ ? &context_ : nullptr; }

private:
    ubus_context context_ = {};
    bool open_;
};

int errno_of(int status)
{
    switch (status) {
    case object_missing:
    case UBUS_STATUS_NOT_FOUND:
        return ENOENT;
    case out_of_memory:
        return ENOMEM;
    case UBUS_STATUS_INVALID_ARGUMENT:
        return EINVAL;
    case UBUS_STATUS_PERMISSION_DENIED:
        return EACCES;
    case UBUS_STATUS_TIMEOUT:
        return ETIMEDOUT;
    case UBUS_STATUS_CONNECTION_FAILED:
        return ECONNREFUSED;
    default:
        return EIO;
    }
}

} // namespace

int call_bus(const char *object, const char *method, blob_buf *request, ubus_data_handler_t reply, void *priv,
             int timeout_ms)
{
    if (!broker_greets(timeout_ms)) {
        return UBUS_STATUS_TIMEOUT;
    }
    connection bus;
    if (bus.get() == nullptr) {
        return UBUS_STATUS_CONNECTION_FAILED;
    }
    uint32_t id = 0;
    int status = ubus_lookup_id(bus.get(), object, &id);
    if (status) {
        return status == UBUS_STATUS_NOT_FOUND ? object_missing : status;
    }
    // found, and without an id: nothing that can be called
    if (id == 0) {
        return object_missing;
    }
    message nothing;
    return ubus_invoke(bus.get(), id, method, request != nullptr ? request->head : nothing.get()->head, reply,
                       priv, timeout_ms);
}

int fail_bus(int status, const char *operation, const char *arguments, ...)
{
    char shown_arguments[256];
    va_list args;
    va_start(args, arguments);
    vsnprintf(shown_arguments, sizeof(shown_arguments), arguments, args);
    va_end(args);
    const char *reason = status == object_missing  ? "no such object"
                         : status == out_of_memory ? "not asked"
                                                   : ubus_strerror(status);
    return fail(errno_of(status), operation, "%s [bus: %s]", shown_arguments, reason);
}

} // namespace libsys
