#include "network.h"
#include "platform/netdev.h"

#include <cerrno>

namespace {

// The rules between the kernel's own, one line each.
std::string rules()
{
    std::string all = ip("rule");
    size_t begin = all.find('\n') + 1;
    size_t end = all.find("32766:");
    return all.substr(begin, end - begin);
}

const char *const connected_first = "10001:\tfrom all lookup main suppress_prefixlength 0 proto 105\n";

class RuleTest : public NetworkTest {};

TEST_F(RuleTest, TheNumberIsThePreference)
{
    ASSERT_EQ(netlib_ip_rule_add(10000, "lookup 10000"), 0);
    EXPECT_EQ(rules(), "10000:\tfrom all lookup 10000 proto 105\n");
}

TEST_F(RuleTest, AgainIsFine)
{
    ASSERT_EQ(netlib_ip_rule_add(10000, "lookup 10000"), 0);
    EXPECT_EQ(netlib_ip_rule_add(10000, "lookup 10000"), 0);
    EXPECT_EQ(rules(), "10000:\tfrom all lookup 10000 proto 105\n");
}

TEST_F(RuleTest, ARuleMadeByHandIsFoundToo)
{
    ip("rule add pref 10000 lookup 10000");
    EXPECT_EQ(netlib_ip_rule_add(10000, "lookup 10000"), 0);
    EXPECT_EQ(rules(), "10000:\tfrom all lookup 10000\n");
}

TEST_F(RuleTest, AnotherRuleOfTheNumberIsAnError)
{
    for (const char *other : {"lookup 10001", "lookup 10000 suppress_prefixlength 0",
                              "from 10.0.0.0/8 lookup 10000", "iif lo lookup 10000", "fwmark 1 lookup 10000",
                              "not from 10.0.0.1 lookup 10000", "ipproto 6 lookup 10000", "blackhole"}) {
        ip(std::string("rule add pref 10000 ") + other);
        EXPECT_NE(netlib_ip_rule_add(10000, "lookup 10000"), 0) << other;
        EXPECT_EQ(errno, EEXIST) << other;
        ip("rule del pref 10000");
    }
}

TEST_F(RuleTest, TablesByNameAndSuppression)
{
    ASSERT_EQ(netlib_ip_rule_add(100, "  lookup  main\tsuppress_prefixlength 0 "), 0);
    ASSERT_EQ(netlib_ip_rule_add(101, "table default"), 0);
    ASSERT_EQ(netlib_ip_rule_add(102, "lookup local"), 0);
    EXPECT_EQ(rules(), "100:\tfrom all lookup main suppress_prefixlength 0 proto 105\n"
                       "101:\tfrom all lookup default proto 105\n"
                       "102:\tfrom all lookup local proto 105\n");
}

TEST_F(RuleTest, WhatIsNotUnderstoodIsAnError)
{
    for (const char *text :
         {"", " ", "lookup", "lookup 0", "lookup x", "lookup -1", "lookup 99999999999", "lookup 10000 more",
          "from 10.0.0.0/8 lookup 10000", "suppress_prefixlength 0", "lookup 10000 suppress_prefixlength 33",
          "lookup 10000 suppress_prefixlength", "lookup 100000000000000000000000000000000000000000000"}) {
        EXPECT_NE(netlib_ip_rule_add(10000, text), 0) << text;
        EXPECT_EQ(errno, EINVAL) << text;
    }
    EXPECT_NE(netlib_ip_rule_add(10000, nullptr), 0);
    EXPECT_EQ(rules(), "");
}

TEST_F(RuleTest, TheKernelsOwnRulesAreOutOfReach)
{
    std::string before = ip("rule");
    for (uint32_t number : {0U, 32766U, 32767U, 4294967295U}) {
        EXPECT_NE(netlib_ip_rule_add(number, "lookup 10000"), 0) << number;
        EXPECT_NE(netlib_ip_rule_del(number), 0) << number;
    }
    EXPECT_EQ(ip("rule"), before);
}

TEST_F(RuleTest, IsRemoved)
{
    ASSERT_EQ(netlib_ip_rule_add(10000, "lookup 10000"), 0);
    ASSERT_EQ(netlib_ip_rule_add(9999, "lookup 10000"), 0);
    EXPECT_EQ(netlib_ip_rule_del(10000), 0);
    EXPECT_EQ(rules(), "9999:\tfrom all lookup 10000 proto 105\n");
}

TEST_F(RuleTest, EveryRuleOfTheNumberIsRemoved)
{
    ip("rule add pref 10000 lookup 10000");
    ip("rule add pref 10000 from 10.0.0.0/8 lookup 5");
    EXPECT_EQ(netlib_ip_rule_del(10000), 0);
    EXPECT_EQ(rules(), "");
}

TEST_F(RuleTest, RemovingAnAbsentOneIsFine)
{
    EXPECT_EQ(netlib_ip_rule_del(10000), 0);
}

using WanRuleTest = TwoWansTest;

TEST_F(WanRuleTest, ConnectedNetworksComeBeforeTheWans)
{
    ASSERT_EQ(netlib_intf_plcrt_add("v0", 20001), 0);
    EXPECT_EQ(rules(), std::string(connected_first) + "20001:\tfrom all lookup 20001 proto 105\n");
}

TEST_F(WanRuleTest, AgainIsFine)
{
    ASSERT_EQ(netlib_intf_plcrt_add("v0", 20001), 0);
    std::string before = rules();
    EXPECT_EQ(netlib_intf_plcrt_add("v0", 20001), 0);
    EXPECT_EQ(netlib_intf_plcrt_add("w0", 20001), 0);
    EXPECT_EQ(rules(), before);
}

TEST_F(WanRuleTest, TheRuleForConnectedNetworksGoesWithTheLastWan)
{
    ASSERT_EQ(netlib_intf_plcrt_add("v0", 20001), 0);
    ASSERT_EQ(netlib_intf_plcrt_add("w0", 20002), 0);
    ASSERT_EQ(netlib_intf_plcrt_del("v0", 20001), 0);
    EXPECT_EQ(rules(), std::string(connected_first) + "20002:\tfrom all lookup 20002 proto 105\n");
    ASSERT_EQ(netlib_intf_plcrt_del("w0", 20002), 0);
    EXPECT_EQ(rules(), "");
}

TEST_F(WanRuleTest, TheDaemonsOwnRuleIsLeftAlone)
{
    ASSERT_EQ(netlib_ip_rule_add(10000, "lookup 10000"), 0);
    ASSERT_EQ(netlib_intf_plcrt_add("v0", 20001), 0);
    EXPECT_EQ(rules(), std::string("10000:\tfrom all lookup 10000 proto 105\n") + connected_first +
                           "20001:\tfrom all lookup 20001 proto 105\n");
    ASSERT_EQ(netlib_intf_plcrt_del("v0", 20001), 0);
    EXPECT_EQ(rules(), "10000:\tfrom all lookup 10000 proto 105\n");
}

TEST_F(WanRuleTest, StaysWhileAnotherDeviceHasADefaultInTheTable)
{
    ASSERT_EQ(netlib_intf_gateway_add(20001, "192.0.2.254", "v0", 20001), 0);
    ASSERT_EQ(netlib_intf_gateway_add(20001, "198.51.100.254", "w0", 20001), 0);
    ASSERT_EQ(netlib_intf_plcrt_add("v0", 20001), 0);
    EXPECT_EQ(netlib_intf_plcrt_del("v0", 20001), 0);
    EXPECT_TRUE(contains(rules(), "20001:"));
    ASSERT_EQ(netlib_intf_gateway_del(20001, "198.51.100.254", "w0", 20001), 0);
    EXPECT_EQ(netlib_intf_plcrt_del("v0", 20001), 0) << "its own default does not hold it";
    EXPECT_EQ(rules(), "");
}

TEST_F(WanRuleTest, ADeviceThatIsGoneCountsAsNone)
{
    ASSERT_EQ(netlib_intf_gateway_add(20001, "198.51.100.254", "w0", 20001), 0);
    ASSERT_EQ(netlib_intf_plcrt_add("v0", 20001), 0);
    ip("link del v0");
    EXPECT_EQ(netlib_intf_plcrt_del("v0", 20001), 0);
    EXPECT_TRUE(contains(rules(), "20001:"));
    ip("link del w0");
    EXPECT_EQ(netlib_intf_plcrt_del("v0", 20001), 0);
    EXPECT_EQ(rules(), "");
}

TEST_F(WanRuleTest, RemovingAnAbsentOneIsFine)
{
    EXPECT_EQ(netlib_intf_plcrt_del("v0", 20001), 0);
}

TEST_F(WanRuleTest, AnotherRuleOfTheNumberIsAnError)
{
    ip("rule add pref 20001 lookup 5");
    EXPECT_NE(netlib_intf_plcrt_add("v0", 20001), 0);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(rules(), "20001:\tfrom all lookup 5\n") << "nothing is left of the attempt";
}

TEST_F(WanRuleTest, ConnectedNetworksAreReachedPastAWansDefault)
{
    ASSERT_EQ(netlib_intf_gateway_add(20001, "192.0.2.254", "v0", 20001), 0);
    ASSERT_EQ(netlib_intf_plcrt_add("v0", 20001), 0);
    EXPECT_TRUE(contains(ip("route get 198.51.100.9"), "dev w0"));
    EXPECT_TRUE(contains(ip("route get 203.0.113.9"), "via 192.0.2.254 dev v0"));
}

} // namespace
