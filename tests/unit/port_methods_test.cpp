// Bus methods "port_add", "port_del", "port_dump" and "status".

#include "daemon_test.h"
#include "netintf/port_name.h"

#include <cstring>

namespace unit {
namespace {

class PortMethods : public DaemonTest {
protected:
    static Message named(const char *name) { return Message().text("name", name); }
    void port_add(const char *name, int status, const std::vector<Lines> &expected)
    {
        expect_call("ivarode.intf", "port_add", named(name), status, expected);
    }
    void port_del(const char *name, int status, const std::vector<Lines> &expected)
    {
        expect_call("ivarode.intf", "port_del", named(name), status, expected);
    }
};

Lines begun(const char *name)
{
    return info(std::string{"netintf_ubus_port_add 3084 port_name="} + name + "\n");
}

const Lines port_made = std::vector<std::string>{"netilib_vintf_create('eth0', 4092)",
                                                 "netlib_eth_mac_set('eth0.4092', 02:11:22:33:44:51)",
                                                 "netlib_eth_intf_up('eth0.4092')"};
const Lines bridge_made = std::vector<std::string>{
    "netlib_br_create('lan2_default')", "netlib_eth_mac_set('lan2_default', 00:11:22:33:44:51)",
    "netlib_eth_intf_up('lan2_default')", "netlib_br_addif('lan2_default', 'eth0.4092')"};

TEST_F(PortMethods, AddedLanPort)
{
    vlan_entry_put(1, {4091, 0x1e});
    port_add("lan2", 0,
             {begun("lan2"), port_made, bridge_made, info(" lan or wan port add success,port=lan2\r\n")});
    EXPECT_EQ(vlan_entry(1), (VlanEntry{4091, 0x1a}));
    EXPECT_EQ(vlan_entry(2), (VlanEntry{4092, 0x44}));
    EXPECT_EQ(pvid(2), 4092U);
    EXPECT_STREQ(netintf_port_head_get(2)->name, "lan2");
    const netintf_entry *entry = netintf_entry_find_byname("lan2_default");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->enable, 1U);
    EXPECT_EQ(entry->proto, proto_static);
    EXPECT_EQ(entry->intf_type, intf_type_lan);
    EXPECT_EQ(entry->port_vid, 4092);
    EXPECT_EQ(entry->mac[5], 0x51);
    EXPECT_EQ(entry->mac[0], 0x00);
}

TEST_F(PortMethods, AddedWanPortWithLink)
{
    board_with_two_cpu_ports();
    link_set(4, 1);
    port_add("wan2", 0,
             {begun("wan2"), "netilib_vintf_create('eth1', 4094)",
              "netlib_eth_mac_set('eth1.4094', 02:11:22:33:44:53)", "netlib_eth_intf_up('eth1.4094')",
              "netlib_br_create('wan2_default')", "netlib_eth_mac_set('wan2_default', 00:11:22:33:44:53)",
              "netlib_eth_intf_up('wan2_default')", "netlib_br_addif('wan2_default', 'eth1.4094')",
              "netlib_eth_intf_up('wan2_default')", info(" lan or wan port add success,port=wan2\r\n")});
    EXPECT_EQ(netintf_entry_find_byname("wan2_default")->intf_type, intf_type_wan);
}

TEST_F(PortMethods, AZeroPortMacIsTheDevices)
{
    world.mac = {};
    board({{1, 1}, {1, 2}});
    port_add("lan1", 0,
             {begun("lan1"), "netilib_vintf_create('eth0', 4091)",
              "netlib_eth_mac_set('eth0.4091', 02:00:00:00:00:00)", "netlib_eth_intf_up('eth0.4091')",
              "netlib_br_create('lan1_default')", "netlib_eth_intf_up('lan1_default')",
              "netlib_br_addif('lan1_default', 'eth0.4091')",
              // LAN 1's port counts as linked.
              "netlib_eth_intf_up('lan1_default')", "netlib_eth_mac_get('lan1_default')",
              info(" lan or wan port add success,port=lan1\r\n")});
    EXPECT_EQ(netintf_entry_find_byname("lan1_default")->mac[0], 0x0a);
}

// The sequence number is not checked when the interface's MAC is made, only when the device's is.
TEST_F(PortMethods, APortWithoutAPlaceInTheSequence)
{
    world.sequence_result = -44;
    port_add("lan2", 1,
             {begun("lan2"), error("hw_port=2 get seq port error\n"),
              error("netintf_ubus_port_add 3123 hw port init failed\n")});
    EXPECT_EQ(netintf_entry_find_byname("lan2_default")->mac[5], 0x50);
}

TEST_F(PortMethods, NamesOfPorts)
{
    const std::pair<const char *, uint32_t> names[] = {{"lan1", 1}, {"wan9", 2},  {"lanx", 1},
                                                       {"wan ", 2}, {"foo1", 0},  {"LAN1", 0},
                                                       {"lan", 0},  {"lan10", 0}, {"", 0}};
    for (const auto &[name, type] : names) {
        EXPECT_EQ(netintf_port_name_type(name), type) << name;
    }
}

TEST_F(PortMethods, AddFailuresUndoNothing)
{
    world.calloc_failing = 1;
    port_add("lan2", 1, {begun("lan2"), error("netintf_ubus_port_add 3113\n")});
    EXPECT_EQ(names_on(2), std::vector<std::string>{});

    fail("netilib_vintf_create(");
    port_add("lan2", 1,
             {begun("lan2"), "netilib_vintf_create('eth0', 4092)",
              error("net vintf init failed, hw_port=2\n"),
              error("netintf_ubus_port_add 3123 hw port init failed\n")});
    EXPECT_EQ(names_on(2), std::vector<std::string>{"lan2_default"});
    EXPECT_EQ(vlan_entry(2).members, 0x44U);

    answers_forget();
    fail("netlib_br_addif(");
    port_add(
        "lan2", 1,
        {begun("lan2"), port_made, bridge_made,
         error("veth init failed, master_intf=eth0.4092 veth_intfname=lan2_default mac=00:11:22:33:44:51\n"),
         error("netintf_ubus_port_add 3129 user if init failed\n")});
    EXPECT_STREQ(netintf_port_head_get(2)->name, "lan2");
}

const Lines device_gone =
    std::vector<std::string>{"netlib_eth_intf_down('eth0.4092')", "netlib_vintf_delete('eth0.4092')"};

Lines bridge_gone(const std::string &name, const std::string &member)
{
    return std::vector<std::string>{"netlib_br_delif('" + name + "', '" + member + "')",
                                    "netlib_eth_intf_down('" + name + "')",
                                    "netlib_br_delete('" + name + "')"};
}

const Lines done_lan2 = info(" lan or wan port del success,port=lan2\r\n");

TEST_F(PortMethods, DeletedLanPort)
{
    vlan_entry_put(1, {4091, 0x1a});
    vlan_entry_put(2, {4092, 0x44});
    lan("lan2_default");
    lan("lan2.a", vlan_none, 7);
    std::strcpy(netintf_port_head_get(2)->name, "lan2");
    netintf_port_head_get(2)->intf_type = intf_type_lan;
    port_del("lan2", 0,
             {info("lan2_default vid1=65535 vid2=65535 type=1\n"), bridge_gone("lan2_default", "eth0.4092"),
              info("lan2.a vid1=65535 vid2=7 type=1\n"), bridge_gone("lan2.a", "eth0.4092"), device_gone,
              done_lan2});
    EXPECT_EQ(names_on(2), std::vector<std::string>{});
    EXPECT_EQ(vlan_entry(1), (VlanEntry{4091, 0x1e}));
    EXPECT_EQ(vlan_entry(2), (VlanEntry{4092, 0}));
    EXPECT_EQ(pvid(2), 4091U);
    EXPECT_STREQ(netintf_port_head_get(2)->name, "lan1");
    EXPECT_EQ(netintf_port_head_get(2)->intf_type, 0U);
}

TEST_F(PortMethods, DeletedEmptyPort)
{
    port_del("lan2", 0, {device_gone, done_lan2});
}

TEST_F(PortMethods, AddedAndDeletedPortLeavesNothing)
{
    vlan_entry_put(1, {4091, 0x5e});
    world.registers[0x44] = 0xffb;
    EXPECT_EQ(call("ivarode.intf", "port_add", named("lan2")), 0);
    EXPECT_EQ(call("ivarode.intf", "port_del", named("lan2")), 0);
    EXPECT_EQ(names_on(2), std::vector<std::string>{});
    EXPECT_EQ(vlan_entry(1), (VlanEntry{4091, 0x5e}));
    EXPECT_EQ(vlan_entry(2), (VlanEntry{4092, 0}));
    EXPECT_EQ(pvid(2), 4091U);
}

// LAN 1's port cannot leave LAN 1's VLAN for it: the steps take it out.
TEST_F(PortMethods, DeletedPortOfLanOne)
{
    vlan_entry_put(1, {4091, 0x5e});
    port_del("lan1", 0,
             {"netlib_eth_intf_down('eth0.4091')", "netlib_vintf_delete('eth0.4091')",
              info(" lan or wan port del success,port=lan1\r\n")});
    EXPECT_EQ(vlan_entry(1), (VlanEntry{4091, 0x1c}));
    EXPECT_EQ(pvid(1), 4091U);
}

TEST_F(PortMethods, TheNameOfThePortDecidesHowItsInterfacesAreRemoved)
{
    board({{1, 1}, {3, 2}});
    lan("lan2");
    port_del("wan1", 0,
             {info("lan2 vid1=65535 vid2=65535 type=2\n"), "netlib_intf_set_ip('lan2', '0.0.0.0')",
              "netlib_waninfo_db_del_byname('lan2')", bridge_gone("lan2", "eth0.4092"), device_gone,
              info(" lan or wan port del success,port=wan1\r\n")});
    EXPECT_STREQ(netintf_port_head_get(2)->name, "lan1");
    wan("wan1", proto_dhcp);
    port_del("lan2", 0,
             {info("wan1 vid1=65535 vid2=65535 type=1\n"), bridge_gone("wan1", "eth0.4092"), device_gone,
              done_lan2});
}

TEST_F(PortMethods, DeletionStopsAtAnInterfaceThatStays)
{
    // Once it is the first of its list, an interface does not count as a user of its VLAN.
    lan("lan2");
    lan("lan2.100", 100);
    lan("lan2.b");
    port_del("lan2", 1,
             {info("lan2 vid1=65535 vid2=65535 type=1\n"), bridge_gone("lan2", "eth0.4092"),
              info("lan2.100 vid1=100 vid2=65535 type=1\n"), bridge_gone("lan2.100", "eth0.100"),
              info("lan del err,intf=lan2.100\r\n")});
    EXPECT_EQ(names_on(2), (std::vector<std::string>{"lan2.100", "lan2.b"}));

    wan("wan1", proto_pppoe);
    fail("netlib_br_delif(");
    port_del("wan1", 1,
             {info("wan1 vid1=65535 vid2=65535 type=2\n"), "cmdlib_procd_del_inst('pppoe', 'wan1')",
              "netlib_waninfo_db_del_byname('wan1')", "netlib_br_delif('wan1_pe', 'eth0.4090')",
              info("wan del err,intf=wan1\r\n")});
    EXPECT_EQ(names_on(0), std::vector<std::string>{"wan1"});
}

TEST_F(PortMethods, DeletionMeetsABrokenList)
{
    netintf_entry *head = netintf_port_head_get(2);
    netintf_entry *entry = lan("lan2");
    head->next = nullptr;
    port_del("lan2", 2, {error("intf info error\n")});
    head->next = entry;
}

TEST_F(PortMethods, DeletionReportsAPortThatCannotBeGivenBack)
{
    fail("netlib_vintf_delete(");
    port_del("lan2", 1,
             {device_gone, error("port default vlan exit error,type=1 hw_port==2\n"),
              error("netintf_ubus_port_del 3255 hw port exit error\n")});
    EXPECT_STREQ(netintf_port_head_get(2)->name, "");
}

TEST_F(PortMethods, DumpPrintsTheHeadFirst)
{
    std::strcpy(netintf_port_head_get(2)->name, "lan2");
    lan("lan2_default");
    lan("lan2.100", 100, 200);
    expect_call("ivarode.intf", "port_dump", Message().number("port", 2), 0,
                {info("lan2 vid1=0 vid2=0\n"), info("lan2_default vid1=65535 vid2=65535\n"),
                 info("lan2.100 vid1=100 vid2=200\n")});
    expect_call("ivarode.intf", "port_dump", Message().number("port", 3), 0, {info(" vid1=0 vid2=0\n")});
}

TEST_F(PortMethods, DumpMeetsABrokenList)
{
    netintf_entry *entry = lan("lan2");
    entry->next = nullptr;
    expect_call(
        "ivarode.intf", "port_dump", Message().number("port", 2), 2,
        {info(" vid1=0 vid2=0\n"), info("lan2 vid1=65535 vid2=65535\n"), error("port dump intf null error")});
    entry->next = netintf_port_head_get(2);
}

TEST_F(PortMethods, StatusTellsThePartsOfEightWords)
{
    world.port_words = {0x0, 0x1, 0x2, 0x4, 0x6, 0x8, 0xf, 0xfffffff0};
    expect_call("ivarode.intf", "status", Message().text("ignored", "field"), 0,
                {"knl_send_and_wait_response(0xb0000002, null, 0, 32)",
                 "reply({link: [0, 1, 0, 0, 0, 0, 1, 0], speed: [0, 0, 1, 2, 3, 0, 3, 0], "
                 "duplex: [0, 0, 0, 0, 0, 1, 1, 0]})"});
}

TEST_F(PortMethods, StatusAlwaysHasEightPortsAndABufferOfItsOwn)
{
    for (int times = 0; times < 3; times++) {
        expect_call("ivarode.intf", "status", {}, 0,
                    {"knl_send_and_wait_response(0xb0000002, null, 0, 32)",
                     "reply({link: [0, 0, 0, 0, 0, 0, 0, 0], speed: [0, 0, 0, 0, 0, 0, 0, 0], "
                     "duplex: [0, 0, 0, 0, 0, 0, 0, 0]})"});
    }
}

TEST_F(PortMethods, StatusWithoutAnAnswer)
{
    fail("knl_send_and_wait_response(");
    expect_call("ivarode.intf", "status", {}, -1,
                {"knl_send_and_wait_response(0xb0000002, null, 0, 32)", error("get port info error\n")});
}

} // namespace
} // namespace unit
