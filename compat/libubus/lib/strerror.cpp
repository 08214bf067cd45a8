// Texts of the status codes.
#include "internal.h"

#include <cstdio>

namespace {

constexpr const char *texts[__UBUS_STATUS_LAST] = {"Success",
                                                   "Invalid command",
                                                   "Invalid argument",
                                                   "Method not found",
                                                   "Not found",
                                                   "No response",
                                                   "Permission denied",
                                                   "Request timed out",
                                                   "Operation not supported",
                                                   "Unknown error",
                                                   "Connection failed",
                                                   "Out of memory",
                                                   "Parsing message data failed",
                                                   "System error"};

} // namespace

const char *ubus_strerror(int error)
{
    static char unknown[32];

    if (error >= 0 && error < __UBUS_STATUS_LAST) {
        return texts[error];
    }
    snprintf(unknown, sizeof(unknown), "Unknown error: %d", error);
    return unknown;
}
