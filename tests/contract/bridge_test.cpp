#include "network.h"
#include "platform/netdev.h"

#include <cerrno>

namespace {

class BridgeTest : public NetworkTest {};

std::string bridge_of(const std::string &member)
{
    std::string shown = ip("-o link show " + member);
    size_t at = shown.find(" master ");
    if (at == std::string::npos) {
        return "";
    }
    at += 8;
    return shown.substr(at, shown.find(' ', at) - at);
}

TEST_F(BridgeTest, IsMadeWithoutSpanningTreeAndForwardDelay)
{
    ASSERT_EQ(netlib_br_create("lan1"), 0);
    std::string shown = ip("-d link show lan1");
    EXPECT_TRUE(contains(shown, " forward_delay 0 ")) << shown;
    EXPECT_TRUE(contains(shown, " stp_state 0 ")) << shown;
}

TEST_F(BridgeTest, AgainIsFine)
{
    ASSERT_EQ(netlib_br_create("lan1"), 0);
    std::string before = ip("-o link show lan1");
    EXPECT_EQ(netlib_br_create("lan1"), 0);
    EXPECT_EQ(ip("-o link show lan1"), before);
}

TEST_F(BridgeTest, ThereWithOtherAttributesIsAnError)
{
    ip("link add lan1 type bridge forward_delay 0 stp_state 1");
    EXPECT_NE(netlib_br_create("lan1"), 0);
    EXPECT_EQ(errno, EEXIST);
    ip("link add lan2 type bridge");
    EXPECT_NE(netlib_br_create("lan2"), 0) << "the kernel's own forward delay is 15 s";
    EXPECT_EQ(errno, EEXIST);
    EXPECT_NE(netlib_br_create("v0"), 0) << "not a bridge";
    EXPECT_EQ(errno, EEXIST);
}

TEST_F(BridgeTest, ImpossibleNamesAreErrors)
{
    EXPECT_NE(netlib_br_create("a-name-of-16-let"), 0);
    EXPECT_EQ(errno, ENAMETOOLONG);
    for (const char *name : {"", "a/b", "a b", "..", "a:b"}) {
        EXPECT_NE(netlib_br_create(name), 0) << name;
        EXPECT_EQ(errno, EINVAL) << name;
    }
    EXPECT_NE(netlib_br_create(nullptr), 0);
}

TEST_F(BridgeTest, IsDeletedEvenWhenUpAndWithMembers)
{
    ASSERT_EQ(netlib_br_create("lan1"), 0);
    ASSERT_EQ(netlib_br_addif("lan1", "v0"), 0);
    ASSERT_EQ(netlib_eth_intf_up("lan1"), 0);
    EXPECT_EQ(netlib_br_delete("lan1"), 0);
    EXPECT_EQ(netlib_eth_intf_exist("lan1"), 0);
    EXPECT_NE(netlib_eth_intf_exist("v0"), 0) << "its members stay";
}

TEST_F(BridgeTest, DeletingAnAbsentOneIsFine)
{
    EXPECT_EQ(netlib_br_delete("lan1"), 0);
    EXPECT_EQ(netlib_br_delete(nullptr), 0);
}

TEST_F(BridgeTest, DeletesBridgesOnly)
{
    EXPECT_NE(netlib_br_delete("v0"), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_NE(netlib_eth_intf_exist("v0"), 0);
}

TEST_F(BridgeTest, TakesAMember)
{
    ASSERT_EQ(netlib_br_create("lan1"), 0);
    ASSERT_EQ(netlib_br_addif("lan1", "v0"), 0);
    EXPECT_EQ(bridge_of("v0"), "lan1");
}

TEST_F(BridgeTest, AMemberOfThisBridgeAlreadyIsFine)
{
    ASSERT_EQ(netlib_br_create("lan1"), 0);
    ASSERT_EQ(netlib_br_addif("lan1", "v0"), 0);
    EXPECT_EQ(netlib_br_addif("lan1", "v0"), 0);
}

TEST_F(BridgeTest, AMemberOfAnotherBridgeIsBusyAndNotMoved)
{
    ASSERT_EQ(netlib_br_create("lan1"), 0);
    ASSERT_EQ(netlib_br_create("lan2"), 0);
    ASSERT_EQ(netlib_br_addif("lan1", "v0"), 0);
    EXPECT_NE(netlib_br_addif("lan2", "v0"), 0);
    EXPECT_EQ(errno, EBUSY);
    EXPECT_EQ(bridge_of("v0"), "lan1");
}

TEST_F(BridgeTest, AddingNeedsBothDevices)
{
    ASSERT_EQ(netlib_br_create("lan1"), 0);
    EXPECT_NE(netlib_br_addif("lan1", "nosuch"), 0);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_NE(netlib_br_addif("lan2", "v0"), 0);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_NE(netlib_br_addif("w0", "v0"), 0) << "not a bridge";
    EXPECT_EQ(errno, EINVAL);
    EXPECT_NE(netlib_br_addif(nullptr, "v0"), 0);
    EXPECT_NE(netlib_br_addif("lan1", nullptr), 0);
}

TEST_F(BridgeTest, ALoopOfBridgesIsRefused)
{
    ASSERT_EQ(netlib_br_create("lan1"), 0);
    ASSERT_EQ(netlib_br_create("lan2"), 0);
    EXPECT_NE(netlib_br_addif("lan1", "lan2"), 0);
    EXPECT_EQ(errno, ELOOP);
}

TEST_F(BridgeTest, LetsAMemberGo)
{
    ASSERT_EQ(netlib_br_create("lan1"), 0);
    ASSERT_EQ(netlib_br_addif("lan1", "v0"), 0);
    ASSERT_EQ(netlib_br_delif("lan1", "v0"), 0);
    EXPECT_EQ(bridge_of("v0"), "");
}

TEST_F(BridgeTest, NotAMemberIsFine)
{
    ASSERT_EQ(netlib_br_create("lan1"), 0);
    ASSERT_EQ(netlib_br_create("lan2"), 0);
    ASSERT_EQ(netlib_br_addif("lan2", "v0"), 0);
    EXPECT_EQ(netlib_br_delif("lan1", "w0"), 0);
    EXPECT_EQ(netlib_br_delif("lan1", "v0"), 0);
    EXPECT_EQ(bridge_of("v0"), "lan2") << "another bridge's member stays there";
    EXPECT_EQ(netlib_br_delif("lan1", "nosuch"), 0);
    EXPECT_EQ(netlib_br_delif("nosuch", "v0"), 0);
    EXPECT_EQ(netlib_br_delif(nullptr, nullptr), 0);
}

} // namespace
