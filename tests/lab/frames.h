// Ethernet frames for tests, and a switch whose registers a test can set by name.
#pragma once

#include "forwarder.h"
#include "switch_regs.h"

#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

namespace lab_test {

using Frame = std::vector<uint8_t>;

inline constexpr uint64_t broadcast = 0xffff'ffff'ffff;

inline void put_address(Frame &frame, uint64_t address)
{
    for (int shift = 40; shift >= 0; shift -= 8) {
        frame.push_back(static_cast<uint8_t>(address >> shift & 0xff));
    }
}

inline void put_word(Frame &frame, unsigned word)
{
    frame.push_back(static_cast<uint8_t>(word >> 8 & 0xff));
    frame.push_back(static_cast<uint8_t>(word & 0xff));
}

// Tags are 0x8100 with the given control information, outermost first; the payload is `filling` repeated.
inline Frame make_frame(uint64_t to, uint64_t from, std::initializer_list<unsigned> tags, size_t payload = 46,
                        uint8_t filling = 0x5a)
{
    Frame frame;
    put_address(frame, to);
    put_address(frame, from);
    for (const unsigned tag : tags) {
        put_word(frame, 0x8100);
        put_word(frame, tag);
    }
    put_word(frame, 0x0800);
    frame.insert(frame.end(), payload, filling);
    return frame;
}

struct Sent {
    unsigned port;
    Frame frame;

    bool operator==(const Sent &) const = default;
};

class TestSwitch {
public:
    explicit TestSwitch(unsigned cpu_ports = 1) : forwarder(lab::SwitchRegs(block.data()), cpu_ports) {}

    lab::SwitchRegs regs() { return lab::SwitchRegs(block.data()); }

    void set_field(uint32_t offset, unsigned shift, uint32_t mask, uint32_t value)
    {
        block[offset / 4] = (block[offset / 4] & ~(mask << shift)) | (value & mask) << shift;
    }
    void pvid(unsigned port, unsigned vid) { set_field(0x40 + 4 * (port / 2), port % 2 * 12, 0xfff, vid); }
    void vlan(unsigned entry, unsigned vid, unsigned members, unsigned untag = 0)
    {
        set_field(0x50 + 4 * (entry / 2), entry % 2 * 12, 0xfff, vid);
        set_field(0x70 + 4 * (entry / 4), entry % 4 * 8, 0xff, members);
        set_field(0x100 + 4 * (entry / 4), entry % 4 * 7, 0x7f, untag);
    }
    void untagging(bool on) { set_field(0x98, 15, 1, on ? 1 : 0); }

    // What the daemon lays out at start with LAN 1 on port 1 and LANs on ports 1..4.
    void daemon_layout()
    {
        untagging(true);
        vlan(0, 4090, 0x41, 0x3f);
        vlan(1, 4091, 0x5e, 0x3f);
        pvid(0, 4090);
        for (unsigned port = 1; port <= 4; port++) {
            pvid(port, 4091);
        }
    }

    std::vector<Sent> send(unsigned port, const Frame &frame, uint64_t now = 0)
    {
        std::vector<Sent> sent;
        for (const lab::Egress &egress : forwarder.forward(port, frame, now)) {
            sent.push_back({egress.port, Frame(egress.frame.begin(), egress.frame.end())});
        }
        return sent;
    }
    std::vector<unsigned> ports_reached(unsigned port, const Frame &frame, uint64_t now = 0)
    {
        std::vector<unsigned> ports;
        for (const Sent &sent : send(port, frame, now)) {
            ports.push_back(sent.port);
        }
        return ports;
    }
    uint64_t drops(unsigned port, lab::Drop reason) const
    {
        return forwarder.counters(port).drops[static_cast<size_t>(reason)];
    }

private:
    std::vector<uint32_t> block = std::vector<uint32_t>(lab::switch_block_size / 4);

public:
    lab::Forwarder forwarder;
};

} // namespace lab_test
