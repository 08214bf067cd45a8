// VLAN devices of interfaces and the VLAN's members in the switch.

#include "daemon_test.h"
#include "netintf/vlan_intf.h"

namespace unit {
namespace {

using VlanIntf = DaemonTest;

std::vector<Lines> device_lines(const std::string &master, int vid, const std::string &mac)
{
    const std::string name = master + "." + std::to_string(vid);
    return {"netilib_vintf_create('" + master + "', " + std::to_string(vid) + ")",
            "netlib_eth_mac_set('" + name + "', " + mac + ")", "netlib_eth_intf_up('" + name + "')"};
}

std::vector<Lines> operator+(std::vector<Lines> left, const std::vector<Lines> &right)
{
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

TEST_F(VlanIntf, ArgumentsThatNoVlanHas)
{
    const struct {
        uint32_t type;
        uint32_t port;
        int vid1;
    } cases[] = {{1, 5, 100}, {1, 0xffffffff, 100}, {1, 2, 65535}, {0, 2, 100}, {3, 2, 100}};
    for (const auto &refused : cases) {
        EXPECT_EQ(netintf_vlan_intf_create(refused.type, refused.port, refused.vid1, 65535), -2);
        EXPECT_EQ(netintf_vlan_intf_delete(static_cast<int>(refused.type), refused.port, refused.vid1, 7),
                  -2);
    }
    expect_quiet_trace({});
}

TEST_F(VlanIntf, CreationJoinsPortAndCpuPort)
{
    EXPECT_EQ(netintf_vlan_intf_create(intf_type_lan, 2, 100, 65535), 0);
    expect_trace(device_lines("eth0", 100, "02:11:22:33:44:51"));
    EXPECT_EQ(vlan_entry(5), (VlanEntry{100, 0x44}));
    // A second port joins the same entry.
    EXPECT_EQ(netintf_vlan_intf_create(intf_type_wan, 0, 100, 200), 0);
    expect_trace(device_lines("eth0", 100, "02:11:22:33:44:54") +
                 device_lines("eth0.100", 200, "02:11:22:33:44:54"));
    EXPECT_EQ(vlan_entry(5), (VlanEntry{100, 0x45}));
}

TEST_F(VlanIntf, AWanOnABoardWithTwoCpuPorts)
{
    board_with_two_cpu_ports();
    EXPECT_EQ(netintf_vlan_intf_create(intf_type_wan, 3, 100, 200), 0);
    expect_trace(device_lines("eth1.4093", 100, "02:11:22:33:44:52") +
                 device_lines("eth1.4093.100", 200, "02:11:22:33:44:52"));
    EXPECT_EQ(vlan_entry(5), (VlanEntry{100, 0x28}));
    EXPECT_EQ(netintf_vlan_intf_create(intf_type_lan, 1, 100, 65535), 0);
    expect_trace(device_lines("eth0", 100, "02:11:22:33:44:50"));
    EXPECT_EQ(vlan_entry(5), (VlanEntry{100, 0x6a}));
}

TEST_F(VlanIntf, CreationStopsAtItsFirstFailure)
{
    const std::vector<Lines> outer = device_lines("eth0", 100, "02:11:22:33:44:51");
    const std::vector<Lines> inner = device_lines("eth0.100", 7, "02:11:22:33:44:51");
    const struct {
        const char *failing;
        unsigned nth;
        int result;
        std::vector<Lines> trace;
        uint32_t members;
    } cases[] = {
        // Entry 5's members share register 0x74.
        {"switch_write(0x74", 1, -6, {}, 0},
        {"switch_write(0x74", 2, -6, {}, 0x04},
        {"socket(", 0, -2, {}, 0}, // no entry can be read, so none is found
        {"netilib_vintf_create('eth0'", 0, -13, {outer[0]}, 0x44},
        {"netlib_eth_mac_set('eth0.100'", 0, -13, {outer[0], outer[1]}, 0x44},
        {"netlib_eth_intf_up('eth0.100')", 0, -13, outer, 0x44},
        {"netilib_vintf_create('eth0.100'", 0, -13, outer + std::vector<Lines>{inner[0]}, 0x44},
        {"netlib_eth_intf_up('eth0.100.7')", 0, -13, outer + inner, 0x44},
    };
    for (const auto &failure : cases) {
        world.registers.clear();
        answers_forget();
        fail(failure.failing, failure.nth);
        EXPECT_EQ(netintf_vlan_intf_create(intf_type_lan, 2, 100, 7), failure.result) << failure.failing;
        expect_trace(failure.trace);
        EXPECT_EQ(vlan_entry(5).members, failure.members) << failure.failing;
    }
}

TEST_F(VlanIntf, AFullPoolRefusesANewVlan)
{
    for (uint32_t index = 5; index < 16; index++) {
        vlan_entry_put(index, {200 + index, 1});
    }
    EXPECT_EQ(netintf_vlan_intf_create(intf_type_lan, 2, 100, 65535), -2);
    expect_trace({});
}

TEST_F(VlanIntf, AnIdThatTheSwitchCannotHoldIsRefused)
{
    EXPECT_EQ(netintf_vlan_intf_create(intf_type_lan, 2, 4096, 65535), -2);
    expect_trace({});
}

TEST_F(VlanIntf, APortOutsideTheSequenceHasNoMac)
{
    EXPECT_EQ(netintf_vlan_intf_create(intf_type_lan, 4, 100, 65535), 0);
    skip_trace();
    board({{1, 1}});
    EXPECT_EQ(netintf_vlan_intf_create(intf_type_lan, 4, 100, 65535), -1);
    expect_trace({error("hw_port=4 get seq port error\n")});
}

TEST_F(VlanIntf, UsersNeedAResultAndAVlan)
{
    uint32_t count = 99;
    EXPECT_EQ(netintf_vlan_users_count(1, 100, 65535, nullptr), -1);
    EXPECT_EQ(netintf_vlan_users_count(1, 65535, 65535, &count), -1);
    EXPECT_EQ(count, 99U);
    EXPECT_EQ(netintf_vlan_users_count(1, 100, 65535, &count), 0);
    EXPECT_EQ(count, 0U);
}

struct Users {
    uint32_t type;
    uint32_t vid1;
    uint32_t vid2;
    uint32_t one_cpu_port;
    uint32_t two_cpu_ports;
};

// Entries: the first of each list is not counted, whatever its VLAN.
TEST_F(VlanIntf, UsersAreCountedBehindTheFirstOfEachList)
{
    const Users cases[] = {
        {1, 100, 65535, 4, 2},
        {2, 100, 65535, 4, 2},
        {1, 100, 7, 3, 1},
        {2, 100, 7, 3, 2},
        {1, 100, 8, 1, 1},
        {2, 100, 8, 1, 0},
        {1, 200, 65535, 0, 0},
        {1, 300, 65535, 0, 0},
        // Without an outer VLAN nothing is counted.
        {1, 65535, 7, 0, 0},
    };
    for (const uint32_t cpuid : {1U, two_cpu_ports}) {
        board({{1, 1}, {1, 2}, {1, 3}, {2, 4}, {2, 0}}, cpuid);
        lan("lan1", 200, 7); // never counted
        lan("lan1.a", 100, 7);
        lan("lan1.b", 100, 8);
        lan("lan2", 100, 7);               // never counted
        wan("wan1", proto_static, 100, 7); // never counted
        wan("wan1.a", proto_static, 100, 7);
        wan("wan1.b", proto_static, 100, 7);
        lan("lan3");
        lan("lan3.a");
        for (const Users &users : cases) {
            uint32_t count = 99;
            EXPECT_EQ(netintf_vlan_users_count(users.type, users.vid1, users.vid2, &count), 0);
            EXPECT_EQ(count, cpuid == two_cpu_ports ? users.two_cpu_ports : users.one_cpu_port)
                << "type " << users.type << " vlan " << users.vid1 << "." << users.vid2 << " cpuid " << cpuid;
        }
    }
    expect_quiet_trace({});
}

TEST_F(VlanIntf, ABrokenListCannotBeCounted)
{
    netintf_entry *first = lan("lan3");
    netintf_entry *second = lan("lan3.a", 100);
    netintf_entry *head = netintf_port_head_get(3);
    uint32_t count = 99;
    for (netintf_entry **link : {&second->next, &first->next, &head->next}) {
        netintf_entry *whole = *link;
        *link = nullptr;
        EXPECT_EQ(netintf_vlan_users_count(1, 100, 65535, &count), -1);
        EXPECT_EQ(count, 99U);
        *link = whole;
    }
    EXPECT_EQ(netintf_vlan_users_count(1, 100, 65535, &count), 0);
    EXPECT_EQ(count, 1U);
}

const std::vector<Lines> outer_gone = {"netlib_eth_intf_down('eth0.100')", "netlib_vintf_delete('eth0.100')"};
const std::vector<Lines> inner_gone = {"netlib_eth_intf_down('eth0.100.7')",
                                       "netlib_vintf_delete('eth0.100.7')"};

TEST_F(VlanIntf, DeletionOfTheLastUser)
{
    lan("lan2");
    lan("lan2.100", 100, 7);
    vlan_entry_put(5, {100, 0x44});
    EXPECT_EQ(netintf_vlan_intf_delete(1, 2, 100, 7), 0);
    expect_trace(inner_gone + outer_gone);
    EXPECT_EQ(vlan_entry(5), (VlanEntry{0, 0}));
}

TEST_F(VlanIntf, DeletionKeepsDevicesThatOthersUse)
{
    lan("lan2");
    lan("lan2.100", 100, 7);
    lan("lan3");
    lan("lan3.100", 100, 8);
    vlan_entry_put(5, {100, 0x4c});
    EXPECT_EQ(netintf_vlan_intf_delete(1, 2, 100, 7), 0);
    expect_trace(inner_gone);
    EXPECT_EQ(vlan_entry(5), (VlanEntry{100, 0x48}));

    lan("lan4");
    lan("lan4.100", 100, 7);
    EXPECT_EQ(netintf_vlan_intf_delete(1, 2, 100, 7), 0);
    expect_trace({});
}

TEST_F(VlanIntf, DeletionOnABoardWithTwoCpuPorts)
{
    board_with_two_cpu_ports();
    wan("wan2");
    wan("wan2.100", proto_static, 100);
    vlan_entry_put(5, {100, 0x30});
    EXPECT_EQ(netintf_vlan_intf_delete(2, 4, 100, 65535), 0);
    expect_trace({"netlib_eth_intf_down('eth1.4094.100')", "netlib_vintf_delete('eth1.4094.100')"});
    EXPECT_EQ(vlan_entry(5), (VlanEntry{0, 0}));
}

TEST_F(VlanIntf, AnUncountedUserCannotBeDeleted)
{
    lan("lan2", 100, 7);
    vlan_entry_put(5, {100, 0x44});
    EXPECT_EQ(netintf_vlan_intf_delete(1, 2, 100, 65535), -1);
    EXPECT_EQ(netintf_vlan_intf_delete(1, 2, 100, 7), -1);
    expect_trace({});
    EXPECT_EQ(vlan_entry(5), (VlanEntry{100, 0x44}));
}

TEST_F(VlanIntf, DeletionStopsAtItsFirstFailure)
{
    lan("lan2");
    lan("lan2.100", 100, 7);
    const struct {
        const char *failing;
        unsigned nth;
        int result;
        std::vector<Lines> trace;
        VlanEntry entry;
    } cases[] = {
        {"netlib_eth_intf_down('eth0.100.7')", 0, -13, {inner_gone[0]}, {100, 0x44}},
        {"netlib_vintf_delete('eth0.100.7')", 0, -13, inner_gone, {100, 0x44}},
        {"netlib_vintf_delete('eth0.100')", 0, -13, inner_gone + outer_gone, {100, 0x44}},
        {"switch_write(0x74", 1, -6, inner_gone + outer_gone, {100, 0x44}},
        {"switch_write(0x74", 2, -6, inner_gone + outer_gone, {0, 0x40}},
    };
    for (const auto &failure : cases) {
        world.registers.clear();
        vlan_entry_put(5, {100, 0x44});
        answers_forget();
        fail(failure.failing, failure.nth);
        EXPECT_EQ(netintf_vlan_intf_delete(1, 2, 100, 7), failure.result) << failure.failing;
        expect_trace(failure.trace);
        EXPECT_EQ(vlan_entry(5).vid, failure.entry.vid) << failure.failing << failure.nth;
        EXPECT_EQ(vlan_entry(5).members, failure.entry.members) << failure.failing << failure.nth;
    }
}

} // namespace
} // namespace unit
