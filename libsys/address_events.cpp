// New IPv4 addresses, from the kernel's routing messages.
//
// An address is announced when it appears, and again when its device comes back up: the kernel has flushed
// the routes through the device meanwhile and says nothing about its addresses. When the kernel had more to
// say than the socket could hold, every address is announced anew; hearing of one twice is harmless, missing
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

// Which devices are up, as a set of bits by index. Grows with the highest index seen, up to a limit that the
// kernel's own numbering does not reach; a device beyond it is announced more often than needed.
class index_set {
public:
    bool has(uint32_t index) const { return index / 8 < size_ && (bits_[index / 8] & bit(index)); }
    void put(uint32_t index, bool member)
    {
        if (index / 8 >= size_ && !(member && grow(index / 8 + 1))) {
            return;
        }
        auto &byte = bits_[index / 8];
        byte = static_cast<uint8_t>(member ? byte | bit(index) : byte & ~bit(index));
    }

private:
    static uint8_t bit(uint32_t index) { return static_cast<uint8_t>(1U << (index % 8)); }
    bool grow(size_t size)
    {
        if (size > largest) {
            return false;
        }
        size *= 2;
        auto *bits = static_cast<uint8_t *>(realloc(bits_, size));
        if (!bits) {
            return false;
        }
        memset(bits + size_, 0, size - size_);
        bits_ = bits;
        size_ = size;
        return true;
    }

    static constexpr size_t largest = 1 << 20;
    uint8_t *bits_ = nullptr;
    size_t size_ = 0;
};

index_set devices_up;

void deliver(const nlmsghdr &message, const ifaddrmsg &body)
{
    const nlattr *address = netlink::find(message, sizeof(body), IFA_LOCAL);
    if (!address) {
        address = netlink::find(message, sizeof(body), IFA_ADDRESS);
    }
    if (registered && body.ifa_family == AF_INET && address) {
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

void note_device(const nlmsghdr &message, const ifinfomsg &body)
{
    auto index = static_cast<uint32_t>(body.ifi_index);
    bool was_up = devices_up.has(index);
    bool is_up = message.nlmsg_type == RTM_NEWLINK && (body.ifi_flags & IFF_UP);
    devices_up.put(index, is_up);
    if (is_up && !was_up) {
        announce_addresses(index);
    }
}

// Takes the devices' states as they are, without announcing anything.
int read_devices()
{
    netlink::request request(RTM_GETLINK, NLM_F_DUMP);
    request.body<ifinfomsg>();
    netlink::reply answer;
    int error = netlink::exchange(request, &answer);
    if (!error) {
        answer.each<ifinfomsg>(RTM_NEWLINK, [](const nlmsghdr &, const ifinfomsg &body) {
            devices_up.put(static_cast<uint32_t>(body.ifi_index), (body.ifi_flags & IFF_UP) != 0);
        });
    }
    return error;
}

void read_everything_again()
{
    if (int error = read_devices()) {
        fail(error, "read devices after lost messages", "%s", "");
    }
    announce_addresses(any_device);
}

void take_message(const nlmsghdr &message)
{
    size_t length = mnl_nlmsg_get_payload_len(&message);
    const void *body = mnl_nlmsg_get_payload(&message);
    if (message.nlmsg_type == RTM_NEWADDR && length >= sizeof(ifaddrmsg)) {
        deliver(message, *static_cast<const ifaddrmsg *>(body));
    } else if ((message.nlmsg_type == RTM_NEWLINK || message.nlmsg_type == RTM_DELLINK) &&
               length >= sizeof(ifinfomsg)) {
        note_device(message, *static_cast<const ifinfomsg *>(body));
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
        read_everything_again();
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
    // After the socket listens, so that no change falls between.
    if (int error = read_devices()) {
        return error;
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
    if (type != nl_rtmsg_new_address || !cb) {
        return fail(EINVAL, __func__, "%d, %s", type, cb ? "callback" : "(null)");
    }
    registered = cb;
    return 0;
}
