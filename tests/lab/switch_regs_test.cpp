// Where the fields of the switch's registers are.
#include "switch_regs.h"

#include <gtest/gtest.h>
#include <vector>

namespace lab_test {

namespace {

struct Registers {
    std::vector<uint32_t> block = std::vector<uint32_t>(lab::switch_block_size / 4);
    lab::SwitchRegs view{block.data()};
};

TEST(SwitchRegs, OddEntryUsesTheUpperHalves)
{
    Registers r;
    r.block[0x54 / 4] = 0xff123456;
    r.block[0x70 / 4] = 0xc1000000;
    const lab::VlanEntry entry = r.view.entry(3);
    EXPECT_EQ(entry.vid, 0x123);
    EXPECT_EQ(entry.members, 0x41) << "bit 7 of the byte is no port";
    EXPECT_EQ(r.view.entry(2).vid, 0x456);
}

TEST(SwitchRegs, UntagFlagsAreSevenBitsApart)
{
    Registers r;
    r.block[0x104 / 4] = 0x3fU << 14;
    EXPECT_EQ(r.view.entry(6).untag, 0x3f);
    EXPECT_EQ(r.view.entry(5).untag, 0);
    EXPECT_EQ(r.view.entry(7).untag, 0);
}

TEST(SwitchRegs, PvidsShareARegisterInPairs)
{
    Registers r;
    r.block[0x40 / 4] = 4090 | 4091 << 12;
    r.block[0x44 / 4] = 4092 | 4093 << 12;
    r.block[0x48 / 4] = 4094;
    for (unsigned port = 0; port < 5; port++) {
        EXPECT_EQ(r.view.pvid(port), 4090 + port);
    }
}

TEST(SwitchRegs, ViewFollowsEveryWatchedRegister)
{
    Registers r;
    lab::VlanView view;
    view.refresh(r.view);
    EXPECT_EQ(view.find(0), nullptr);
    for (unsigned i = 0; i < lab::vlan_entries; i++) {
        r.block[(0x50 + 4 * (i / 2)) / 4] |= (200 + i) << (i % 2 * 12);
        view.refresh(r.view);
        ASSERT_NE(view.find(static_cast<uint16_t>(200 + i)), nullptr) << "entry " << i;
        r.block[(0x70 + 4 * (i / 4)) / 4] |= 0x15U << (i % 4 * 8);
        view.refresh(r.view);
        EXPECT_EQ(view.entry(i).members, 0x15) << "entry " << i;
        r.block[(0x100 + 4 * (i / 4)) / 4] |= 0x2aU << (i % 4 * 7);
        view.refresh(r.view);
        EXPECT_EQ(view.entry(i).untag, 0x2a) << "entry " << i;
    }
    for (unsigned port = 0; port < lab::front_ports; port++) {
        r.block[(0x40 + 4 * (port / 2)) / 4] |= (300 + port) << (port % 2 * 12);
        view.refresh(r.view);
        EXPECT_EQ(view.pvid(port), 300 + port);
    }
    EXPECT_FALSE(view.untag_enabled());
    r.block[0x98 / 4] = 0x8000;
    view.refresh(r.view);
    EXPECT_TRUE(view.untag_enabled());
}

TEST(SwitchRegs, OffsetsMustBeWholeWordsOfTheBlock)
{
    EXPECT_TRUE(lab::switch_offset_valid(0));
    EXPECT_TRUE(lab::switch_offset_valid(0x7ffc));
    EXPECT_FALSE(lab::switch_offset_valid(0x8000));
    EXPECT_FALSE(lab::switch_offset_valid(0x42));
    EXPECT_FALSE(lab::switch_offset_valid(0xfffffffc));
}

} // namespace

} // namespace lab_test
