#include "modes.h"

#include <net/ethernet.h>

namespace neighbour {

namespace {

// What a router's own programs and its switch listen to.
constexpr unsigned known_types[] = {0x0800, 0x0806, 0x86dd, 0x8100, 0x88a8, 0x8863,
                                    0x8864, 0x88cc, 0x8808, 0x0004, 0x05dc};
// Spanning tree, pause, LLDP, all hosts of IPv4 and IPv6.
constexpr Mac groups[] = {{0x01, 0x80, 0xc2, 0, 0, 0},
                          {0x01, 0x80, 0xc2, 0, 0, 1},
                          {0x01, 0x80, 0xc2, 0, 0, 0x0e},
                          {0x01, 0x00, 0x5e, 0, 0, 0x01},
                          {0x33, 0x33, 0, 0, 0, 1}};
// The LANs, the WANs, and what must never be on a cable.
constexpr uint32_t networks[] = {0xc0a80100, 0xc0a80200, 0xc0a80300, 0xcb007100, 0xcb007200,
                                 0x7f000000, 0xe0000000, 0xffffff00, 0x00000000};

template <typename Item, size_t count> const Item &one_of(Random &random, const Item (&list)[count])
{
    return list[random.below(count)];
}

uint32_t somebody(Random &random)
{
    return one_of(random, networks) + random.below(256);
}

Mac addressee(Random &random, const Mac &router)
{
    switch (random.below(4)) {
    case 0:
        return everybody;
    case 1:
        return one_of(random, groups);
    case 2:
        return {0x02, random.byte(), random.byte(), random.byte(), random.byte(), random.byte()};
    default:
        return router;
    }
}

// Tags of the switch's inner VLANs among others: one layer, or several.
Bytes tagged(Random &random, unsigned type, const Bytes &payload)
{
    Bytes made;
    for (uint32_t layer = random.below(3); layer > 0; --layer) {
        append16(made, random.below(2) == 0 ? 4085 + random.below(11) : random.below(4096));
        append16(made, 0x8100);
    }
    append16(made, 4085 + random.below(11));
    append16(made, type);
    append(made, payload);
    return made;
}

Bytes arp(Random &random)
{
    Bytes made;
    append16(made, 1);
    append16(made, 0x0800);
    append(made, Bytes{6, 4});
    append16(made, 1 + random.below(2));
    append(made, Bytes(own_mac.begin(), own_mac.end()));
    append32(made, somebody(random));
    append(made, random.bytes(6));
    append32(made, somebody(random));
    append(made, marker);
    return made;
}

Bytes dhcp(Random &random)
{
    Bytes message = {static_cast<uint8_t>(1 + random.below(2)), 1, 6, 0};
    append(message, random.bytes(4 + 4));
    for (int field = 0; field < 4; ++field) {
        append32(message, somebody(random));
    }
    append(message, random.bytes(16));
    message.resize(236);
    append32(message, 0x63825363);
    append(message, Bytes{53, 1, static_cast<uint8_t>(random.below(10))});
    for (uint32_t option = random.below(12); option > 0; --option) {
        const Bytes value = random.bytes(random.below(24));
        append(message, Bytes{random.byte(), static_cast<uint8_t>(value.size())});
        append(message, value);
    }
    append(message, marker);
    const bool from_server = message[0] == 2;
    return udp(somebody(random), from_server ? 67 : 68, 0xffffffff, from_server ? 68 : 67, message);
}

Bytes anything(Random &random, unsigned type)
{
    Bytes payload = random.bytes(random.below(1400));
    if (type == ETHERTYPE_IP && payload.size() > 20) {
        // far enough in to reach what looks at ports and fragments
        payload[0] = static_cast<uint8_t>(0x40 | (4 + random.below(4)));
        const uint32_t to = somebody(random);
        for (size_t byte = 0; byte < 4; ++byte) {
            payload[16 + byte] = static_cast<uint8_t>(to >> (8 * (3 - byte)));
        }
    }
    append(payload, marker);
    return payload;
}

Bytes random_frame(Random &random, const Mac &router)
{
    const Mac to = addressee(random, router);
    const unsigned type = random.below(8) == 0 ? random.below(0x10000) : one_of(random, known_types);
    const Bytes payload = anything(random, type);
    Bytes frame = random.below(3) == 0 ? ethernet(to, 0x8100, tagged(random, type, payload))
                                       : ethernet(to, type, payload);
    if (random.below(16) == 0) {
        frame.resize(14 + random.below(8));
    }
    return frame;
}

} // namespace

void flood(Wire &wire, Random &random, const std::string &kind, const Mac &router, uint32_t count)
{
    for (; count > 0; --count) {
        if (kind == "arp") {
            wire.send(ethernet(random.below(2) == 0 ? everybody : router, ETHERTYPE_ARP, arp(random)));
        } else if (kind == "dhcp") {
            wire.send(ethernet(random.below(2) == 0 ? everybody : router, ETHERTYPE_IP, dhcp(random)));
        } else {
            wire.send(random_frame(random, router));
        }
    }
}

} // namespace neighbour
