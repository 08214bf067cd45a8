// WAN sections of the configuration.

#include "daemon_test.h"
#include "netintf/startup.h"
#include "platform/config.h"

namespace unit {
namespace {

using Options = std::map<std::string, std::string>;

class UciWan : public DaemonTest {
protected:
    UciWan() { netintf_wan_port_mask = 0xff; }
    static int walk_one(const char *name, const Options &options)
    {
        world.sections = {{"wan_intf", "interface", name, options}};
        return ucilib_foreach_section("wan_intf", "interface", netintf_uci_wan_parse_each, nullptr);
    }
};

const Lines walked = "ucilib_foreach_section('wan_intf', 'interface')";
const Lines bridge =
    std::vector<std::string>{"netlib_br_create('wan1')", "netlib_eth_intf_up('wan1')",
                             "netlib_br_addif('wan1', 'eth0.4090')", "netlib_eth_mac_get('wan1')"};
const Lines ppp_bridge =
    std::vector<std::string>{"netlib_br_create('wan1_pe')", "netlib_eth_intf_up('wan1_pe')",
                             "netlib_br_addif('wan1_pe', 'eth0.4090')", "netlib_eth_mac_get('wan1')"};
const Lines rule_gone = "netlib_intf_plcrt_del('wan1', 20001)";

Options with(Options options, const char *name, const char *value)
{
    options[name] = value;
    return options;
}

const Options static_options = {{"ipaddr", "10.0.0.2"}, {"netmask", "255.0.0.0"}, {"gateway", "10.0.0.1"}};
const Lines static_addresses = std::vector<std::string>{
    "netlib_intf_set_ip('wan1', '10.0.0.2')", "netlib_intf_set_netmask('wan1', '255.0.0.0')",
    "netlib_intf_gateway_add(20001, '10.0.0.1', 'wan1', 20001)"};
const Lines static_row = "netlib_waninfo_db_insert('wan1', 'static', '10.0.0.2', '255.0.0.0', '10.0.0.1', "
                         "'0.0.0.0', '0.0.0.0')";

TEST_F(UciWan, StaticWithoutLinkHasNoPolicyRoute)
{
    EXPECT_EQ(walk_one("wan1", with(static_options, "enable", "1")), 0);
    expect_trace({walked, bridge, static_addresses, rule_gone, static_row});
    const netintf_entry *entry = netintf_entry_find_byname("wan1");
    EXPECT_EQ(entry->enable, 1U);
    EXPECT_EQ(entry->proto, proto_static);
    EXPECT_EQ(entry->defrt_pri, 20001);
}

TEST_F(UciWan, StaticWithLinkHasOneWhenItIsEnabled)
{
    link_set(0, 1);
    EXPECT_EQ(walk_one("wan1", static_options), 0);
    expect_trace({walked, bridge, static_addresses, rule_gone, static_row});
    EXPECT_EQ(netintf_entry_find_byname("wan1")->enable, 0U);
    board({{1, 1}, {2, 0}});
    netintf_wan_port_mask = 0xff;
    link_set(0, 1);
    fail("netlib_intf_plcrt_add(");
    fail("netlib_intf_plcrt_del(");
    EXPECT_EQ(walk_one("wan1", with(static_options, "enable", "1")), 0);
    expect_trace({walked, "netlib_br_create('wan1')", "netlib_eth_intf_up('wan1')",
                  "netlib_br_addif('wan1', 'eth0.4090')", "netlib_eth_intf_up('wan1')",
                  "netlib_eth_mac_get('wan1')", static_addresses, rule_gone,
                  "netlib_intf_plcrt_add('wan1', 20001)", static_row});
}

TEST_F(UciWan, NothingGivenIsStaticWithoutAddresses)
{
    EXPECT_EQ(walk_one("wan1", {}), 0);
    expect_trace({walked, bridge, rule_gone,
                  "netlib_waninfo_db_insert('wan1', 'static', '0.0.0.0', '0.0.0.0', '0.0.0.0', '0.0.0.0', "
                  "'0.0.0.0')"});
}

TEST_F(UciWan, PriorityIsTheOptionsOr20001)
{
    const std::pair<const char *, int32_t> cases[] = {{"20007", 20007}, {"abc", 0}, {"-5", -5}, {"1x", 1}};
    for (const auto &[text, wanted] : cases) {
        board({{1, 1}, {2, 0}});
        netintf_wan_port_mask = 0xff;
        EXPECT_EQ(walk_one("wan1", {{"defrt_pri", text}}), 0);
        EXPECT_EQ(netintf_entry_find_byname("wan1")->defrt_pri, wanted);
    }
}

TEST_F(UciWan, DhcpIgnoresAddresses)
{
    EXPECT_EQ(walk_one("wan1", with(static_options, "proto", "dhcp")), 0);
    expect_trace(
        {walked, bridge,
         "cmdlib_procd_start_inst('dhcp', 'wan1', '/sbin/udhcpc  -t 0 -i wan1 -s /lib/ivarode/empty.sh -C "
         "-p /var/run/udhcpc-wan1.pid -f -m 20001', 0)",
         "netlib_waninfo_db_insert('wan1', 'dhcp', '0.0.0.0', '0.0.0.0', '0.0.0.0', '0.0.0.0', '0.0.0.0')"});
    EXPECT_EQ(netintf_entry_find_byname("wan1")->proto, proto_dhcp);
}

TEST_F(UciWan, PppoeTakesItsServerFromServer)
{
    EXPECT_EQ(walk_one("wan1", {{"proto", "pppoe"},
                                {"username", "joe"},
                                {"password", "pw"},
                                {"server", "isp"},
                                {"ipaddr", "1.2.3.4"}}),
              0);
    const std::string line =
        "/usr/sbin/pppd nodetach ipparam 'pppoec,20001' ifname wan1  +ipv6  nodefaultroute  "
        "usepeerdns  persist  maxfail  0 user joe password pw mtu 1492 mru 1492 plugin  "
        "rp-pppoe.so rp_pppoe_service isp nic-wan1_pe ";
    expect_trace({walked, ppp_bridge, info("netintf_proto_config_pppoe 920 cmd_line=" + line + "\n"),
                  "cmdlib_procd_start_inst('pppoe', 'wan1', " + quote(line) + ", 0)",
                  "netlib_waninfo_db_insert('wan1', 'pppoe', '0.0.0.0', '0.0.0.0', '0.0.0.0', '0.0.0.0', "
                  "'0.0.0.0')"});
}

TEST_F(UciWan, Vlans)
{
    EXPECT_EQ(walk_one("wan1", {{"vlanid1", "100"}, {"vlanid2", "200"}, {"mac", "2:0:0:0:0:9"}}), 0);
    expect_trace(
        {walked, "netilib_vintf_create('eth0', 100)", "netlib_eth_mac_set('eth0.100', 02:11:22:33:44:54)",
         "netlib_eth_intf_up('eth0.100')", "netilib_vintf_create('eth0.100', 200)",
         "netlib_eth_mac_set('eth0.100.200', 02:11:22:33:44:54)", "netlib_eth_intf_up('eth0.100.200')",
         "netlib_br_create('wan1')", "netlib_eth_mac_set('wan1', 02:00:00:00:00:09)",
         "netlib_eth_intf_up('wan1')", "netlib_br_addif('wan1', 'eth0.100.200')", rule_gone,
         "netlib_waninfo_db_insert('wan1', 'static', '0.0.0.0', '0.0.0.0', '0.0.0.0', '0.0.0.0', "
         "'0.0.0.0')"});
    EXPECT_EQ(netintf_entry_find_byname("wan1")->vlanid1, 100);
    EXPECT_EQ(netintf_entry_find_byname("wan1")->vlanid2, 200);
    EXPECT_EQ(vlan_entry(5), (VlanEntry{100, 0x41}));
    for (const auto &[text, vlan] : {std::pair{"65536", 0}, std::pair{"-1", 65535}}) {
        board({{1, 1}, {2, 0}});
        EXPECT_EQ(walk_one("wan1", {{"vlanid1", text}}), 0);
        EXPECT_EQ(netintf_entry_find_byname("wan1")->vlanid1, vlan);
    }
}

TEST_F(UciWan, TheProtocolTextIsNormalised)
{
    EXPECT_EQ(walk_one("wan1", {{"proto", "statix"}}), 0);
    expect_trace({walked, bridge, rule_gone,
                  "netlib_waninfo_db_insert('wan1', 'static', '0.0.0.0', '0.0.0.0', '0.0.0.0', '0.0.0.0', "
                  "'0.0.0.0')"});
}

TEST_F(UciWan, APortIsSetUpOnceAsWan)
{
    netintf_wan_port_mask = 0;
    netintf_lan_port_mask = 0xff;
    world.sections = {{"wan_intf", "interface", "wan1_default", {{"proto", "dhcp"}}},
                      {"wan_intf", "interface", "wan1.7", {}}};
    EXPECT_EQ(ucilib_foreach_section("wan_intf", "interface", netintf_uci_wan_parse_each, nullptr), 0);
    const std::vector<std::string> trace = trace_take();
    ASSERT_GT(trace.size(), 5U);
    EXPECT_EQ(trace[1], "netilib_vintf_create('eth0', 4090)");
    EXPECT_EQ(trace[4], "netlib_br_create('wan1_default')");
    EXPECT_EQ(trace[5], "netlib_eth_mac_set('wan1_default', 00:11:22:33:44:54)");
    EXPECT_EQ(std::count_if(trace.begin(), trace.end(),
                            [](const std::string &line) { return line.starts_with("netilib_vintf_create"); }),
              1);
    EXPECT_EQ(netintf_wan_port_mask, 1U);
    EXPECT_STREQ(netintf_port_head_get(0)->name, "wan1");
}

TEST_F(UciWan, APortWithoutAPlaceInTheSequence)
{
    world.sequence_result = -44;
    EXPECT_EQ(walk_one("wan1_default", {}), -44);
    expect_trace({walked});
    EXPECT_EQ(walk_one("wan1", {}), 0);
}

TEST_F(UciWan, SectionsThatAreNoWanArePassedOver)
{
    for (const char *name : {"lan1", "guest", "WAN1", ""}) {
        EXPECT_EQ(walk_one(name, {{"proto", "l2tp"}}), 0) << name;
        expect_quiet_trace({walked});
    }
}

struct WanFailure {
    const char *what;
    const char *section;
    Options options;
    const char *failing;
    int result;
    std::vector<Lines> trace;
    bool registered;
};

class UciWanFailing : public DaemonTest, public testing::WithParamInterface<WanFailure> {};

TEST_P(UciWanFailing, ReturnsTheStepsError)
{
    const WanFailure &failure = GetParam();
    answer(failure.failing, -77);
    world.sections = {{"wan_intf", "interface", failure.section, failure.options}};
    EXPECT_EQ(ucilib_foreach_section("wan_intf", "interface", netintf_uci_wan_parse_each, nullptr),
              failure.result);
    std::vector<Lines> expected{walked};
    expected.insert(expected.end(), failure.trace.begin(), failure.trace.end());
    expect_trace(expected);
    EXPECT_EQ(names_on(0).size(), failure.registered ? 1U : 0U);
}

const Lines set_up = std::vector<std::string>{"netilib_vintf_create('eth0', 4090)",
                                              "netlib_eth_mac_set('eth0.4090', 02:11:22:33:44:54)",
                                              "netlib_eth_intf_up('eth0.4090')"};

INSTANTIATE_TEST_SUITE_P(
    Steps, UciWanFailing,
    testing::Values(
        WanFailure{"port", "wan9", {}, "nothing", -1, {error("wan 9 get hw port error\n")}, false},
        WanFailure{"proto", "wan1", {{"proto", "l2tp"}}, "nothing", -17, {}, false},
        WanFailure{"set_up",
                   "wan1",
                   {},
                   "netilib_vintf_create(",
                   -1,
                   {"netilib_vintf_create('eth0', 4090)", error("net vintf init failed, hw_port=0\n")},
                   false},
        WanFailure{
            "device",
            "wan1",
            {},
            "netlib_br_create(",
            -13,
            {set_up, "netlib_br_create('wan1')",
             error("veth init failed, master_intf=eth0.4090 veth_intfname=wan1 mac=00:00:00:00:00:00\n")},
            true},
        WanFailure{"address",
                   "wan1",
                   {{"ipaddr", "1.2.3.4"}},
                   "netlib_intf_set_ip(",
                   -77,
                   {set_up, bridge, "netlib_intf_set_ip('wan1', '1.2.3.4')"},
                   true},
        WanFailure{
            "dhcp",
            "wan1",
            {{"proto", "dhcp"}},
            "cmdlib_procd_start_inst(",
            -77,
            {set_up, bridge,
             "cmdlib_procd_start_inst('dhcp', 'wan1', '/sbin/udhcpc  -t 0 -i wan1 -s /lib/ivarode/empty.sh "
             "-C -p /var/run/udhcpc-wan1.pid -f -m 20001', 0)",
             error("wan dhcp config error,if=wan1\n")},
            true},
        WanFailure{"row",
                   "wan1",
                   {},
                   "netlib_waninfo_db_insert(",
                   -77,
                   {set_up, bridge, rule_gone,
                    "netlib_waninfo_db_insert('wan1', 'static', '0.0.0.0', '0.0.0.0', '0.0.0.0', '0.0.0.0', "
                    "'0.0.0.0')",
                    error("wan info db insert error,if=wan1\n")},
                   true}),
    [](const auto &failure) { return std::string{failure.param.what}; });

TEST_F(UciWan, AFailingPppoeStart)
{
    answer("cmdlib_procd_start_inst(", -77);
    EXPECT_EQ(walk_one("wan1", {{"proto", "pppoe"}}), -77);
    const std::vector<std::string> trace = trace_take();
    ASSERT_GE(trace.size(), 4U);
    EXPECT_EQ(join({trace.end() - 4, trace.end()}),
              "syslog(3, 'start process failed\\n')\noutlib_error('start process failed\\n')\n"
              "syslog(3, 'wan pppoe config error,if=wan1\\n')\noutlib_error('wan pppoe config "
              "error,if=wan1\\n')\n");
    // The record was given its protocol before the start.
    EXPECT_EQ(netintf_entry_find_byname("wan1")->proto, proto_pppoe);
}

} // namespace
} // namespace unit
