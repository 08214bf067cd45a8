#include "phy.h"

namespace lab {

namespace {

constexpr auto relaxed = std::memory_order_relaxed;

enum : unsigned {
    reg_bmcr = 0,
    reg_bmsr = 1,
    reg_id1 = 2,
    reg_id2 = 3,
    reg_advertise = 4,
    reg_partner = 5,
    reg_expansion = 6,
    reg_gigabit_control = 9,
    reg_gigabit_status = 10,
    reg_extended_status = 15
};

constexpr uint16_t id1 = 0x02a5;
constexpr uint16_t id2 = 0x6c10;

constexpr uint16_t ability_10_half = 0x0020;
constexpr uint16_t ability_10_full = 0x0040;
constexpr uint16_t ability_100_half = 0x0080;
constexpr uint16_t ability_100_full = 0x0100;
constexpr uint16_t ability_selector = 0x0001; // IEEE 802.3
constexpr uint16_t ability_acknowledge = 0x4000;
constexpr uint16_t gigabit_full = 0x0200;

constexpr uint16_t bmcr_speed_100 = 0x2000;
constexpr uint16_t bmcr_speed_1000 = 0x0040;
constexpr uint16_t bmcr_full = 0x0100;
constexpr uint16_t bmcr_kept = 0x7dc0; // all but reset, restart and the reserved bits

uint16_t load(const Phy &phy, unsigned number)
{
    return static_cast<uint16_t>(phy.reg[number].load(relaxed));
}

bool powered(const Phy &phy)
{
    return (load(phy, reg_bmcr) & bmcr_power_down) == 0;
}

uint16_t partner_abilities(const Phy &phy)
{
    const bool full = phy.partner_full.load(relaxed) != 0;
    unsigned bits = ability_selector | ability_10_half | (full ? ability_10_full : 0U);
    if (phy.partner_speed.load(relaxed) >= 100) {
        bits |= ability_100_half | (full ? ability_100_full : 0U);
    }
    return static_cast<uint16_t>(bits);
}

bool partner_gigabit(const Phy &phy)
{
    return phy.partner_speed.load(relaxed) >= 1000 && phy.partner_full.load(relaxed) != 0;
}

bool resolve(const Phy &phy, LinkMode &mode)
{
    const uint16_t control = load(phy, reg_bmcr);
    if (!(control & bmcr_autoneg)) {
        const bool thousand = (control & bmcr_speed_1000) != 0 && phy.gigabit.load(relaxed) != 0;
        mode = {thousand ? 1000U : (control & bmcr_speed_100) ? 100U : 10U, (control & bmcr_full) != 0};
        return true;
    }
    if (phy.gigabit.load(relaxed) != 0 && (load(phy, reg_gigabit_control) & gigabit_full) != 0 &&
        partner_gigabit(phy)) {
        mode = {1000, true};
        return true;
    }
    const unsigned common = load(phy, reg_advertise) & static_cast<unsigned>(partner_abilities(phy));
    if (common & ability_100_full) {
        mode = {100, true};
    } else if (common & ability_100_half) {
        mode = {100, false};
    } else if (common & ability_10_full) {
        mode = {10, true};
    } else if (common & ability_10_half) {
        mode = {10, false};
    } else {
        return false;
    }
    return true;
}

void note_loss(Phy &phy)
{
    phy.latched.store(1, relaxed);
    phy.losses.fetch_add(1, relaxed);
}

// Applies a change of what link depends on; a link that the change ends is latched and counted.
template <typename Change> void change_link(Phy &phy, Change change)
{
    const bool before = phy_link(phy);
    change();
    if (before && !phy_link(phy)) {
        note_loss(phy);
    }
}

void reset_registers(Phy &phy)
{
    const bool gigabit = phy.gigabit.load(relaxed) != 0;
    for (auto &reg : phy.reg) {
        reg.store(0, relaxed);
    }
    const unsigned speed = gigabit ? bmcr_speed_1000 : bmcr_speed_100;
    phy.reg[reg_bmcr].store(bmcr_autoneg | bmcr_full | speed, relaxed);
    phy.reg[reg_advertise].store(
        ability_selector | ability_10_half | ability_10_full | ability_100_half | ability_100_full, relaxed);
    phy.reg[reg_gigabit_control].store(gigabit ? gigabit_full : 0, relaxed);
}

uint16_t read_status(Phy &phy)
{
    // A loss between the two steps is seen by the link reading or by the next latch reading, never missed.
    const bool lost = phy.latched.exchange(0, relaxed) != 0;
    const bool link = phy_link(phy);
    unsigned bits = phy.gigabit.load(relaxed) ? 0x7949 : 0x7849;
    if (link && (load(phy, reg_bmcr) & bmcr_autoneg)) {
        bits |= bmsr_autoneg_done;
    }
    if (link && !lost) {
        bits |= bmsr_link;
    }
    return static_cast<uint16_t>(bits);
}

uint16_t read_register(Phy &phy, unsigned number)
{
    const bool negotiated = phy_link(phy) && ((load(phy, reg_bmcr) & bmcr_autoneg) != 0);
    const bool gigabit = phy.gigabit.load(relaxed) != 0;
    switch (number) {
    case reg_bmsr:
        return read_status(phy);
    case reg_id1:
        return id1;
    case reg_id2:
        return id2;
    case reg_partner:
        return negotiated ? static_cast<uint16_t>(partner_abilities(phy) | ability_acknowledge) : 0;
    case reg_expansion:
        return negotiated ? 1 : 0;
    case reg_gigabit_status:
        // Both receivers fine, and the far end can do 1000 full.
        return gigabit && negotiated && partner_gigabit(phy) ? 0x3800 : 0;
    case reg_extended_status:
        return gigabit ? 0x2000 : 0;
    default:
        return load(phy, number);
    }
}

void write_control(Phy &phy, uint16_t value)
{
    const bool before = phy_link(phy);
    if (value & bmcr_reset) {
        reset_registers(phy);
    } else {
        phy.reg[reg_bmcr].store(value & bmcr_kept, relaxed);
    }
    // Reset and restarted negotiation interrupt the link, if only for a moment: a poller must see it.
    const bool interrupted =
        ((value & bmcr_reset) != 0) || (((value & bmcr_restart) != 0) && ((value & bmcr_autoneg) != 0));
    if (before && (interrupted || !phy_link(phy))) {
        note_loss(phy);
    }
}

bool read_only(const Phy &phy, unsigned number)
{
    switch (number) {
    case reg_bmsr:
    case reg_id1:
    case reg_id2:
    case reg_partner:
    case reg_expansion:
    case reg_gigabit_status:
    case reg_extended_status:
        return true;
    case reg_gigabit_control:
        return phy.gigabit.load(relaxed) == 0;
    default:
        return false;
    }
}

} // namespace

void phy_power_on(Phy &phy, bool gigabit)
{
    phy.gigabit.store(gigabit ? 1 : 0, relaxed);
    reset_registers(phy);
    phy.cable.store(1, relaxed);
    phy.partner_speed.store(1000, relaxed);
    phy.partner_full.store(1, relaxed);
    phy.latched.store(0, relaxed);
    phy.losses.store(0, relaxed);
}

bool phy_mode(const Phy &phy, LinkMode &mode)
{
    return phy.cable.load(relaxed) != 0 && powered(phy) && resolve(phy, mode);
}

bool phy_link(const Phy &phy)
{
    LinkMode mode{};
    return phy_mode(phy, mode);
}

void phy_set_cable(Phy &phy, bool plugged)
{
    change_link(phy, [&] { phy.cable.store(plugged ? 1 : 0, relaxed); });
}

void phy_set_partner(Phy &phy, LinkMode mode)
{
    change_link(phy, [&] {
        phy.partner_speed.store(mode.speed, relaxed);
        phy.partner_full.store(mode.full_duplex ? 1 : 0, relaxed);
    });
}

void phy_set_power(Phy &phy, bool on)
{
    change_link(phy, [&] {
        if (on) {
            phy.reg[reg_bmcr].fetch_and(static_cast<uint32_t>(~bmcr_power_down), relaxed);
        } else {
            phy.reg[reg_bmcr].fetch_or(bmcr_power_down, relaxed);
        }
    });
}

bool mii_read(PhyFile &file, uint32_t address, uint32_t number, uint16_t &value)
{
    if (address >= 32 || number >= phy_registers) {
        return false;
    }
    value = address < phy_count ? read_register(file.phy[address], number) : uint16_t{0xffff};
    return true;
}

bool mii_write(PhyFile &file, uint32_t address, uint32_t number, uint16_t value)
{
    if (address >= 32 || number >= phy_registers) {
        return false;
    }
    if (address >= phy_count) {
        return true;
    }
    Phy &phy = file.phy[address];
    if (number == reg_bmcr) {
        write_control(phy, value);
    } else if (!read_only(phy, number)) {
        change_link(phy, [&] { phy.reg[number].store(value, relaxed); });
    }
    return true;
}

} // namespace lab
