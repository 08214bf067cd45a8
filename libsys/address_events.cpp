// New IPv4 addresses, from the kernel's routing messages.
//
// An address is announced when it appears, and again when its device comes back up: the kernel has flushed
// the routes through the device meanwhile and says nothing about its addresses. When the kernel had more to
// say than the socket could hold, every address is announced again; hearing of one twice is harmless, missing
// one is not.

#include "exports.h"
#include "internal.h"
#include "netlink.h"

#include <arpa/inet.h>
#include <cstring>
#include <net/if.h>
#include <sys/socket.h>

namespace libsys {

namespace {

constexpr uint32_t any_device = 0;

using address_callback = int (*)(const nl_addr_event *);

address_callback registered = nullptr;
uloop_fd channel = {};

void deliver(const nlmsghdr &message, const ifaddrmsg &body)
{
    const nlattr *address = netlink::find(message, sizeof(body), IFA_LOCAL);
    if (address == nullptr) {
        address = netlink::find(message, sizeof(body), IFA_ADDRESS);
    }
    if (registered != nullptr && body.ifa_family == AF_INET && address != nullptr) {
        nl_addr_event event = {body.ifa_index, ntohl(netlink::value_u32(address, 0))};
        registered(&event);
    }
}

void announce_addresses(uint32_t device)
{
    netlink::request request(RTM_GETADDR, NLM_F_DUMP);
    request.body<ifaddrmsg>()->ifa_family = AF_INET;
    netlink::reply answer;
    if (int error = netlink::exchange(request, &answer)) {
        fail(error, "announce addresses", "device %u", device);
        return;
    }
    answer.each<ifaddrmsg>(RTM_NEWADDR, [&](const nlmsghdr &message, const ifaddrmsg &body) {
        if (device == any_device || body.ifa_index == device) {
            deliver(message, body);
        }
    });
}

// The kernel says which flags have changed.
void note_device(const ifinfomsg &body)
{
    if ((body.ifi_flags & body.ifi_change & IFF_UP) != 0) {
        announce_addresses(static_cast<uint32_t>(body.ifi_index));
    }
}

void take_message(const nlmsghdr &message)
{
    size_t length = mnl_nlmsg_get_payload_len(&message);
    const void *body = mnl_nlmsg_get_payload(&message);
    if (message.nlmsg_type == RTM_NEWADDR && length >= sizeof(ifaddrmsg)) {
        deliver(message, *static_cast<const ifaddrmsg *>(body));
    } else if (message.nlmsg_type == RTM_NEWLINK && length >= sizeof(ifinfomsg)) {
        note_device(*static_cast<const ifinfomsg *>(body));
    }
}

// True while there may be more to read.
bool receive()
{
    alignas(nlmsghdr) static char buffer[16384];
    sockaddr_nl sender = {};
    socklen_t sender_size = sizeof(sender);
    ssize_t got = retry_eintr([&] {
        return recvfrom(channel.fd, buffer, sizeof(buffer), MSG_DONTWAIT | MSG_TRUNC,
                        reinterpret_cast<sockaddr *>(&sender), &sender_size);
    });
    if ((got < 0 && errno == ENOBUFS) || got > static_cast<ssize_t>(sizeof(buffer))) {
        announce_addresses(any_device);
        return true;
    }
    if (got <= 0 || sender.nl_pid != 0) {
        return got > 0;
    }
    int left = static_cast<int>(got);
    for (const auto *message = reinterpret_cast<const nlmsghdr *>(buffer); netlink::is_whole(message, left);
         message = mnl_nlmsg_next(message, &left)) {
        take_message(*message);
    }
    return true;
}

void on_messages(uloop_fd *, unsigned)
{
    while (receive()) {
    }
    // The loop lets go of a descriptor that reports an error, and lost messages are reported as one.
    if (!channel.registered && uloop_fd_add(&channel, ULOOP_READ) != 0) {
        fail(errno, "watch routing messages", "descriptor %d", channel.fd);
    }
}

int open_channel()
{
    unique_fd fresh(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE));
    sockaddr_nl address = {};
    address.nl_family = AF_NETLINK;
    address.nl_groups = RTMGRP_LINK | RTMGRP_IPV4_IFADDR;
    if (!fresh || bind(fresh.get(), reinterpret_cast<sockaddr *>(&address), sizeof(address)) != 0) {
        return errno;
    }
    channel.fd = fresh.get();
    channel.cb = on_messages;
    if (uloop_fd_add(&channel, ULOOP_READ) != 0) {
        return errno;
    }
    fresh.release();
    return 0;
}

} // namespace

} // namespace libsys

using namespace libsys;

int nl_rtmsg_init(void)
{
    if (channel.registered) {
        return 0;
    }
    int error = open_channel();
    return error ? fail(error, __func__, "%s", "") : 0;
}

int nl_rtmsg_handler_reg(int type, int (*cb)(const struct nl_addr_event *event))
{
    if (type != nl_rtmsg_new_address || cb == nullptr) {
        return fail(EINVAL, __func__, "%d, %s", type, cb != nullptr ? "callback" : "(null)");
    }
    registered = cb;
    return 0;
}
