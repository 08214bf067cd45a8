#include "network.h"
#include "platform/netdev.h"

#include <array>
#include <cerrno>

namespace {

using Mac = std::array<uint8_t, 6>;

class LinkTest : public NetworkTest {};

TEST_F(LinkTest, UpAndDown)
{
    ASSERT_EQ(netlib_eth_intf_up("v0"), 0);
    EXPECT_TRUE(contains(ip("link show v0"), "UP"));
    EXPECT_EQ(netlib_eth_intf_up("v0"), 0) << "up already";
    ASSERT_EQ(netlib_eth_intf_down("v0"), 0);
    EXPECT_FALSE(contains(ip("link show v0"), ",UP"));
    EXPECT_EQ(netlib_eth_intf_down("v0"), 0) << "down already";
}

TEST_F(LinkTest, UpAndDownOfAnAbsentDeviceAreErrors)
{
    EXPECT_NE(netlib_eth_intf_up("nosuch"), 0);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_NE(netlib_eth_intf_down("nosuch"), 0);
    EXPECT_EQ(errno, ENODEV);
}

TEST_F(LinkTest, AnErrorWritesOneDebugLineWithOperationArgumentAndReason)
{
    StderrCapture output;
    ASSERT_NE(netlib_eth_intf_up("nosuch"), 0);
    EXPECT_EQ(output.text(), "debug: netlib_eth_intf_up(nosuch): No such device\n");
}

TEST_F(LinkTest, SuccessWritesNothing)
{
    StderrCapture output;
    ASSERT_EQ(netlib_eth_intf_up("v0"), 0);
    ASSERT_NE(netlib_eth_intf_exist("v0"), 0);
    ASSERT_EQ(netlib_eth_intf_exist("nosuch"), 0);
    EXPECT_EQ(output.text(), "");
}

TEST_F(LinkTest, ExistTellsWhetherADeviceIsThere)
{
    EXPECT_NE(netlib_eth_intf_exist("v0"), 0);
    EXPECT_EQ(netlib_eth_intf_exist("v"), 0);
    EXPECT_EQ(netlib_eth_intf_exist("v00"), 0);
    ip("link del v0");
    EXPECT_EQ(netlib_eth_intf_exist("v0"), 0);
}

TEST_F(LinkTest, NamesThatNoDeviceCanHaveDoNotExist)
{
    EXPECT_EQ(netlib_eth_intf_exist(""), 0);
    EXPECT_EQ(netlib_eth_intf_exist(nullptr), 0);
    EXPECT_EQ(netlib_eth_intf_exist("a-name-of-16-let"), 0);
    EXPECT_NE(netlib_eth_intf_up(nullptr), 0);
    EXPECT_NE(netlib_eth_intf_up(""), 0);
    EXPECT_NE(netlib_eth_intf_up(std::string(1000, 'x').c_str()), 0);
}

TEST_F(LinkTest, MacIsSetAndRead)
{
    Mac mac = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
    ASSERT_EQ(netlib_eth_mac_set("v0", mac.data()), 0);
    EXPECT_TRUE(contains(ip("link show v0"), "02:11:22:33:44:55"));
    Mac read = {};
    ASSERT_EQ(netlib_eth_mac_get("v0", read.data()), 0);
    EXPECT_EQ(read, mac);
    EXPECT_EQ(netlib_eth_mac_set("v0", mac.data()), 0) << "the same again";
}

TEST_F(LinkTest, MacOfAnAbsentDeviceIsAnError)
{
    Mac mac = {0x02, 0, 0, 0, 0, 1};
    EXPECT_NE(netlib_eth_mac_set("nosuch", mac.data()), 0);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_NE(netlib_eth_mac_get("nosuch", mac.data()), 0);
    EXPECT_EQ(errno, ENODEV);
}

TEST_F(LinkTest, MacRefusesWhatTheKernelRefuses)
{
    Mac multicast = {0x01, 0, 0, 0, 0, 1};
    EXPECT_NE(netlib_eth_mac_set("v0", multicast.data()), 0);
    EXPECT_EQ(errno, EADDRNOTAVAIL);
    EXPECT_NE(netlib_eth_mac_set("v0", nullptr), 0);
    EXPECT_NE(netlib_eth_mac_get("v0", nullptr), 0);
}

TEST_F(LinkTest, VlanIdsOutsideTheirRangeAreErrors)
{
    for (int vid : {-1, 0, 4095, 4096, 70000}) {
        EXPECT_NE(netilib_vintf_create("v0", vid), 0) << vid;
        EXPECT_EQ(errno, EINVAL) << vid;
    }
}

TEST_F(LinkTest, AVlanOnAnAbsentMasterIsAnError)
{
    EXPECT_NE(netilib_vintf_create("nosuch", 5), 0);
    EXPECT_EQ(errno, ENODEV);
    EXPECT_NE(netilib_vintf_create(nullptr, 5), 0);
    EXPECT_EQ(errno, ENODEV);
}

TEST_F(LinkTest, AVlanWhoseNameWouldBeTooLongIsAnError)
{
    ip("link add eth1.4093.100 type bridge");
    EXPECT_NE(netilib_vintf_create("eth1.4093.100", 200), 0);
    EXPECT_EQ(errno, ENAMETOOLONG);
}

TEST_F(LinkTest, AnotherDeviceOfTheVlansNameIsAnErrorAndStays)
{
    ip("link add v0.5 type bridge");
    EXPECT_NE(netilib_vintf_create("v0", 5), 0);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_NE(netlib_vintf_delete("v0.5"), 0) << "only VLAN devices are deleted";
    EXPECT_NE(netlib_eth_intf_exist("v0.5"), 0);
}

TEST_F(LinkTest, DeletingAnAbsentVlanIsFine)
{
    EXPECT_EQ(netlib_vintf_delete("v0.77"), 0);
    EXPECT_EQ(netlib_vintf_delete(""), 0);
    EXPECT_EQ(netlib_vintf_delete(nullptr), 0);
}

class VlanTest : public NetworkTest {
protected:
    void SetUp() override
    {
        NetworkTest::SetUp();
        if (!IsSkipped() && !kernel_has("vlan")) {
            GTEST_SKIP() << "this kernel has no 802.1Q devices";
        }
    }
};

TEST_F(VlanTest, CreatesTheVlanOfItsMaster)
{
    ASSERT_EQ(netilib_vintf_create("v0", 5), 0);
    std::string shown = ip("-d link show v0.5");
    EXPECT_TRUE(contains(shown, "v0.5@v0"));
    EXPECT_TRUE(contains(shown, "vlan protocol 802.1Q id 5 ")) << shown;
}

TEST_F(VlanTest, TheLowestAndHighestIdsWork)
{
    EXPECT_EQ(netilib_vintf_create("v0", 1), 0);
    EXPECT_EQ(netilib_vintf_create("v0", 4094), 0);
    EXPECT_NE(netlib_eth_intf_exist("v0.4094"), 0);
}

TEST_F(VlanTest, TheSameVlanAgainIsFine)
{
    ASSERT_EQ(netilib_vintf_create("v0", 5), 0);
    std::string before = ip("-o link show v0.5");
    EXPECT_EQ(netilib_vintf_create("v0", 5), 0);
    EXPECT_EQ(ip("-o link show v0.5"), before);
}

TEST_F(VlanTest, TheNameWithAnotherIdIsAnError)
{
    ip("link add link v0 name v0.5 type vlan id 6");
    EXPECT_NE(netilib_vintf_create("v0", 5), 0);
    EXPECT_EQ(errno, EEXIST);
}

TEST_F(VlanTest, TheNameOnAnotherMasterIsAnError)
{
    ip("link add link w0 name v0.5 type vlan id 5");
    EXPECT_NE(netilib_vintf_create("v0", 5), 0);
    EXPECT_EQ(errno, EEXIST);
}

TEST_F(VlanTest, TheNameWithAnotherTagKindIsAnError)
{
    ip("link add link v0 name v0.5 type vlan proto 802.1ad id 5");
    EXPECT_NE(netilib_vintf_create("v0", 5), 0);
    EXPECT_EQ(errno, EEXIST);
}

TEST_F(VlanTest, TheIdUnderAnotherNameIsAnError)
{
    ip("link add link v0 name other type vlan id 5");
    EXPECT_NE(netilib_vintf_create("v0", 5), 0);
    EXPECT_EQ(errno, EEXIST);
}

TEST_F(VlanTest, AVlanInsideAVlan)
{
    ASSERT_EQ(netilib_vintf_create("v0", 100), 0);
    ASSERT_EQ(netilib_vintf_create("v0.100", 200), 0);
    EXPECT_TRUE(contains(ip("-d link show v0.100.200"), "id 200 "));
}

TEST_F(VlanTest, DeletesTheVlan)
{
    ASSERT_EQ(netilib_vintf_create("v0", 5), 0);
    ASSERT_EQ(netlib_eth_intf_up("v0"), 0);
    ASSERT_EQ(netlib_eth_intf_up("v0.5"), 0);
    EXPECT_EQ(netlib_vintf_delete("v0.5"), 0);
    EXPECT_EQ(netlib_eth_intf_exist("v0.5"), 0);
}

TEST_F(VlanTest, CannotBeUpBeforeItsMaster)
{
    ASSERT_EQ(netilib_vintf_create("v0", 5), 0);
    EXPECT_NE(netlib_eth_intf_up("v0.5"), 0);
    EXPECT_EQ(errno, ENETDOWN);
}

TEST_F(VlanTest, MacOfAVlan)
{
    Mac mac = {0x02, 0x11, 0x22, 0, 0, 1};
    ASSERT_EQ(netilib_vintf_create("v0", 5), 0);
    ASSERT_EQ(netlib_eth_mac_set("v0.5", mac.data()), 0);
    EXPECT_TRUE(contains(ip("link show v0.5"), "02:11:22:00:00:01"));
}

} // namespace
