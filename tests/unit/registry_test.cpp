// The registry of interfaces.

#include "daemon_test.h"
#include "netintf/registry.h"

#include <algorithm>

namespace unit {
namespace {

using Registry = DaemonTest;

constexpr uint8_t some_mac[6] = {2, 0x11, 0x22, 0x33, 0x44, 0x55};

TEST_F(Registry, HeadsAreEmptyAndDown)
{
    for (uint32_t port = 0; port < 5; port++) {
        const netintf_entry *head = netintf_port_head_get(port);
        ASSERT_EQ(head, &netintf_registry[port]);
        EXPECT_EQ(head->state, 2U);
        EXPECT_EQ(head->hw_port, 0U);
        EXPECT_EQ(head->intf_type, 0U);
        EXPECT_EQ(head->port_vid, 4090);
        EXPECT_EQ(head->in_use, 1U);
        EXPECT_EQ(head->link, 0U);
        EXPECT_STREQ(head->name, "");
        EXPECT_EQ(head->next, head);
        EXPECT_EQ(head->prev, head);
    }
    EXPECT_EQ(netintf_port_head_get(5), nullptr);
    EXPECT_EQ(netintf_port_head_get(0xffffffff), nullptr);
}

TEST_F(Registry, HeadsNeedMemory)
{
    netintf_entry *before = netintf_registry;
    world.calloc_failing = 1;
    EXPECT_EQ(netintf_registry_init(), -12);
    EXPECT_EQ(netintf_registry, nullptr);
    netintf_registry = before;
    expect_trace({});
}

struct NameCase {
    const char *name;
    int result;
    uint32_t port;
    std::vector<Lines> reports;
};

TEST_F(Registry, NamesResolveByPrefixAndNumber)
{
    const NameCase cases[] = {
        {"lan1", 0, 1, {}},    {"lan4", 0, 4, {}},         {"wan1", 0, 0, {}},   {"lan1.100", 0, 1, {}},
        {"wan1_x", 0, 0, {}},  {"lan2_default", 0, 2, {}}, {"lan03", 0, 3, {}},  {"lan 3", 0, 3, {}},
        {"LAN1", -1, 15, {}},  {"Wan1", -1, 15, {}},       {"la", -1, 15, {}},   {"", -1, 15, {}},
        {"guest", -1, 15, {}}, {"xlan1", -1, 15, {}},      {"%s%n", -1, 15, {}},
    };
    for (const NameCase &name : cases) {
        uint32_t port = 99;
        EXPECT_EQ(netintf_hwport_get_byname(name.name, &port), name.result) << name.name;
        EXPECT_EQ(port, name.port) << name.name;
        expect_trace(name.reports);
    }
}

TEST_F(Registry, NamesWithoutAPortGiveTheBoardsError)
{
    const NameCase cases[] = {
        {"lan", -1, 0, {error("lan 0 get hw port error\n")}},
        {"lanx", -1, 0, {error("lan 0 get hw port error\n")}},
        {"wan", -1, 0, {error("wan 0 get hw port error\n")}},
        {"lan0", -1, 0, {error("lan 0 get hw port error\n")}},
        {"lan5", -1, 0, {error("lan 5 get hw port error\n")}},
        {"wan2", -1, 0, {error("wan 2 get hw port error\n")}},
        {"lan17", -1, 0, {error("lan 17 get hw port error\n")}},
        {"wan-1", -1, 0, {error("wan -1 get hw port error\n")}},
    };
    for (const NameCase &name : cases) {
        uint32_t port = 99;
        EXPECT_EQ(netintf_hwport_get_byname(name.name, &port), name.result) << name.name;
        expect_trace(name.reports);
    }
}

TEST_F(Registry, PortsBehindTheFrontPortsAreNoPorts)
{
    board({{1, 5}, {2, 6}, {1, 255}, {1, 4}});
    for (const char *name : {"lan1", "wan1", "lan3"}) {
        uint32_t port = 99;
        EXPECT_EQ(netintf_hwport_get_byname(name, &port), -1) << name;
        EXPECT_EQ(port, 15U) << name;
    }
    expect_trace({});
}

TEST_F(Registry, ANewRecordIsComplete)
{
    const netintf_entry *entry = netintf_l3intf_init(3, "lan3", intf_type_lan, some_mac, 65535, 65535);
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->state, 2U);
    EXPECT_EQ(entry->hw_port, 3U);
    EXPECT_EQ(entry->intf_type, 1U);
    EXPECT_STREQ(entry->name, "lan3");
    EXPECT_EQ(entry->in_use, 1U);
    EXPECT_EQ(entry->enable, 1U);
    EXPECT_EQ(entry->port_vid, 4093);
    EXPECT_EQ(entry->vlanid1, 65535);
    EXPECT_EQ(entry->vlanid2, 65535);
    EXPECT_TRUE(std::equal(std::begin(some_mac), std::end(some_mac), entry->mac));
    EXPECT_EQ(entry->ipaddr | entry->netmask | entry->gateway, 0U);
    EXPECT_EQ(entry->reserved[0] | entry->reserved[1], 0U);
    EXPECT_EQ(entry->rx_bytes | entry->rx_bytes_prev | entry->rx_rate, 0U);
    EXPECT_EQ(entry->tx_bytes | entry->tx_bytes_prev | entry->tx_rate, 0U);
    EXPECT_EQ(entry->proto, proto_none);
    EXPECT_EQ(entry->defrt_pri, 0);
    EXPECT_EQ(entry->link, 0U);

    const netintf_entry *tagged = netintf_l3intf_init(3, "wan1", intf_type_wan, some_mac, 100, 200);
    EXPECT_EQ(tagged->port_vid, -1);
    EXPECT_EQ(tagged->vlanid1, 100);
    EXPECT_EQ(tagged->vlanid2, 200);
    EXPECT_EQ(tagged->intf_type, 2U);
    EXPECT_EQ(netintf_l3intf_init(0, "wan1", intf_type_wan, some_mac, 65535, 7)->port_vid, 4090);
    expect_quiet_trace({});
}

TEST_F(Registry, NamesAreCutAt31Characters)
{
    for (const size_t length : {30U, 31U, 32U, 33U, 1000U}) {
        const std::string name = "lan2" + std::string(length - 4, 'x');
        const netintf_entry *entry =
            netintf_l3intf_init(2, name.c_str(), intf_type_lan, some_mac, vlan_none, vlan_none);
        EXPECT_EQ(entry->name, name.substr(0, 31));
    }
}

// A cut name cannot be found by what it was cut from.
TEST_F(Registry, LookupComparesWholeNames)
{
    const std::string full = "lan2" + std::string(28, 'x');
    const netintf_entry *entry =
        netintf_l3intf_init(2, full.c_str(), intf_type_lan, some_mac, vlan_none, vlan_none);
    EXPECT_EQ(netintf_entry_find_byname(full.c_str()), nullptr);
    EXPECT_EQ(netintf_entry_find_byname(full.substr(0, 31).c_str()), entry);
    EXPECT_EQ(netintf_entry_find_byname(full.substr(0, 30).c_str()), nullptr);
    EXPECT_EQ(netintf_entry_find_byname((full + "y").c_str()), nullptr);
    EXPECT_EQ(netintf_entry_find_byname("lan2"), nullptr);
}

TEST_F(Registry, WithoutMemoryTheListStaysAsItIs)
{
    lan("lan2");
    world.calloc_failing = 1;
    EXPECT_EQ(netintf_l3intf_init(2, "lan2.7", intf_type_lan, some_mac, 7, vlan_none), nullptr);
    EXPECT_EQ(names_on(2), std::vector<std::string>{"lan2"});
}

TEST_F(Registry, RecordsKeepTheOrderOfTheirCreation)
{
    netintf_entry *first = lan("lan2.b");
    lan("lan2.a");
    lan("lan2.c");
    EXPECT_EQ(names_on(2), (std::vector<std::string>{"lan2.b", "lan2.a", "lan2.c"}));
    EXPECT_EQ(netintf_entry_free(first), 0);
    EXPECT_EQ(names_on(2), (std::vector<std::string>{"lan2.a", "lan2.c"}));
    EXPECT_EQ(netintf_entry_find_byname("lan2.b"), nullptr);
    EXPECT_NE(netintf_entry_find_byname("lan2.a"), nullptr);
    EXPECT_EQ(netintf_entry_free(netintf_entry_find_byname("lan2.c")), 0);
    EXPECT_EQ(netintf_entry_free(netintf_entry_find_byname("lan2.a")), 0);
    EXPECT_EQ(netintf_port_head_get(2)->next, netintf_port_head_get(2));
    EXPECT_EQ(netintf_port_head_get(2)->prev, netintf_port_head_get(2));
}

TEST_F(Registry, OfTwoRecordsOfOneNameTheOlderIsFound)
{
    netintf_entry *older = lan("lan2");
    netintf_entry *newer = lan("lan2");
    EXPECT_EQ(netintf_entry_find_byname("lan2"), older);
    EXPECT_EQ(netintf_entry_free(older), 0);
    EXPECT_EQ(netintf_entry_find_byname("lan2"), newer);
}

TEST_F(Registry, LansAndWansOfAPortShareItsList)
{
    board({{3, 2}});
    netintf_entry *on_lan = lan("lan1");
    netintf_entry *on_wan = wan("wan1");
    EXPECT_EQ(names_on(2), (std::vector<std::string>{"lan1", "wan1"}));
    EXPECT_EQ(netintf_entry_find_byname("lan1"), on_lan);
    EXPECT_EQ(netintf_entry_find_byname("wan1"), on_wan);
}

TEST_F(Registry, LookupsThatFindNothing)
{
    EXPECT_EQ(netintf_entry_find_byname("lan2"), nullptr);
    EXPECT_EQ(netintf_entry_find_byname("guest"), nullptr);
    expect_trace({});
    EXPECT_EQ(netintf_entry_find_byname("lan9"), nullptr);
    expect_trace({error("lan 9 get hw port error\n")});
    netintf_entry *entry = lan("lan2");
    EXPECT_EQ(netintf_entry_find_byname("lan2.1"), nullptr);
    // A broken list ends where it breaks.
    entry->next = nullptr;
    EXPECT_EQ(netintf_entry_find_byname("lan2.1"), nullptr);
    EXPECT_EQ(netintf_entry_find_byname("lan2"), entry);
    entry->next = netintf_port_head_get(2);
}

// Some records share a name, and some of the names are of no record.
TEST_F(Registry, AFinderFindsWhatALookupFindsInAnyOrder)
{
    for (const char *name : {"lan2", "lan3", "lan2.a", "lan2", "lan3.a", "lan2.b", "lan2.a", "lan2.c"}) {
        lan(name);
    }
    std::vector<std::string> names = {"guest", "lan2", "lan2.a", "lan2.b", "lan2.c", "lan2.d", "lan3.a"};
    do {
        netintf_finder finder;
        for (const std::string &name : names) {
            ASSERT_EQ(finder.find(name.c_str()), netintf_entry_find_byname(name.c_str())) << name;
        }
    } while (std::next_permutation(names.begin(), names.end()));
    expect_trace({});
}

TEST_F(Registry, AFinderEndsWhereAListEnds)
{
    netintf_entry *entry = lan("lan2");
    netintf_finder finder;
    EXPECT_EQ(finder.find("lan2"), entry);
    EXPECT_EQ(finder.find(""), nullptr);
    EXPECT_EQ(finder.find("lan2.1"), nullptr);
    EXPECT_EQ(finder.find(nullptr), nullptr);
    expect_trace({});
    EXPECT_EQ(finder.find("lan9"), nullptr);
    expect_trace({error("lan 9 get hw port error\n")});
    lan("lan2.1");
    entry->next = nullptr;
    netintf_finder broken;
    EXPECT_EQ(broken.find("lan2"), entry);
    EXPECT_EQ(broken.find("lan2.1"), nullptr);
    entry->next = netintf_port_head_get(2)->prev;
}

TEST_F(Registry, LinkOfAPort)
{
    link_set(2, 1);
    link_set(1, 0);
    const std::pair<const char *, uint32_t> links[] = {
        {"lan1", 1}, {"lan1.5", 1}, {"lan2", 1}, {"lan3", 0}, {"wan1", 0}};
    for (const auto &[name, wanted] : links) {
        uint32_t link = 99;
        EXPECT_EQ(netintf_link_get_byname(name, &link), 0) << name;
        EXPECT_EQ(link, wanted) << name;
    }
    link_set(2, 0);
    link_set(1, 1);
    uint32_t link = 99;
    EXPECT_EQ(netintf_link_get_byname("lan2", &link), 0);
    EXPECT_EQ(link, 0U);
    EXPECT_EQ(netintf_link_get_byname("lan1", &link), 0);
    EXPECT_EQ(link, 1U);
    expect_trace({});
}

TEST_F(Registry, AWanOnTheFirstLansPortIsLinkedToo)
{
    board({{3, 2}, {2, 0}});
    uint32_t link = 99;
    EXPECT_EQ(netintf_link_get_byname("wan2", &link), 0);
    EXPECT_EQ(link, 1U);
    EXPECT_EQ(netintf_link_get_byname("wan1", &link), 0);
    EXPECT_EQ(link, 0U);
}

TEST_F(Registry, LinkQueriesThatFailLeaveTheResultAlone)
{
    uint32_t link = 99;
    EXPECT_EQ(netintf_link_get_byname("guest", &link), -1);
    expect_trace({});
    EXPECT_EQ(netintf_link_get_byname("lan9", &link), -1);
    expect_trace({error("lan 9 get hw port error\n")});
    board({{2, 3}, {1, 2}});
    EXPECT_EQ(netintf_link_get_byname("wan1", &link), -1);
    expect_trace({error("lan 1 get hw port error\n")});
    EXPECT_EQ(link, 99U);
}

TEST_F(Registry, OnlyLansAndWansCanBeFreed)
{
    netintf_entry *head = netintf_port_head_get(2);
    EXPECT_EQ(netintf_entry_free(head), -1);
    netintf_entry *entry = lan("lan2");
    entry->intf_type = 3;
    EXPECT_EQ(netintf_entry_free(entry), -1);
    EXPECT_EQ(names_on(2), std::vector<std::string>{"lan2"});
    entry->intf_type = intf_type_wan;
    EXPECT_EQ(netintf_entry_free(entry), 0);
    EXPECT_EQ(names_on(2), std::vector<std::string>{});
    expect_trace({});
}

} // namespace
} // namespace unit
