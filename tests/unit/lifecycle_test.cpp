// Creating and removing single interfaces.

#include "daemon_test.h"
#include "netintf/lifecycle.h"

namespace unit {
namespace {

using Lifecycle = DaemonTest;

constexpr uint8_t zero_mac[6] = {};
constexpr uint8_t some_mac[6] = {2, 0x11, 0x22, 0x33, 0x44, 0x66};

const Lines plain_bridge = std::vector<std::string>{"netlib_br_create('lan2')", "netlib_eth_intf_up('lan2')",
                                                    "netlib_br_addif('lan2', 'eth0.4092')"};
const Lines vlan_device = std::vector<std::string>{"netilib_vintf_create('eth0', 100)",
                                                   "netlib_eth_mac_set('eth0.100', 02:11:22:33:44:51)",
                                                   "netlib_eth_intf_up('eth0.100')"};

TEST_F(Lifecycle, ALanWithoutMacTakesItsDevices)
{
    const netintf_entry *entry = netintf_lan_add("lan2", zero_mac, vlan_none, vlan_none, 1);
    ASSERT_NE(entry, nullptr);
    expect_trace({plain_bridge, "netlib_eth_mac_get('lan2')"});
    EXPECT_TRUE(std::equal(world.device_mac.begin(), world.device_mac.end(), entry->mac));
    EXPECT_EQ(entry->intf_type, intf_type_lan);
    EXPECT_EQ(entry->enable, 1U);
    EXPECT_EQ(entry->proto, proto_none);
    EXPECT_EQ(names_on(2), std::vector<std::string>{"lan2"});
}

TEST_F(Lifecycle, AnUnreadableDeviceMacIsNoFailure)
{
    fail("netlib_eth_mac_get(");
    const netintf_entry *entry = netintf_lan_add("lan2", zero_mac, vlan_none, vlan_none, 1);
    ASSERT_NE(entry, nullptr);
    EXPECT_TRUE(std::equal(zero_mac, zero_mac + 6, entry->mac));
}

TEST_F(Lifecycle, ALanWithMacAndVlan)
{
    link_set(2, 1);
    const netintf_entry *entry = netintf_lan_add("lan2.a", some_mac, 100, vlan_none, 1);
    ASSERT_NE(entry, nullptr);
    expect_trace({vlan_device, "netlib_br_create('lan2.a')",
                  "netlib_eth_mac_set('lan2.a', 02:11:22:33:44:66)", "netlib_eth_intf_up('lan2.a')",
                  "netlib_br_addif('lan2.a', 'eth0.100')", "netlib_eth_intf_up('lan2.a')"});
    EXPECT_EQ(vlan_entry(5), (VlanEntry{100, 0x44}));
    EXPECT_EQ(entry->port_vid, -1);
    // Not enabled: not raised once more, though its record is enabled.
    const netintf_entry *off = netintf_lan_add("lan2", zero_mac, vlan_none, vlan_none, 0);
    ASSERT_NE(off, nullptr);
    EXPECT_EQ(off->enable, 1U);
    expect_trace({plain_bridge, "netlib_eth_mac_get('lan2')"});
}

TEST_F(Lifecycle, AWansProtocolNamesItsDevice)
{
    const netintf_entry *entry = netintf_wan_add("wan1", proto_pppoe, zero_mac, vlan_none, vlan_none, 1);
    ASSERT_NE(entry, nullptr);
    expect_trace({"netlib_br_create('wan1_pe')", "netlib_eth_intf_up('wan1_pe')",
                  "netlib_br_addif('wan1_pe', 'eth0.4090')", "netlib_eth_mac_get('wan1')"});
    EXPECT_EQ(entry->intf_type, intf_type_wan);
    EXPECT_EQ(entry->proto, proto_none);
}

struct AddFailure {
    const char *what;
    const char *name;
    const char *failing;
    bool no_memory;
    std::vector<Lines> trace;
    std::vector<Lines> lan_report;
    bool registered;
};

class LifecycleAdd : public DaemonTest, public testing::WithParamInterface<AddFailure> {};

TEST_P(LifecycleAdd, ReportsAFailingLanAndNotAWan)
{
    const AddFailure &failure = GetParam();
    for (const bool is_lan : {true, false}) {
        board({{1, 1}, {1, 2}, {2, 2}});
        answers_forget();
        fail(failure.failing);
        world.calloc_failing = failure.no_memory ? 1 : 0;
        // WAN 1 is on port 2 too, so that the traces differ in the name alone.
        EXPECT_EQ(is_lan ? netintf_lan_add(failure.name, some_mac, 100, vlan_none, 1)
                         : netintf_wan_add(failure.name, proto_static, some_mac, 100, vlan_none, 1),
                  nullptr);
        std::vector<Lines> expected = failure.trace;
        if (is_lan) {
            expected.insert(expected.end(), failure.lan_report.begin(), failure.lan_report.end());
        }
        expect_trace(expected);
        EXPECT_EQ(names_on(2).size(), failure.registered ? 1U : 0U);
        world.registers.clear();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Steps, LifecycleAdd,
    testing::Values(
        AddFailure{"port",
                   "lan9",
                   "nothing",
                   false,
                   {error("lan 9 get hw port error\n")},
                   {error("netintf_lan_add 2240\n")},
                   false},
        AddFailure{"kind", "guest", "nothing", false, {}, {error("netintf_lan_add 2240\n")}, false},
        AddFailure{"record", "lan2", "nothing", true, {}, {error("netintf_lan_add 2247\n")}, false},
        AddFailure{"vlan",
                   "lan2",
                   "netilib_vintf_create(",
                   false,
                   {"netilib_vintf_create('eth0', 100)"},
                   {error("netintf_lan_add 2254\n")},
                   true},
        AddFailure{
            "device",
            "lan2",
            "netlib_br_create(",
            false,
            {vlan_device, "netlib_br_create('lan2')",
             error("veth init failed, master_intf=eth0.100 veth_intfname=lan2 mac=02:11:22:33:44:66\n")},
            {error("netintf_lan_add 2261:user intf init failed\n")},
            true}),
    [](const auto &failure) { return std::string{failure.param.what}; });

const Lines lan_bridge_gone = std::vector<std::string>{
    "netlib_br_delif('lan2', 'eth0.4092')", "netlib_eth_intf_down('lan2')", "netlib_br_delete('lan2')"};

TEST_F(Lifecycle, RemovingALan)
{
    lan("lan2");
    EXPECT_EQ(netintf_lan_del("lan2"), 0);
    expect_trace({lan_bridge_gone});
    EXPECT_EQ(names_on(2), std::vector<std::string>{});
    EXPECT_EQ(netintf_lan_del("lan2"), -13);
    EXPECT_EQ(netintf_wan_del("lan2"), -13);
    expect_trace({});
}

TEST_F(Lifecycle, RemovingAWanStopsItsProtocolFirst)
{
    wan("wan1", proto_pppoe);
    wan("wan1.100", proto_dhcp, 100);
    vlan_entry_put(5, {100, 0x41});
    fail("netlib_waninfo_db_del_byname(");
    EXPECT_EQ(netintf_wan_del("wan1.100"), 0);
    expect_trace({"netlib_intf_set_ip('wan1.100', '0.0.0.0')", "cmdlib_procd_del_inst('dhcp', 'wan1.100')",
                  "netlib_waninfo_db_del_byname('wan1.100')",
                  warning("ipcp wan info db del by name error error\n"),
                  "netlib_br_delif('wan1.100', 'eth0.100')", "netlib_eth_intf_down('wan1.100')",
                  "netlib_br_delete('wan1.100')", "netlib_eth_intf_down('eth0.100')",
                  "netlib_vintf_delete('eth0.100')"});
    EXPECT_EQ(vlan_entry(5), (VlanEntry{0, 0}));
    answers_forget();
    EXPECT_EQ(netintf_wan_del("wan1"), 0);
    expect_trace({"cmdlib_procd_del_inst('pppoe', 'wan1')", "netlib_waninfo_db_del_byname('wan1')",
                  "netlib_br_delif('wan1_pe', 'eth0.4090')", "netlib_eth_intf_down('wan1_pe')",
                  "netlib_br_delete('wan1_pe')"});
}

TEST_F(Lifecycle, RemovalReturnsItsFailingStep)
{
    lan("lan2");
    netintf_entry *tagged = lan("lan2.100", 100);
    fail("netlib_br_delete('lan2.100')");
    EXPECT_EQ(netintf_lan_del("lan2.100"), -1);
    answers_forget();
    fail("netlib_vintf_delete('eth0.100')");
    EXPECT_EQ(netintf_lan_del("lan2.100"), -13);
    EXPECT_EQ(names_on(2), (std::vector<std::string>{"lan2", "lan2.100"}));
    answers_forget();
    skip_trace();
    // What is neither LAN nor WAN cannot be freed.
    tagged->intf_type = 3;
    tagged->vlanid1 = vlan_none;
    EXPECT_EQ(netintf_lan_del("lan2.100"), -3);
    tagged->vlanid1 = 100;
    EXPECT_EQ(netintf_lan_del("lan2.100"), -2);
    EXPECT_EQ(names_on(2), (std::vector<std::string>{"lan2", "lan2.100"}));
}

// The first interface of a port does not count as a user of its VLAN.
TEST_F(Lifecycle, TheOnlyInterfaceOfAPortStaysWhenItIsOnAVlan)
{
    lan("lan2", 100);
    EXPECT_EQ(netintf_lan_del("lan2"), -1);
    expect_trace(
        {"netlib_br_delif('lan2', 'eth0.100')", "netlib_eth_intf_down('lan2')", "netlib_br_delete('lan2')"});
    EXPECT_EQ(names_on(2), std::vector<std::string>{"lan2"});
}

} // namespace
} // namespace unit
