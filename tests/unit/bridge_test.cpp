// Bridges.

#include "daemon_test.h"
#include "netintf/bridge.h"

namespace unit {
namespace {

using Bridge = DaemonTest;

constexpr uint8_t zero_mac[6] = {};
constexpr uint8_t some_mac[6] = {2, 0x11, 0x22, 0x33, 0x44, 0x55};

struct BridgeName {
    uint32_t cpuid;
    const char *name;
    uint32_t proto;
    uint32_t port;
    uint16_t vid1;
    uint16_t vid2;
    const char *bridge;
    const char *member;
};

const BridgeName names[] = {
    {1, "lan2", 1, 2, vlan_none, vlan_none, "lan2", "eth0.4092"},
    {1, "wan1", 2, 0, vlan_none, vlan_none, "wan1", "eth0.4090"},
    {1, "wan1", 3, 0, vlan_none, vlan_none, "wan1_pe", "eth0.4090"},
    {1, "lan2.7", 0, 2, 100, vlan_none, "lan2.7", "eth0.100"},
    {1, "wan1", 1, 0, 100, 200, "wan1", "eth0.100.200"},
    // An inner VLAN alone is no VLAN.
    {1, "wan1", 1, 0, vlan_none, 200, "wan1", "eth0.4090"},
    {two_cpu_ports, "lan2", 1, 2, 100, vlan_none, "lan2", "eth0.100"},
    {two_cpu_ports, "wan1", 1, 0, vlan_none, vlan_none, "wan1", "eth1.4090"},
    // The device is eth1.4090.100, the bridge asks for eth1.100 all the same.
    {two_cpu_ports, "wan1", 1, 0, 100, vlan_none, "wan1", "eth1.100"},
    {two_cpu_ports, "wan1", 3, 0, 100, 200, "wan1_pe", "eth1.100.200"},
    // Names of devices have at most 31 characters.
    {1, "lan2_89012345678901234567890123456789", 3, 2, vlan_none, vlan_none,
     "lan2_89012345678901234567890123", "eth0.4092"},
    {1, "lan2_89012345678901234567890", 3, 2, vlan_none, vlan_none, "lan2_89012345678901234567890_pe",
     "eth0.4092"},
};

TEST_F(Bridge, CreationAndDeletionByNameProtocolAndVlan)
{
    for (const BridgeName &name : names) {
        board({{1, 1}, {1, 2}, {1, 3}, {2, 4}, {2, 0}}, name.cpuid);
        const std::string bridge = quote(name.bridge);
        const std::string member = quote(name.member);
        EXPECT_EQ(netintf_bridge_create(name.name, name.proto, name.port, some_mac, name.vid1, name.vid2, 0),
                  0);
        expect_trace(
            {"netlib_br_create(" + bridge + ")", "netlib_eth_mac_set(" + bridge + ", 02:11:22:33:44:55)",
             "netlib_eth_intf_up(" + bridge + ")", "netlib_br_addif(" + bridge + ", " + member + ")"});
        EXPECT_EQ(netintf_bridge_delete(name.name, name.proto, name.port, name.vid1, name.vid2), 0);
        expect_trace({"netlib_br_delif(" + bridge + ", " + member + ")",
                      "netlib_eth_intf_down(" + bridge + ")", "netlib_br_delete(" + bridge + ")"});
    }
}

TEST_F(Bridge, OnlyFrontPortsAndKnownNames)
{
    EXPECT_EQ(netintf_bridge_create("lan2", 1, 5, zero_mac, 1, 1, 1), -2);
    EXPECT_EQ(netintf_bridge_create("guest", 1, 2, zero_mac, 1, 1, 1), -2);
    EXPECT_EQ(netintf_bridge_create("LAN2", 1, 2, zero_mac, 1, 1, 1), -2);
    EXPECT_EQ(netintf_bridge_create("", 1, 2, zero_mac, 1, 1, 1), -2);
    EXPECT_EQ(netintf_bridge_delete("lan2", 1, 5, 1, 1), -2);
    EXPECT_EQ(netintf_bridge_delete("guest", 1, 2, 1, 1), -2);
    expect_quiet_trace({});
}

TEST_F(Bridge, AZeroMacLeavesTheBridgesOwn)
{
    EXPECT_EQ(netintf_bridge_create("lan2", 1, 2, zero_mac, vlan_none, vlan_none, 0), 0);
    expect_trace(
        {"netlib_br_create('lan2')", "netlib_eth_intf_up('lan2')", "netlib_br_addif('lan2', 'eth0.4092')"});
}

TEST_F(Bridge, IsRaisedOnceMoreWithLink)
{
    const Lines built = std::vector<std::string>{"netlib_br_create('lan2')", "netlib_eth_intf_up('lan2')",
                                                 "netlib_br_addif('lan2', 'eth0.4092')"};
    for (const uint32_t link : {0U, 1U}) {
        for (const int bring_up : {0, 1, 2}) {
            link_set(2, link);
            EXPECT_EQ(netintf_bridge_create("lan2", 1, 2, zero_mac, vlan_none, vlan_none, bring_up), 0);
            if (link != 0 && bring_up != 0) {
                expect_trace({built, "netlib_eth_intf_up('lan2')"});
            } else {
                expect_trace({built});
            }
        }
    }
    link_set(2, 1);
    fail("netlib_eth_intf_up('wan1_pe')", 2);
    link_set(0, 1);
    EXPECT_EQ(netintf_bridge_create("wan1", 3, 0, zero_mac, vlan_none, vlan_none, 1), -1);
    expect_trace({"netlib_br_create('wan1_pe')", "netlib_eth_intf_up('wan1_pe')",
                  "netlib_br_addif('wan1_pe', 'eth0.4090')", "netlib_eth_intf_up('wan1_pe')",
                  error("wan1_pe up error\r\n")});
}

TEST_F(Bridge, ALinkThatCannotBeAskedForIsNoFailure)
{
    // A port that the name does not stand for.
    EXPECT_EQ(netintf_bridge_create("lan9", 1, 2, zero_mac, vlan_none, vlan_none, 1), 0);
    expect_trace({"netlib_br_create('lan9')", "netlib_eth_intf_up('lan9')",
                  "netlib_br_addif('lan9', 'eth0.4092')", error("lan 9 get hw port error\n"),
                  error("port link get error\r\n")});
}

TEST_F(Bridge, CreationReportsItsFirstFailure)
{
    const std::vector<Lines> all = {
        "netlib_br_create('wan1_pe')", "netlib_eth_mac_set('wan1_pe', 02:11:22:33:44:55)",
        "netlib_eth_intf_up('wan1_pe')", "netlib_br_addif('wan1_pe', 'eth0.4090')"};
    const int results[] = {-1, -13, -1, -1};
    for (size_t failing = 0; failing < all.size(); failing++) {
        answers_forget();
        fail(all[failing].all().front());
        EXPECT_EQ(netintf_bridge_create("wan1", 3, 0, some_mac, vlan_none, vlan_none, 1), results[failing]);
        std::vector<Lines> expected{all.begin(), all.begin() + static_cast<std::ptrdiff_t>(failing) + 1};
        expected.push_back(error("veth init failed, master_intf=eth0.4090 veth_intfname=wan1_pe "
                                 "mac=02:11:22:33:44:55\n"));
        expect_trace(expected);
    }
}

TEST_F(Bridge, DeletionStopsSilentlyAtItsFirstFailure)
{
    const std::vector<Lines> all = {"netlib_br_delif('lan2', 'eth0.4092')", "netlib_eth_intf_down('lan2')",
                                    "netlib_br_delete('lan2')"};
    for (size_t failing = 0; failing < all.size(); failing++) {
        answers_forget();
        fail(all[failing].all().front());
        EXPECT_EQ(netintf_bridge_delete("lan2", 1, 2, vlan_none, vlan_none), -1);
        expect_trace({all.begin(), all.begin() + static_cast<std::ptrdiff_t>(failing) + 1});
    }
}

} // namespace
} // namespace unit
