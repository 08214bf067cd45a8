#include "network.h"
#include "platform/netdev.h"

#include <cerrno>

namespace {

std::string table(int number)
{
    Finished done = run_program({"/sbin/ip", "route", "show", "table", std::to_string(number)});
    // "FIB table does not exist" is how ip says that a table is empty.
    return done.status == 0 ? done.out : "";
}

size_t count(const std::string &text, const std::string &part)
{
    size_t found = 0;
    for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + part.size())) {
        ++found;
    }
    return found;
}

using RouteTest = TwoWansTest;
using GatewayTest = RouteTest;

TEST_F(GatewayTest, IsTheDefaultOfTheDeviceInTableP)
{
    ASSERT_EQ(netlib_intf_gateway_add(20001, "192.0.2.254", "v0", 20001), 0);
    EXPECT_EQ(table(20001), "default via 192.0.2.254 dev v0 proto 105 metric 20001 \n");
}

TEST_F(GatewayTest, AgainIsFine)
{
    ASSERT_EQ(netlib_intf_gateway_add(20001, "192.0.2.254", "v0", 20001), 0);
    Monitor monitor;
    EXPECT_EQ(netlib_intf_gateway_add(20001, "192.0.2.254", "v0", 20001), 0);
    EXPECT_TRUE(monitor.events().empty());
    EXPECT_EQ(count(table(20001), "default"), 1U);
}

TEST_F(GatewayTest, OneForEachDevice)
{
    ASSERT_EQ(netlib_intf_gateway_add(20001, "192.0.2.254", "v0", 20001), 0);
    ASSERT_EQ(netlib_intf_gateway_add(20001, "192.0.2.253", "v0", 20001), 0);
    EXPECT_EQ(table(20001), "default via 192.0.2.253 dev v0 proto 105 metric 20001 \n");
}

TEST_F(GatewayTest, AChangedGatewayIsNewBeforeOld)
{
    ASSERT_EQ(netlib_intf_gateway_add(20001, "192.0.2.254", "v0", 20001), 0);
    Monitor monitor;
    ASSERT_EQ(netlib_intf_gateway_add(20001, "192.0.2.253", "v0", 20001), 0);
    auto events = monitor.events();
    ASSERT_EQ(events.size(), 2U);
    EXPECT_EQ(events[0], "+route 0.0.0.0/0 table 20001 v0");
    EXPECT_EQ(events[1], "-route 0.0.0.0/0 table 20001 v0");
}

TEST_F(GatewayTest, OfSeveralThatShareATableTheFirstWinsUntilItGoes)
{
    ASSERT_EQ(netlib_intf_gateway_add(20001, "198.51.100.254", "w0", 20001), 0);
    ASSERT_EQ(netlib_intf_gateway_add(20001, "192.0.2.254", "v0", 20001), 0);
    ASSERT_EQ(netlib_intf_plcrt_add("w0", 20001), 0);
    EXPECT_EQ(count(table(20001), "default"), 2U);
    EXPECT_TRUE(contains(ip("route get 203.0.113.1"), "via 198.51.100.254 dev w0"));
    ASSERT_EQ(netlib_intf_gateway_del(20001, "198.51.100.254", "w0", 20001), 0);
    EXPECT_TRUE(contains(ip("route get 203.0.113.1"), "via 192.0.2.254 dev v0"));
}

TEST_F(GatewayTest, RemovesThisDevicesOnly)
{
    ASSERT_EQ(netlib_intf_gateway_add(20001, "192.0.2.254", "v0", 20001), 0);
    ASSERT_EQ(netlib_intf_gateway_add(20001, "198.51.100.254", "w0", 20001), 0);
    ASSERT_EQ(netlib_intf_gateway_del(20001, "192.0.2.254", "v0", 20001), 0);
    EXPECT_EQ(table(20001), "default via 198.51.100.254 dev w0 proto 105 metric 20001 \n");
}

TEST_F(GatewayTest, RemovesTheDevicesDefaultWhateverItsGatewayIs)
{
    ip("route add default via 192.0.2.253 dev v0 metric 20001 table 20001");
    ASSERT_EQ(netlib_intf_gateway_del(20001, "0.0.0.0", "v0", 20001), 0);
    EXPECT_EQ(table(20001), "");
}

TEST_F(GatewayTest, RemovingAnAbsentOneIsFine)
{
    EXPECT_EQ(netlib_intf_gateway_del(20001, "192.0.2.254", "v0", 20001), 0);
    EXPECT_EQ(netlib_intf_gateway_del(20001, "192.0.2.254", "nosuch", 20001), 0);
}

TEST_F(GatewayTest, LeavesOtherRoutesOfTheTableAlone)
{
    ip("route add 203.0.113.0/24 via 192.0.2.254 dev v0 table 20001");
    ASSERT_EQ(netlib_intf_gateway_add(20001, "192.0.2.254", "v0", 20001), 0);
    ASSERT_EQ(netlib_intf_gateway_del(20001, "192.0.2.254", "v0", 20001), 0);
    EXPECT_EQ(count(table(20001), "203.0.113.0/24"), 1U);
}

TEST_F(GatewayTest, AnUnreachableGatewayIsAnError)
{
    EXPECT_NE(netlib_intf_gateway_add(20001, "203.0.113.254", "v0", 20001), 0);
    EXPECT_EQ(errno, ENETUNREACH);
    ip("link set v0 down");
    EXPECT_NE(netlib_intf_gateway_add(20001, "192.0.2.254", "v0", 20001), 0);
    EXPECT_EQ(table(20001), "");
}

TEST_F(GatewayTest, AnAbsentDeviceOrMalformedGatewayIsAnError)
{
    EXPECT_NE(netlib_intf_gateway_add(20001, "192.0.2.254", "nosuch", 20001), 0);
    EXPECT_EQ(errno, ENODEV);
    for (const char *gateway : {"", "0.0.0.0", "gateway", "192.0.2"}) {
        EXPECT_NE(netlib_intf_gateway_add(20001, gateway, "v0", 20001), 0) << gateway;
        EXPECT_EQ(errno, EINVAL) << gateway;
    }
    EXPECT_NE(netlib_intf_gateway_add(20001, nullptr, "v0", 20001), 0);
    EXPECT_NE(netlib_intf_gateway_add(20001, "192.0.2.254", "v0", 20002), 0) << "two different numbers";
}

TEST_F(GatewayTest, TheLowestAndHighestNumbersWork)
{
    EXPECT_EQ(netlib_intf_gateway_add(10002, "192.0.2.254", "v0", 10002), 0);
    EXPECT_EQ(netlib_intf_gateway_add(32765, "192.0.2.254", "v0", 32765), 0);
    EXPECT_EQ(count(table(32765), "default"), 1U);
}

TEST_F(GatewayTest, OtherNumbersAreErrorsThatSaySo)
{
    for (int number : {-1, 0, 1, 254, 10000, 10001, 32766, 70000}) {
        for (int which = 0; which < 4; ++which) {
            StderrCapture output;
            int result = which == 0   ? netlib_intf_gateway_add(number, "192.0.2.254", "v0", number)
                         : which == 1 ? netlib_intf_gateway_del(number, "192.0.2.254", "v0", number)
                         : which == 2 ? netlib_intf_plcrt_add("v0", number)
                                      : netlib_intf_plcrt_del("v0", number);
            EXPECT_NE(result, 0) << number << " " << which;
            EXPECT_TRUE(contains(output.text(), "error: ")) << output.text();
            EXPECT_TRUE(contains(output.text(), "priority " + std::to_string(number))) << output.text();
        }
    }
    EXPECT_EQ(count(ip("rule"), "\n"), 3U) << "no rule was added";
}

using StaticRouteTest = RouteTest;

TEST_F(StaticRouteTest, IsAddedWithItsOwnProtocol)
{
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 7), 0);
    EXPECT_EQ(table(10000), "203.0.113.0/24 via 192.0.2.254 dev v0 proto 105 metric 7 \n");
}

TEST_F(StaticRouteTest, WithoutADeviceTheKernelChooses)
{
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "198.51.100.254", nullptr, 0), 0);
    EXPECT_EQ(table(10000), "203.0.113.0/24 via 198.51.100.254 dev w0 proto 105 \n");
}

TEST_F(StaticRouteTest, AnEmptyDeviceIsNoDevice)
{
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "198.51.100.254", "", 0), 0);
    EXPECT_EQ(table(10000), "203.0.113.0/24 via 198.51.100.254 dev w0 proto 105 \n");
    ASSERT_EQ(netlib_rt_del_gw(10000, "203.0.113.0", "255.255.255.0", "198.51.100.254", "", 0), 0);
    EXPECT_EQ(table(10000), "");
}

TEST_F(StaticRouteTest, ReplacesAnEqualRoute)
{
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 7), 0);
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 7), 0);
    EXPECT_EQ(count(table(10000), "\n"), 1U);
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "198.51.100.254", nullptr, 7), 0);
    EXPECT_EQ(table(10000), "203.0.113.0/24 via 198.51.100.254 dev w0 proto 105 metric 7 \n");
}

TEST_F(StaticRouteTest, AnotherMetricIsAnotherRoute)
{
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 7), 0);
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 0), 0);
    EXPECT_EQ(count(table(10000), "\n"), 2U);
}

TEST_F(StaticRouteTest, ADefaultRouteAndAHostRoute)
{
    ASSERT_EQ(netlib_rt_add_gw(10000, "0.0.0.0", "0.0.0.0", "192.0.2.254", nullptr, 0), 0);
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.9", "255.255.255.255", "192.0.2.254", nullptr, 0), 0);
    EXPECT_TRUE(contains(table(10000), "default via 192.0.2.254 dev v0"));
    EXPECT_TRUE(contains(table(10000), "203.0.113.9 via 192.0.2.254 dev v0"));
}

TEST_F(StaticRouteTest, AGatewayOfZeroMeansTheLinkItself)
{
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "0.0.0.0", "v0", 0), 0);
    EXPECT_EQ(table(10000), "203.0.113.0/24 dev v0 proto 105 scope link \n");
    EXPECT_NE(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "0.0.0.0", nullptr, 0), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(netlib_rt_del_gw(10000, "203.0.113.0", "255.255.255.0", "0.0.0.0", "v0", 0), 0);
    EXPECT_EQ(table(10000), "");
}

TEST_F(StaticRouteTest, AnUnreachableGatewayIsAnError)
{
    EXPECT_NE(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "10.9.9.9", nullptr, 0), 0);
    EXPECT_EQ(errno, ENETUNREACH);
    EXPECT_NE(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "198.51.100.254", "v0", 0), 0)
        << "reached through another device";
    EXPECT_EQ(table(10000), "");
}

TEST_F(StaticRouteTest, MalformedRoutesAreErrors)
{
    struct {
        const char *dst, *mask, *gw, *dev;
        int metric;
        int error;
    } cases[] = {
        {"", "255.255.255.0", "192.0.2.254", nullptr, 0, EINVAL},
        {nullptr, "255.255.255.0", "192.0.2.254", nullptr, 0, EINVAL},
        {"203.0.113.0", "", "192.0.2.254", nullptr, 0, EINVAL},
        {"203.0.113.0", "255.0.255.0", "192.0.2.254", nullptr, 0, EINVAL},
        {"203.0.113.0", "255.255.255.0", "", nullptr, 0, EINVAL},
        {"203.0.113.0", "255.255.255.0", "gateway", nullptr, 0, EINVAL},
        {"203.0.113.1", "255.255.255.0", "192.0.2.254", nullptr, 0, EINVAL},
        {"203.0.113.0", "255.255.255.0", "192.0.2.254", nullptr, -1, EINVAL},
        {"203.0.113.0", "255.255.255.0", "0.0.0.0", "", 0, EINVAL},
        {"203.0.113.0", "255.255.255.0", "192.0.2.254", "nosuch", 0, ENODEV},
    };
    for (const auto &each : cases) {
        EXPECT_NE(netlib_rt_add_gw(10000, each.dst, each.mask, each.gw, each.dev, each.metric), 0);
        EXPECT_EQ(errno, each.error) << (each.dst ? each.dst : "null") << " " << each.mask << " " << each.gw;
    }
    EXPECT_EQ(table(10000), "");
}

TEST_F(StaticRouteTest, TheExactRouteIsRemoved)
{
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 7), 0);
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 9), 0);
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.112.0", "255.255.255.0", "192.0.2.254", "v0", 7), 0);
    EXPECT_NE(netlib_rt_del_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 0), 0);
    EXPECT_NE(netlib_rt_del_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.253", "v0", 7), 0);
    EXPECT_NE(netlib_rt_del_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.254", "w0", 7), 0);
    EXPECT_NE(netlib_rt_del_gw(10001, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 7), 0);
    EXPECT_EQ(errno, ESRCH);
    EXPECT_EQ(count(table(10000), "\n"), 3U);
    ASSERT_EQ(netlib_rt_del_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 7), 0);
    EXPECT_FALSE(contains(table(10000), "203.0.113.0/24 via 192.0.2.254 dev v0 proto 105 metric 7"));
    EXPECT_EQ(count(table(10000), "\n"), 2U);
}

TEST_F(StaticRouteTest, OfSeveralMetricsTheOneWithoutIsRemoved)
{
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 7), 0);
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 0), 0);
    ASSERT_EQ(netlib_rt_del_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.254", nullptr, 0), 0);
    EXPECT_EQ(table(10000), "203.0.113.0/24 via 192.0.2.254 dev v0 proto 105 metric 7 \n");
}

// A rule leads to the table, so that most routes are found as those in use.
class RouteInUseTest : public RouteTest {
protected:
    void SetUp() override
    {
        RouteTest::SetUp();
        if (!IsSkipped()) {
            ip("rule add preference 10000 lookup 10000");
            ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 7), 0);
        }
    }
    static int remove(const char *gateway, const char *device, int metric)
    {
        return netlib_rt_del_gw(10000, "203.0.113.0", "255.255.255.0", gateway, device, metric);
    }
};

TEST_F(RouteInUseTest, TheExactRouteIsRemoved)
{
    EXPECT_NE(remove("192.0.2.254", "v0", 0), 0);
    EXPECT_NE(remove("192.0.2.254", "v0", 9), 0);
    EXPECT_NE(remove("192.0.2.253", "v0", 7), 0);
    EXPECT_NE(remove("192.0.2.254", "w0", 7), 0);
    EXPECT_NE(netlib_rt_del_gw(10000, "203.0.113.0", "255.255.255.128", "192.0.2.254", "v0", 7), 0);
    EXPECT_NE(netlib_rt_del_gw(10001, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 7), 0);
    EXPECT_EQ(count(table(10000), "\n"), 1U);
    EXPECT_EQ(remove("192.0.2.254", nullptr, 7), 0);
    EXPECT_EQ(table(10000), "");
}

TEST_F(RouteInUseTest, IsRemovedBehindOneOfALowerMetric)
{
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 0), 0);
    EXPECT_EQ(remove("192.0.2.254", "v0", 7), 0);
    EXPECT_EQ(table(10000), "203.0.113.0/24 via 192.0.2.254 dev v0 proto 105 \n");
}

TEST_F(RouteInUseTest, IsRemovedBehindANarrowerOne)
{
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.113.0", "255.255.255.255", "192.0.2.253", "v0", 7), 0);
    EXPECT_EQ(remove("192.0.2.254", "v0", 7), 0);
    EXPECT_EQ(table(10000), "203.0.113.0 via 192.0.2.253 dev v0 proto 105 metric 7 \n");
}

TEST_F(RouteInUseTest, IsRemovedBehindOneOfATableThatComesFirst)
{
    ip("rule add preference 9999 lookup 9999");
    ASSERT_EQ(netlib_rt_add_gw(9999, "203.0.113.0", "255.255.255.0", "192.0.2.254", "v0", 7), 0);
    EXPECT_EQ(remove("192.0.2.254", "v0", 7), 0);
    EXPECT_EQ(table(10000), "");
    EXPECT_EQ(count(table(9999), "\n"), 1U);
}

TEST_F(RouteInUseTest, OneOfSeveralPathsIsAnotherRoute)
{
    ASSERT_EQ(remove("192.0.2.254", "v0", 7), 0);
    ip("route add 203.0.113.0/24 table 10000 metric 7 nexthop via 192.0.2.254 dev v0 nexthop via "
       "198.51.100.254 dev w0");
    EXPECT_NE(remove("192.0.2.254", "v0", 7), 0);
    EXPECT_EQ(errno, ESRCH);
    EXPECT_EQ(count(table(10000), "nexthop"), 2U);
}

TEST_F(RouteInUseTest, IsRemovedWhileItsDeviceIsDown)
{
    ASSERT_EQ(netlib_rt_add_gw(10000, "203.0.112.0", "255.255.255.0", "198.51.100.254", "w0", 7), 0);
    ip("link set w1 down"); // the cable is pulled: the route stays and is not used
    EXPECT_EQ(netlib_rt_del_gw(10000, "203.0.112.0", "255.255.255.0", "198.51.100.254", "w0", 7), 0);
    EXPECT_FALSE(contains(table(10000), "203.0.112.0"));
}

} // namespace
