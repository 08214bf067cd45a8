// Ports of their own, and back into LAN 1's VLAN.

#include "daemon_test.h"
#include "netintf/port_device.h"

namespace unit {
namespace {

class PortDevice : public DaemonTest {
protected:
    // LAN 1's VLAN with all LAN ports and the CPU port, as at start.
    static void shared_vlan()
    {
        world.registers.clear();
        vlan_entry_put(1, {4091, 0x5e});
        world.registers[0x44] = 0x00ffbffb; // PVID 4091 of ports 2 and 3
    }
};

const std::vector<Lines> device_made = {"netilib_vintf_create('eth0', 4092)",
                                        "netlib_eth_mac_set('eth0.4092', 02:11:22:33:44:51)",
                                        "netlib_eth_intf_up('eth0.4092')"};

TEST_F(PortDevice, APortMovesIntoItsOwnVlan)
{
    shared_vlan();
    EXPECT_EQ(netintf_port_init(intf_type_lan, 2, 2), 0);
    expect_trace(device_made);
    EXPECT_EQ(vlan_entry(1), (VlanEntry{4091, 0x5a}));
    EXPECT_EQ(vlan_entry(2), (VlanEntry{4092, 0x44}));
    EXPECT_EQ(pvid(2), 4092U);
    EXPECT_EQ(pvid(3), 4091U);
    const netintf_entry *head = netintf_port_head_get(2);
    EXPECT_EQ(head->intf_type, intf_type_lan);
    EXPECT_EQ(head->hw_port, 2U);
    EXPECT_STREQ(head->name, "lan2");
}

TEST_F(PortDevice, TheSwitchIsProgrammedInThisOrder)
{
    shared_vlan();
    world.show_registers = true;
    EXPECT_EQ(netintf_port_init(intf_type_wan, 1, 0), 0);
    std::vector<std::string> writes;
    for (const std::string &line : trace_take()) {
        if (line.find("write") != std::string::npos || line.find("reg_wr") != std::string::npos ||
            line.find("netilib") != std::string::npos) {
            writes.push_back(line);
        }
    }
    EXPECT_EQ(join(writes),
              join({"switch_write(0x50, 0x00ffb000)", "switch_write(0x70, 0x00005e00)",
                    "mtklib_cpu_reg_wr(0x10110040, 0x00000ffa)", "switch_write(0x50, 0x00ffbffa)",
                    "switch_write(0x70, 0x00005e01)", "switch_write(0x50, 0x00ffbffa)",
                    "switch_write(0x70, 0x00005e41)", "netilib_vintf_create('eth0', 4090)"}));
    EXPECT_STREQ(netintf_port_head_get(0)->name, "wan1");
    EXPECT_EQ(netintf_port_head_get(0)->intf_type, intf_type_wan);
}

TEST_F(PortDevice, AWanOnABoardWithTwoCpuPorts)
{
    board_with_two_cpu_ports();
    EXPECT_EQ(netintf_port_init(intf_type_wan, 2, 4), 0);
    expect_trace({"netilib_vintf_create('eth1', 4094)", "netlib_eth_mac_set('eth1.4094', 02:11:22:33:44:53)",
                  "netlib_eth_intf_up('eth1.4094')"});
    EXPECT_EQ(vlan_entry(4), (VlanEntry{4094, 0x30}));
    EXPECT_STREQ(netintf_port_head_get(4)->name, "wan2");
}

TEST_F(PortDevice, OnlyFrontPorts)
{
    EXPECT_EQ(netintf_port_init(intf_type_lan, 1, 5), -2);
    EXPECT_EQ(netintf_port_init(intf_type_lan, 1, 0xffffffff), -2);
    expect_quiet_trace({});
}

TEST_F(PortDevice, AnotherTypeFailsOnlyAtTheMark)
{
    EXPECT_EQ(netintf_port_init(3, 2, 2), -1);
    expect_trace(device_made);
    EXPECT_EQ(netintf_port_head_get(2)->intf_type, 0U);
    EXPECT_EQ(netintf_port_head_get(2)->hw_port, 0U);
    EXPECT_STREQ(netintf_port_head_get(2)->name, "");
}

TEST_F(PortDevice, ABoardWithoutLanOne)
{
    board({{2, 1}, {1, 2}});
    EXPECT_EQ(netintf_port_init(intf_type_lan, 2, 2), -1);
    expect_trace({error("lan 1 get hw port error\n")});
}

struct InitFailure {
    const char *failing;
    unsigned nth;
    int result;
    std::vector<Lines> trace;
    uint32_t shared; // members of LAN 1's VLAN
    uint32_t own;
    uint32_t pvid;
};

TEST_F(PortDevice, EachFailureIsReportedAndNothingIsUndone)
{
    const InitFailure cases[] = {
        {"switch_read(0x50)", 0, -6, {error("vlan member clear failed,hw_port=2\n")}, 0x5e, 0, 4091},
        {"mtklib_cpu_reg_rd(",
         0,
         -25,
         {error("mtk sw pvid set failed\n"), error("vlan pvid set failed,hw_port=2\n")},
         0x5a,
         0,
         4091},
        {"switch_write(0x54", 1, -6, {error("vlan member set failed,hw_port=2\n")}, 0x5a, 0, 4092},
        {"switch_write(0x54", 2, -6, {error("vlan member set failed,hw_port=2\n")}, 0x5a, 0x04, 4092},
        {"netilib_vintf_create(",
         0,
         -13,
         {device_made[0], error("net vintf init failed, hw_port=2\n")},
         0x5a,
         0x44,
         4092},
        {"netlib_eth_intf_up(",
         0,
         -13,
         {device_made[0], device_made[1], device_made[2], error("net vintf init failed, hw_port=2\n")},
         0x5a,
         0x44,
         4092},
    };
    for (const InitFailure &failure : cases) {
        shared_vlan();
        answers_forget();
        fail(failure.failing, failure.nth);
        EXPECT_EQ(netintf_port_init(intf_type_lan, 2, 2), failure.result) << failure.failing;
        expect_trace(failure.trace);
        EXPECT_EQ(vlan_entry(1).members, failure.shared) << failure.failing;
        EXPECT_EQ(vlan_entry(2).members, failure.own) << failure.failing;
        EXPECT_EQ(pvid(2), failure.pvid) << failure.failing;
        EXPECT_STREQ(netintf_port_head_get(2)->name, "") << failure.failing;
    }
}

TEST_F(PortDevice, APortOutsideTheSequenceHasNoMac)
{
    board({{1, 1}});
    EXPECT_EQ(netintf_port_init(intf_type_lan, 2, 3), -1);
    expect_trace({error("hw_port=3 get seq port error\n")});
}

const std::vector<Lines> device_gone = {"netlib_eth_intf_down('eth0.4092')",
                                        "netlib_vintf_delete('eth0.4092')"};

TEST_F(PortDevice, APortReturnsIntoLanOnesVlan)
{
    shared_vlan();
    EXPECT_EQ(netintf_port_init(intf_type_lan, 2, 2), 0);
    skip_trace();
    EXPECT_EQ(netintf_hw_port_exit(intf_type_lan, 2), 0);
    expect_trace(device_gone);
    EXPECT_EQ(vlan_entry(1), (VlanEntry{4091, 0x5e}));
    EXPECT_EQ(vlan_entry(2), (VlanEntry{4092, 0}));
    EXPECT_EQ(pvid(2), 4091U);
    const netintf_entry *head = netintf_port_head_get(2);
    EXPECT_EQ(head->intf_type, 0U);
    EXPECT_STREQ(head->name, "lan1");
}

TEST_F(PortDevice, AWansPortReturnsFromTheSecondCpuPort)
{
    board_with_two_cpu_ports();
    EXPECT_EQ(netintf_port_init(intf_type_wan, 2, 4), 0);
    skip_trace();
    EXPECT_EQ(netintf_hw_port_exit(intf_type_wan, 4), 0);
    expect_trace({"netlib_eth_intf_down('eth1.4094')", "netlib_vintf_delete('eth1.4094')"});
    EXPECT_EQ(vlan_entry(4), (VlanEntry{4094, 0}));
    EXPECT_EQ(vlan_entry(1), (VlanEntry{4091, 0x10}));
    EXPECT_STREQ(netintf_port_head_get(4)->name, "lan1");
}

TEST_F(PortDevice, EachFailureOfAReturnIsReported)
{
    const Lines reported = error("port default vlan exit error,type=1 hw_port==2\n");
    const struct {
        const char *failing;
        unsigned nth;
        int result;
        std::vector<Lines> trace;
        uint32_t shared;
        uint32_t own;
        uint32_t pvid;
    } cases[] = {
        {"netlib_eth_intf_down(", 0, -13, {device_gone[0], reported}, 0x5a, 0x44, 4092},
        {"netlib_vintf_delete(", 0, -13, {device_gone[0], device_gone[1], reported}, 0x5a, 0x44, 4092},
        {"mtklib_cpu_reg_wr(",
         0,
         -25,
         {device_gone[0], device_gone[1], error("mtk sw pvid set failed\n"), reported},
         0x5a,
         0x44,
         4092},
        {"switch_write(0x50", 0, -6, {device_gone[0], device_gone[1], reported}, 0x5a, 0x44, 4091},
        {"switch_write(0x54", 1, -6, {device_gone[0], device_gone[1], reported}, 0x5e, 0x44, 4091},
        {"switch_write(0x54", 2, -6, {device_gone[0], device_gone[1], reported}, 0x5e, 0x40, 4091},
    };
    for (const auto &failure : cases) {
        answers_forget();
        shared_vlan();
        EXPECT_EQ(netintf_port_init(intf_type_lan, 2, 2), 0);
        skip_trace();
        fail(failure.failing, failure.nth);
        EXPECT_EQ(netintf_hw_port_exit(intf_type_lan, 2), failure.result) << failure.failing;
        expect_trace(failure.trace);
        EXPECT_EQ(vlan_entry(1).members, failure.shared) << failure.failing;
        EXPECT_EQ(vlan_entry(2).members, failure.own) << failure.failing;
        EXPECT_EQ(pvid(2), failure.pvid) << failure.failing;
        EXPECT_STREQ(netintf_port_head_get(2)->name, "lan2") << failure.failing;
    }
}

TEST_F(PortDevice, AReturnNeedsLanOne)
{
    board({{2, 1}, {1, 2}});
    EXPECT_EQ(netintf_hw_port_exit(intf_type_lan, 2), -1);
    expect_trace({device_gone[0], device_gone[1], error("lan 1 get hw port error\n"),
                  error("port default vlan exit error,type=1 hw_port==2\n")});
}

TEST_F(PortDevice, AReturnOfAPortWithoutAListHead)
{
    EXPECT_EQ(netintf_hw_port_exit(intf_type_lan, 5), -1);
    expect_trace({"netlib_eth_intf_down('eth0.4095')", "netlib_vintf_delete('eth0.4095')",
                  error("hw intf get by port error,hw_port==5\n")});
}

} // namespace
} // namespace unit
