#include "network.h"
#include "platform/netdev.h"

#include <cerrno>
#include <utility>

namespace {

class AddressTest : public NetworkTest {};

// "10.0.0.1/8 10.0.0.2/24": the IPv4 addresses of a device, in the kernel's order.
std::string addresses(const std::string &device)
{
    std::string list;
    std::string shown = ip("-4 -o address show dev " + device);
    for (size_t at = shown.find(" inet "); at != std::string::npos; at = shown.find(" inet ", at)) {
        at += 6;
        list += (list.empty() ? "" : " ") + shown.substr(at, shown.find(' ', at) - at);
    }
    return list;
}

TEST_F(AddressTest, TheDevicesOnlyAddressBecomesTheGivenOne)
{
    ip("address add 192.168.1.1/24 dev v0");
    ip("address add 172.16.5.5/30 dev v0");
    ip("address add 192.168.1.9/24 dev v0");
    ASSERT_EQ(netlib_intf_set_ip("v0", "10.1.2.3"), 0);
    EXPECT_EQ(addresses("v0"), "10.1.2.3/8");
}

TEST_F(AddressTest, ANewAddressStartsWithItsClassfulMask)
{
    const std::pair<const char *, const char *> cases[] = {{"10.1.2.3", "8"},
                                                           {"127.255.255.254", "8"},
                                                           {"128.0.0.1", "16"},
                                                           {"191.255.0.1", "16"},
                                                           {"192.168.1.1", "24"}};
    for (const auto &[address, length] : cases) {
        ASSERT_EQ(netlib_intf_set_ip("v0", address), 0) << address;
        EXPECT_EQ(addresses("v0"), std::string(address) + "/" + length);
    }
}

TEST_F(AddressTest, HasTheBroadcastAddressOfItsMask)
{
    ASSERT_EQ(netlib_intf_set_ip("v0", "192.168.1.1"), 0);
    EXPECT_TRUE(contains(ip("address show v0"), "brd 192.168.1.255"));
    ASSERT_EQ(netlib_intf_set_netmask("v0", "255.255.255.128"), 0);
    EXPECT_TRUE(contains(ip("address show v0"), "brd 192.168.1.127"));
}

TEST_F(AddressTest, ZeroRemovesEveryAddress)
{
    ip("address add 192.168.1.1/24 dev v0");
    ip("address add 192.168.1.2/24 dev v0");
    ip("address add 10.0.0.1/8 dev v0");
    ASSERT_EQ(netlib_intf_set_ip("v0", "0.0.0.0"), 0);
    EXPECT_EQ(addresses("v0"), "");
    EXPECT_EQ(netlib_intf_set_ip("v0", "0.0.0.0"), 0) << "none there";
}

TEST_F(AddressTest, ZeroLeavesOtherDevicesAlone)
{
    ip("address add 192.168.1.1/24 dev v0");
    ip("address add 192.168.2.1/24 dev w0");
    ASSERT_EQ(netlib_intf_set_ip("v0", "0.0.0.0"), 0);
    EXPECT_EQ(addresses("w0"), "192.168.2.1/24");
}

TEST_F(AddressTest, AnUnchangedAddressKeepsItsMaskUntouched)
{
    ip("address add 10.1.2.3/29 dev v0");
    Monitor monitor;
    ASSERT_EQ(netlib_intf_set_ip("v0", "10.1.2.3"), 0);
    EXPECT_EQ(addresses("v0"), "10.1.2.3/29");
    EXPECT_TRUE(monitor.events().empty()) << "nothing was touched";
}

TEST_F(AddressTest, AnUnchangedAddressLosesItsRivals)
{
    ip("address add 10.9.9.9/24 dev v0");
    ip("address add 10.1.2.3/29 dev v0");
    ASSERT_EQ(netlib_intf_set_ip("v0", "10.1.2.3"), 0);
    EXPECT_EQ(addresses("v0"), "10.1.2.3/29");
}

TEST_F(AddressTest, TheOldAddressGoesAfterTheNewOneIsThere)
{
    ip("address add 10.0.0.1/8 dev v0");
    Monitor monitor;
    ASSERT_EQ(netlib_intf_set_ip("v0", "192.168.1.1"), 0);
    expect_order(monitor.events(), "+address 192.168.1.1/24 v0", "-address 10.0.0.1/8 v0");
}

TEST_F(AddressTest, RoutesThroughTheDeviceSurviveANewAddress)
{
    ip("link set v0 up");
    ip("address add 10.0.0.1/8 dev v0");
    ip("route add 172.31.0.0/16 via 10.0.0.254 dev v0 table 10000");
    ASSERT_EQ(netlib_intf_set_ip("v0", "192.168.1.1"), 0);
    EXPECT_TRUE(contains(ip("route show table 10000"), "172.31.0.0/16 via 10.0.0.254"));
}

TEST_F(AddressTest, RoutesSurviveANewAddressOfTheSameNetwork)
{
    ip("link set v0 up");
    ip("address add 192.168.1.1/24 dev v0");
    ip("route add 172.31.0.0/16 via 192.168.1.254 dev v0 table 10000");
    Monitor monitor;
    ASSERT_EQ(netlib_intf_set_ip("v0", "192.168.1.2"), 0);
    EXPECT_EQ(addresses("v0"), "192.168.1.2/24");
    EXPECT_FALSE(contains(ip("address show v0"), "secondary"));
    EXPECT_TRUE(contains(ip("route show table 10000"), "172.31.0.0/16 via 192.168.1.254"));
    EXPECT_TRUE(contains(ip("route show dev v0"), "192.168.1.0/24")) << "the connected network is there";
    expect_order(monitor.events(), "+address 192.168.1.2/24 v0", "-address 192.168.1.1/24 v0");
}

TEST_F(AddressTest, TheMaskOfTheAddressChangesNewBeforeOld)
{
    ip("link set v0 up");
    ip("address add 10.0.0.1/8 dev v0");
    ip("route add 172.31.0.0/16 via 10.0.0.254 dev v0 table 10000");
    Monitor monitor;
    ASSERT_EQ(netlib_intf_set_netmask("v0", "255.255.255.0"), 0);
    EXPECT_EQ(addresses("v0"), "10.0.0.1/24");
    expect_order(monitor.events(), "+address 10.0.0.1/24 v0", "-address 10.0.0.1/8 v0");
    EXPECT_TRUE(contains(ip("route show table 10000"), "via 10.0.0.254"));
}

TEST_F(AddressTest, TheSameMaskAgainTouchesNothing)
{
    ip("address add 10.0.0.1/24 dev v0");
    Monitor monitor;
    ASSERT_EQ(netlib_intf_set_netmask("v0", "255.255.255.0"), 0);
    EXPECT_TRUE(monitor.events().empty());
    EXPECT_EQ(addresses("v0"), "10.0.0.1/24");
}

TEST_F(AddressTest, EveryContiguousMaskWorks)
{
    ip("address add 10.0.0.1/24 dev v0");
    const std::pair<const char *, const char *> cases[] = {
        {"255.255.255.255", "32"}, {"255.255.255.254", "31"}, {"128.0.0.0", "1"}};
    for (const auto &[mask, length] : cases) {
        ASSERT_EQ(netlib_intf_set_netmask("v0", mask), 0) << mask;
        EXPECT_EQ(addresses("v0"), std::string("10.0.0.1/") + length);
    }
}

TEST_F(AddressTest, AChangeOfMaskThatWasCutShortIsCompleted)
{
    ip("address add 10.0.0.1/8 dev v0");
    ip("address add 10.0.0.1/24 dev v0");
    ASSERT_EQ(netlib_intf_set_ip("v0", "10.0.0.1"), 0);
    ASSERT_EQ(netlib_intf_set_netmask("v0", "255.255.255.0"), 0);
    EXPECT_EQ(addresses("v0"), "10.0.0.1/24");
}

TEST_F(AddressTest, AMaskWithoutAnAddressIsAnError)
{
    EXPECT_NE(netlib_intf_set_netmask("v0", "255.255.255.0"), 0);
    EXPECT_EQ(errno, EADDRNOTAVAIL);
}

TEST_F(AddressTest, ANonContiguousMaskIsAnError)
{
    ip("address add 10.0.0.1/8 dev v0");
    for (const char *mask : {"255.0.255.0", "0.0.0.1", "255.255.255.253", "255.255.255", "", "24"}) {
        EXPECT_NE(netlib_intf_set_netmask("v0", mask), 0) << mask;
        EXPECT_EQ(errno, EINVAL) << mask;
    }
    EXPECT_NE(netlib_intf_set_netmask("v0", nullptr), 0);
    EXPECT_EQ(addresses("v0"), "10.0.0.1/8");
}

TEST_F(AddressTest, AnAbsentDeviceIsAnError)
{
    EXPECT_NE(netlib_intf_set_ip("nosuch", "10.0.0.1"), 0);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_NE(netlib_intf_set_ip("nosuch", "0.0.0.0"), 0);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_NE(netlib_intf_set_netmask("nosuch", "255.0.0.0"), 0);
    EXPECT_EQ(errno, ENODEV);
}

TEST_F(AddressTest, AMalformedAddressIsAnErrorAndChangesNothing)
{
    ip("address add 10.0.0.1/8 dev v0");
    for (const char *text : {"", "10.0.0", "10.0.0.256", "10.0.0.1/8", " 10.0.0.1", "ten", "10.0.0.1.2"}) {
        EXPECT_NE(netlib_intf_set_ip("v0", text), 0) << text;
        EXPECT_EQ(errno, EINVAL) << text;
    }
    EXPECT_NE(netlib_intf_set_ip("v0", nullptr), 0);
    EXPECT_EQ(addresses("v0"), "10.0.0.1/8");
}

} // namespace
