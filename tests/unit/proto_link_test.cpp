// What a link change does to the interfaces of its port, and the events that bring it.

#include "daemon_test.h"
#include "netintf/events.h"
#include "netintf/proto.h"

#include <csignal>
#include <cstring>

namespace unit {
namespace {

class ProtoLink : public DaemonTest {
protected:
    ProtoLink() { world.pids["/var/run/udhcpc-wan1.pid"] = 321; }
    netintf_entry *head() { return netintf_port_head_get(0); }
};

const std::string usr1 = std::to_string(SIGUSR1);
const std::string usr2 = std::to_string(SIGUSR2);

const Lines lowered = "netlib_eth_intf_down('wan1')";
const Lines raised = "netlib_eth_intf_up('wan1')";
const Lines rule_gone = "netlib_intf_plcrt_del('wan1', 20001)";
const Lines rule_added = "netlib_intf_plcrt_add('wan1', 20001)";
const Lines address_gone = "netlib_intf_set_ip('wan1', '0.0.0.0')";
const Lines pid_asked = "cmdlib_get_proc_id('/var/run/udhcpc-wan1.pid')";
const Lines route_added = "netlib_intf_gateway_add(20001, '10.0.0.1', 'wan1', 20001)";

struct Down {
    uint32_t proto;
    uint32_t head_type;
    std::vector<Lines> trace;
};

TEST_F(ProtoLink, LossByProtocol)
{
    netintf_entry *entry = wan("wan1");
    const Down cases[] = {
        {1, 2, {rule_gone, lowered}},
        {1, 1, {lowered}},
        {1, 0, {lowered}},
        {2, 2, {address_gone, pid_asked, "kill(321, " + usr2 + ")", lowered}},
        {2, 0, {address_gone, pid_asked, "kill(321, " + usr2 + ")", lowered}},
        {3, 2, {"netlib_eth_intf_down('wan1_pe')"}},
        {0, 2, {warning("intf down proto error\n"), lowered}},
        {7, 2, {warning("intf down proto error\n"), lowered}},
    };
    for (const uint32_t enable : {1U, 0U}) {
        for (const Down &down : cases) {
            entry->enable = enable;
            entry->proto = static_cast<netintf_proto>(down.proto);
            head()->intf_type = down.head_type;
            head()->hw_port = 0;
            head()->link = 1;
            EXPECT_EQ(netintf_proto_intf_down(head()), 0);
            expect_trace(down.trace);
            EXPECT_EQ(head()->link, 0U);
            EXPECT_EQ(entry->enable, enable);
        }
    }
}

struct Up {
    uint32_t proto;
    uint32_t head_type;
    uint32_t enable;
    const char *gateway;
    std::vector<Lines> trace;
};

TEST_F(ProtoLink, ReturnByProtocol)
{
    netintf_entry *entry = wan("wan1");
    const Up cases[] = {
        {1, 2, 1, "10.0.0.1", {raised, route_added, rule_gone, rule_added}},
        {1, 2, 1, "0.0.0.0", {raised}},
        {1, 2, 0, "10.0.0.1", {}},
        {1, 1, 1, "10.0.0.1", {raised}},
        {1, 0, 1, "10.0.0.1", {raised}},
        {2, 2, 1, "0.0.0.0", {raised, pid_asked, "kill(321, " + usr1 + ")"}},
        {2, 2, 0, "0.0.0.0", {}},
        {3, 2, 1, "0.0.0.0", {"netlib_eth_intf_up('wan1_pe')"}},
        {3, 2, 0, "0.0.0.0", {}},
        {0, 2, 1, "0.0.0.0", {raised, warning("intf up proto error\n")}},
        {0, 2, 0, "0.0.0.0", {warning("intf up proto error\n")}},
    };
    for (const Up &up : cases) {
        entry->enable = up.enable;
        entry->proto = static_cast<netintf_proto>(up.proto);
        entry->gateway = address(up.gateway);
        head()->intf_type = up.head_type;
        head()->link = 0;
        EXPECT_EQ(netintf_proto_intf_up(head()), 0);
        expect_trace(up.trace);
        EXPECT_EQ(head()->link, 1U);
    }
}

TEST_F(ProtoLink, AllInterfacesOfThePortInTheirOrder)
{
    wan("wan1");
    wan("wan1.7", proto_pppoe);
    wan("wan1.8");
    EXPECT_EQ(netintf_proto_intf_down(head()), 0);
    expect_trace({rule_gone, lowered, "netlib_eth_intf_down('wan1.7_pe')",
                  "netlib_intf_plcrt_del('wan1.8', 20001)", "netlib_eth_intf_down('wan1.8')"});
    EXPECT_EQ(netintf_proto_intf_up(head()), 0);
    expect_trace({raised, "netlib_eth_intf_up('wan1.7_pe')", "netlib_eth_intf_up('wan1.8')"});
}

TEST_F(ProtoLink, DevicesThatDoNotFollowAreWarnedOf)
{
    netintf_entry *entry = wan("wan1");
    wan("wan1.7");
    fail("netlib_eth_intf_down('wan1')");
    EXPECT_EQ(netintf_proto_intf_down(head()), 0);
    expect_trace({rule_gone, lowered, warning("intf down wan1 error\n"),
                  "netlib_intf_plcrt_del('wan1.7', 20001)", "netlib_eth_intf_down('wan1.7')"});
    entry->gateway = address("10.0.0.1");
    fail("netlib_eth_intf_up('wan1')");
    fail("netlib_intf_plcrt_add(");
    fail("netlib_intf_plcrt_del(");
    fail("netlib_intf_gateway_add(");
    EXPECT_EQ(netintf_proto_intf_up(head()), 0);
    expect_trace({raised, warning("intf up  wan1  error\n"), route_added, rule_gone, rule_added,
                  error("static if plcrt add error\n"), "netlib_eth_intf_up('wan1.7')"});
}

TEST_F(ProtoLink, AClientThatCannotBeReachedEndsTheWalk)
{
    wan("wan1", proto_dhcp);
    wan("wan1.7");
    world.pids.clear();
    EXPECT_EQ(netintf_proto_intf_down(head()), -17);
    expect_trace({address_gone, pid_asked, error("intf down dhcp pid get error,rv=-1\n")});
    EXPECT_EQ(netintf_proto_intf_up(head()), -17);
    expect_trace({raised, pid_asked, error("intf up dhcp pid get error\n")});
    answer("netlib_intf_set_ip(", -55);
    EXPECT_EQ(netintf_proto_intf_down(head()), -13);
    expect_trace({address_gone, error("netintf_proto_intf_down 1026 set ip error,rv=-55\n")});
}

TEST_F(ProtoLink, InterfacesOnLanOnesPortDoNotFollow)
{
    lan("lan1");
    netintf_entry *lan_head = netintf_port_head_get(1);
    lan_head->hw_port = 1;
    EXPECT_EQ(netintf_proto_intf_down(lan_head), 0);
    EXPECT_EQ(lan_head->link, 0U);
    EXPECT_EQ(netintf_proto_intf_up(lan_head), 0);
    EXPECT_EQ(lan_head->link, 1U);
    expect_trace({});
}

// A head says port 0 until its port is set up, and here that is LAN 1's port.
TEST_F(ProtoLink, WhatTheHeadSaysDecidesWhichPortItIs)
{
    board({{1, 0}, {1, 1}, {2, 2}});
    lan("lan2");
    netintf_entry *second = netintf_port_head_get(1);
    EXPECT_EQ(netintf_proto_intf_down(second), 0);
    expect_trace({});
    second->hw_port = 1;
    EXPECT_EQ(netintf_proto_intf_down(second), 0);
    expect_trace({"netlib_eth_intf_down('lan2')"});
}

TEST_F(ProtoLink, AnEmptyPortOnlyNotesItsLink)
{
    EXPECT_EQ(netintf_proto_intf_up(head()), 0);
    EXPECT_EQ(head()->link, 1U);
    EXPECT_EQ(netintf_proto_intf_down(head()), 0);
    EXPECT_EQ(head()->link, 0U);
    expect_trace({});
}

TEST_F(ProtoLink, ABoardWithoutLanOneNotesTheLinkAndFails)
{
    board({{2, 0}, {1, 1}});
    wan("wan1");
    EXPECT_EQ(netintf_proto_intf_up(head()), -1);
    EXPECT_EQ(head()->link, 1U);
    EXPECT_EQ(netintf_proto_intf_down(head()), -1);
    EXPECT_EQ(head()->link, 0U);
    expect_trace({error("lan 1 get hw port error\n"), error("lan 1 get hw port error\n")});
}

TEST_F(ProtoLink, ABrokenListEndsTheWalk)
{
    netintf_entry *entry = wan("wan1");
    entry->next = nullptr;
    EXPECT_EQ(netintf_proto_intf_down(head()), 0);
    EXPECT_EQ(netintf_proto_intf_up(head()), 0);
    expect_trace({rule_gone, lowered, raised});
    entry->next = head();
}

class Events : public ProtoLink {
protected:
    static int link_event(uint32_t port, uint32_t link)
    {
        const nl_link_event event = {port, link};
        return handed.on_link(&event);
    }
    void SetUp() override
    {
        ASSERT_EQ(netevt_nl_init(), 0);
        expect_trace({"nl_init('ivarode')", "nl_rx_event_reg(1)"});
    }
};

TEST_F(Events, ChannelFailures)
{
    fail("nl_rx_event_reg(");
    EXPECT_EQ(netevt_nl_init(), -19);
    fail("nl_init(");
    EXPECT_EQ(netevt_nl_init(), -19);
    expect_trace({"nl_init('ivarode')", "nl_rx_event_reg(1)", "nl_init('ivarode')"});
}

TEST_F(Events, PortsWithoutAListHead)
{
    for (const uint32_t port : {5U, 6U, 0xffffffffU}) {
        EXPECT_EQ(link_event(port, 1), -1);
        expect_trace({error("netevt_nl_link_event 101,intf get failed\n")});
    }
}

TEST_F(Events, AnyLinkButZeroIsUp)
{
    wan("wan1");
    for (const uint32_t link : {1U, 2U, 0xffffffffU}) {
        EXPECT_EQ(link_event(0, link), 0);
        expect_trace({raised});
        EXPECT_EQ(head()->link, 1U);
    }
    EXPECT_EQ(link_event(0, 0), 0);
    expect_trace({rule_gone, lowered});
    EXPECT_EQ(head()->link, 0U);
}

TEST_F(Events, AnEmptyPortSetsItsLinkAlone)
{
    EXPECT_EQ(link_event(4, 1), 0);
    EXPECT_EQ(netintf_port_head_get(4)->link, 1U);
    expect_trace({});
}

TEST_F(Events, FailuresAreReported)
{
    wan("wan1", proto_dhcp);
    world.pids.clear();
    EXPECT_EQ(link_event(0, 1), -1);
    expect_trace({raised, pid_asked, error("intf up dhcp pid get error\n"),
                  error("netevt_nl_link_event 109,intf up failed,rv=-17\n")});
    EXPECT_EQ(link_event(0, 0), -1);
    expect_trace({address_gone, pid_asked, error("intf down dhcp pid get error,rv=-1\n"),
                  error("netevt_nl_link_event 117,intf down failed\n")});
}

TEST_F(Events, SuccessIsADebugText)
{
    debug_area_map();
    debug_bits_set(4);
    std::strcpy(netintf_port_head_get(3)->name, "lan3");
    EXPECT_EQ(link_event(3, 1), 0);
    EXPECT_EQ(link_event(3, 0), 0);
    expect_trace({"outlib_debug('netevt_nl_link_event 131,intf lan3 up success\\n')",
                  "outlib_debug('netevt_nl_link_event 131,intf lan3 down success\\n')"});
}

TEST_F(Events, ForgettingAWansAddresses)
{
    netintf_entry *entry = wan("wan1", proto_dhcp);
    entry->ipaddr = entry->netmask = entry->gateway = entry->reserved[0] = entry->reserved[1] = 7;
    EXPECT_EQ(netevt_wan_addr_reset(entry), 0);
    const Lines row = "netlib_waninfo_db_update('wan1', 'dhcp', '0.0.0.0', '0.0.0.0', '0.0.0.0', '0.0.0.0', "
                      "'0.0.0.0')";
    expect_trace({address_gone, rule_gone, row});
    EXPECT_EQ(entry->ipaddr | entry->netmask | entry->gateway | entry->reserved[0] | entry->reserved[1], 0U);

    fail("netlib_intf_plcrt_del(");
    answer("netlib_waninfo_db_update(", -9);
    EXPECT_EQ(netevt_wan_addr_reset(entry), -9);
    expect_trace({address_gone, rule_gone, row});

    entry->proto = proto_none;
    entry->ipaddr = 7;
    EXPECT_EQ(netevt_wan_addr_reset(entry), -1);
    expect_trace({address_gone, rule_gone});
    EXPECT_EQ(entry->ipaddr, 0U);

    entry->ipaddr = 7;
    answer("netlib_intf_set_ip(", -21);
    EXPECT_EQ(netevt_wan_addr_reset(entry), -21);
    expect_trace({address_gone});
    EXPECT_EQ(entry->ipaddr, 7U);
}

TEST_F(Events, ParametersAreAtMostTwoWords)
{
    const std::string two_long = std::string(5000, 'a') + "   " + std::string(1024, 'b');
    for (const char *text : {"", " ", "    ", "one", " one ", "one two", "  one   two  ", two_long.c_str()}) {
        EXPECT_EQ(netevt_proto_param_get(nullptr, text), 0) << text;
    }
    const std::string three_long = two_long + " c";
    for (const char *text : {"one two three", "a b c", "  a b c  ", "a b c d e", three_long.c_str()}) {
        EXPECT_EQ(netevt_proto_param_get(nullptr, text), -1) << text;
    }
    EXPECT_EQ(netevt_proto_param_get(nullptr, nullptr), 0);
    // Only blanks part words.
    EXPECT_EQ(netevt_proto_param_get(nullptr, "a\tb\nc d"), 0);
    expect_quiet_trace({});
}

} // namespace
} // namespace unit
