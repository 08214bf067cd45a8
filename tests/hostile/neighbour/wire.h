// Frames as somebody on the cable makes them: bytes put together by hand, and a socket that sends and hears
// whole frames.
//
// Everything random comes from one generator, so that a seed brings the same frames. Every frame is sent from
// one MAC and holds `marker` somewhere, where there is room for it, so that it is known again wherever it
// turns up.
//
// Errors: std::runtime_error where the device cannot be used; a frame that the queue has no room for is lost.
#pragma once

#include "unique_fd.h"

#include <array>
#include <cstdint>
#include <random>
#include <string>
#include <string_view>
#include <vector>

namespace neighbour {

using Bytes = std::vector<uint8_t>;
using Mac = std::array<uint8_t, 6>;

constexpr Mac own_mac = {0x0a, 0xad, 0xad, 0xad, 0xad, 0x01};
constexpr Mac everybody = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
constexpr std::string_view marker = "ill-will";

class Random {
public:
    explicit Random(uint32_t seed) : generator_(seed) {}
    // 0 to limit - 1.
    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(generator_() % limit); }
    uint8_t byte() { return static_cast<uint8_t>(generator_()); }
    Bytes bytes(size_t count);
    template <typename List> const auto &one_of(const List &list)
    {
        return list[below(static_cast<uint32_t>(list.size()))];
    }

private:
    std::mt19937 generator_;
};

void append(Bytes &to, const Bytes &more);
void append(Bytes &to, std::string_view more);
void append16(Bytes &to, unsigned value);
void append32(Bytes &to, uint32_t value);

Bytes ethernet(const Mac &to, unsigned type, const Bytes &payload);
// UDP in IPv4 with right checksums of the header; `from` and `to` as numbers.
Bytes udp(uint32_t from, unsigned from_port, uint32_t to, unsigned to_port, const Bytes &payload);

class Wire {
public:
    explicit Wire(const std::string &device);
    void send(const Bytes &frame);
    // The next frame of this type that is not our own; false when none came within the time.
    bool hear(unsigned type, int limit_ms, Bytes &frame);

private:
    lab::UniqueFd socket_;
};

} // namespace neighbour
