#include "wire.h"

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <net/ethernet.h>
#include <net/if.h>
#include <netpacket/packet.h>
#include <poll.h>
#include <stdexcept>
#include <sys/socket.h>

namespace neighbour {

Bytes Random::bytes(size_t count)
{
    Bytes made(count);
    std::generate(made.begin(), made.end(), [&] { return byte(); });
    return made;
}

void append(Bytes &to, const Bytes &more)
{
    to.insert(to.end(), more.begin(), more.end());
}

void append(Bytes &to, std::string_view more)
{
    to.insert(to.end(), more.begin(), more.end());
}

void append16(Bytes &to, unsigned value)
{
    to.push_back(static_cast<uint8_t>(value >> 8));
    to.push_back(static_cast<uint8_t>(value));
}

void append32(Bytes &to, uint32_t value)
{
    append16(to, value >> 16);
    append16(to, value & 0xffff);
}

Bytes ethernet(const Mac &to, unsigned type, const Bytes &payload)
{
    Bytes frame(to.begin(), to.end());
    frame.insert(frame.end(), own_mac.begin(), own_mac.end());
    append16(frame, type);
    append(frame, payload);
    return frame;
}

Bytes udp(uint32_t from, unsigned from_port, uint32_t to, unsigned to_port, const Bytes &payload)
{
    Bytes packet = {0x45, 0};
    append16(packet, static_cast<unsigned>(28 + payload.size()));
    append32(packet, 0);
    append(packet, Bytes{64, IPPROTO_UDP, 0, 0});
    append32(packet, from);
    append32(packet, to);
    uint32_t sum = 0;
    for (size_t at = 0; at < 20; at += 2) {
        sum += static_cast<uint32_t>(packet[at] << 8 | packet[at + 1]);
    }
    sum = (sum & 0xffff) + (sum >> 16);
    sum = ~(sum + (sum >> 16)) & 0xffff;
    packet[10] = static_cast<uint8_t>(sum >> 8);
    packet[11] = static_cast<uint8_t>(sum);
    append16(packet, from_port);
    append16(packet, to_port);
    append16(packet, static_cast<unsigned>(8 + payload.size()));
    append16(packet, 0); // no checksum of the payload
    append(packet, payload);
    return packet;
}

Wire::Wire(const std::string &device) : socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(ETH_P_ALL)))
{
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(device.c_str()));
    // frames to our invented MAC are not this host's
    packet_mreq all{};
    all.mr_ifindex = address.sll_ifindex;
    all.mr_type = PACKET_MR_PROMISC;
    if (bind(socket_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof(address)) != 0 ||
        setsockopt(socket_.get(), SOL_PACKET, PACKET_ADD_MEMBERSHIP, &all, sizeof(all)) != 0) {
        throw std::runtime_error(device + ": " + strerror(errno));
    }
}

void Wire::send(const Bytes &frame)
{
    while (::send(socket_.get(), frame.data(), frame.size(), 0) < 0 && errno == EINTR) {
    }
}

bool Wire::hear(unsigned type, int limit_ms, Bytes &frame)
{
    using Clock = std::chrono::steady_clock;
    const Clock::time_point end = Clock::now() + std::chrono::milliseconds(limit_ms);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd readable = {socket_.get(), POLLIN, 0};
        if (left <= 0 || poll(&readable, 1, static_cast<int>(left)) <= 0) {
            return false;
        }
        frame.resize(2048);
        const ssize_t size = recv(socket_.get(), frame.data(), frame.size(), 0);
        if (size < 14 || std::equal(own_mac.begin(), own_mac.end(), frame.begin() + 6)) {
            continue;
        }
        frame.resize(static_cast<size_t>(size));
        if ((frame[12] << 8 | frame[13]) == static_cast<int>(type)) {
            return true;
        }
    }
}

} // namespace neighbour
