#include "modes.h"

#include <algorithm>
#include <cstdio>
#include <net/ethernet.h>

namespace neighbour {

namespace {

constexpr unsigned discovery = 0x8863;
constexpr unsigned session = 0x8864;
constexpr int patience_ms = 60000;
constexpr int request_ms = 1000;
constexpr uint32_t session_frames = 400;

enum Code : uint8_t {
    search = 0x09,
    offer = 0x07,
    request = 0x19,
    confirmation = 0x65,
    goodbye = 0xa7,
    data = 0x00
};
enum Tag : unsigned {
    end_of_list = 0x0000,
    service = 0x0101,
    concentrator = 0x0102,
    unique = 0x0103,
    cookie = 0x0104,
    relay = 0x0110,
    service_error = 0x0201,
    system_error = 0x0202,
    other_error = 0x0203
};

// LCP, PAP, CHAP, IPCP, CCP, IPV6CP, IP.
constexpr unsigned protocols[] = {0xc021, 0xc023, 0xc223, 0x8021, 0x80fd, 0x8057, 0x0021};

Bytes tag(unsigned name, const Bytes &value)
{
    Bytes made;
    append16(made, name);
    append16(made, static_cast<unsigned>(value.size()));
    append(made, value);
    return made;
}

Bytes tag(unsigned name, std::string_view value)
{
    return tag(name, Bytes(value.begin(), value.end()));
}

Bytes both(Bytes one, const Bytes &other)
{
    append(one, other);
    return one;
}

Bytes packet(uint8_t code, unsigned number, const Bytes &payload, size_t told)
{
    Bytes made = {0x11, code};
    append16(made, number);
    append16(made, static_cast<unsigned>(told));
    append(made, payload);
    return made;
}

Bytes packet(uint8_t code, unsigned number, const Bytes &payload)
{
    return packet(code, number, payload, payload.size());
}

// Whom to answer, and the tag by which a client knows answers to its own search.
struct Client {
    Mac mac;
    Bytes mark;
};

Client client_of(const Bytes &frame)
{
    Client client{};
    std::copy_n(frame.begin() + 6, client.mac.size(), client.mac.begin());
    for (size_t at = 20; at + 4 <= frame.size();) {
        const size_t size = static_cast<size_t>(frame[at + 2]) << 8 | frame[at + 3];
        if ((frame[at] << 8 | frame[at + 1]) == unique && at + 4 + size <= frame.size()) {
            const auto begin = frame.begin() + static_cast<std::ptrdiff_t>(at + 4);
            client.mark = tag(unique, Bytes(begin, begin + static_cast<std::ptrdiff_t>(size)));
        }
        at += 4 + size;
    }
    return client;
}

Bytes sound_tags(const Client &client)
{
    return both(both(tag(service, "isp"), tag(concentrator, "lab")), client.mark);
}

void send_broken_answers(Wire &wire, Random &random, const Client &client, uint8_t code, unsigned number)
{
    const Bytes sound = sound_tags(client);
    const std::string_view orders = "%n%s$(touch /tmp/pwned)`touch /tmp/pwned`\n";
    Bytes many;
    for (int i = 0; i < 350; ++i) {
        append(many, tag(concentrator, ""));
    }
    Bytes torn = sound;
    append(torn, Bytes{0x01});
    Bytes too_long = sound;
    append16(too_long, concentrator);
    append16(too_long, 0xffff);
    append(too_long, marker);
    for (const Bytes &tags :
         {torn, too_long, many, Bytes(), client.mark, tag(concentrator, "lab"),
          both(tag(service, "isp"), tag(unique, random.bytes(8))),
          both(client.mark, tag(concentrator, random.bytes(1400))),
          both(client.mark, tag(service, random.bytes(1400))),
          both(client.mark, tag(relay, random.bytes(1300))), both(client.mark, tag(service_error, orders)),
          both(client.mark, tag(system_error, orders)), both(client.mark, tag(other_error, orders)),
          both(tag(end_of_list, "x"), sound), random.bytes(600)}) {
        wire.send(ethernet(client.mac, discovery, packet(code, number, tags)));
    }
    wire.send(ethernet(client.mac, discovery, packet(code, number, sound, sound.size() + 1000)));
    wire.send(ethernet(client.mac, discovery, packet(code, number, sound, 1)));
    wire.send(ethernet(client.mac, discovery, random.bytes(40)));
    wire.send(ethernet(client.mac, discovery, Bytes{0x11, code}));
}

// With a sound head, so that what reads it goes on to the options, whose lengths are not.
Bytes negotiation(Random &random)
{
    Bytes options;
    for (uint32_t count = random.below(8); count > 0; --count) {
        append(options,
               Bytes{static_cast<uint8_t>(random.below(20)), static_cast<uint8_t>(random.below(12))});
        append(options, random.bytes(random.below(10)));
    }
    append(options, marker);
    Bytes made = {static_cast<uint8_t>(1 + random.below(12)), static_cast<uint8_t>(random.below(4))};
    append16(made, random.below(4) == 0 ? random.below(0x10000) : static_cast<unsigned>(4 + options.size()));
    append(made, options);
    return made;
}

void hold_session(Wire &wire, Random &random, const Client &client, unsigned number)
{
    for (uint32_t i = 0; i < session_frames; ++i) {
        Bytes inside;
        append16(inside, random.below(16) == 0 ? random.below(0x10000)
                                               : protocols[random.below(std::size(protocols))]);
        append(inside, random.below(3) == 0 ? random.bytes(random.below(1480)) : negotiation(random));
        const unsigned told =
            random.below(8) == 0 ? random.below(0x10000) : static_cast<unsigned>(inside.size());
        wire.send(ethernet(client.mac, session, packet(data, number, inside, told)));
    }
}

bool hear(Wire &wire, uint8_t code, int limit_ms, Bytes &frame)
{
    while (wire.hear(discovery, limit_ms, frame)) {
        if (frame.size() >= 20 && frame[15] == code) {
            return true;
        }
    }
    return false;
}

} // namespace

void garble_pppoe(Wire &wire, Random &random, uint32_t sessions)
{
    for (uint32_t done = 0; done < sessions;) {
        Bytes frame;
        if (!hear(wire, search, patience_ms, frame)) {
            return;
        }
        const Client client = client_of(frame);
        send_broken_answers(wire, random, client, offer, 0);
        wire.send(ethernet(client.mac, discovery, packet(offer, 0, sound_tags(client))));
        if (!hear(wire, request, request_ms, frame)) {
            continue;
        }
        // one number for all, as the client may take a broken one
        const unsigned number = 1 + random.below(0xfffe);
        send_broken_answers(wire, random, client, confirmation, number);
        wire.send(ethernet(client.mac, discovery, packet(confirmation, number, sound_tags(client))));
        hold_session(wire, random, client, number);
        wire.send(ethernet(client.mac, discovery, packet(goodbye, number, client.mark)));
        printf("session %u\n", ++done);
    }
    printf("done\n");
}

} // namespace neighbour
