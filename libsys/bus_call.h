/*
 * Calls to other objects on the bus, each on a connection of its own: while such a call waits, requests to
 * our own objects stay where they are, and a broker that was restarted is found again without further ado.
 */
#pragma once

#include <cerrno>
#include <libubus.h>

namespace libsys {

constexpr int call_timeout_ms = 3000;

// No such object; apart from the bus's own status "not found", which the method itself may give.
constexpr int object_missing = -UBUS_STATUS_NOT_FOUND;

// A message could not be built; older bus libraries have no status for that.
constexpr int out_of_memory = -ENOMEM;

// 0, a UBUS_STATUS_* value or object_missing. message and reply may be null.
int call_bus(const char *object, const char *method, blob_buf *message, ubus_data_handler_t reply, void *priv,
             int timeout_ms = call_timeout_ms);

// fail() for such a result or out_of_memory; the status is told by the bus's own text.
[[gnu::format(printf, 3, 4)]] int fail_bus(int status, const char *operation, const char *arguments, ...);

} // namespace libsys
