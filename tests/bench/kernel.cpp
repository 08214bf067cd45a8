#include "kernel.h"

#include "pairs.h"

#include <arpa/inet.h>
#include <cstring>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

namespace bench {

namespace {

// A request under construction; everything that is put into it is small.
struct request {
    request(uint16_t type, int flags) : header(mnl_nlmsg_put_header(bytes))
    {
        header->nlmsg_type = type;
        header->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
    }
    template <typename Body> Body *body()
    {
        return static_cast<Body *>(mnl_nlmsg_put_extra_header(header, sizeof(Body)));
    }
    alignas(nlmsghdr) char bytes[512] = {};
    nlmsghdr *header;
};

void put_route(request &into, const kernel::route &which)
{
    auto *body = into.body<rtmsg>();
    body->rtm_family = AF_INET;
    body->rtm_dst_len = which.prefix;
    body->rtm_type = RTN_UNICAST;
    body->rtm_scope = into.header->nlmsg_type == RTM_NEWROUTE ? RT_SCOPE_UNIVERSE : RT_SCOPE_NOWHERE;
    mnl_attr_put_u32(into.header, RTA_TABLE, which.table);
    mnl_attr_put_u32(into.header, RTA_DST, htonl(which.destination));
    mnl_attr_put_u32(into.header, RTA_GATEWAY, htonl(which.gateway));
    if (which.metric != 0) {
        mnl_attr_put_u32(into.header, RTA_PRIORITY, which.metric);
    }
}

} // namespace

kernel::kernel() : socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC))
{
    if (!socket_ || mnl_socket_bind(socket_, 0, MNL_SOCKET_AUTOPID) != 0) {
        give_up("no routing netlink socket");
    }
}

void kernel::exchange(const char *what, nlmsghdr *message)
{
    message->nlmsg_seq = ++sequence_;
    char answer[8192];
    if (mnl_socket_sendto(socket_, message, message->nlmsg_len) < 0) {
        give_up(std::string(what) + ": not sent");
    }
    const ssize_t got = mnl_socket_recvfrom(socket_, answer, sizeof(answer));
    if (got <= 0 || mnl_cb_run(answer, static_cast<size_t>(got), sequence_, mnl_socket_get_portid(socket_),
                               nullptr, nullptr) < 0) {
        give_up(std::string(what) + ": " + std::strerror(errno));
    }
}

void kernel::add_route(const route &which)
{
    request message(RTM_NEWROUTE, NLM_F_CREATE | NLM_F_REPLACE);
    put_route(message, which);
    exchange("route", message.header);
}

void kernel::delete_route(const route &which)
{
    request message(RTM_DELROUTE, 0);
    put_route(message, which);
    exchange("delete route", message.header);
}

void kernel::add_vlan(uint32_t lower, const std::string &name, uint16_t vlan)
{
    request message(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    message.body<ifinfomsg>();
    mnl_attr_put_strz(message.header, IFLA_IFNAME, name.c_str());
    mnl_attr_put_u32(message.header, IFLA_LINK, lower);
    nlattr *info = mnl_attr_nest_start(message.header, IFLA_LINKINFO);
    mnl_attr_put_str(message.header, IFLA_INFO_KIND, "vlan");
    nlattr *data = mnl_attr_nest_start(message.header, IFLA_INFO_DATA);
    mnl_attr_put_u16(message.header, IFLA_VLAN_ID, vlan);
    mnl_attr_nest_end(message.header, data);
    mnl_attr_nest_end(message.header, info);
    exchange("vlan", message.header);
}

void kernel::add_bridge(const std::string &name)
{
    request message(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    message.body<ifinfomsg>();
    mnl_attr_put_strz(message.header, IFLA_IFNAME, name.c_str());
    nlattr *info = mnl_attr_nest_start(message.header, IFLA_LINKINFO);
    mnl_attr_put_str(message.header, IFLA_INFO_KIND, "bridge");
    nlattr *data = mnl_attr_nest_start(message.header, IFLA_INFO_DATA);
    mnl_attr_put_u32(message.header, IFLA_BR_STP_STATE, 0);
    mnl_attr_put_u32(message.header, IFLA_BR_FORWARD_DELAY, 0);
    mnl_attr_nest_end(message.header, data);
    mnl_attr_nest_end(message.header, info);
    exchange("bridge", message.header);
}

void kernel::set_mac(uint32_t which, const uint8_t (&mac)[6])
{
    request message(RTM_NEWLINK, 0);
    message.body<ifinfomsg>()->ifi_index = static_cast<int>(which);
    mnl_attr_put(message.header, IFLA_ADDRESS, sizeof(mac), mac);
    exchange("mac", message.header);
}

void kernel::set_up(uint32_t which)
{
    request message(RTM_NEWLINK, 0);
    auto *body = message.body<ifinfomsg>();
    body->ifi_index = static_cast<int>(which);
    body->ifi_change = IFF_UP;
    body->ifi_flags = IFF_UP;
    exchange("up", message.header);
}

void kernel::set_bridge(uint32_t which, uint32_t bridge)
{
    request message(RTM_NEWLINK, 0);
    message.body<ifinfomsg>()->ifi_index = static_cast<int>(which);
    mnl_attr_put_u32(message.header, IFLA_MASTER, bridge);
    exchange("bridge member", message.header);
}

void kernel::add_address(uint32_t which, uint32_t address, uint8_t prefix)
{
    request message(RTM_NEWADDR, NLM_F_CREATE | NLM_F_EXCL);
    auto *body = message.body<ifaddrmsg>();
    body->ifa_family = AF_INET;
    body->ifa_prefixlen = prefix;
    body->ifa_index = which;
    mnl_attr_put_u32(message.header, IFA_LOCAL, htonl(address));
    mnl_attr_put_u32(message.header, IFA_ADDRESS, htonl(address));
    mnl_attr_put_u32(message.header, IFA_BROADCAST, htonl(address | (UINT32_MAX >> prefix)));
    exchange("address", message.header);
}

void kernel::delete_device(uint32_t which)
{
    request message(RTM_DELLINK, 0);
    message.body<ifinfomsg>()->ifi_index = static_cast<int>(which);
    exchange("delete device", message.header);
}

uint32_t device(const std::string &name)
{
    const unsigned index = if_nametoindex(name.c_str());
    if (index == 0) {
        give_up("no device " + name);
    }
    return index;
}

} // namespace bench
