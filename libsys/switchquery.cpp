// The kernel's query for the ports of the switch: one word for each of eight ports, those without a PHY 0.

#include "exports.h"
#include "internal.h"
#include "phy.h"

#include <cstring>

namespace libsys {

namespace {

constexpr unsigned port_count = 8;

int ask_ports(uint32_t (&words)[port_count])
{
    for (unsigned port = 0; port < phy_count; ++port) {
        if (int error = read_port_status(port, &words[port])) {
            return error;
        }
    }
    return 0;
}

} // namespace

} // namespace libsys

int knl_send_and_wait_response(uint32_t type, const void *, uint32_t, void *reply, uint32_t reply_size,
                               uint32_t *reply_len)
{
    using namespace libsys;
    uint32_t words[port_count] = {};
    int error = type != knl_port_status      ? ENOTSUP
                : reply == nullptr           ? EINVAL
                : reply_size < sizeof(words) ? ENOBUFS
                                             : ask_ports(words);
    if (error) {
        return fail(error, __func__, "0x%x, reply size %u", type, reply_size);
    }
    memcpy(reply, words, sizeof(words));
    if (reply_len != nullptr) {
        *reply_len = sizeof(words);
    }
    return 0;
}
