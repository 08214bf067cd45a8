// Emulated copper PHYs behind the switch's five front ports, in a small file shared by the forwarding plane,
// the ioctl shim in the router's processes, and tests.
//
// The structures live in shared memory: every field is a lock-free 32-bit atomic, and several processes may
// read and write at once. Register numbers and bits are those of IEEE 802.3 clause 22. A PHY has link when a
// cable is plugged, it is not powered down and both ends find a common mode. Register 1 bit 2 latches low:
// after a loss of link the next reading shows it, even if the link is back.
#pragma once

#include <atomic>
#include <cstdint>

namespace lab {

inline constexpr unsigned phy_count = 5;
inline constexpr unsigned phy_registers = 32;

inline constexpr uint16_t bmcr_reset = 0x8000;
inline constexpr uint16_t bmcr_autoneg = 0x1000;
inline constexpr uint16_t bmcr_power_down = 0x0800;
inline constexpr uint16_t bmcr_restart = 0x0200;
inline constexpr uint16_t bmsr_autoneg_done = 0x0020;
inline constexpr uint16_t bmsr_link = 0x0004;

struct LinkMode {
    unsigned speed; // Mbit/s: 10, 100, 1000
    bool full_duplex;
};

struct Phy {
    std::atomic<uint32_t> reg[phy_registers]; // the registers that hold what was written to them
    std::atomic<uint32_t> gigabit;            // 1: can do 1000 Mbit/s
    std::atomic<uint32_t> cable;              // 1: plugged, and the far end is alive
    std::atomic<uint32_t> partner_speed;      // the fastest the far end can do
    std::atomic<uint32_t> partner_full;       // 1: the far end can do full duplex
    std::atomic<uint32_t> latched;            // 1: link was lost since register 1 was last read
    std::atomic<uint32_t> losses;             // how often link was lost; wraps
};
static_assert(std::atomic<uint32_t>::is_always_lock_free);

struct PhyFile {
    static constexpr uint32_t valid = 0x50485931;

    std::atomic<uint32_t> magic; // `valid` once the PHYs below have their power-on state
    Phy phy[phy_count];
};

// Power-on state: negotiating, cable plugged to a gigabit full-duplex partner.
void phy_power_on(Phy &phy, bool gigabit);

bool phy_link(const Phy &phy);
// The negotiated or forced mode; false when there is no link (mode is untouched).
bool phy_mode(const Phy &phy, LinkMode &mode);

void phy_set_cable(Phy &phy, bool plugged);
void phy_set_partner(Phy &phy, LinkMode mode);
void phy_set_power(Phy &phy, bool on);

// One management-bus cycle. An address without a PHY reads as all ones and swallows writes, as a bus with
// pull-ups does; false when the address or register number does not fit the frame's five bits.
bool mii_read(PhyFile &file, uint32_t address, uint32_t number, uint16_t &value);
bool mii_write(PhyFile &file, uint32_t address, uint32_t number, uint16_t value);

} // namespace lab
