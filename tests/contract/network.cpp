#include "network.h"

#include <algorithm>
#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/fib_rules.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sstream>
#include <sys/socket.h>
#include <unistd.h>

namespace {

std::string address_text(const nlattr *attribute)
{
    char text[INET_ADDRSTRLEN] = "0.0.0.0";
    if (attribute) {
        inet_ntop(AF_INET, mnl_attr_get_payload(attribute), text, sizeof(text));
    }
    return text;
}

std::string device_name(unsigned index)
{
    char name[IFNAMSIZ] = "?";
    if_indextoname(index, name);
    return name;
}

const nlattr *find(const nlmsghdr *message, size_t body, int type)
{
    const auto *attribute = static_cast<const nlattr *>(mnl_nlmsg_get_payload_offset(message, body));
    const auto *end = static_cast<const char *>(mnl_nlmsg_get_payload_tail(message));
    while (mnl_attr_ok(attribute, static_cast<int>(end - reinterpret_cast<const char *>(attribute)))) {
        if (mnl_attr_get_type(attribute) == type) {
            return attribute;
        }
        attribute = mnl_attr_next(attribute);
    }
    return nullptr;
}

std::string describe(const nlmsghdr *message)
{
    std::ostringstream text;
    if (message->nlmsg_type == RTM_NEWADDR || message->nlmsg_type == RTM_DELADDR) {
        const auto *body = static_cast<const ifaddrmsg *>(mnl_nlmsg_get_payload(message));
        text << (message->nlmsg_type == RTM_NEWADDR ? "+" : "-") << "address "
             << address_text(find(message, sizeof(*body), IFA_LOCAL)) << "/" << int{body->ifa_prefixlen}
             << " " << device_name(body->ifa_index);
    } else if (message->nlmsg_type == RTM_NEWROUTE || message->nlmsg_type == RTM_DELROUTE) {
        const auto *body = static_cast<const rtmsg *>(mnl_nlmsg_get_payload(message));
        const nlattr *table = find(message, sizeof(*body), RTA_TABLE);
        const nlattr *device = find(message, sizeof(*body), RTA_OIF);
        text << (message->nlmsg_type == RTM_NEWROUTE ? "+" : "-") << "route "
             << address_text(find(message, sizeof(*body), RTA_DST)) << "/" << int{body->rtm_dst_len}
             << " table " << (table ? mnl_attr_get_u32(table) : body->rtm_table) << " "
             << (device ? device_name(mnl_attr_get_u32(device)) : "?");
    } else if (message->nlmsg_type == RTM_NEWRULE || message->nlmsg_type == RTM_DELRULE) {
        const nlattr *preference = find(message, sizeof(fib_rule_hdr), FRA_PRIORITY);
        text << (message->nlmsg_type == RTM_NEWRULE ? "+" : "-") << "rule "
             << (preference ? mnl_attr_get_u32(preference) : 0);
    }
    return text.str();
}

} // namespace

std::string ip(const std::string &arguments)
{
    std::vector<std::string> argv = {"/sbin/ip"};
    std::istringstream words(arguments);
    for (std::string word; words >> word;) {
        argv.push_back(word);
    }
    Finished done = run_program(argv);
    EXPECT_EQ(done.status, 0) << "ip " << arguments << ": " << done.err;
    return done.out;
}

bool kernel_has(const std::string &kind)
{
    std::vector<std::string> argv = {"/sbin/ip", "link", "add"};
    if (kind == "vlan") {
        argv.insert(argv.end(), {"link", "v0"}); // the loopback device takes none
    }
    argv.insert(argv.end(), {"name", "probe0", "type", kind});
    if (kind == "vlan") {
        argv.insert(argv.end(), {"id", "7"});
    }
    if (run_program(argv).status != 0) {
        return false;
    }
    return run_program({"/sbin/ip", "link", "del", "probe0"}).status == 0;
}

Monitor::Monitor() : socket_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, NETLINK_ROUTE))
{
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_IPV4_IFADDR | RTMGRP_IPV4_ROUTE | RTMGRP_IPV4_RULE;
    EXPECT_EQ(bind(socket_, reinterpret_cast<sockaddr *>(&address), sizeof(address)), 0);
}

Monitor::~Monitor()
{
    close(socket_);
}

std::vector<std::string> Monitor::events()
{
    alignas(nlmsghdr) char buffer[8192];
    ssize_t got = 0;
    while ((got = recv(socket_, buffer, sizeof(buffer), MSG_DONTWAIT)) > 0) {
        int left = static_cast<int>(got);
        for (const auto *message = reinterpret_cast<const nlmsghdr *>(buffer); mnl_nlmsg_ok(message, left);
             message = mnl_nlmsg_next(message, &left)) {
            events_.push_back(describe(message));
        }
    }
    return events_;
}

void NetworkTest::SetUp()
{
    SandboxTest::SetUp();
    if (!IsSkipped()) {
        ip("link add v0 type veth peer name v1");
        ip("link add w0 type veth peer name w1");
        ip("link set v1 up");
        ip("link set w1 up");
    }
}

void TwoWansTest::SetUp()
{
    NetworkTest::SetUp();
    if (!IsSkipped()) {
        ip("link set v0 up");
        ip("link set w0 up");
        ip("address add 192.0.2.1/24 dev v0");
        ip("address add 198.51.100.1/24 dev w0");
    }
}

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

int position(const std::vector<std::string> &events, const std::string &event)
{
    auto found = std::find(events.begin(), events.end(), event);
    return found == events.end() ? -1 : static_cast<int>(found - events.begin());
}

void expect_order(const std::vector<std::string> &events, const std::string &first, const std::string &then)
{
    EXPECT_GE(position(events, first), 0) << first;
    EXPECT_LT(position(events, first), position(events, then)) << then;
}
