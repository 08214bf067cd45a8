/* Constants and a helper shared by the bus library and the broker. */
#pragma once

#include <libubox/blobmsg.h>
#include <stdbool.h>
#include <stdint.h>

#define UBUS_UNIX_SOCKET "/var/run/ubus/ubus.sock"

#define UBUS_SIGNATURE_METHOD (BLOBMSG_TYPE_LAST + 1)
#define UBUS_SIGNATURE_END (BLOBMSG_TYPE_LAST + 2)

/* True when both texts are equal; *len becomes the length of what they have in common from the start. */
static inline bool ubus_strmatch_len(const char *s1, const char *s2, int *len)
{
    for (*len = 0; s1[*len] == s2[*len]; (*len)++) {
        if (!s1[*len]) {
            return true;
        }
    }
    return false;
}
