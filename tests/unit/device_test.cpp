// VLAN devices and their MAC addresses.

#include "daemon_test.h"
#include "netintf/device.h"

namespace unit {
namespace {

using Device = DaemonTest;
using Mac = std::array<uint8_t, 6>;

struct MacCase {
    Mac base;
    uint32_t sequence;
    Mac expected;
};

TEST_F(Device, PortMacAddsToTheLowThreeBytes)
{
    const MacCase cases[] = {
        {{0x00, 0x11, 0x22, 0x33, 0x44, 0x50}, 0, {0x00, 0x11, 0x22, 0x33, 0x44, 0x50}},
        {{0x00, 0x11, 0x22, 0x33, 0x44, 0x50}, 4, {0x00, 0x11, 0x22, 0x33, 0x44, 0x54}},
        {{0x00, 0x11, 0x22, 0x33, 0x44, 0xff}, 1, {0x00, 0x11, 0x22, 0x33, 0x45, 0x00}},
        {{0x00, 0x11, 0x22, 0x33, 0xff, 0xff}, 2, {0x00, 0x11, 0x22, 0x34, 0x00, 0x01}},
        {{0x00, 0x11, 0x22, 0xff, 0xff, 0xff}, 1, {0x00, 0x11, 0x22, 0x00, 0x00, 0x00}},
        {{0xff, 0xff, 0xff, 0xff, 0xff, 0xfe}, 15, {0xff, 0xff, 0xff, 0x00, 0x00, 0x0d}},
    };
    for (const MacCase &mac : cases) {
        world.mac = mac.base;
        board({{1, 0}});
        Mac result{};
        EXPECT_EQ(netintf_port_mac_get(mac.sequence, result.data()), 0);
        EXPECT_EQ(result, mac.expected);
    }
}

TEST_F(Device, DeviceMacIncreasesTheFirstByteByTwo)
{
    const MacCase cases[] = {
        {{0x00, 0x11, 0x22, 0xff, 0xff, 0xff}, 2, {0x02, 0x11, 0x22, 0x00, 0x00, 0x00}},
        {{0xfe, 0x11, 0x22, 0x33, 0x44, 0x50}, 1, {0x00, 0x11, 0x22, 0x33, 0x44, 0x50}},
        {{0xff, 0x11, 0x22, 0x33, 0x44, 0x50}, 4, {0x01, 0x11, 0x22, 0x33, 0x44, 0x53}},
    };
    for (const MacCase &mac : cases) {
        world.mac = mac.base;
        board({{1, 1}, {1, 2}, {1, 3}, {1, 4}, {2, 0}});
        Mac result{};
        EXPECT_EQ(netintf_device_mac_get(mac.sequence, result.data()), 0); // here the port
        EXPECT_EQ(result, mac.expected);
    }
    Mac result{};
    EXPECT_EQ(netintf_device_mac_get(6, result.data()), -1);
    expect_trace({error("hw_port=6 get seq port error\n")});
}

TEST_F(Device, AllZeroMac)
{
    EXPECT_TRUE(netintf_mac_is_zero(Mac{}.data()));
    for (size_t i = 0; i < 6; i++) {
        Mac mac{};
        mac[i] = 0x80;
        EXPECT_FALSE(netintf_mac_is_zero(mac.data())) << i;
    }
}

TEST_F(Device, CpuPathIsASecondOneForWansOfOneBoardType)
{
    for (const uint32_t cpuid : {1U, two_cpu_ports}) {
        board({{1, 0}}, cpuid);
        EXPECT_STREQ(netintf_cpu_path(intf_type_lan).master, "eth0");
        EXPECT_EQ(netintf_cpu_path(intf_type_lan).cpu_port, 6U);
        const bool second = cpuid == two_cpu_ports;
        EXPECT_STREQ(netintf_cpu_path(intf_type_wan).master, second ? "eth1" : "eth0");
        EXPECT_EQ(netintf_cpu_path(intf_type_wan).cpu_port, second ? 5U : 6U);
    }
}

TEST_F(Device, CreationSetsTheMacBeforeItRaises)
{
    const uint8_t mac[6] = {2, 0x11, 0x22, 0x33, 0x44, 0x55};
    EXPECT_EQ(netintf_vintf_init("eth1.4090", 100, mac), 0);
    expect_trace({"netilib_vintf_create('eth1.4090', 100)",
                  "netlib_eth_mac_set('eth1.4090.100', 02:11:22:33:44:55)",
                  "netlib_eth_intf_up('eth1.4090.100')"});
    EXPECT_EQ(netintf_vintf_init("eth0", 4091, Mac{}.data()), 0);
    expect_trace({"netilib_vintf_create('eth0', 4091)", "netlib_eth_intf_up('eth0.4091')"});
}

TEST_F(Device, CreationStopsAtItsFirstFailure)
{
    const uint8_t mac[6] = {2, 0x11, 0x22, 0x33, 0x44, 0x55};
    const std::vector<Lines> all = {"netilib_vintf_create('eth0', 7)",
                                    "netlib_eth_mac_set('eth0.7', 02:11:22:33:44:55)",
                                    "netlib_eth_intf_up('eth0.7')"};
    for (size_t failing = 0; failing < all.size(); failing++) {
        answers_forget();
        fail(all[failing].all().front());
        EXPECT_EQ(netintf_vintf_init("eth0", 7, mac), -13);
        expect_trace({all.begin(), all.begin() + static_cast<std::ptrdiff_t>(failing) + 1});
    }
}

TEST_F(Device, DeletionLowersFirst)
{
    EXPECT_EQ(netintf_vintf_delete("eth0.7"), 0);
    expect_trace({"netlib_eth_intf_down('eth0.7')", "netlib_vintf_delete('eth0.7')"});
    fail("netlib_vintf_delete(");
    EXPECT_EQ(netintf_vintf_delete("eth0.7"), -13);
    expect_trace({"netlib_eth_intf_down('eth0.7')", "netlib_vintf_delete('eth0.7')"});
    fail("netlib_eth_intf_down(");
    EXPECT_EQ(netintf_vintf_delete("eth0.7"), -13);
    expect_trace({"netlib_eth_intf_down('eth0.7')"});
}

} // namespace
} // namespace unit
