// The switch's register block as the lab sees it: words of a file that the router maps as its /dev/mem.
//
// SwitchRegs is a view, not an owner: the words belong to the mapping of the file and must outlive it. The
// words change under the reader at any time (another process programs them); each access reads or writes one
// whole 32-bit word, in the byte order of the machine, as the router's own driver would.
#pragma once

#include <array>
#include <cstdint>

namespace lab {

inline constexpr uint32_t switch_physical_base = 0x10110000;
inline constexpr uint32_t switch_block_size = 0x8000;

inline constexpr unsigned front_ports = 5;
inline constexpr unsigned second_cpu_port = 5;
inline constexpr unsigned cpu_port = 6;
inline constexpr unsigned port_count = 7;

inline constexpr unsigned vlan_entries = 16;

inline constexpr uint32_t reg_pvid = 0x40;
inline constexpr uint32_t reg_vlan_id = 0x50;
inline constexpr uint32_t reg_vlan_members = 0x70;
inline constexpr uint32_t reg_port_control = 0x98;
inline constexpr uint32_t reg_vlan_untag = 0x100;
inline constexpr uint32_t untag_enable_bit = 0x8000;

struct VlanEntry {
    uint16_t vid;
    uint8_t members; // bit n: switch port n, 7 bits
    uint8_t untag;   // bit n: frames leave port n without a tag, if the switch has untagging enabled

    // An entry that names no VLAN and has no member takes part in nothing.
    constexpr bool free() const { return vid == 0 && members == 0; }
};

constexpr bool switch_offset_valid(uint32_t offset)
{
    return offset < switch_block_size && offset % 4 == 0;
}

class SwitchRegs {
public:
    explicit SwitchRegs(volatile uint32_t *block) : words_(block) {}

    uint32_t read(uint32_t offset) const { return words_[offset / 4]; }
    void write(uint32_t offset, uint32_t value) const { words_[offset / 4] = value; }

    // Default VLAN of front port 0..4: two ports to a register, 12 bits each.
    uint16_t pvid(unsigned port) const
    {
        return static_cast<uint16_t>(read(reg_pvid + 4 * (port / 2)) >> (12 * (port % 2)) & 0xfff);
    }
    VlanEntry entry(unsigned index) const
    {
        return {static_cast<uint16_t>(read(reg_vlan_id + 4 * (index / 2)) >> (12 * (index % 2)) & 0xfff),
                static_cast<uint8_t>(read(reg_vlan_members + 4 * (index / 4)) >> (8 * (index % 4)) & 0x7f),
                static_cast<uint8_t>(read(reg_vlan_untag + 4 * (index / 4)) >> (7 * (index % 4)) & 0x7f)};
    }
    bool untag_enabled() const { return (read(reg_port_control) & untag_enable_bit) != 0; }

private:
    volatile uint32_t *words_;
};

// What the forwarding plane needs of the registers, decoded once and kept until a raw word differs.
class VlanView {
public:
    // Takes over what changed in the registers since the last call; cheap when nothing did.
    void refresh(const SwitchRegs &regs);

    const VlanEntry *
    find(uint16_t vid) const; // the first entry with this VLAN ID that is not free; else null
    const VlanEntry &entry(unsigned index) const { return entries_[index]; }
    uint16_t pvid(unsigned port) const { return pvids_[port]; }
    bool untag_enabled() const { return untagging_; }

private:
    static constexpr unsigned raw_words = 20;

    std::array<uint32_t, raw_words> raw_{};
    std::array<VlanEntry, vlan_entries> entries_{};
    std::array<uint16_t, front_ports> pvids_{};
    bool untagging_ = false;
};

} // namespace lab
