// PHYs, default VLANs and the layout at start.

#include "board/switch_port.h"
#include "daemon_test.h"

namespace unit {
namespace {

using SwitchPort = DaemonTest;

TEST_F(SwitchPort, EveryPhyIsRestarted)
{
    world.show_registers = true;
    EXPECT_EQ(mtksw_mii_init(), 0);
    std::vector<Lines> expected;
    for (int phy = 0; phy < 5; phy++) {
        expected.emplace_back("socket(IPv4 datagram, 0)");
        expected.emplace_back("phy_write(" + std::to_string(phy) + ", 0, 0x3300)");
    }
    expect_trace(expected);
}

TEST_F(SwitchPort, ARefusingPhyEndsTheRowButNotTheStart)
{
    fail("phy_write(2,");
    EXPECT_EQ(mtksw_mii_init(), -1);
    const Lines reported = std::vector<std::string>{
        "syslog(3, 'mii_write: ioctl error\\n')", "outlib_error('mii_write: ioctl error\\n')",
        "syslog(3, 'mtksw_mii_init 694 i=2 rv=-1,power up error\\n')",
        "outlib_error('mtksw_mii_init 694 i=2 rv=-1,power up error\\n')"};
    expect_trace({reported});
    EXPECT_FALSE(world.phys.contains({3, 0}));
    EXPECT_EQ(mtksw_mii_init_post(), 0);
    expect_trace({reported, error("mtk switch mii init failed,rv = -1\r\n")});
}

struct Pvid {
    uint32_t port;
    uint32_t address;
    uint32_t after; // of 0xffffffff, for 0x123
};

class PvidSet : public DaemonTest, public testing::WithParamInterface<Pvid> {};

TEST_P(PvidSet, ChangesItsOwnBitsAndReadsBeforeItWrites)
{
    const Pvid &pvid = GetParam();
    world.show_registers = true;
    world.registers[pvid.address - 0x10110000] = 0xffffffff;
    EXPECT_EQ(mtksw_port_pvid_set(pvid.port, 0x123), 0);
    char read[40];
    char write[60];
    std::snprintf(read, sizeof read, "mtklib_cpu_reg_rd(0x%x)", pvid.address);
    std::snprintf(write, sizeof write, "mtklib_cpu_reg_wr(0x%x, 0x%08x)", pvid.address, pvid.after);
    expect_trace({read, write});
}

INSTANTIATE_TEST_SUITE_P(FrontPorts, PvidSet,
                         testing::Values(Pvid{0, 0x10110040, 0xfffff123}, Pvid{1, 0x10110040, 0xff123fff},
                                         Pvid{2, 0x10110044, 0xfffff123}, Pvid{3, 0x10110044, 0xff123fff},
                                         Pvid{4, 0x10110048, 0xfffff123}),
                         [](const auto &pvid) { return "port" + std::to_string(pvid.param.port); });

TEST_F(SwitchPort, CpuPortsHaveNoPvid)
{
    for (const uint32_t port : {5U, 6U, 7U, 0xffffffffU}) {
        EXPECT_EQ(mtksw_port_pvid_set(port, 4090), 0);
    }
    expect_quiet_trace({});
}

TEST_F(SwitchPort, PvidIsNotMasked)
{
    EXPECT_EQ(mtksw_port_pvid_set(0, 0x1001), 0);
    EXPECT_EQ(world.registers[0x40], 0x1001U);
}

TEST_F(SwitchPort, PvidFailures)
{
    world.registers[0x40] = 7;
    for (const char *failing : {"mtklib_cpu_reg_rd(", "mtklib_cpu_reg_wr("}) {
        answers_forget();
        fail(failing);
        EXPECT_EQ(mtksw_port_pvid_set(0, 1), -25) << failing;
        expect_trace({error("mtk sw pvid set failed\n")});
        EXPECT_EQ(world.registers[0x40], 7U);
    }
}

TEST_F(SwitchPort, StartLayoutPutsEveryLanIntoTheVlanOfLanOne)
{
    for (uint32_t index = 0; index < 16; index++) {
        vlan_entry_put(index, {index + 1, 0x7f});
    }
    EXPECT_EQ(mtksw_port_vlan_init(), 0);
    for (uint32_t index = 0; index < 16; index++) {
        const VlanEntry wanted = index == 1  ? VlanEntry{4091, 0x1e}
                                 : index < 5 ? VlanEntry{4090 + index, 0}
                                             : VlanEntry{0, 0};
        EXPECT_EQ(vlan_entry(index), wanted) << "entry " << index;
    }
    EXPECT_EQ(pvid(0), 0U);
    for (uint32_t port = 1; port < 5; port++) {
        EXPECT_EQ(pvid(port), 4091U) << "port " << port;
    }
    expect_trace({});
}

TEST_F(SwitchPort, FramesOfPortVlansLeaveFrontPortsUntagged)
{
    world.registers[0x98] = 0x00010001;
    world.registers[0x100] = 0x80000040; // the CPU port's bit of entry 0, and one above all entries
    EXPECT_EQ(mtksw_port_vlan_init(), 0);
    EXPECT_EQ(world.registers[0x98], 0x00018001U);
    // 0x3f at bits 0, 7, 14 and 21; what was set before stays.
    EXPECT_EQ(world.registers[0x100], 0x80000040U | 0x3fU | 0x3fU << 7 | 0x3fU << 14 | 0x3fU << 21);
    EXPECT_EQ(world.registers[0x104], 0x3fU);
}

TEST_F(SwitchPort, UntagFailuresAreMentionedAndThatIsAll)
{
    const struct {
        const char *failing;
        uint32_t control;
        uint32_t untag;
    } cases[] = {
        {"switch_read(0x98", 0, 0},
        {"switch_write(0x98", 0, 0},
        {"switch_read(0x100)", 0x8000, 0},
        {"switch_write(0x100, 0x00001fbf)", 0x8000, 0x3f},
    };
    for (const auto &failure : cases) {
        world.registers.clear();
        answers_forget();
        fail(failure.failing);
        EXPECT_EQ(mtksw_port_vlan_init(), 0) << failure.failing;
        expect_trace({info("untag init failed\n")});
        EXPECT_EQ(world.registers[0x98], failure.control) << failure.failing;
        EXPECT_EQ(world.registers[0x100], failure.untag) << failure.failing;
        EXPECT_EQ(world.registers[0x104], 0U) << failure.failing;
        EXPECT_EQ(vlan_entry(1).members, 0x1eU) << failure.failing;
    }
}

TEST_F(SwitchPort, LayoutNeedsLanOne)
{
    board({{2, 0}, {1, 1}});
    EXPECT_EQ(mtksw_port_vlan_init(), -1);
    expect_trace({error("lan 1 get hw port error\n")});
    EXPECT_EQ(mtksw_port_vlan_init_post(), -1);
    expect_trace({error("lan 1 get hw port error\n"), error("mtk switch port vlan init failed,rv = -1\r\n")});
}

TEST_F(SwitchPort, LayoutStopsAtTheFirstGapAmongTheLans)
{
    board({{1, 1}, {3, 2}, {2, 0}, {1, 4}});
    EXPECT_EQ(mtksw_port_vlan_init(), 0);
    EXPECT_EQ(vlan_entry(1).members, 0x06U);
    EXPECT_EQ(pvid(4), 0U);
}

TEST_F(SwitchPort, LayoutOfABoardFullOfLans)
{
    Ports ports;
    for (uint8_t index = 0; index < 16; index++) {
        ports.push_back({1, static_cast<uint8_t>(index % 5)});
    }
    board(ports);
    EXPECT_EQ(mtksw_port_vlan_init(), 0);
    EXPECT_EQ(vlan_entry(0), (VlanEntry{4090, 0x1f}));
}

TEST_F(SwitchPort, LayoutReturnsItsFirstFailure)
{
    fail("mtklib_cpu_reg_wr(0x10110044");
    EXPECT_EQ(mtksw_port_vlan_init(), -25);
    EXPECT_EQ(vlan_entry(1).members, 0x02U); // port 1 was done, port 2 was not
    answers_forget();
    fail("switch_write(0x70, 0x00000600"); // ports 1 and 2
    skip_trace();
    EXPECT_EQ(mtksw_port_vlan_init(), -6);
    expect_trace({});
    EXPECT_EQ(vlan_entry(1).members, 0x02U);
    EXPECT_EQ(pvid(2), 4091U);
    EXPECT_EQ(mtksw_port_vlan_init_post(), -6);
    expect_trace({error("mtk switch port vlan init failed,rv = -6\r\n")});
}

TEST_F(SwitchPort, UnreadableTableEntriesAreIgnoredAtFirst)
{
    // The writes of an empty table are not looked at; LAN 1's entry is.
    fail("switch_write(0x6c");
    EXPECT_EQ(mtksw_port_vlan_init(), 0);
    answers_forget();
    fail("switch_write(0x50");
    EXPECT_EQ(mtksw_port_vlan_init(), -6);
}

TEST_F(SwitchPort, LinkQueryLeavesTheLinkAlone)
{
    for (const uint32_t before : {0U, 1U, 7U}) {
        uint32_t link = before;
        EXPECT_EQ(mtksw_port_link_get(3, &link), 0);
        EXPECT_EQ(link, before);
    }
    expect_quiet_trace({});
}

} // namespace
} // namespace unit
