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
    return field(pvid_register + 4 * (port / 2), 12 * (port % 2), 0xfff);
}

uint32_t Hardware::untagged(uint32_t index) const
{
    return field(untag_register + 4 * (index / 4), 7 * (index % 4), 0x7f);
}

bool Hardware::untagging() const
{
    return field(control_register, 0, untagging_on) != 0;
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
