// IPv4 addresses as text. Numbers are in host byte order.
#pragma once

#include <arpa/inet.h>
#include <bit>
#include <cstdint>

namespace libsys {

// Dotted quad only: four decimal numbers. False on anything else, null included.
inline bool parse_ipv4(const char *text, uint32_t *out)
{
    in_addr address;
    if (text == nullptr || inet_pton(AF_INET, text, &address) != 1) {
        return false;
    }
    *out = ntohl(address.s_addr);
    return true;
}

// The number of leading ones of a mask; false when ones follow a zero.
inline bool parse_mask(const char *text, uint8_t *prefix)
{
    uint32_t mask = 0;
    if (!parse_ipv4(text, &mask) || std::countl_one(mask) + std::countr_zero(mask) < 32) {
        return false;
    }
    *prefix = static_cast<uint8_t>(std::countl_one(mask));
    return true;
}

inline uint32_t mask_of(unsigned prefix)
{
    return prefix == 0 ? 0 : ~uint32_t{0} << (32 - prefix);
}

} // namespace libsys
