// Bus methods "add" and "del" of interfaces.

#include "daemon_test.h"

#include <cstring>

namespace unit {
namespace {

class L3intfAdd : public DaemonTest {
protected:
    void add(const Message &message, int status, const std::vector<Lines> &expected)
    {
        expect_call("ivarode.intf", "add", message, status, expected);
    }
    void del(const std::vector<std::string> &names, int status, const std::vector<Lines> &expected)
    {
        std::vector<Lines> lines{"ubuslib_bmsg_strlist_get(list, 100)"};
        lines.insert(lines.end(), expected.begin(), expected.end());
        expect_call("ivarode.intf", "del", Message().texts("intf", names), status, lines);
    }
};

Message lan2()
{
    return Message().text("intf", "lan2").text("ipaddr", "192.168.2.1").text("netmask", "255.255.255.0");
}

Message wan1(const char *proto)
{
    return Message().text("intf", "wan1").text("proto", proto).text("defrt_pri", "20007");
}

const Lines lan_bridge = std::vector<std::string>{"netlib_br_create('lan2')", "netlib_eth_intf_up('lan2')",
                                                  "netlib_br_addif('lan2', 'eth0.4092')"};
const Lines lan_addresses = std::vector<std::string>{"netlib_intf_set_ip('lan2', '192.168.2.1')",
                                                     "netlib_intf_set_netmask('lan2', '255.255.255.0')"};
const Lines wan_bridge =
    std::vector<std::string>{"netlib_br_create('wan1')", "netlib_eth_intf_up('wan1')",
                             "netlib_br_addif('wan1', 'eth0.4090')", "netlib_eth_mac_get('wan1')"};
const Lines ppp_bridge =
    std::vector<std::string>{"netlib_br_create('wan1_pe')", "netlib_eth_intf_up('wan1_pe')",
                             "netlib_br_addif('wan1_pe', 'eth0.4090')", "netlib_eth_mac_get('wan1')"};
const Lines added_lan = info(" lan or wan intf add success,intf=lan2\r\n");
const Lines added_wan = info(" lan or wan intf add success,intf=wan1\r\n");

TEST_F(L3intfAdd, Lan)
{
    add(lan2(), 0, {lan_bridge, "netlib_eth_mac_get('lan2')", lan_addresses, added_lan});
    const netintf_entry *entry = netintf_entry_find_byname("lan2");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->proto, proto_static);
    EXPECT_EQ(entry->ipaddr, address("192.168.2.1"));
    EXPECT_EQ(entry->vlanid1, vlan_none);
    // The port's one-time set-up is not this method's.
    EXPECT_EQ(netintf_lan_port_mask, 0U);
    EXPECT_EQ(vlan_entry(2).members, 0U);
}

TEST_F(L3intfAdd, LanWithMacOnALinkedPort)
{
    link_set(2, 1);
    add(lan2().text("mac", "2:0:0:0:0:7"), 0,
        {"netlib_br_create('lan2')", "netlib_eth_mac_set('lan2', 02:00:00:00:00:07)",
         "netlib_eth_intf_up('lan2')", "netlib_br_addif('lan2', 'eth0.4092')", "netlib_eth_intf_up('lan2')",
         lan_addresses, added_lan});
}

TEST_F(L3intfAdd, LanOnVlans)
{
    // The low sixteen bits count.
    add(lan2().number("vlanid1", 0x10064).number("vlanid2", 0xffff0007), 0,
        {"netilib_vintf_create('eth0', 100)", "netlib_eth_mac_set('eth0.100', 02:11:22:33:44:51)",
         "netlib_eth_intf_up('eth0.100')", "netilib_vintf_create('eth0.100', 7)",
         "netlib_eth_mac_set('eth0.100.7', 02:11:22:33:44:51)", "netlib_eth_intf_up('eth0.100.7')",
         "netlib_br_create('lan2')", "netlib_eth_intf_up('lan2')", "netlib_br_addif('lan2', 'eth0.100.7')",
         "netlib_eth_mac_get('lan2')", lan_addresses, added_lan});
    EXPECT_EQ(netintf_entry_find_byname("lan2")->vlanid1, 100);
    EXPECT_EQ(netintf_entry_find_byname("lan2")->vlanid2, 7);
    EXPECT_EQ(vlan_entry(5), (VlanEntry{100, 0x44}));
}

TEST_F(L3intfAdd, VlanIdsThatAreNone)
{
    for (const uint32_t none : {65535U, 0xffffffffU, 0x1ffffU}) {
        board({{1, 1}, {1, 2}});
        add(lan2().number("vlanid1", none), 0,
            {lan_bridge, "netlib_eth_mac_get('lan2')", lan_addresses, added_lan});
    }
}

TEST_F(L3intfAdd, VlanIdsThatTheSwitchCannotHold)
{
    add(lan2().number("vlanid1", 4096), 1, {error("netintf_lan_add 2254\n"), error("lan if add failed\n")});
    EXPECT_EQ(names_on(2), std::vector<std::string>{"lan2"});
}

TEST_F(L3intfAdd, AFailingLan)
{
    fail("netlib_br_addif(");
    add(lan2(), 1,
        {lan_bridge,
         error("veth init failed, master_intf=eth0.4092 veth_intfname=lan2 mac=00:00:00:00:00:00\n"),
         error("netintf_lan_add 2261:user intf init failed\n"), error("lan if add failed\n")});
    answers_forget();
    for (const auto &[failing, status] :
         {std::pair{"netlib_intf_set_ip(", -77}, std::pair{"netlib_intf_set_netmask(", 5}}) {
        board({{1, 1}, {1, 2}});
        answer(failing, status);
        EXPECT_EQ(call("ivarode.intf", "add", lan2()), status);
        EXPECT_EQ(trace_take().back().substr(0, std::strlen(failing)), failing);
        EXPECT_EQ(names_on(2), std::vector<std::string>{"lan2"});
        answers_forget();
    }
}

TEST_F(L3intfAdd, ALongName)
{
    const std::string name = "lan2" + std::string(29, 'x');
    const std::string cut = name.substr(0, 31);
    add(Message().text("intf", name).text("ipaddr", "192.168.2.1").text("netmask", "255.255.255.0"), 0,
        {"netlib_br_create('" + cut + "')", "netlib_eth_intf_up('" + cut + "')",
         "netlib_br_addif('" + cut + "', 'eth0.4092')", "netlib_eth_mac_get('" + name + "')",
         "netlib_intf_set_ip('" + cut + "', '192.168.2.1')",
         "netlib_intf_set_netmask('" + cut + "', '255.255.255.0')",
         info(" lan or wan intf add success,intf=" + name + "\r\n")});
}

TEST_F(L3intfAdd, StaticWan)
{
    const Message message =
        wan1("static").text("ipaddr", "10.0.0.2").text("netmask", "255.0.0.0").text("gateway", "10.0.0.1");
    const Lines addresses = std::vector<std::string>{
        "netlib_intf_set_ip('wan1', '10.0.0.2')", "netlib_intf_set_netmask('wan1', '255.0.0.0')",
        "netlib_intf_gateway_add(20007, '10.0.0.1', 'wan1', 20007)"};
    const Lines row =
        "netlib_waninfo_db_insert('wan1', 'static', '10.0.0.2', '255.0.0.0', '10.0.0.1', '0.0.0.0', "
        "'0.0.0.0')";
    add(message, 0, {wan_bridge, addresses, row, added_wan});
    const netintf_entry *entry = netintf_entry_find_byname("wan1");
    EXPECT_EQ(entry->proto, proto_static);
    EXPECT_EQ(entry->enable, 1U);
    EXPECT_EQ(entry->defrt_pri, 20007);

    board({{1, 1}, {2, 0}});
    link_set(0, 1);
    fail("netlib_intf_plcrt_add(");
    add(message, 0,
        {"netlib_br_create('wan1')", "netlib_eth_intf_up('wan1')", "netlib_br_addif('wan1', 'eth0.4090')",
         "netlib_eth_intf_up('wan1')", "netlib_eth_mac_get('wan1')", addresses,
         "netlib_intf_plcrt_add('wan1', 20007)", row, added_wan});
}

// The row holds the protocol as it was written.
TEST_F(L3intfAdd, StaticWanWithoutAddresses)
{
    add(wan1("statix"), 0,
        {wan_bridge,
         "netlib_waninfo_db_insert('wan1', 'statix', '0.0.0.0', '0.0.0.0', '0.0.0.0', '0.0.0.0', '0.0.0.0')",
         added_wan});
}

TEST_F(L3intfAdd, DhcpWan)
{
    const Lines start = "cmdlib_procd_start_inst('dhcp', 'wan1', '/sbin/udhcpc  -t 0 -i wan1 -s "
                        "/lib/ivarode/empty.sh -C -p /var/run/udhcpc-wan1.pid -f -m 20007', 0)";
    add(wan1("dhcp").text("ipaddr", "1.2.3.4"), 0,
        {wan_bridge, start,
         "netlib_waninfo_db_insert('wan1', 'dhcp', '1.2.3.4', '0.0.0.0', '0.0.0.0', '0.0.0.0', '0.0.0.0')",
         added_wan});
    board({{1, 1}, {2, 0}});
    answer("cmdlib_procd_start_inst(", -77);
    add(wan1("dhcp"), -77, {wan_bridge, start, error("wan dhcp config error,if=wan1\n")});
    EXPECT_EQ(names_on(0), std::vector<std::string>{"wan1"});
}

TEST_F(L3intfAdd, PppoeWanTakesItsServerFromTheAddress)
{
    const Message message = wan1("pppoe")
                                .text("ipaddr", "isp")
                                .text("username", "joe")
                                .text("password", "pw")
                                .text("server", "other");
    const std::string line =
        "/usr/sbin/pppd nodetach ipparam 'pppoec,20007' ifname wan1  +ipv6  nodefaultroute  "
        "usepeerdns  persist  maxfail  0 user joe password pw mtu 1492 mru 1492 plugin  "
        "rp-pppoe.so rp_pppoe_service isp nic-wan1_pe ";
    const Lines start = std::vector<std::string>{
        "outlib_info(" + quote("netintf_proto_config_pppoe 920 cmd_line=" + line + "\n") + ")",
        "cmdlib_procd_start_inst('pppoe', 'wan1', " + quote(line) + ", 0)"};
    add(message, 0,
        {ppp_bridge, start,
         "netlib_waninfo_db_insert('wan1', 'pppoe', 'isp', '0.0.0.0', '0.0.0.0', '0.0.0.0', '0.0.0.0')",
         added_wan});
    EXPECT_EQ(netintf_entry_find_byname("wan1")->proto, proto_pppoe);

    board({{1, 1}, {2, 0}});
    answer("cmdlib_procd_start_inst(", 33);
    add(message, 33,
        {ppp_bridge, start, error("start process failed\n"), error("wan pppoe config error,if=wan1\n")});
}

TEST_F(L3intfAdd, AFailingWan)
{
    fail("netlib_br_create(");
    add(wan1("static"), 1,
        {"netlib_br_create('wan1')",
         error("veth init failed, master_intf=eth0.4090 veth_intfname=wan1 mac=00:00:00:00:00:00\n"),
         error("wan if add failed\n")});
    answers_forget();
    board({{1, 1}, {2, 0}});
    answer("netlib_intf_set_ip(", -77);
    add(wan1("static").text("ipaddr", "1.2.3.4"), -77, {wan_bridge, "netlib_intf_set_ip('wan1', '1.2.3.4')"});
    board({{1, 1}, {2, 0}});
    answer("netlib_waninfo_db_insert(", -78);
    add(wan1("static"), -78,
        {wan_bridge,
         "netlib_waninfo_db_insert('wan1', 'static', '0.0.0.0', '0.0.0.0', '0.0.0.0', '0.0.0.0', '0.0.0.0')",
         error("wan info db insert error,if=wan1\n")});
}

TEST_F(L3intfAdd, ANameMayBeAddedTwice)
{
    EXPECT_EQ(call("ivarode.intf", "add", lan2()), 0);
    EXPECT_EQ(call("ivarode.intf", "add", lan2()), 0);
    EXPECT_EQ(names_on(2), (std::vector<std::string>{"lan2", "lan2"}));
}

Lines gone(const std::string &name, const std::string &member)
{
    return std::vector<std::string>{"netlib_br_delif('" + name + "', '" + member + "')",
                                    "netlib_eth_intf_down('" + name + "')",
                                    "netlib_br_delete('" + name + "')"};
}

TEST_F(L3intfAdd, DeletingInTheOrderGiven)
{
    lan("lan2");
    wan("wan1");
    lan("lan3");
    del({"wan1", "lan3", "lan2"}, 0,
        {"netlib_intf_set_ip('wan1', '0.0.0.0')", "netlib_waninfo_db_del_byname('wan1')",
         gone("wan1", "eth0.4090"), info("wan del success,intf=wan1\r\n"), gone("lan3", "eth0.4093"),
         info("lan del success,intf=lan3\r\n"), gone("lan2", "eth0.4092"),
         info("lan del success,intf=lan2\r\n")});
}

TEST_F(L3intfAdd, DeletingStopsAtTheFirstNameThatFails)
{
    lan("lan2");
    lan("lan3");
    del({"lan2", "foo", "lan3"}, 2, {gone("lan2", "eth0.4092"), info("lan del success,intf=lan2\r\n")});
    del({"lan2", "lan3"}, 1, {info("lan del err,intf=lan2\r\n")});
    del({"wan1", "lan3"}, 1, {});
    del({"lan9", "lan3"}, 1, {error("lan 9 get hw port error\n"), info("lan del err,intf=lan9\r\n")});
    EXPECT_EQ(names_on(3), std::vector<std::string>{"lan3"});
}

TEST_F(L3intfAdd, DeletingNothing)
{
    del({}, 0, {});
}

TEST_F(L3intfAdd, DeletingAtMostAHundred)
{
    for (const size_t count : {16U, 17U, 99U, 100U, 101U}) {
        board({{1, 1}, {1, 2}});
        std::vector<std::string> names;
        for (size_t i = 0; i < count; i++) {
            names.push_back("lan2." + std::to_string(i));
            lan(names.back().c_str());
        }
        EXPECT_EQ(call("ivarode.intf", "del", Message().texts("intf", names)), 0);
        EXPECT_EQ(names_on(2),
                  count > 100 ? std::vector<std::string>{"lan2.100"} : std::vector<std::string>{});
    }
}

} // namespace
} // namespace unit
