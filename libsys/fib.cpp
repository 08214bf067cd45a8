#include "fib.h"

#include <cerrno>

namespace libsys {

int change_route(uint16_t type, uint16_t flags, const fib_route &route)
{
    netlink::request request(type, flags);
    auto *body = request.body<rtmsg>();
    nlmsghdr *header = request.header();
    body->rtm_family = AF_INET;
    body->rtm_dst_len = route.prefix;
    // Numbers above 255 do not fit here; the attribute tells the table either way.
    body->rtm_table = RT_TABLE_UNSPEC;
    body->rtm_type = RTN_UNICAST;
    if (type == RTM_NEWROUTE) {
        body->rtm_protocol = netlink::own_protocol;
        body->rtm_scope = route.gateway ? RT_SCOPE_UNIVERSE : RT_SCOPE_LINK;
    } else {
        body->rtm_scope = RT_SCOPE_NOWHERE;
    }
    mnl_attr_put_u32(header, RTA_TABLE, route.table);
    mnl_attr_put_u32(header, RTA_DST, htonl(route.destination));
    if (route.gateway) {
        mnl_attr_put_u32(header, RTA_GATEWAY, htonl(route.gateway));
    }
    if (route.device) {
        mnl_attr_put_u32(header, RTA_OIF, route.device);
    }
    if (route.metric) {
        mnl_attr_put_u32(header, RTA_PRIORITY, route.metric);
    }
    return netlink::exchange(request);
}

bool read_fib_route(const nlmsghdr &message, const rtmsg &body, fib_route *out)
{
    auto number = [&](uint16_t type, uint32_t absent) {
        return netlink::value_u32(netlink::find(message, sizeof(body), type), absent);
    };
    *out = {number(RTA_TABLE, body.rtm_table), ntohl(number(RTA_DST, 0)), body.rtm_dst_len,
            ntohl(number(RTA_GATEWAY, 0)),     number(RTA_OIF, 0),        number(RTA_PRIORITY, 0)};
    return body.rtm_family == AF_INET && body.rtm_type == RTN_UNICAST &&
           ((body.rtm_flags & RTM_F_CLONED) == 0);
}

int route_serving(uint32_t address, fib_route *out)
{
    netlink::request request(RTM_GETROUTE, 0);
    auto *body = request.body<rtmsg>();
    body->rtm_family = AF_INET;
    body->rtm_dst_len = 32;
    // The route itself, with its own table; kernels that do not know this answer with a copy made for the
    // address ("cloned").
    body->rtm_flags = RTM_F_FIB_MATCH | RTM_F_LOOKUP_TABLE;
    mnl_attr_put_u32(request.header(), RTA_DST, htonl(address));
    request.answer_is_enough();
    netlink::reply answer;
    int error = netlink::exchange(request, &answer);
    if (error) {
        return error;
    }
    error = ESRCH;
    answer.each<rtmsg>(RTM_NEWROUTE, [&](const nlmsghdr &message, const rtmsg &found) {
        error = read_fib_route(message, found, out) ? 0 : ESRCH;
    });
    return error;
}

} // namespace libsys
