#include "world.h"

namespace seam {
namespace {

// Where the switch's data sheet puts these.
constexpr uint32_t pvid_register = 0x40;   // two ports in each, of 12 bits
constexpr uint32_t vid_register = 0x50;    // two entries
constexpr uint32_t member_register = 0x70; // four entries, of 8 bits
constexpr uint32_t control_register = 0x98;
constexpr uint32_t untag_register = 0x100; // four entries, of 7 bits
constexpr uint32_t untagging_on = 0x8000;

struct Field {
    uint32_t offset;
    uint32_t shift;
    uint32_t mask;
};

constexpr Field pvid_field(uint32_t port)
{
    return {pvid_register + 4 * (port / 2), 12 * (port % 2), 0xfff};
}

constexpr Field untag_field(uint32_t index)
{
    return {untag_register + 4 * (index / 4), 7 * (index % 4), 0x7f};
}

} // namespace

uint32_t Hardware::field(uint32_t offset, uint32_t shift, uint32_t mask) const
{
    const auto found = registers.find(offset);
    return found == registers.end() ? 0 : found->second >> shift & mask;
}

Hardware::VlanEntry Hardware::vlan_entry(uint32_t index) const
{
    return {field(vid_register + 4 * (index / 2), 12 * (index % 2), 0xfff),
            field(member_register + 4 * (index / 4), 8 * (index % 4), 0xff)};
}

uint32_t Hardware::pvid(uint32_t port) const
{
    const auto [offset, shift, mask] = pvid_field(port);
    return field(offset, shift, mask);
}

uint32_t Hardware::untagged(uint32_t index) const
{
    const auto [offset, shift, mask] = untag_field(index);
    return field(offset, shift, mask);
}

bool Hardware::untagging() const
{
    return field(control_register, 0, untagging_on) != 0;
}

void Hardware::clear(uint32_t offset, uint32_t shift, uint32_t mask)
{
    if (const auto found = registers.find(offset); found != registers.end()) {
        found->second &= ~(mask << shift);
    }
}

bool Hardware::uses_pvid(uint32_t port) const
{
    for (uint32_t i = 0; i < vlan_entries; ++i) {
        if (const VlanEntry entry = vlan_entry(i);
            entry.vid == pvid(port) && (entry.members >> port & 1) != 0) {
            return true;
        }
    }
    return false;
}

void Hardware::forget_idle(Hardware &a, Hardware &b)
{
    for (uint32_t port = 0; port < front_ports; ++port) {
        if (!a.uses_pvid(port) && !b.uses_pvid(port)) {
            const auto [offset, shift, mask] = pvid_field(port);
            a.clear(offset, shift, mask);
            b.clear(offset, shift, mask);
        }
    }
    for (uint32_t i = 0; i < vlan_entries; ++i) {
        if (a.vlan_entry(i).members == 0 && b.vlan_entry(i).members == 0) {
            const auto [offset, shift, mask] = untag_field(i);
            a.clear(offset, shift, mask);
            b.clear(offset, shift, mask);
        }
    }
}

std::string Hardware::vlans() const
{
    std::string out;
    for (uint32_t i = 0; i < vlan_entries; ++i) {
        const VlanEntry entry = vlan_entry(i);
        if (entry == VlanEntry{}) {
            continue;
        }
        out += std::to_string(i) + ": " + std::to_string(entry.vid) + " members";
        const char *between = " ";
        for (uint32_t port = 0; port < 8; ++port) {
            if ((entry.members >> port & 1) != 0) {
                out += between + std::to_string(port);
                between = ",";
            }
        }
        out += "\n";
    }
    return out;
}

std::string Hardware::pvids() const
{
    std::string out;
    for (uint32_t port = 0; port < front_ports; ++port) {
        out += std::to_string(port) + ": " + std::to_string(pvid(port)) + "\n";
    }
    return out;
}

} // namespace seam
