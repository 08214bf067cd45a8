#include "fib.h"

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

} // namespace libsys
