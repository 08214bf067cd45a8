// The emulated PHYs as a management bus and a cable see them.
#include "phy.h"

#include <gtest/gtest.h>
#include <memory>

namespace lab_test {

namespace {

class PhyTest : public testing::Test {
protected:
    PhyTest() { power_on(false); }

    void power_on(bool gigabit)
    {
        for (lab::Phy &phy : file->phy) {
            lab::phy_power_on(phy, gigabit);
        }
    }
    unsigned read(unsigned number, unsigned address = 2)
    {
        uint16_t value = 0;
        EXPECT_TRUE(lab::mii_read(*file, address, number, value));
        return value;
    }
    void write(unsigned number, unsigned value, unsigned address = 2)
    {
        EXPECT_TRUE(lab::mii_write(*file, address, number, static_cast<uint16_t>(value)));
    }
    lab::LinkMode mode()
    {
        lab::LinkMode result{0, false};
        lab::phy_mode(file->phy[2], result);
        return result;
    }
    bool link_bit() { return (read(1) & lab::bmsr_link) != 0; }

    std::unique_ptr<lab::PhyFile> file = std::make_unique<lab::PhyFile>();
};

TEST_F(PhyTest, PowersOnNegotiatingWithLink)
{
    EXPECT_EQ(read(0), 0x3100U);
    EXPECT_EQ(read(1), 0x786dU);
    EXPECT_EQ(read(5), 0x41e1U);
    EXPECT_EQ(mode().speed, 100U);
    EXPECT_TRUE(mode().full_duplex);
}

TEST_F(PhyTest, GigabitPhyTellsSoInItsOwnRegisters)
{
    power_on(true);
    EXPECT_EQ(read(0), 0x1140U);
    EXPECT_EQ(read(1), 0x796dU);
    EXPECT_EQ(read(10), 0x3800U);
    EXPECT_EQ(read(15), 0x2000U);
    EXPECT_EQ(mode().speed, 1000U);
}

TEST_F(PhyTest, ResetAndRestartBitsClearThemselves)
{
    write(0, 0x3300);
    EXPECT_EQ(read(0), 0x3100U);
    write(0, 0x0100);
    write(4, 0x0061);
    write(0, 0x8000);
    EXPECT_EQ(read(0), 0x3100U);
    EXPECT_EQ(read(4), 0x01e1U);
}

TEST_F(PhyTest, RestartedNegotiationShowsOnceInTheLatch)
{
    EXPECT_TRUE(link_bit());
    write(0, 0x3300);
    EXPECT_FALSE(link_bit());
    EXPECT_TRUE(link_bit());
    EXPECT_EQ(file->phy[2].losses.load(), 1U);
}

TEST_F(PhyTest, LinkBitLatchesLowOverAFlap)
{
    EXPECT_TRUE(link_bit());
    lab::phy_set_cable(file->phy[2], false);
    lab::phy_set_cable(file->phy[2], true);
    EXPECT_TRUE(lab::phy_link(file->phy[2]));
    EXPECT_FALSE(link_bit());
    EXPECT_TRUE(link_bit());
}

TEST_F(PhyTest, PulledCableStaysDownHoweverOftenItIsRead)
{
    lab::phy_set_cable(file->phy[2], false);
    EXPECT_FALSE(link_bit());
    EXPECT_FALSE(link_bit());
    EXPECT_EQ(read(1) & lab::bmsr_autoneg_done, 0U);
    EXPECT_EQ(read(5), 0U);
    lab::phy_set_cable(file->phy[2], true);
    EXPECT_TRUE(link_bit()) << "a link that came up after its loss was read is shown at once";
}

TEST_F(PhyTest, PowerDownDropsTheLinkAndPowerUpRestoresIt)
{
    write(0, read(0) | lab::bmcr_power_down);
    EXPECT_FALSE(lab::phy_link(file->phy[2]));
    EXPECT_TRUE(lab::phy_link(file->phy[3]));
    EXPECT_FALSE(link_bit());
    write(0, read(0) & ~static_cast<unsigned>(lab::bmcr_power_down));
    EXPECT_TRUE(lab::phy_link(file->phy[2]));
    lab::phy_set_power(file->phy[2], false);
    EXPECT_EQ(read(0), 0x3900U);
    lab::phy_set_power(file->phy[2], true);
    EXPECT_EQ(read(0), 0x3100U);
}

TEST_F(PhyTest, NegotiatesTheBestCommonMode)
{
    lab::phy_set_partner(file->phy[2], {10, true});
    EXPECT_EQ(mode().speed, 10U);
    EXPECT_TRUE(mode().full_duplex);
    lab::phy_set_partner(file->phy[2], {100, false});
    EXPECT_EQ(mode().speed, 100U);
    EXPECT_FALSE(mode().full_duplex);
    EXPECT_EQ(read(5), 0x40a1U);
    write(4, 0x0021);
    EXPECT_EQ(mode().speed, 10U);
    write(4, 0x0041);
    EXPECT_FALSE(lab::phy_link(file->phy[2])) << "10 full here, half duplex only there";
}

TEST_F(PhyTest, ForcedModeIsTakenAsSet)
{
    write(0, 0x2000);
    EXPECT_EQ(mode().speed, 100U);
    EXPECT_FALSE(mode().full_duplex);
    write(0, 0x0100);
    EXPECT_EQ(mode().speed, 10U);
    EXPECT_TRUE(mode().full_duplex);
    EXPECT_EQ(read(1) & lab::bmsr_autoneg_done, 0U);
}

TEST_F(PhyTest, ReadOnlyRegistersKeepTheirValues)
{
    for (const unsigned number : {1U, 2U, 3U, 5U, 6U, 9U, 10U, 15U}) {
        const unsigned before = read(number);
        write(number, before ^ 0xffffU);
        EXPECT_EQ(read(number), before) << "register " << number;
    }
    write(16, 0xbeef);
    EXPECT_EQ(read(16), 0xbeefU);
}

TEST_F(PhyTest, EmptyAddressesReadAllOnes)
{
    EXPECT_EQ(read(1, 5), 0xffffU);
    EXPECT_EQ(read(0, 31), 0xffffU);
    write(0, 0x0800, 5);
    uint16_t value = 0;
    EXPECT_FALSE(lab::mii_read(*file, 32, 0, value));
    EXPECT_FALSE(lab::mii_read(*file, 0, 32, value));
    EXPECT_FALSE(lab::mii_write(*file, 0, 32, 0));
}

} // namespace

} // namespace lab_test
