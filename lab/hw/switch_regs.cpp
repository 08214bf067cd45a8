#include "switch_regs.h"

namespace lab {

namespace {

// Offsets of every word that the forwarding plane depends on.
constexpr std::array<uint32_t, 20> watched = {
    reg_pvid,         reg_pvid + 4,     reg_pvid + 8,         reg_vlan_id,          reg_vlan_id + 4,
    reg_vlan_id + 8,  reg_vlan_id + 12, reg_vlan_id + 16,     reg_vlan_id + 20,     reg_vlan_id + 24,
    reg_vlan_id + 28, reg_vlan_members, reg_vlan_members + 4, reg_vlan_members + 8, reg_vlan_members + 12,
    reg_port_control, reg_vlan_untag,   reg_vlan_untag + 4,   reg_vlan_untag + 8,   reg_vlan_untag + 12};

} // namespace

void VlanView::refresh(const SwitchRegs &regs)
{
    bool changed = false;
    for (unsigned i = 0; i < raw_words; i++) {
        const uint32_t word = regs.read(watched[i]);
        changed |= word != raw_[i];
        raw_[i] = word;
    }
    if (!changed) {
        return;
    }
    // A word that changes again between the two readings is caught by the next refresh, since raw holds the
    // older.
    for (unsigned i = 0; i < vlan_entries; i++) {
        entries_[i] = regs.entry(i);
    }
    for (unsigned port = 0; port < front_ports; port++) {
        pvids_[port] = regs.pvid(port);
    }
    untagging_ = regs.untag_enabled();
}

const VlanEntry *VlanView::find(uint16_t vid) const
{
    for (const VlanEntry &entry : entries_) {
        if (entry.vid == vid && !entry.free()) {
            return &entry;
        }
    }
    return nullptr;
}

} // namespace lab
