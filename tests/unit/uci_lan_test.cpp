// LAN sections of the configuration, and the options they share with WAN sections.

#include "daemon_test.h"
#include "netintf/startup.h"
#include "netintf/uci_options.h"
#include "platform/config.h"

namespace unit {
namespace {

using Options = std::map<std::string, std::string>;

class UciLan : public DaemonTest {
protected:
    static int walk()
    {
        return ucilib_foreach_section("lan_intf", "interface", netintf_uci_lan_parse_each, nullptr);
    }
    static int walk_one(const char *name, Options options)
    {
        world.sections = {{"lan_intf", "interface", name, std::move(options)}};
        const int rv = walk();
        return rv;
    }
};

const Lines walked = "ucilib_foreach_section('lan_intf', 'interface')";
const Lines port_device = std::vector<std::string>{"netilib_vintf_create('eth0', 4092)",
                                                   "netlib_eth_mac_set('eth0.4092', 02:11:22:33:44:51)",
                                                   "netlib_eth_intf_up('eth0.4092')"};

TEST_F(UciLan, ADefaultInterface)
{
    EXPECT_EQ(walk_one("lan2_default", {{"ipaddr", "192.168.2.1"}, {"netmask", "255.255.255.0"}}), 0);
    expect_trace({walked, port_device, "netlib_br_create('lan2_default')",
                  "netlib_eth_mac_set('lan2_default', 00:11:22:33:44:51)",
                  "netlib_eth_intf_up('lan2_default')", "netlib_br_addif('lan2_default', 'eth0.4092')",
                  "netlib_intf_set_ip('lan2_default', '192.168.2.1')",
                  "netlib_intf_set_netmask('lan2_default', '255.255.255.0')"});
    const netintf_entry *entry = netintf_entry_find_byname("lan2_default");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->proto, proto_static);
    EXPECT_EQ(entry->enable, 1U);
    EXPECT_EQ(netintf_lan_port_mask, 1U << 2);
    EXPECT_EQ(netintf_wan_port_mask, 0U);
    EXPECT_STREQ(netintf_port_head_get(2)->name, "lan2");
}

TEST_F(UciLan, SectionsThatAreNoLanArePassedOver)
{
    for (const char *name : {"guest", "wan1", "LAN1", "la", ""}) {
        EXPECT_EQ(walk_one(name, {{"ipaddr", "1.2.3.4"}}), 0) << name;
        expect_quiet_trace({walked});
    }
}

TEST_F(UciLan, ANumberTheBoardDoesNotKnow)
{
    EXPECT_EQ(walk_one("lan9", {}), -1);
    expect_trace({walked, error("lan 9 get hw port error\n")});
    board({{1, 5}});
    EXPECT_EQ(walk_one("lan1", {}), -1);
    expect_trace({walked});
}

TEST_F(UciLan, APortIsSetUpOnce)
{
    world.sections = {{"lan_intf", "interface", "lan2", {{"mac", "02:0:0:0:0:1"}}},
                      {"lan_intf", "interface", "lan2.7", {{"mac", "02:0:0:0:0:2"}}}};
    EXPECT_EQ(walk(), 0);
    expect_trace({walked, port_device, "netlib_br_create('lan2')",
                  "netlib_eth_mac_set('lan2', 02:00:00:00:00:01)", "netlib_eth_intf_up('lan2')",
                  "netlib_br_addif('lan2', 'eth0.4092')", "netlib_br_create('lan2.7')",
                  "netlib_eth_mac_set('lan2.7', 02:00:00:00:00:02)", "netlib_eth_intf_up('lan2.7')",
                  "netlib_br_addif('lan2.7', 'eth0.4092')"});
    EXPECT_EQ(names_on(2), (std::vector<std::string>{"lan2", "lan2.7"}));
}

TEST_F(UciLan, AFailingPortSetUpIsTriedAgainForTheNext)
{
    fail("netilib_vintf_create(");
    EXPECT_EQ(walk_one("lan2", {}), -1);
    expect_trace({walked, "netilib_vintf_create('eth0', 4092)", error("net vintf init failed, hw_port=2\n")});
    EXPECT_EQ(netintf_lan_port_mask, 0U);
    answers_forget();
    EXPECT_EQ(walk_one("lan2", {}), 0);
    EXPECT_EQ(netintf_lan_port_mask, 1U << 2);
}

TEST_F(UciLan, AFailingInterface)
{
    netintf_lan_port_mask = 0xff;
    fail("netlib_br_create(");
    EXPECT_EQ(walk_one("lan2", {}), -13);
    expect_trace({walked, "netlib_br_create('lan2')",
                  error("veth init failed, master_intf=eth0.4092 veth_intfname=lan2 mac=00:00:00:00:00:00\n"),
                  error("netintf_lan_add 2261:user intf init failed\n"),
                  error("netintf_uci_lan_parse_each 2443\n")});
    answers_forget();
    answer("netlib_intf_set_ip(", -77);
    EXPECT_EQ(walk_one("lan3", {{"ipaddr", "1.2.3.4"}}), -77);
}

TEST_F(UciLan, EnableRaisesTheDeviceOnALinkedPort)
{
    netintf_lan_port_mask = 0xff;
    link_set(2, 1);
    const std::pair<Options, bool> cases[] = {{{{"enable", "1"}}, true},
                                              {{{"enable", "0"}}, false},
                                              {{{"enable", "2"}}, true},
                                              {{{"enable", "yes"}}, false},
                                              {{}, false}};
    for (const auto &[enable, raised] : cases) {
        Options options = enable;
        options["mac"] = "1:1:1:1:1:1";
        EXPECT_EQ(walk_one("lan2", options), 0);
        std::vector<Lines> expected{walked, "netlib_br_create('lan2')",
                                    "netlib_eth_mac_set('lan2', 01:01:01:01:01:01)",
                                    "netlib_eth_intf_up('lan2')", "netlib_br_addif('lan2', 'eth0.4092')"};
        if (raised) {
            expected.emplace_back("netlib_eth_intf_up('lan2')");
        }
        expect_trace(expected);
    }
}

struct Vlan {
    const char *text;
    uint16_t vlan;
};

TEST_F(UciLan, VlanIdsAreDecimalAndSixteenBitsWide)
{
    netintf_lan_port_mask = 0xff;
    const Vlan cases[] = {{"100", 100},  {"4095", 4095}, {"65535", 65535}, {"65536", 0}, {"65636", 100},
                          {"-1", 65535}, {"12abc", 12},  {"abc", 0},       {"", 0}};
    for (const Vlan &vlan : cases) {
        board({{1, 1}, {1, 2}});
        netintf_lan_port_mask = 0xff;
        EXPECT_EQ(walk_one("lan2", {{"vlanid1", vlan.text}}), 0) << vlan.text;
        EXPECT_EQ(netintf_entry_find_byname("lan2")->vlanid1, vlan.vlan) << vlan.text;
        EXPECT_EQ(netintf_entry_find_byname("lan2")->vlanid2, vlan_none) << vlan.text;
        EXPECT_EQ(walk_one("lan2.x", {{"vlanid2", vlan.text}}), 0) << vlan.text;
        EXPECT_EQ(netintf_entry_find_byname("lan2.x")->vlanid1, vlan_none) << vlan.text;
        EXPECT_EQ(netintf_entry_find_byname("lan2.x")->vlanid2, vlan.vlan) << vlan.text;
    }
}

TEST_F(UciLan, MacTexts)
{
    const std::pair<const char *, std::array<uint8_t, 6>> cases[] = {
        {"aa:bb:cc:dd:ee:ff", {0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff}},
        {"AA:b:0:DD:e:1", {0xaa, 0x0b, 0, 0xdd, 0x0e, 1}},
        {"aa:bb", {0xaa, 0xbb, 0, 0, 0, 0}},
        {"aa-bb-cc", {0xaa, 0, 0, 0, 0, 0}},
        {"zz", {0, 0, 0, 0, 0, 0}},
        {"", {0, 0, 0, 0, 0, 0}},
    };
    for (const auto &[text, wanted] : cases) {
        std::array<uint8_t, 6> mac{};
        netintf_mac_parse(text, mac.data());
        EXPECT_EQ(mac, wanted) << text;
    }
}

TEST_F(UciLan, APortWithoutAPlaceInTheSequence)
{
    world.sequence_result = -44;
    EXPECT_EQ(walk_one("lan2_default", {}), -44);
    expect_trace({walked});
    netintf_lan_port_mask = 0xff;
    EXPECT_EQ(walk_one("lan2", {}), 0);
}

TEST_F(UciLan, OnlyFourDefaultNamesHaveAMacByRule)
{
    struct {
        const char *kind;
        const char *section;
        uint8_t last; // of the MAC; 0: all zero
    } const cases[] = {
        {"lan", "lan1_default", 0x50}, {"lan", "lan2_default", 0x50},
        {"lan", "lan4_default", 0x50}, {"lan", "lan5_default", 0},
        {"lan", "lan0_default", 0},    {"lan", "lan1_defaul", 0},
        {"lan", "lan1_default1", 0},   {"lan", "lan1", 0},
        {"lan", "wan1_default", 0},    {"wan", "wan1_default", 0x50},
        {"wan", "wan4_default", 0x50}, {"wan", "wan5_default", 0},
        {"lan", "LAN1_default", 0},
    };
    for (const auto &name : cases) {
        uint8_t mac[6] = {};
        // The port decides, not the number in the name.
        EXPECT_EQ(netintf_section_mac(name.kind, name.section, nullptr, 1, mac), 0);
        EXPECT_EQ(mac[5], name.last) << name.section;
        EXPECT_EQ(mac[1], name.last == 0 ? 0 : 0x11) << name.section;
        EXPECT_EQ(mac[0], 0) << name.section;
    }
    uint8_t mac[6] = {};
    EXPECT_EQ(netintf_section_mac("wan", "wan1_default", nullptr, 0, mac), 0);
    EXPECT_EQ(mac[5], 0x54);
    EXPECT_EQ(netintf_section_mac("lan", "lan1_default", nullptr, 6, mac), -1);
    EXPECT_EQ(netintf_section_mac("lan", "lan1_default", "2:0:0:0:0:9", 6, mac), 0);
    EXPECT_EQ(mac[5], 9);
}

} // namespace
} // namespace unit
