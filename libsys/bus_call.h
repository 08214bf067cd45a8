// Calls to other objects on the bus, each on its own connection: while such a call waits, requests to
// our objects stay where they are, and a restarted broker needs no special care.
//
// The bus library may wait without end for the greeting of the broker and for its look-ups. So a broker that
// does not greet within the limit is not called at all.
#pragma once

#include <cerrno>
#include <libubus.h>

namespace libsys {

constexpr int call_timeout_ms = 3000;

// The connection that serves our own objects, or -1; also when it has been lost.
int serving_socket();

// No such object; apart from the bus's own status "not found", which the method itself may give.
constexpr int object_missing = -UBUS_STATUS_NOT_FOUND;

// A message could not be built; older bus libraries have no status for that.
constexpr int out_of_memory = -ENOMEM;

// Owns a message; empty at first.
class message {
public:
    message() { blob_buf_init(&buffer_, 0); }
    message(const message &) = delete;
    message &operator=(const message &) = delete;
    ~message() { blob_buf_free(&buffer_); }
    blob_buf *get() { return &buffer_; }

private:
    blob_buf buffer_ = {};
};

// 0, a UBUS_STATUS_* value or object_missing. request and reply may be null.
int call_bus(const char *object, const char *method, blob_buf *request, ubus_data_handler_t reply, void *priv,
             int timeout_ms = call_timeout_ms);

// fail() for a result of call_bus() or out_of_memory; the reason is ubus_strerror()'s.
[[gnu::format(printf, 3, 4)]] int fail_bus(int status, const char *operation, const char *arguments, ...);

} // namespace libsys
