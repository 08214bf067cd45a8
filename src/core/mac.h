// MAC addresses: six bytes, first byte first.
#pragma once

#include "platform/safestr.h"

#include <stdint.h>

constexpr uint32_t mac_size = 6;

// Copies an address; func and line as in core/text.h.
inline void mac_copy(uint8_t *mac, const uint8_t *from, const char *func = __builtin_FUNCTION(),
                     int line = __builtin_LINE())
{
    memcpy_safe_record(mac, mac_size, from, mac_size, func, line);
}
