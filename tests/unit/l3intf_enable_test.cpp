// Bus method "enable" of interfaces.

#include "daemon_test.h"

#include <csignal>

namespace unit {
namespace {

class L3intfEnable : public DaemonTest {
protected:
    L3intfEnable() { world.pids["/var/run/udhcpc-wan1.pid"] = 321; }
    void enable(const std::vector<std::string> &names, uint32_t value, int status,
                const std::vector<Lines> &expected)
    {
        std::vector<Lines> lines{"ubuslib_bmsg_strlist_get(list, 16)"};
        lines.insert(lines.end(), expected.begin(), expected.end());
        expect_call("ivarode.intf", "enable", Message().texts("intf", names).number("enable", value), status,
                    lines);
    }
};

Lines done(const char *name, int value)
{
    return info(std::string{" intf="} + name + " enable=" + std::to_string(value) + " success\n");
}

const Lines raised = "netlib_eth_intf_up('wan1')";
const Lines lowered = "netlib_eth_intf_down('wan1')";
const Lines rule_gone = "netlib_intf_plcrt_del('wan1', 20001)";
const Lines rule_added = "netlib_intf_plcrt_add('wan1', 20001)";
const Lines pid_asked = "cmdlib_get_proc_id('/var/run/udhcpc-wan1.pid')";
const Lines renewed = "kill(321, " + std::to_string(SIGUSR1) + ")";
const Lines released = "kill(321, " + std::to_string(SIGUSR2) + ")";
const Lines address_gone = "netlib_intf_set_ip('wan1', '0.0.0.0')";
const Lines route_added = "netlib_intf_gateway_add(20001, '10.0.0.1', 'wan1', 20001)";

struct Enabling {
    uint32_t proto;
    uint32_t type;
    const char *gateway;
    std::vector<Lines> on;
    std::vector<Lines> off;
};

const std::vector<Enabling> &enablings()
{
    static const std::vector<Enabling> all = {
        {1, 2, "10.0.0.1", {raised, rule_gone, route_added, rule_added}, {lowered, rule_gone}},
        {1, 2, "0.0.0.0", {raised, rule_gone}, {lowered, rule_gone}},
        {1, 1, "10.0.0.1", {raised}, {lowered}},
        {2, 2, "0.0.0.0", {raised, pid_asked, renewed}, {lowered, address_gone, pid_asked, released}},
        {3, 2, "0.0.0.0", {"netlib_eth_intf_up('wan1_pe')"}, {"netlib_eth_intf_down('wan1_pe')"}},
        {0, 1, "0.0.0.0", {raised}, {lowered}},
    };
    return all;
}

TEST_F(L3intfEnable, ByProtocolLinkAndValue)
{
    netintf_entry *entry = wan("wan1");
    for (const Enabling &enabling : enablings()) {
        for (const uint32_t link : {0U, 1U}) {
            for (const uint32_t value : {0U, 1U, 2U, 0xffffffffU}) {
                entry->proto = static_cast<netintf_proto>(enabling.proto);
                entry->intf_type = enabling.type;
                entry->gateway = address(enabling.gateway);
                link_set(0, link);
                std::vector<Lines> expected = link != 0 && value != 0 ? enabling.on : enabling.off;
                expected.push_back(done("wan1", static_cast<int>(value)));
                enable({"wan1"}, value, 0, expected);
                EXPECT_EQ(entry->enable, value);
            }
        }
    }
    entry->intf_type = intf_type_wan;
}

TEST_F(L3intfEnable, TheFirstNamesLinkIsEveryNames)
{
    wan("wan1");
    lan("lan1");
    lan("lan2");
    enable({"lan1", "lan2", "wan1"}, 1, 0,
           {"netlib_eth_intf_up('lan1')", done("lan1", 1), "netlib_eth_intf_up('lan2')", done("lan2", 1),
            raised, rule_gone, done("wan1", 1)});
    enable(
        {"lan2", "lan1"}, 1, 0,
        {"netlib_eth_intf_down('lan2')", done("lan2", 1), "netlib_eth_intf_down('lan1')", done("lan1", 1)});
}

TEST_F(L3intfEnable, ALinkThatCannotBeAskedForIsSuccess)
{
    lan("lan2");
    enable({"foo", "lan2"}, 1, 0, {error("port link get error\r\n")});
    enable({}, 1, 0, {error("port link get error\r\n")});
    enable({"wan9"}, 1, 0, {error("wan 9 get hw port error\n"), error("port link get error\r\n")});
}

TEST_F(L3intfEnable, StopsAtTheFirstNameThatFails)
{
    netintf_entry *first = lan("lan2");
    netintf_entry *last = lan("lan4");
    enable({"lan2", "lan3", "lan4"}, 0, 2,
           {"netlib_eth_intf_down('lan2')", done("lan2", 0),
            error("vlan enalbe get intf name error,intf=lan3\n")});
    EXPECT_EQ(first->enable, 0U);
    EXPECT_EQ(last->enable, 1U);
    answer("netlib_eth_intf_down('lan2')", 5);
    first->enable = 7;
    enable({"lan2", "lan4"}, 0, 1, {"netlib_eth_intf_down('lan2')", error("lan2 enable failed\n")});
    EXPECT_EQ(first->enable, 7U);
}

TEST_F(L3intfEnable, AClientThatCannotBeReached)
{
    netintf_entry *entry = wan("wan1", proto_dhcp);
    link_set(0, 1);
    entry->enable = 0;
    answer("cmdlib_get_proc_id(", -44);
    enable({"wan1"}, 1, 1, {raised, pid_asked, error("intf up dhcp pid get error\n")});
    EXPECT_EQ(entry->enable, 1U);
    enable({"wan1"}, 0, -17,
           {lowered, address_gone, pid_asked, error("intf down dhcp pid get error,rv=-44\n")});
    EXPECT_EQ(entry->enable, 0U);
    answer("netlib_intf_set_ip(", 3);
    enable({"wan1"}, 0, -13, {lowered, address_gone});
}

TEST_F(L3intfEnable, AStaticWansRoutesMayBeRefused)
{
    netintf_entry *entry = wan("wan1");
    entry->gateway = address("10.0.0.1");
    link_set(0, 1);
    fail("netlib_intf_");
    enable(
        {"wan1"}, 1, 0,
        {raised, rule_gone, route_added, rule_added, error("static if plcrt add error\n"), done("wan1", 1)});
}

TEST_F(L3intfEnable, AtMostSixteenNames)
{
    std::vector<std::string> names;
    for (int i = 0; i < 17; i++) {
        names.push_back("lan2." + std::to_string(i));
        lan(names.back().c_str());
    }
    EXPECT_EQ(call("ivarode.intf", "enable", Message().texts("intf", names).number("enable", 0)), 0);
    EXPECT_EQ(netintf_entry_find_byname("lan2.15")->enable, 0U);
    EXPECT_EQ(netintf_entry_find_byname("lan2.16")->enable, 1U);
}

} // namespace
} // namespace unit
