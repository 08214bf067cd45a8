// Protocol names, static addresses and stopping.

#include "daemon_test.h"
#include "netintf/proto.h"

namespace unit {
namespace {

using Proto = DaemonTest;

TEST_F(Proto, TextsAreComparedByPrefixesOfFixedLengths)
{
    const std::pair<const char *, netintf_proto> known[] = {
        {"dhcp", proto_dhcp},     {"dhcpv6", proto_dhcp},  {"dhcp client", proto_dhcp},
        {"static", proto_static}, {"stati", proto_static}, {"statics", proto_static},
        {"statix", proto_static}, {"pppoe", proto_pppoe},  {"pppoea", proto_pppoe},
    };
    for (const auto &[text, wanted] : known) {
        netintf_proto proto = proto_none;
        EXPECT_EQ(netintf_proto_strtoenum(text, &proto), 0) << text;
        EXPECT_EQ(proto, wanted) << text;
    }
    for (const char *text :
         {"", "d", "dhc", "DHCP", "stat", "Static", "pppo", "PPPoE", "pppOe", "l2tp", " dhcp", "none", "1"}) {
        netintf_proto proto = proto_pppoe;
        EXPECT_EQ(netintf_proto_strtoenum(text, &proto), -17) << text;
        EXPECT_EQ(proto, proto_pppoe) << text;
    }
}

TEST_F(Proto, NumbersHaveNames)
{
    const std::pair<uint32_t, const char *> known[] = {{1, "static"}, {2, "dhcp"}, {3, "pppoe"}};
    for (const auto &[proto, wanted] : known) {
        char text[32] = {};
        EXPECT_EQ(netintf_proto_enumtostr(static_cast<netintf_proto>(proto), text, sizeof text), 0);
        EXPECT_STREQ(text, wanted);
    }
    for (const uint32_t proto : {0U, 4U, 0xffffffffU}) {
        char text[32] = "kept";
        EXPECT_EQ(netintf_proto_enumtostr(static_cast<netintf_proto>(proto), text, sizeof text), -17);
        EXPECT_STREQ(text, "kept");
    }
    char narrow[8] = "xxxxxxx";
    EXPECT_EQ(netintf_proto_enumtostr(proto_static, narrow, 3), 0);
    EXPECT_STREQ(narrow, "staxxxx");
}

struct Static {
    const char *what;
    const char *ipaddr;
    const char *netmask;
    const char *gateway;
    std::vector<Lines> trace;
    const char *stored_ipaddr;
    const char *stored_netmask;
    const char *stored_gateway;
    int32_t priority;
};

const Lines set_ip = "netlib_intf_set_ip('wan1', '10.0.0.2')";
const Lines set_mask = "netlib_intf_set_netmask('wan1', '255.0.0.0')";
const Lines set_gateway = "netlib_intf_gateway_add(20007, '10.0.0.1', 'wan1', 20007)";

class StaticConfig : public DaemonTest, public testing::WithParamInterface<Static> {};

// The record holds 1.1.1.1 in each address before.
TEST_P(StaticConfig, AppliesWhatIsGiven)
{
    const Static &given = GetParam();
    netintf_entry *entry = wan("wan1", proto_dhcp);
    entry->ipaddr = entry->netmask = entry->gateway = address("1.1.1.1");
    EXPECT_EQ(netintf_proto_config_static(entry, given.ipaddr, given.netmask, given.gateway, 20007), 0);
    expect_trace(given.trace);
    EXPECT_EQ(entry->proto, proto_static);
    EXPECT_EQ(entry->ipaddr, address(given.stored_ipaddr));
    EXPECT_EQ(entry->netmask, address(given.stored_netmask));
    EXPECT_EQ(entry->gateway, address(given.stored_gateway));
    EXPECT_EQ(entry->defrt_pri, given.priority);
}

INSTANTIATE_TEST_SUITE_P(
    Addresses, StaticConfig,
    testing::Values(
        Static{"all",
               "10.0.0.2",
               "255.0.0.0",
               "10.0.0.1",
               {set_ip, set_mask, set_gateway},
               "10.0.0.2",
               "255.0.0.0",
               "10.0.0.1",
               20007},
        Static{"none", nullptr, nullptr, nullptr, {}, "1.1.1.1", "1.1.1.1", "1.1.1.1", 20001},
        Static{"address", "10.0.0.2", nullptr, nullptr, {set_ip}, "10.0.0.2", "1.1.1.1", "1.1.1.1", 20001},
        Static{
            "netmask", nullptr, "255.0.0.0", nullptr, {set_mask}, "1.1.1.1", "255.0.0.0", "1.1.1.1", 20001},
        Static{
            "gateway", nullptr, nullptr, "10.0.0.1", {set_gateway}, "1.1.1.1", "1.1.1.1", "10.0.0.1", 20007},
        // The netmask of no address is not applied, nor is no netmask.
        Static{"any_address",
               "0.0.0.0",
               "255.0.0.0",
               nullptr,
               {"netlib_intf_set_ip('wan1', '0.0.0.0')"},
               "0.0.0.0",
               "1.1.1.1",
               "1.1.1.1",
               20001},
        Static{
            "any_netmask", "10.0.0.2", "0.0.0.0", nullptr, {set_ip}, "10.0.0.2", "1.1.1.1", "1.1.1.1", 20001},
        Static{"any_gateway",
               "10.0.0.2",
               "255.0.0.0",
               "0.0.0.0",
               {set_ip, set_mask},
               "10.0.0.2",
               "255.0.0.0",
               "1.1.1.1",
               20001},
        // Only this very text is no address.
        Static{"any_written_otherwise",
               nullptr,
               nullptr,
               "0.0.0.00",
               {"netlib_intf_gateway_add(20007, '0.0.0.00', 'wan1', 20007)"},
               "1.1.1.1",
               "1.1.1.1",
               "0.0.0.0",
               20007},
        Static{"malformed",
               "nonsense",
               "",
               nullptr,
               {"netlib_intf_set_ip('wan1', 'nonsense')", "netlib_intf_set_netmask('wan1', '')"},
               "255.255.255.255",
               "255.255.255.255",
               "1.1.1.1",
               20001}),
    [](const auto &given) { return std::string{given.param.what}; });

TEST_F(Proto, StaticStopsAtAFailingAddressOrNetmask)
{
    netintf_entry *entry = wan("wan1", proto_dhcp);
    answer("netlib_intf_set_ip(", -77);
    EXPECT_EQ(netintf_proto_config_static(entry, "10.0.0.2", "255.0.0.0", "10.0.0.1", 20007), -77);
    expect_trace({set_ip});
    EXPECT_EQ(entry->proto, proto_static);
    EXPECT_EQ(entry->ipaddr, address("10.0.0.2"));
    EXPECT_EQ(entry->netmask, 0U);
    answers_forget();
    answer("netlib_intf_set_netmask(", 78);
    EXPECT_EQ(netintf_proto_config_static(entry, "10.0.0.2", "255.0.0.0", "10.0.0.1", 20007), 78);
    expect_trace({set_ip, set_mask});
    EXPECT_EQ(entry->netmask, address("255.0.0.0"));
    EXPECT_EQ(entry->gateway, 0U);
    EXPECT_EQ(entry->defrt_pri, 20001);
}

TEST_F(Proto, ARefusedGatewayIsNoFailure)
{
    netintf_entry *entry = wan("wan1");
    fail("netlib_intf_gateway_add(");
    EXPECT_EQ(netintf_proto_config_static(entry, "10.0.0.2", "255.0.0.0", "10.0.0.1", 20007), 0);
    EXPECT_EQ(entry->gateway, address("10.0.0.1"));
    EXPECT_EQ(entry->defrt_pri, 20007);
}

TEST_F(Proto, ALanHasNoGateway)
{
    netintf_entry *entry = lan("lan2");
    entry->proto = proto_none;
    EXPECT_EQ(netintf_lan_addr_set(entry, "192.168.1.1", "255.255.255.0"), 0);
    expect_trace(
        {"netlib_intf_set_ip('lan2', '192.168.1.1')", "netlib_intf_set_netmask('lan2', '255.255.255.0')"});
    EXPECT_EQ(entry->proto, proto_static);
    EXPECT_EQ(entry->defrt_pri, 0);
    EXPECT_EQ(netintf_lan_addr_set(entry, nullptr, nullptr), 0);
    expect_trace({});
    answer("netlib_intf_set_ip(", -5);
    EXPECT_EQ(netintf_lan_addr_set(entry, "192.168.1.1", nullptr), -5);
}

const Lines reset = "netlib_intf_set_ip('wan1', '0.0.0.0')";
const Lines row_gone = "netlib_waninfo_db_del_byname('wan1')";

TEST_F(Proto, StoppingByProtocol)
{
    const std::pair<uint32_t, std::vector<Lines>> stops[] = {
        {0, {reset, row_gone}},
        {1, {reset, row_gone}},
        {2, {reset, "cmdlib_procd_del_inst('dhcp', 'wan1')", row_gone}},
        {3, {"cmdlib_procd_del_inst('pppoe', 'wan1')", row_gone}},
        {9, {reset, row_gone}},
    };
    netintf_entry *entry = wan("wan1");
    for (const auto &[proto, expected] : stops) {
        entry->proto = static_cast<netintf_proto>(proto);
        EXPECT_EQ(netintf_proto_stop(entry), 0);
        expect_trace(expected);
        EXPECT_EQ(entry->proto, proto);
    }
}

TEST_F(Proto, StoppingGoesOnWhateverFails)
{
    netintf_entry *entry = wan("wan1", proto_dhcp);
    fail("netlib_");
    EXPECT_EQ(netintf_proto_stop(entry), 0);
    const Lines warned = warning("ipcp wan info db del by name error error\n");
    expect_trace({reset, row_gone, warned});
    entry->proto = proto_pppoe;
    fail("cmdlib_");
    EXPECT_EQ(netintf_proto_stop(entry), 0);
    expect_trace({"cmdlib_procd_del_inst('pppoe', 'wan1')", row_gone, warned});
}

TEST_F(Proto, SingleStops)
{
    netintf_entry *entry = wan("wan1");
    EXPECT_EQ(netintf_proto_static_stop(entry), 0);
    EXPECT_EQ(netintf_proto_dhcp_stop(entry), 0);
    EXPECT_EQ(netintf_proto_pppoe_stop(entry), 0);
    expect_trace(
        {reset, reset, "cmdlib_procd_del_inst('dhcp', 'wan1')", "cmdlib_procd_del_inst('pppoe', 'wan1')"});
    fail("netlib_intf_set_ip(");
    EXPECT_EQ(netintf_proto_static_stop(entry), -1);
    EXPECT_EQ(netintf_proto_dhcp_stop(entry), -1);
    expect_trace({reset, reset});
    fail("cmdlib_procd_del_inst(");
    EXPECT_EQ(netintf_proto_pppoe_stop(entry), 0);
}

TEST_F(Proto, DevicesOfAnInterface)
{
    netintf_entry *entry = wan("wan1");
    for (const uint32_t proto : {0U, 1U, 2U, 3U}) {
        entry->proto = static_cast<netintf_proto>(proto);
        const std::string device = proto == 3 ? "('wan1_pe')" : "('wan1')";
        EXPECT_EQ(netintf_intf_up(entry), 0);
        EXPECT_EQ(netintf_intf_down(entry), 0);
        expect_trace({"netlib_eth_intf_up" + device, "netlib_eth_intf_down" + device});
    }
    answer("netlib_eth_intf_up(", -8);
    answer("netlib_eth_intf_down(", 9);
    EXPECT_EQ(netintf_intf_up(entry), -8);
    EXPECT_EQ(netintf_intf_down(entry), 9);
}

// Unlike the bridge's, this name has room for the whole interface name.
TEST_F(Proto, ALongPppoeNameKeepsItsEnding)
{
    const std::string name = "wan1" + std::string(27, 'x');
    netintf_entry *entry = wan(name.c_str(), proto_pppoe);
    EXPECT_EQ(netintf_intf_up(entry), 0);
    expect_trace({"netlib_eth_intf_up('" + name + "_pe')"});
}

} // namespace
} // namespace unit
