// Sends frames of 64 bytes on a device for some seconds, as fast as it takes them; says how many and how
// long.

#include "kernel.h"
#include "pairs.h"
#include "questions.h"

#include <arpa/inet.h>
#include <cstdio>
#include <cstring>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <sys/socket.h>
#include <unistd.h>

namespace bench {

namespace {

constexpr size_t frame_size = 60; // without its check sum
constexpr int burst = 32;

void read_mac(const std::string &text, uint8_t *mac)
{
    if (std::sscanf(text.c_str(), "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", mac, mac + 1, mac + 2, mac + 3, mac + 4,
                    mac + 5) != 6) {
        give_up("no MAC address: " + text);
    }
}

} // namespace

void ask_frames(const words &given)
{
    const double seconds = std::stod(given.at(1));
    uint8_t frame[frame_size] = {};
    read_mac(given.at(2), frame);
    read_mac(given.at(3), frame + 6);
    frame[12] = 0x88; // an EtherType for experiments
    frame[13] = 0xb5;
    sockaddr_ll on = {};
    on.sll_family = AF_PACKET;
    on.sll_ifindex = static_cast<int>(device(given.at(0)));
    const int sender = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
    const int on_the_way = 1 << 20;
    if (sender < 0 || bind(sender, reinterpret_cast<sockaddr *>(&on), sizeof(on)) != 0 ||
        setsockopt(sender, SOL_SOCKET, SO_SNDBUF, &on_the_way, sizeof(on_the_way)) != 0) {
        give_up("no packet socket");
    }
    iovec bytes = {frame, sizeof(frame)};
    mmsghdr messages[burst] = {};
    for (mmsghdr &one : messages) {
        one.msg_hdr.msg_iov = &bytes;
        one.msg_hdr.msg_iovlen = 1;
    }
    long sent = 0;
    double spent = 0;
    while (spent < seconds * 1e6) {
        spent += microseconds([&] {
            const int got = sendmmsg(sender, messages, burst, 0);
            sent += got > 0 ? got : 0;
        });
    }
    close(sender);
    std::printf("frames %ld %.0f\n", sent, spent);
}

} // namespace bench
