// The switch's VLAN table: where the bits of each entry lie, and how entries are found, filled and given
// back.

#include "board/vlan.h"
#include "board/vlan_table.h"
#include "daemon_test.h"

namespace unit {
namespace {

class VlanTable : public DaemonTest {
protected:
    void entry_is(uint32_t index, VlanEntry wanted)
    {
        EXPECT_EQ(vlan_entry(index).vid, wanted.vid) << "entry " << index;
        EXPECT_EQ(vlan_entry(index).members, wanted.members) << "entry " << index;
    }
    static void fill_pool(uint32_t members)
    {
        for (uint32_t index = 5; index < 16; index++) {
            vlan_entry_put(index, {100 + index, members});
        }
    }
};

struct Place {
    uint32_t index;
    uint32_t vid_register;
    uint32_t vid_after; // of 0xffffffff, for VLAN ID 0x123
    uint32_t member_register;
    uint32_t members_after; // of 0xffffffff, for members 0x41
};

class VlanEntrySet : public DaemonTest, public testing::WithParamInterface<Place> {};

// The register's top byte comes out as zero; the other entries' bits stay.
TEST_P(VlanEntrySet, ChangesItsOwnBitsAlone)
{
    const Place &place = GetParam();
    world.show_registers = true;
    world.registers[place.vid_register] = 0xffffffff;
    world.registers[place.member_register] = 0xffffffff;
    EXPECT_EQ(mtksw_vlan_entry_set(place.index, 0x123, 0x41), 0);
    EXPECT_EQ(world.registers[place.vid_register], place.vid_after);
    EXPECT_EQ(world.registers[place.member_register], place.members_after);
    EXPECT_EQ(world.registers.size(), 2U);

    uint32_t vid = 0;
    uint32_t members = 0;
    EXPECT_EQ(mtksw_vlan_entry_get(place.index, &vid, &members), 0);
    EXPECT_EQ(vid, 0x123U);
    EXPECT_EQ(members, 0x41U);
}

INSTANTIATE_TEST_SUITE_P(
    AllEntries, VlanEntrySet,
    testing::Values(
        Place{0, 0x50, 0x00fff123, 0x70, 0xffffff41}, Place{1, 0x50, 0x00123fff, 0x70, 0xffff41ff},
        Place{2, 0x54, 0x00fff123, 0x70, 0xff41ffff}, Place{3, 0x54, 0x00123fff, 0x70, 0x41ffffff},
        Place{4, 0x58, 0x00fff123, 0x74, 0xffffff41}, Place{5, 0x58, 0x00123fff, 0x74, 0xffff41ff},
        Place{6, 0x5c, 0x00fff123, 0x74, 0xff41ffff}, Place{7, 0x5c, 0x00123fff, 0x74, 0x41ffffff},
        Place{8, 0x60, 0x00fff123, 0x78, 0xffffff41}, Place{9, 0x60, 0x00123fff, 0x78, 0xffff41ff},
        Place{10, 0x64, 0x00fff123, 0x78, 0xff41ffff}, Place{11, 0x64, 0x00123fff, 0x78, 0x41ffffff},
        Place{12, 0x68, 0x00fff123, 0x7c, 0xffffff41}, Place{13, 0x68, 0x00123fff, 0x7c, 0xffff41ff},
        Place{14, 0x6c, 0x00fff123, 0x7c, 0xff41ffff}, Place{15, 0x6c, 0x00123fff, 0x7c, 0x41ffffff}),
    [](const auto &place) { return "entry" + std::to_string(place.param.index); });

TEST_F(VlanTable, SetReadsAndWritesTheIdBeforeTheMembers)
{
    world.show_registers = true;
    EXPECT_EQ(mtksw_vlan_entry_set(3, 0x123, 0x41), 0);
    expect_trace({"socket(IPv4 datagram, 0)", "switch_read(0x54)", "socket(IPv4 datagram, 0)",
                  "switch_write(0x54, 0x00123000)", "socket(IPv4 datagram, 0)", "switch_read(0x70)",
                  "socket(IPv4 datagram, 0)", "switch_write(0x70, 0x41000000)"});
}

TEST_F(VlanTable, IndexAndIdHaveLimits)
{
    uint32_t vid = 7;
    uint32_t members = 7;
    EXPECT_EQ(mtksw_vlan_entry_set(16, 1, 1), -2);
    EXPECT_EQ(mtksw_vlan_entry_set(0xffffffff, 1, 1), -2);
    EXPECT_EQ(mtksw_vlan_entry_set(0, 4096, 1), -2);
    EXPECT_EQ(mtksw_vlan_entry_set(0, 65535, 1), -2);
    EXPECT_EQ(mtksw_vlan_entry_get(16, &vid, &members), -2);
    EXPECT_EQ(vid, 7U);
    EXPECT_EQ(members, 7U);
    expect_quiet_trace({});
    EXPECT_EQ(mtksw_vlan_entry_set(15, 4095, 1), 0);
    entry_is(15, {4095, 1});
}

TEST_F(VlanTable, BitSevenOfAMemberByteIsNotAMember)
{
    world.registers[0x70] = 0x0000ff00;
    uint32_t vid = 0;
    uint32_t members = 0;
    EXPECT_EQ(mtksw_vlan_entry_get(1, &vid, &members), 0);
    EXPECT_EQ(members, 0x7fU);
}

TEST_F(VlanTable, SetDoesNotMaskTheMemberByte)
{
    EXPECT_EQ(mtksw_vlan_entry_set(0, 1, 0xff), 0);
    EXPECT_EQ(world.registers[0x70], 0xffU);
}

// The n-th access of "set": ID read, ID write, members read, members write.
TEST_F(VlanTable, SetStopsAtTheFirstFailureAndKeepsWhatWasWritten)
{
    const struct {
        const char *failing;
        int result;
        uint32_t vid_register;
    } cases[] = {
        {"switch_read(0x54", -6, 0},         {"switch_write(0x54", -6, 0}, {"switch_read(0x70", -6, 0x123000},
        {"switch_write(0x70", -6, 0x123000}, {"socket(", -5, 0},
    };
    for (const auto &failure : cases) {
        world.registers.clear();
        answers_forget();
        fail(failure.failing);
        EXPECT_EQ(mtksw_vlan_entry_set(3, 0x123, 0x41), failure.result) << failure.failing;
        EXPECT_EQ(world.registers[0x54], failure.vid_register) << failure.failing;
        EXPECT_EQ(world.registers[0x70], 0U) << failure.failing;
    }
    expect_trace({});
}

TEST_F(VlanTable, GetDeliversTheIdThoughTheMembersCannotBeRead)
{
    vlan_entry_put(6, {0x321, 0x11});
    uint32_t vid = 0;
    uint32_t members = 0x55;
    fail("switch_read(0x74");
    EXPECT_EQ(mtksw_vlan_entry_get(6, &vid, &members), -6);
    EXPECT_EQ(vid, 0x321U);
    EXPECT_EQ(members, 0x55U);
    fail("switch_read(0x5c");
    vid = 1;
    EXPECT_EQ(mtksw_vlan_entry_get(6, &vid, &members), -6);
    EXPECT_EQ(vid, 1U);
}

TEST_F(VlanTable, FindLooksAtThePoolAlone)
{
    vlan_entry_put(4, {100, 1});
    EXPECT_EQ(mtksw_vlan_entry_find(100, 0), -1);
    vlan_entry_put(15, {100, 0});
    EXPECT_EQ(mtksw_vlan_entry_find(100, 0), 15);
    vlan_entry_put(7, {100, 1});
    EXPECT_EQ(mtksw_vlan_entry_find(100, 0), 7);
}

TEST_F(VlanTable, FindPassesOverEntriesThatCannotBeRead)
{
    fill_pool(1);
    vlan_entry_put(6, {100, 1});
    vlan_entry_put(12, {100, 1});
    fail("switch_read(0x5c"); // entries 6 and 7
    EXPECT_EQ(mtksw_vlan_entry_find(100, 0), 12);
    // Nor are they taken for free.
    vlan_entry_put(7, {0, 0});
    vlan_entry_put(14, {0, 0});
    EXPECT_EQ(mtksw_vlan_entry_find(200, 1), 14);
}

TEST_F(VlanTable, FindAllocatesTheFirstEntryWithoutMembers)
{
    EXPECT_EQ(mtksw_vlan_entry_find(100, 0), -1);
    EXPECT_EQ(mtksw_vlan_entry_find(100, 1), 5);
    fill_pool(1);
    EXPECT_EQ(mtksw_vlan_entry_find(300, 1), -1);
    vlan_entry_put(9, {777, 0});
    EXPECT_EQ(mtksw_vlan_entry_find(300, 1), 9);
    // An entry that carries the ID is preferred though a free one comes first.
    vlan_entry_put(13, {300, 0});
    EXPECT_EQ(mtksw_vlan_entry_find(300, 1), 13);
}

TEST_F(VlanTable, MemberSetAddsToAnIndexedEntry)
{
    vlan_entry_put(1, {7, 0x06});
    EXPECT_EQ(mtksw_vlan_member_set(1, 4091, 4), 0);
    entry_is(1, {4091, 0x16});
}

TEST_F(VlanTable, MemberSetByIdFindsOrAllocates)
{
    EXPECT_EQ(mtksw_vlan_member_set(vlan_index_by_vid, 100, 2), 0);
    EXPECT_EQ(mtksw_vlan_member_set(vlan_index_by_vid, 100, 6), 0);
    EXPECT_EQ(mtksw_vlan_member_set(vlan_index_by_vid, 200, 6), 0);
    entry_is(5, {100, 0x44});
    entry_is(6, {200, 0x40});
}

// A driver that knows no such entry says so, and the entry is made.
TEST_F(VlanTable, MemberSetMakesAnEntryThatIsNotThere)
{
    vlan_entry_put(1, {7, 0x06});
    world.reg_read_once = -9;
    EXPECT_EQ(mtksw_vlan_member_set(1, 4091, 4), 0);
    entry_is(1, {4091, 0x10});
    for (const int code : {-8, -10, -1}) {
        world.reg_read_once = code;
        EXPECT_EQ(mtksw_vlan_member_set(1, 5, 3), code);
        entry_is(1, {4091, 0x10});
    }
    world.reg_read_once = -9;
    EXPECT_EQ(mtksw_vlan_member_clear(1, 5, 4), -9);
    entry_is(1, {4091, 0x10});
}

TEST_F(VlanTable, MemberSetFailsWhenThePoolIsFull)
{
    fill_pool(1);
    EXPECT_EQ(mtksw_vlan_member_set(vlan_index_by_vid, 300, 2), -2);
    EXPECT_EQ(mtksw_vlan_member_clear(vlan_index_by_vid, 300, 2), -2);
    for (uint32_t index = 5; index < 16; index++) {
        entry_is(index, {100 + index, 1});
    }
}

TEST_F(VlanTable, MemberOperationsReturnTheirFailingAccess)
{
    const std::pair<const char *, int> failures[] = {
        {"socket(", -5}, {"switch_read(0x50", -6}, {"switch_read(0x70", -6}, {"switch_write(0x70", -6}};
    for (const auto &[failing, result] : failures) {
        answers_forget();
        fail(failing);
        EXPECT_EQ(mtksw_vlan_member_set(1, 4091, 2), result) << failing;
        EXPECT_EQ(mtksw_vlan_member_clear(1, 4091, 2), result) << failing;
    }
}

struct Clearing {
    const char *what;
    uint32_t index;
    uint32_t port;
    VlanEntry before;
    VlanEntry after;
};

class VlanMemberClear : public DaemonTest, public testing::WithParamInterface<Clearing> {};

TEST_P(VlanMemberClear, LeavesTheEntry)
{
    const Clearing &clearing = GetParam();
    const uint32_t entry = clearing.index == vlan_index_by_vid ? 8 : clearing.index;
    vlan_entry_put(entry, clearing.before);
    EXPECT_EQ(mtksw_vlan_member_clear(clearing.index, 100, clearing.port), 0);
    EXPECT_EQ(vlan_entry(entry).vid, clearing.after.vid);
    EXPECT_EQ(vlan_entry(entry).members, clearing.after.members);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, VlanMemberClear,
    testing::Values(Clearing{"explicit", 2, 3, {9, 0x4c}, {100, 0x44}},
                    Clearing{"explicit_last_keeps_the_id", 2, 3, {9, 0x08}, {100, 0}},
                    Clearing{"explicit_cpu_port_goes", 2, 6, {100, 0x48}, {100, 0x08}},
                    Clearing{"explicit_absent_member", 2, 0, {9, 0x4c}, {100, 0x4c}},
                    Clearing{"by_id", vlan_index_by_vid, 3, {100, 0x4c}, {100, 0x44}},
                    Clearing{
                        "by_id_front_port_leaves_cpu_port", vlan_index_by_vid, 3, {100, 0x48}, {100, 0x40}},
                    Clearing{"by_id_last", vlan_index_by_vid, 3, {100, 0x08}, {0, 0}},
                    Clearing{"by_id_cpu_port_stays", vlan_index_by_vid, 6, {100, 0x48}, {100, 0x48}},
                    Clearing{"by_id_cpu_port_last", vlan_index_by_vid, 6, {100, 0x40}, {0, 0}},
                    Clearing{"by_id_other_cpu_port_goes", vlan_index_by_vid, 5, {100, 0x28}, {100, 0x08}}),
    [](const auto &clearing) { return std::string{clearing.param.what}; });

TEST_F(VlanTable, KeepingTheCpuPortWritesNothing)
{
    vlan_entry_put(8, {100, 0x48});
    fail("switch_write(");
    EXPECT_EQ(mtksw_vlan_member_clear(vlan_index_by_vid, 100, 6), 0);
}

TEST_F(VlanTable, AnEntryGivenBackIsNotFoundAgain)
{
    EXPECT_EQ(mtksw_vlan_member_set(vlan_index_by_vid, 100, 2), 0);
    EXPECT_EQ(mtksw_vlan_entry_find(100, 0), 5);
    EXPECT_EQ(mtksw_vlan_member_clear(vlan_index_by_vid, 100, 2), 0);
    EXPECT_EQ(mtksw_vlan_entry_find(100, 0), -1);
}

} // namespace
} // namespace unit
