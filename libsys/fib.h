// Unicast IPv4 routes of one routing table.
//
// Addresses are in host byte order. The functions give 0 or a positive errno value.
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
// removal takes the route of any maker.
int change_route(uint16_t type, uint16_t flags, const fib_route &route);

// Reads a route of a message; false for what is no unicast IPv4 route of a table.
bool read_fib_route(const nlmsghdr &message, const rtmsg &body, fib_route *out);

// The route that now serves an address, as its table has it; a question to the kernel's index that costs the
// same however long the tables are. An errno value when none does.
int route_serving(uint32_t address, fib_route *out);

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
        fib_route route;
        if (read_fib_route(message, body, &route) && route.table == table) {
            visit(route);
        }
    });
    return 0;
}

} // namespace libsys
