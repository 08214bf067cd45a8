// Answers and events of the kernel's routing socket, as a kernel would never give them. The library's calls
// return, look at nothing behind a datagram's end, and send requests of a possible size.
//
// An input chooses a call and then gives the datagrams that follow; when it ends, the kernel stays silent.
#include "netlink.h"

#include "exports.h"
#include "input.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <net/if.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using fuzz::promise;

fuzz::Input *script = nullptr;
uint32_t asked_sequence = 0;
uloop_fd *event_channel = nullptr;

void append(std::string &out, const void *bytes, size_t size)
{
    out.append(static_cast<const char *>(bytes), size);
    while (out.size() % 4 != 0) {
        out += '\0';
    }
}

std::string take_attributes(fuzz::Input &input, int depth)
{
    std::string out;
    for (int count = input.u8() % 8; count > 0; count--) {
        const uint8_t type = input.u8();
        const uint8_t size = input.u8();
        const std::string payload = size >= 0xf0 && depth < 3 ? take_attributes(input, depth + 1)
                                                              : std::string{input.bytes(size % 48)};
        nlattr header = {};
        // A length that is not true now and then.
        header.nla_len = static_cast<uint16_t>(size >= 0xe0 && size < 0xf0 ? input.u16()
                                                                           : sizeof(header) + payload.size());
        header.nla_type = type < 0xf0 ? type % 64 : input.u16();
        append(out, &header, sizeof header);
        append(out, payload.data(), payload.size());
    }
    return out;
}

void take_message(fuzz::Input &input, std::string &datagram)
{
    static constexpr struct {
        uint16_t type;
        size_t body;
    } kinds[] = {{NLMSG_ERROR, sizeof(int)},       {NLMSG_DONE, sizeof(int)},
                 {RTM_NEWLINK, sizeof(ifinfomsg)}, {RTM_DELLINK, sizeof(ifinfomsg)},
                 {RTM_NEWADDR, sizeof(ifaddrmsg)}, {RTM_NEWROUTE, sizeof(rtmsg)},
                 {RTM_NEWRULE, sizeof(rtmsg)},     {RTM_DELADDR, sizeof(ifaddrmsg)}};
    const auto &kind = kinds[input.u8() % 8];
    const uint8_t flags = input.u8();
    std::string payload{input.bytes(flags & 1 ? input.u8() : kind.body)};
    payload.resize(flags & 1 ? payload.size() : kind.body);
    if (kind.body != sizeof(int)) {
        payload += take_attributes(input, 0);
    }
    nlmsghdr header = {};
    header.nlmsg_type = kind.type;
    header.nlmsg_flags = flags & 2 ? NLM_F_DUMP_INTR : 0;
    header.nlmsg_seq = asked_sequence + (flags & 4 ? 1 : 0);
    header.nlmsg_len = flags & 8 ? input.u32() : static_cast<uint32_t>(sizeof(header) + payload.size());
    append(datagram, &header, sizeof header);
    append(datagram, payload.data(), payload.size());
}

const char *take_name(fuzz::Input &input)
{
    static constexpr const char *names[] = {
        "eth0", "lan1", "wan1", "eth0.4090", "", "a-name-that-is-too-long", "..", "a/b"};
    return names[input.u8() % 8];
}

const char *take_address(fuzz::Input &input)
{
    static constexpr const char *texts[] = {"192.168.1.1", "0.0.0.0",   "255.255.255.0", "10.0.0.1", "",
                                            "1.2.3",       "300.1.1.1", "255.0.255.0"};
    return texts[input.u8() % 8];
}

int on_address(const nl_addr_event *event)
{
    promise(event != nullptr, "an event is told");
    return 0;
}

void take_events()
{
    event_channel = nullptr;
    nl_rtmsg_handler_reg(20, on_address);
    if (nl_rtmsg_init() == 0 && event_channel != nullptr) {
        event_channel->cb(event_channel, ULOOP_READ);
        close(event_channel->fd);
        event_channel->registered = false;
    }
}

void call(fuzz::Input &input)
{
    const uint8_t what = input.u8();
    const char *name = take_name(input);
    const char *other = take_name(input);
    const char *address = take_address(input);
    const int priority = what < 0x80 ? 20001 : 10001 + input.u8();
    uint8_t mac[6] = {2, 0, 0, 0, 0, 1};
    switch (what % 20) {
    case 0:
        netilib_vintf_create(name, 4090);
        break;
    case 1:
        netlib_vintf_delete(name);
        break;
    case 2:
        netlib_eth_mac_set(name, mac);
        break;
    case 3:
        netlib_eth_mac_get(name, mac);
        break;
    case 4:
        netlib_eth_intf_up(name);
        break;
    case 5:
        netlib_eth_intf_exist(name);
        break;
    case 6:
        netlib_br_create(name);
        break;
    case 7:
        netlib_br_delete(name);
        break;
    case 8:
        netlib_br_addif(name, other);
        break;
    case 9:
        netlib_br_delif(name, other);
        break;
    case 10:
        netlib_intf_set_ip(name, address);
        break;
    case 11:
        netlib_intf_set_netmask(name, address);
        break;
    case 12:
        netlib_intf_gateway_add(priority, address, name, priority);
        break;
    case 13:
        netlib_intf_gateway_del(priority, address, name, priority);
        break;
    case 14:
        netlib_intf_plcrt_add(name, priority);
        break;
    case 15:
        netlib_intf_plcrt_del(name, priority);
        break;
    case 16:
        netlib_rt_add_gw(10000, address, "255.255.255.0", "10.0.0.1", what < 0x80 ? name : nullptr, 1);
        break;
    case 17:
        netlib_rt_del_gw(10000, address, "255.255.255.0", "10.0.0.1", what < 0x80 ? name : nullptr, 1);
        break;
    case 18:
        netlib_ip_rule_add(10000, "lookup 10000 suppress_prefixlength 0");
        break;
    default:
        take_events();
    }
}

} // namespace

extern "C" {

// Nothing looks into the socket; it is only handed around.
mnl_socket *__wrap_mnl_socket_open2(int, int)
{
    static int something;
    return reinterpret_cast<mnl_socket *>(&something);
}

int __wrap_mnl_socket_bind(mnl_socket *, unsigned int, pid_t)
{
    return 0;
}

int __wrap_mnl_socket_get_fd(const mnl_socket *)
{
    return -1;
}

int __wrap_mnl_socket_close(mnl_socket *)
{
    return 0;
}

ssize_t __wrap_mnl_socket_sendto(const mnl_socket *, const void *request, size_t size)
{
    const auto *header = static_cast<const nlmsghdr *>(request);
    promise(size == header->nlmsg_len && size >= sizeof(nlmsghdr) && size <= 512,
            "requests fit their buffer");
    asked_sequence = header->nlmsg_seq;
    return static_cast<ssize_t>(size);
}

int __wrap_socket(int, int, int)
{
    return open("/dev/null", O_RDWR | O_CLOEXEC);
}

int __wrap_bind(int, const sockaddr *, socklen_t)
{
    return 0;
}

int __wrap_setsockopt(int, int, int, const void *, socklen_t)
{
    return 0;
}

int __wrap_uloop_fd_add(uloop_fd *sock, unsigned int)
{
    event_channel = sock;
    sock->registered = true;
    return 0;
}

ssize_t __wrap_recvfrom(int, void *buffer, size_t room, int, sockaddr *sender, socklen_t *)
{
    if (script->empty()) {
        errno = EAGAIN;
        return -1;
    }
    const uint8_t shape = script->u8();
    if (shape == 0xff) {
        errno = ENOBUFS;
        return -1;
    }
    std::string datagram;
    for (int count = 1 + shape % 4; count > 0; count--) {
        take_message(*script, datagram);
    }
    if (shape == 0xfe) {
        datagram.resize(room + 1);
    }
    sockaddr_nl from = {};
    from.nl_family = AF_NETLINK;
    from.nl_pid = shape == 0xfd ? 42 : 0;
    memcpy(sender, &from, sizeof from);
    memcpy(buffer, datagram.data(), datagram.size() < room ? datagram.size() : room);
    return static_cast<ssize_t>(datagram.size());
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    fuzz::Input input(data, size);
    script = &input;
    call(input);
    return 0;
}

} // extern "C"
