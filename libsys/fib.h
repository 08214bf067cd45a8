/*
 * Unicast IPv4 routes of one routing table.
 *
 * Addresses are in host byte order. The functions give 0 or a positive errno value.
 */
#pragma once

#include "netlink.h"

#include <arpa/inet.h>

namespace libsys {

struct fib_route {
    uint32_t table;
    uint32_t destination;
    uint8_t prefix;
    uint32_t gateway; // 0: on the link itself
    uint32_t device;  // index; 0: the kernel chooses, or several paths
    uint32_t metric;
};

// type: RTM_NEWROUTE or RTM_DELROUTE; flags: NLM_F_* of a creation. A new route carries own_protocol; a
// removal takes the route whoever made it.
int change_route(uint16_t type, uint16_t flags, const fib_route &route);

// Calls visit(const fib_route &) for each route of a table.
template <typename Visit> int each_route(uint32_t table, Visit visit)
{
    netlink::request request(RTM_GETROUTE, NLM_F_DUMP);
    request.body<rtmsg>()->rtm_family = AF_INET;
    netlink::reply answer;
    if (int error = netlink::exchange(request, &answer)) {
        return error;
    }
    answer.each<rtmsg>(RTM_NEWROUTE, [&](const nlmsghdr &message, const rtmsg &body) {
        auto number = [&](uint16_t type, uint32_t absent) {
            return netlink::value_u32(netlink::find(message, sizeof(body), type), absent);
        };
        if (body.rtm_family == AF_INET && body.rtm_type == RTN_UNICAST && !(body.rtm_flags & RTM_F_CLONED) &&
            number(RTA_TABLE, body.rtm_table) == table) {
            visit(fib_route{table, ntohl(number(RTA_DST, 0)), body.rtm_dst_len, ntohl(number(RTA_GATEWAY, 0)),
                            number(RTA_OIF, 0), number(RTA_PRIORITY, 0)});
        }
    });
    return 0;
}

} // namespace libsys
