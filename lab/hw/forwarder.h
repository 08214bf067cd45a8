// The forwarding plane of the emulated switch, without any device: a frame and the port it came in on go in,
// the frames that leave come out. Reads the registers for each frame.
//
// Rules. A front port puts frames without a tag, or with a tag of VLAN 0, into its PVID's VLAN; CPU-side
// ports speak tagged only. The VLAN must be in the table and the port a member of it, or the frame is
// dropped; it leaves only through members that are up. A CPU-side port sends tagged; a front port untagged
// where the entry's untag bit is set and the switch has untagging enabled. Only the outermost 0x8100 tag
// counts: an inner one is payload. Stations are learnt per VLAN. Lengths are without the frame check
// sequence, which TAP devices do not carry.
#pragma once

#include "mac_table.h"
#include "switch_regs.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace lab {

inline constexpr size_t ethernet_header = 14;
inline constexpr size_t tag_size = 4;
// 1500 bytes of payload, header, two tags. On a wire with its check sequence: 1526.
inline constexpr size_t max_frame = 1522;
// Tagging a frame of the full length that came without.
inline constexpr size_t max_egress_frame = max_frame + tag_size;
inline constexpr size_t mac_table_size = 1024;

enum class Drop : uint8_t {
    port_down,
    runt,
    oversize,
    bad_source,     // the source is a group address
    cpu_untagged,   // no VLAN on a CPU-side port
    unknown_vlan,   // no table entry
    not_member,     // of the VLAN the frame belongs to
    same_port,      // the station is where the frame comes from
    no_destination, // nobody else is there
    count
};
inline constexpr size_t drop_reasons = static_cast<size_t>(Drop::count);
const char *drop_name(Drop reason);

struct PortCounters {
    uint64_t rx_frames = 0; // everything offered, drops included
    uint64_t rx_bytes = 0;
    uint64_t tx_frames = 0;
    uint64_t tx_bytes = 0;
    std::array<uint64_t, drop_reasons> drops{}; // at the port the frame came in on
};

struct Egress {
    unsigned port;
    std::span<const uint8_t> frame; // valid until the next call of forward()
};

class Forwarder {
public:
    // `cpu_ports` is 1 (port 6) or 2 (ports 6 and 5). The registers must outlive the forwarder.
    Forwarder(SwitchRegs registers, unsigned cpu_ports);

    std::span<const Egress> forward(unsigned in_port, std::span<const uint8_t> frame, uint64_t now_ms);

    // Bit n: front port n has link. A port that goes down forgets its stations. CPU-side ports are always up.
    void set_link(uint8_t front_mask);
    // The port lost link and may have it again already.
    void link_lost(unsigned port) { macs_.flush_port(port); }

    bool exists(unsigned port) const { return (existing_ >> port & 1) != 0; }
    bool is_cpu(unsigned port) const { return exists(port) && port >= front_ports; }
    bool up(unsigned port) const { return (active_ >> port & 1) != 0; }

    MacTable &mac_table() { return macs_; }
    const PortCounters &counters(unsigned port) const { return ports_[port]; }

private:
    struct Classified {
        const VlanEntry *entry;
        uint16_t tci; // priority bits as received, VLAN as decided
        bool tagged;  // came with a tag
    };

    bool classify(unsigned in_port, std::span<const uint8_t> frame, Classified &result, Drop &reason) const;
    uint8_t destinations(unsigned in_port, const Classified &frame_class, std::span<const uint8_t> frame,
                         uint64_t now_ms, Drop &reason) const;
    void emit(const Classified &frame_class, std::span<const uint8_t> frame, uint8_t mask);
    std::span<const uint8_t> tagged_form(const Classified &frame_class, std::span<const uint8_t> frame);
    std::span<const uint8_t> untagged_form(const Classified &frame_class, std::span<const uint8_t> frame);

    SwitchRegs regs_;
    VlanView vlans_;
    MacTable macs_{mac_table_size};
    uint8_t existing_;
    uint8_t active_;
    std::array<PortCounters, port_count> ports_{};
    std::array<Egress, port_count> out_{};
    size_t out_count_ = 0;
    std::array<uint8_t, max_egress_frame> with_tag_{};
    std::array<uint8_t, max_frame> without_tag_{};
};

} // namespace lab
