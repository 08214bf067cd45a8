// Bus method "config".

#include "daemon_test.h"

namespace unit {
namespace {

class L3intfConfig : public DaemonTest {
protected:
    void config(const Message &message, int status, const std::vector<Lines> &expected)
    {
        expect_call("ivarode.intf", "config", message, status, expected);
    }
};

Message rename(const char *old_name, const char *name, const char *proto)
{
    return Message().text("intf", name).text("old_intf", old_name).text("proto", proto);
}

Message lan2(const char *name = "lan2")
{
    return rename("lan2", name, "static").text("ipaddr", "192.168.2.1").text("netmask", "255.255.255.0");
}

Message wan1(const char *proto)
{
    return rename("wan1", "wan1", proto).text("defrt_pri", "20007");
}

Message static_wan1()
{
    return wan1("static").text("ipaddr", "10.0.0.2").text("netmask", "255.0.0.0").text("gateway", "10.0.0.1");
}

Lines gone(const std::string &bridge, const std::string &member)
{
    return std::vector<std::string>{"netlib_br_delif('" + bridge + "', '" + member + "')",
                                    "netlib_eth_intf_down('" + bridge + "')",
                                    "netlib_br_delete('" + bridge + "')"};
}

Lines made(const std::string &bridge, const std::string &member)
{
    return std::vector<std::string>{"netlib_br_create('" + bridge + "')",
                                    "netlib_eth_intf_up('" + bridge + "')",
                                    "netlib_br_addif('" + bridge + "', '" + member + "')"};
}

Lines addressed(const std::string &name)
{
    return std::vector<std::string>{"netlib_intf_set_ip('" + name + "', '192.168.2.1')",
                                    "netlib_intf_set_netmask('" + name + "', '255.255.255.0')"};
}

Lines configured(const std::string &name)
{
    return info("lan vlan wan config success,intf_name=" + name + "\n");
}

const Lines static_stopped =
    std::vector<std::string>{"netlib_intf_set_ip('wan1', '0.0.0.0')", "netlib_waninfo_db_del_byname('wan1')"};
const Lines pppoe_stopped = std::vector<std::string>{"cmdlib_procd_del_inst('pppoe', 'wan1')",
                                                     "netlib_waninfo_db_del_byname('wan1')"};
const Lines plain_gone = gone("wan1", "eth0.4090");
const Lines plain_made = made("wan1", "eth0.4090");
const Lines failed = error("wan proto config failed\n");

TEST_F(L3intfConfig, Lan)
{
    netintf_entry *entry = lan("lan2");
    config(lan2(), 0,
           {gone("lan2", "eth0.4092"), made("lan2", "eth0.4092"), addressed("lan2"), configured("lan2")});
    EXPECT_EQ(entry->ipaddr, address("192.168.2.1"));
    EXPECT_EQ(entry->proto, proto_static);
}

// It keeps its port, whatever port the new name stands for; the new name's port gives the link.
TEST_F(L3intfConfig, ARenamedLanStaysOnItsPort)
{
    netintf_entry *entry = lan("lan2");
    link_set(3, 1);
    config(lan2("lan3"), 0,
           {gone("lan2", "eth0.4092"), made("lan3", "eth0.4092"), "netlib_eth_intf_up('lan3')",
            addressed("lan3"), configured("lan3")});
    EXPECT_EQ(entry->hw_port, 2U);
    EXPECT_EQ(names_on(2), std::vector<std::string>{"lan3"});
    EXPECT_EQ(names_on(3), std::vector<std::string>{});
}

TEST_F(L3intfConfig, ADisabledLanIsNotRaisedOnceMore)
{
    lan("lan2")->enable = 0;
    link_set(2, 1);
    config(lan2(), 0,
           {gone("lan2", "eth0.4092"), made("lan2", "eth0.4092"), addressed("lan2"), configured("lan2")});
}

TEST_F(L3intfConfig, MacFromTheMessageOrTheRecord)
{
    netintf_entry *entry = lan("lan2");
    entry->mac[5] = 9;
    const auto with_mac = [](const char *mac) {
        return std::vector<Lines>{gone("lan2", "eth0.4092"),
                                  "netlib_br_create('lan2')",
                                  std::string{"netlib_eth_mac_set('lan2', "} + mac + ")",
                                  "netlib_eth_intf_up('lan2')",
                                  "netlib_br_addif('lan2', 'eth0.4092')",
                                  addressed("lan2"),
                                  configured("lan2")};
    };
    config(lan2(), 0, with_mac("00:00:00:00:00:09"));
    config(lan2().text("mac", "2:3:4:5:6:7"), 0, with_mac("02:03:04:05:06:07"));
    EXPECT_EQ(entry->mac[5], 7);
    config(lan2(), 0, with_mac("02:03:04:05:06:07"));
}

TEST_F(L3intfConfig, FromVlanToVlan)
{
    lan("lan2");
    netintf_entry *entry = lan("lan2.a", 100, 7);
    vlan_entry_put(5, {100, 0x44});
    config(rename("lan2.a", "lan2.b", "static")
               .text("ipaddr", "192.168.2.1")
               .text("netmask", "255.255.255.0")
               .number("vlanid1", 200),
           0,
           {gone("lan2.a", "eth0.100.7"), "netlib_eth_intf_down('eth0.100.7')",
            "netlib_vintf_delete('eth0.100.7')", "netlib_eth_intf_down('eth0.100')",
            "netlib_vintf_delete('eth0.100')", "netilib_vintf_create('eth0', 200)",
            "netlib_eth_mac_set('eth0.200', 02:11:22:33:44:51)", "netlib_eth_intf_up('eth0.200')",
            made("lan2.b", "eth0.200"), addressed("lan2.b"), configured("lan2.b")});
    EXPECT_EQ(entry->vlanid1, 200);
    EXPECT_EQ(entry->vlanid2, vlan_none);
    EXPECT_EQ(entry->port_vid, -1);
    EXPECT_EQ(vlan_entry(5), (VlanEntry{200, 0x44}));
}

TEST_F(L3intfConfig, LongNamesAreCut)
{
    netintf_entry *entry = lan("lan2");
    const std::string name = "lan3" + std::string(40, 'x');
    const std::string cut = name.substr(0, 31);
    config(lan2(name.c_str()), 0,
           {gone("lan2", "eth0.4092"), made(cut, "eth0.4092"), addressed(cut), configured(name)});
    EXPECT_EQ(entry->name, cut);
}

TEST_F(L3intfConfig, TearingDownFails)
{
    lan("lan2");
    netintf_entry *entry = lan("lan2.a", 100);
    fail("netlib_br_delif(");
    config(rename("lan2.a", "lan2.b", "static"), 9,
           {"netlib_br_delif('lan2.a', 'eth0.100')",
            error("net config user old intf exit error ifname=lan2.a port=2 v1=100 v2=65535\n")});
    answers_forget();
    fail("netlib_vintf_delete(");
    config(rename("lan2.a", "lan2.b", "static"), 9,
           {gone("lan2.a", "eth0.100"), "netlib_eth_intf_down('eth0.100')", "netlib_vintf_delete('eth0.100')",
            error("net config port vlan intf exit error\n")});
    EXPECT_STREQ(entry->name, "lan2.a");
}

TEST_F(L3intfConfig, WithoutAKnownProtocolTheInterfaceStaysTornDown)
{
    netintf_entry *entry = lan("lan2");
    config(Message().text("intf", "lan3").text("old_intf", "lan2").number("vlanid1", 5), 2,
           {gone("lan2", "eth0.4092")});
    EXPECT_STREQ(entry->name, "lan3");
    EXPECT_EQ(entry->vlanid1, 5);
    EXPECT_EQ(entry->proto, proto_static);
    entry = lan("lan4");
    config(rename("lan4", "lan4", "l2tp"), 2, {gone("lan4", "eth0.4094")});
}

TEST_F(L3intfConfig, BuildingFails)
{
    netintf_entry *entry = lan("lan2");
    fail("netilib_vintf_create(");
    config(lan2().number("vlanid1", 100), 9,
           {gone("lan2", "eth0.4092"), "netilib_vintf_create('eth0', 100)",
            error("net config port vlan init error\n")});
    answers_forget();
    entry->vlanid1 = vlan_none;
    fail("netlib_br_create(");
    config(lan2(), 9,
           {gone("lan2", "eth0.4092"), "netlib_br_create('lan2')",
            error("veth init failed, master_intf=eth0.4092 veth_intfname=lan2 mac=00:00:00:00:00:00\n"),
            error("net config user intf init error,lan2 1 2 65535 65535 1\n")});
}

TEST_F(L3intfConfig, LanAddresses)
{
    lan("lan2");
    const Lines rebuilt_gone = gone("lan2", "eth0.4092");
    const Lines rebuilt = made("lan2", "eth0.4092");
    const Lines missing = error("l3intf_config ipaddr netmask null\n");
    config(rename("lan2", "lan2", "static"), 2, {rebuilt_gone, rebuilt, missing});
    config(rename("lan2", "lan2", "static").text("ipaddr", "1.2.3.4"), 2, {rebuilt_gone, rebuilt, missing});
    config(rename("lan2", "lan2", "static").text("netmask", "255.0.0.0"), 2,
           {rebuilt_gone, rebuilt, missing});
    answer("netlib_intf_set_ip(", -77);
    config(lan2(), 2,
           {rebuilt_gone, rebuilt, "netlib_intf_set_ip('lan2', '192.168.2.1')",
            error("config ip error,rv = -77\n")});
}

TEST_F(L3intfConfig, ANameThatIsNeitherLanNorWanHasNoDevice)
{
    lan("lan2");
    config(lan2("guest"), 9,
           {gone("lan2", "eth0.4092"), error("net config user intf init error,guest 1 2 65535 65535 1\n")});
}

// The device's own check comes first; behind it the method has one of its own.
TEST_F(L3intfConfig, ANameThatIsNeitherLanNorWanIsRefusedBehindTheDeviceToo)
{
    lan("lan2");
    world.equal_in = "type_of_name";
    config(lan2("guest"), 1,
           {gone("lan2", "eth0.4092"), made("guest", "eth0.4092"), error("port link get error\r\n"),
            error("intf_name is error\n")});
}

TEST_F(L3intfConfig, StaticWan)
{
    netintf_entry *entry = wan("wan1");
    entry->gateway = address("9.9.9.9");
    const Lines addresses = std::vector<std::string>{
        "netlib_intf_gateway_del(20007, '9.9.9.9', 'wan1', 20007)", "netlib_intf_plcrt_del('wan1', 20007)",
        "netlib_intf_set_ip('wan1', '10.0.0.2')", "netlib_intf_set_netmask('wan1', '255.0.0.0')",
        "netlib_intf_gateway_add(20007, '10.0.0.1', 'wan1', 20007)"};
    const Lines row =
        "netlib_waninfo_db_insert('wan1', 'static', '10.0.0.2', '255.0.0.0', '10.0.0.1', null, null)";
    config(static_wan1(), 0, {static_stopped, plain_gone, plain_made, addresses, row, configured("wan1")});
    EXPECT_EQ(entry->gateway, address("10.0.0.1"));
    EXPECT_EQ(entry->defrt_pri, 20007);
    entry->gateway = address("9.9.9.9");
    link_set(0, 1);
    config(static_wan1(), 0,
           {static_stopped, plain_gone, plain_made, "netlib_eth_intf_up('wan1')", addresses,
            "netlib_intf_plcrt_add('wan1', 20007)", row, configured("wan1")});
    entry->gateway = address("9.9.9.9");
    entry->enable = 0;
    config(static_wan1(), 0, {static_stopped, plain_gone, plain_made, addresses, row, configured("wan1")});
}

TEST_F(L3intfConfig, StaticWanWithNoOldGatewayAsksForItsRemovalToo)
{
    wan("wan1");
    fail("netlib_intf_gateway_");
    fail("netlib_intf_plcrt_");
    config(static_wan1(), 0,
           {static_stopped, plain_gone, plain_made,
            "netlib_intf_gateway_del(20007, '0.0.0.0', 'wan1', 20007)",
            "netlib_intf_plcrt_del('wan1', 20007)", "netlib_intf_set_ip('wan1', '10.0.0.2')",
            "netlib_intf_set_netmask('wan1', '255.0.0.0')",
            "netlib_intf_gateway_add(20007, '10.0.0.1', 'wan1', 20007)",
            "netlib_waninfo_db_insert('wan1', 'static', '10.0.0.2', '255.0.0.0', '10.0.0.1', null, null)",
            configured("wan1")});
}

TEST_F(L3intfConfig, StaticWanWithoutItsTexts)
{
    wan("wan1");
    const Message no_gateway = wan1("static").text("ipaddr", "10.0.0.2").text("netmask", "255.0.0.0");
    config(no_gateway, 1, {static_stopped, plain_gone, plain_made, error("gateway is null\n"), failed});
    config(wan1("static").text("netmask", "255.0.0.0").text("gateway", "10.0.0.1"), 1,
           {static_stopped, plain_gone, plain_made, failed});
    config(wan1("static").text("ipaddr", "10.0.0.2").text("gateway", "10.0.0.1"), 1,
           {static_stopped, plain_gone, plain_made, failed});
}

TEST_F(L3intfConfig, StaticWanWithAnAddressThatIsRefused)
{
    wan("wan1");
    answer("netlib_intf_set_ip('wan1', '10.0.0.2')", -77);
    config(static_wan1(), 1,
           {static_stopped, plain_gone, plain_made,
            "netlib_intf_gateway_del(20007, '0.0.0.0', 'wan1', 20007)",
            "netlib_intf_plcrt_del('wan1', 20007)", "netlib_intf_set_ip('wan1', '10.0.0.2')", failed});
}

TEST_F(L3intfConfig, PriorityOfAWan)
{
    netintf_entry *entry = wan("wan1", proto_dhcp);
    config(rename("wan1", "wan1", "static"), 1,
           {"netlib_intf_set_ip('wan1', '0.0.0.0')", "cmdlib_procd_del_inst('dhcp', 'wan1')",
            "netlib_waninfo_db_del_byname('wan1')", plain_gone, plain_made,
            error("default route priority is null\n"), failed});
    EXPECT_EQ(entry->proto, proto_static);
    EXPECT_EQ(entry->defrt_pri, 20001);
    config(rename("wan1", "wan1", "static").number("defrt_pri", 7), 1,
           {static_stopped, plain_gone, plain_made, error("default route priority is null\n"), failed});
    EXPECT_EQ(call("ivarode.intf", "config", rename("wan1", "wan1", "dhcp").text("defrt_pri", "12x")), 0);
    EXPECT_EQ(entry->defrt_pri, 12);
}

TEST_F(L3intfConfig, DhcpWan)
{
    netintf_entry *entry = wan("wan1");
    const Lines start = "cmdlib_procd_start_inst('dhcp', 'wan1', '/sbin/udhcpc  -t 0 -i wan1 -s "
                        "/lib/ivarode/empty.sh -C -p /var/run/udhcpc-wan1.pid -f -m 20007', 0)";
    const Lines row = "netlib_waninfo_db_insert('wan1', 'dhcp', null, null, null, null, null)";
    config(wan1("dhcp"), 0, {static_stopped, plain_gone, plain_made, start, row, configured("wan1")});
    EXPECT_EQ(entry->proto, proto_dhcp);
    const Lines dhcp_stopped = std::vector<std::string>{"netlib_intf_set_ip('wan1', '0.0.0.0')",
                                                        "cmdlib_procd_del_inst('dhcp', 'wan1')",
                                                        "netlib_waninfo_db_del_byname('wan1')"};
    answer("netlib_waninfo_db_insert(", 4);
    config(wan1("dhcp"), 1,
           {dhcp_stopped, plain_gone, plain_made, start, row, error("wan info db insert error\n"), failed});
    answer("cmdlib_procd_start_inst(", 4);
    config(wan1("dhcp"), 1, {dhcp_stopped, plain_gone, plain_made, start, failed});
}

std::string pppd_line(const std::string &service)
{
    return "/usr/sbin/pppd nodetach ipparam 'pppoec,20007' ifname wan1  +ipv6  nodefaultroute  usepeerdns  "
           "persist  "
           "maxfail  0 user joe password pw mtu 1492 mru 1492 plugin  rp-pppoe.so " +
           service + " nic-wan1_pe ";
}

Lines started(const std::string &line)
{
    return std::vector<std::string>{"outlib_info(" +
                                        quote("netintf_proto_config_pppoe 920 cmd_line=" + line + "\n") + ")",
                                    "cmdlib_procd_start_inst('pppoe', 'wan1', " + quote(line) + ", 0)"};
}

const Lines ppp_gone = gone("wan1_pe", "eth0.4090");
const Lines ppp_made = made("wan1_pe", "eth0.4090");
const Lines ppp_row = "netlib_waninfo_db_insert('wan1', 'pppoe', null, null, null, null, null)";

Message account(const char *proto = "pppoe")
{
    return wan1(proto).text("username", "joe").text("password", "pw");
}

TEST_F(L3intfConfig, PppoeWan)
{
    netintf_entry *entry = wan("wan1");
    config(account().text("server", "isp"), 0,
           {static_stopped, plain_gone, ppp_made, started(pppd_line("rp_pppoe_service isp")), ppp_row,
            configured("wan1")});
    EXPECT_EQ(entry->proto, proto_pppoe);
    config(account(), 0,
           {pppoe_stopped, ppp_gone, "netlib_eth_intf_exist('wan1')", ppp_made, started(pppd_line("")),
            ppp_row, configured("wan1")});
    fail("cmdlib_procd_start_inst(");
    config(account(), 1,
           {pppoe_stopped, ppp_gone, "netlib_eth_intf_exist('wan1')", ppp_made, started(pppd_line("")),
            error("start process failed\n"), failed});
}

TEST_F(L3intfConfig, ADisabledPppoeWanIsOnlyStopped)
{
    wan("wan1")->enable = 0;
    config(account(), 0,
           {static_stopped, plain_gone, ppp_made, "cmdlib_procd_del_inst('pppoe', 'wan1')", ppp_row,
            configured("wan1")});
}

TEST_F(L3intfConfig, PppoeWithoutAnAccount)
{
    wan("wan1");
    config(wan1("pppoe").text("username", "joe"), 1,
           {static_stopped, plain_gone, ppp_made, error("pppoe config param error ADDRESS,(nil)\n"), failed});
    config(wan1("pppoe").text("password", "pw"), 1,
           {pppoe_stopped, ppp_gone, "netlib_eth_intf_exist('wan1')", ppp_made,
            error("pppoe config param error (nil),ADDRESS\n"), failed});
    config(wan1("pppoe"), 1,
           {pppoe_stopped, ppp_gone, "netlib_eth_intf_exist('wan1')", ppp_made,
            error("pppoe config param error (nil),(nil)\n"), failed});
}

TEST_F(L3intfConfig, AnOldPppDeviceIsWaitedFor)
{
    wan("wan1", proto_pppoe);
    world.device_asks = 3;
    config(
        account("dhcp"), 0,
        {pppoe_stopped, ppp_gone, "netlib_eth_intf_exist('wan1')", "usleep(1000)",
         "netlib_eth_intf_exist('wan1')", "usleep(1000)", "netlib_eth_intf_exist('wan1')", "usleep(1000)",
         "netlib_eth_intf_exist('wan1')", plain_made,
         "cmdlib_procd_start_inst('dhcp', 'wan1', '/sbin/udhcpc  -t 0 -i wan1 -s /lib/ivarode/empty.sh -C -p "
         "/var/run/udhcpc-wan1.pid -f -m 20007', 0)",
         "netlib_waninfo_db_insert('wan1', 'dhcp', null, null, null, null, null)", configured("wan1")});
}

TEST_F(L3intfConfig, AnOldPppDeviceIsAskedForAtMost2001Times)
{
    for (const int asks : {2000, 2001}) {
        board({{1, 1}, {2, 0}});
        wan("wan1", proto_pppoe);
        world.device_asks = asks;
        EXPECT_EQ(call("ivarode.intf", "config", account("dhcp")), asks == 2000 ? 0 : 2);
        const std::vector<std::string> trace = trace_take();
        EXPECT_EQ(std::count(trace.begin(), trace.end(), "netlib_eth_intf_exist('wan1')"), 2001);
        EXPECT_EQ(std::count(trace.begin(), trace.end(), "usleep(1000)"), 2000);
        if (asks == 2001) {
            EXPECT_EQ(join({trace.end() - 2, trace.end()}),
                      join(error("old ppp interface exist error\n").all()));
        }
    }
}

TEST_F(L3intfConfig, OnlyAnOldPppInterfaceOfTheSameNameIsWaitedFor)
{
    board({{1, 1}, {2, 3}, {2, 0}});
    wan("wan1", proto_pppoe);
    world.device_asks = 5;
    EXPECT_EQ(call("ivarode.intf", "config", rename("wan1", "wan2", "dhcp").text("defrt_pri", "1")), 0);
    EXPECT_EQ(world.device_asks, 5);
    wan("wan1", proto_dhcp);
    EXPECT_EQ(call("ivarode.intf", "config", wan1("pppoe").text("username", "u").text("password", "p")), 0);
    EXPECT_EQ(world.device_asks, 5);
}

// The protocol of a renamed interface is stopped under its old name.
TEST_F(L3intfConfig, ALanMadeAWan)
{
    netintf_entry *entry = lan("lan2");
    config(
        rename("lan2", "wan1", "dhcp").text("defrt_pri", "20007"), 0,
        {"netlib_intf_set_ip('lan2', '0.0.0.0')", "netlib_waninfo_db_del_byname('lan2')",
         gone("lan2", "eth0.4092"), made("wan1", "eth0.4092"),
         "cmdlib_procd_start_inst('dhcp', 'wan1', '/sbin/udhcpc  -t 0 -i wan1 -s /lib/ivarode/empty.sh -C -p "
         "/var/run/udhcpc-wan1.pid -f -m 20007', 0)",
         "netlib_waninfo_db_insert('wan1', 'dhcp', null, null, null, null, null)", configured("wan1")});
    EXPECT_EQ(entry->intf_type, intf_type_lan);
    EXPECT_EQ(entry->hw_port, 2U);
}

TEST_F(L3intfConfig, AWanMadeALanIsNotStopped)
{
    wan("wan1", proto_dhcp);
    config(rename("wan1", "lan2", "dhcp").text("ipaddr", "192.168.2.1").text("netmask", "255.255.255.0"), 0,
           {plain_gone, made("lan2", "eth0.4090"), addressed("lan2"), configured("lan2")});
}

} // namespace
} // namespace unit
