// What the daemon's records hold beyond what a request or a call shows: fields that nothing reads yet, the
// order and links of the lists, counters, and texts that are cut where they are kept.

#include <algorithm>
#include <cstdlib>
#include <gtest/gtest.h>
#include <malloc.h>
#include <string>
#include <utility>
#include <vector>

// After the standard library, names of which the bus library's headers define as macros.
#include "netintf/proto.h"
#include "netintf/registry.h"
#include "netintf/vlan_intf.h"
#include "route/table.h"
#include "trace.h"

namespace {

constexpr uint8_t some_mac[6] = {2, 0x11, 0x22, 0x33, 0x44, 0x55};

class Registry : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(netintf_registry_init(), 0); }
    void TearDown() override
    {
        for (uint32_t port = 0; port < netintf_port_count; port++) {
            netintf_entry *head = netintf_port_head_get(port);
            while (head->next != head) {
                ASSERT_EQ(netintf_entry_free(head->next), 0);
            }
        }
        std::free(netintf_registry);
        netintf_registry = nullptr;
    }
    static netintf_entry *add(uint32_t port, const char *name, uint16_t vlanid1 = vlan_none,
                              uint16_t vlanid2 = vlan_none)
    {
        return netintf_l3intf_init(port, name, intf_type_lan, some_mac, vlanid1, vlanid2);
    }
    // Names on a port's list, in order; each record is the one before its next.
    static std::vector<std::string> names_on(uint32_t port)
    {
        std::vector<std::string> names;
        const netintf_entry *head = netintf_port_head_get(port);
        for (const netintf_entry *entry = head->next; entry != head; entry = entry->next) {
            names.emplace_back(entry->name);
            EXPECT_EQ(entry->next->prev, entry);
        }
        EXPECT_EQ(head->next->prev, head);
        return names;
    }
};

TEST_F(Registry, HeadsAreEmptyAndDown)
{
    for (uint32_t port = 0; port < netintf_port_count; port++) {
        const netintf_entry *head = netintf_port_head_get(port);
        EXPECT_EQ(head->state, 2U);
        EXPECT_EQ(head->hw_port, 0U);
        EXPECT_EQ(head->intf_type, 0U);
        EXPECT_EQ(head->port_vid, 4090);
        EXPECT_EQ(head->in_use, 1U);
        EXPECT_EQ(head->link, 0U);
        EXPECT_STREQ(head->name, "");
        EXPECT_EQ(names_on(port), std::vector<std::string>{});
    }
    EXPECT_EQ(netintf_port_head_get(netintf_port_count), nullptr);
    EXPECT_EQ(netintf_port_head_get(0xffffffff), nullptr);
}

TEST_F(Registry, ANewRecordIsComplete)
{
    const netintf_entry *entry = add(3, "lan3");
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
}

TEST_F(Registry, ARecordOnAVlanHasNoPortVlan)
{
    const netintf_entry *tagged = add(3, "lan3.100", 100, 200);
    EXPECT_EQ(tagged->port_vid, -1);
    EXPECT_EQ(tagged->vlanid1, 100);
    EXPECT_EQ(tagged->vlanid2, 200);
    // An inner VLAN alone is none.
    EXPECT_EQ(add(0, "lan9", vlan_none, 7)->port_vid, 4090);
}

TEST_F(Registry, RecordsKeepTheOrderOfTheirCreation)
{
    netintf_entry *first = add(2, "b");
    netintf_entry *second = add(2, "a");
    netintf_entry *third = add(2, "c");
    EXPECT_EQ(names_on(2), (std::vector<std::string>{"b", "a", "c"}));
    EXPECT_EQ(netintf_entry_free(second), 0);
    EXPECT_EQ(names_on(2), (std::vector<std::string>{"b", "c"}));
    EXPECT_EQ(netintf_entry_free(third), 0);
    EXPECT_EQ(netintf_entry_free(first), 0);
    EXPECT_EQ(names_on(2), std::vector<std::string>{});
}

TEST_F(Registry, ALoopOverAPortMayFreeWhatItStandsOn)
{
    add(2, "a");
    add(2, "b");
    std::vector<std::string> seen;
    netintf_port_entries entries(netintf_port_head_get(2));
    for (netintf_entry *entry : entries) {
        seen.emplace_back(entry->name);
        EXPECT_EQ(netintf_entry_free(entry), 0);
    }
    EXPECT_EQ(seen, (std::vector<std::string>{"a", "b"}));
    EXPECT_FALSE(entries.broken());
    EXPECT_EQ(names_on(2), std::vector<std::string>{});
}

TEST_F(Registry, ALoopOverABrokenListEndsAndSaysSo)
{
    netintf_entry *head = netintf_port_head_get(2);
    netintf_entry *first = add(2, "a");
    netintf_entry *second = add(2, "b");
    const std::pair<netintf_entry **, size_t> breaks[] = {
        {&second->next, 2}, {&first->next, 1}, {&head->next, 0}};
    for (const auto &[link, length] : breaks) {
        netintf_entry *whole = *link;
        *link = nullptr;
        netintf_port_entries entries(head);
        size_t seen = 0;
        for (const netintf_entry *entry : entries) {
            EXPECT_NE(entry, nullptr);
            seen++;
        }
        EXPECT_EQ(seen, length);
        EXPECT_TRUE(entries.broken());
        *link = whole;
    }
    EXPECT_TRUE(netintf_port_entries(nullptr).broken());
    uint32_t users = 7;
    EXPECT_EQ(netintf_vlan_users_count(intf_type_lan, 100, vlan_none, &users), 0);
    first->next = nullptr;
    EXPECT_EQ(netintf_vlan_users_count(intf_type_lan, 100, vlan_none, &users), -1);
    first->next = second;
}

TEST_F(Registry, OnlyLansAndWansCanBeFreed)
{
    netintf_entry *entry = add(2, "lan2");
    entry->intf_type = 3;
    EXPECT_EQ(netintf_entry_free(entry), -1);
    EXPECT_EQ(names_on(2), std::vector<std::string>{"lan2"});
    entry->intf_type = intf_type_wan;
    EXPECT_EQ(netintf_entry_free(entry), 0);
    EXPECT_EQ(names_on(2), std::vector<std::string>{});
}

TEST_F(Registry, NamesAreCutAt31Characters)
{
    for (const size_t length : {30U, 31U, 32U, 33U, 1000U}) {
        const std::string name(length, 'x');
        EXPECT_EQ(add(2, name.c_str())->name, name.substr(0, 31));
    }
}

TEST(Routes, TheCounterCountsCreations)
{
    const route_cfg_texts route = {"a", "wan1", "20.0.0.0", "255.0.0.0", "10.0.0.1", "5"};
    const uint32_t before = route_cfg_list_get().route_cfg_count;
    EXPECT_EQ(route_cfg_entry_new(0, route), 0);
    EXPECT_EQ(route_cfg_entry_new(0, route), 0);
    EXPECT_EQ(route_cfg_entry_del("a"), 0);
    EXPECT_EQ(route_cfg_entry_del("a"), 0);
    EXPECT_EQ(route_cfg_entry_del("a"), -1);
    EXPECT_EQ(route_cfg_list_get().route_cfg_count, before + 2);
}

TEST(Routes, ALoadBeginsWithNone)
{
    const route_cfg_texts route = {"old", "wan1", "20.0.0.0", "255.0.0.0", "10.0.0.1", "5"};
    ASSERT_EQ(route_cfg_entry_new(0, route), 0);
    route_cfg_entry *old = route_cfg_entry_find("old");
    route_cfg_init();
    EXPECT_EQ(route_cfg_list_get().route_cfg_count, 0U);
    EXPECT_EQ(route_cfg_entry_find("old"), nullptr);
    std::free(old);
}

TEST(Routes, DeletedOnesGiveTheirMemoryBack)
{
    const route_cfg_texts route = {"a", "wan1", "20.0.0.0", "255.0.0.0", "10.0.0.1", "5"};
    const auto held_after = [&route](int rounds) {
        while (rounds-- > 0) {
            EXPECT_EQ(route_cfg_entry_new(0, route), 0);
            EXPECT_EQ(route_cfg_entry_del("a"), 0);
            seam::trace_take();
        }
        return mallinfo2().uordblks;
    };
    const size_t before = held_after(10);
    EXPECT_LT(held_after(1000), before + 1000);
}

TEST(Routes, FieldsAreCutAt31Characters)
{
    const std::string text(40, 't');
    const char *given = text.c_str();
    ASSERT_EQ(route_cfg_entry_new(7, {"long", given, given, given, given, "-3x"}), 0);
    const route_cfg_entry *entry = route_cfg_entry_find("long");
    ASSERT_NE(entry, nullptr);
    EXPECT_EQ(entry->line, text.substr(0, 31));
    EXPECT_EQ(entry->dstaddr, text.substr(0, 31));
    EXPECT_EQ(entry->netmask, text.substr(0, 31));
    EXPECT_EQ(entry->gateway, text.substr(0, 31));
    EXPECT_EQ(entry->metric, -3);
    EXPECT_EQ(entry->enable, 7U);
    // What is not given empties its field.
    ASSERT_EQ(route_cfg_entry_edit({"long", nullptr, nullptr, nullptr, nullptr, nullptr}), 0);
    EXPECT_STREQ(entry->line, "");
    EXPECT_STREQ(entry->dstaddr, "");
    EXPECT_STREQ(entry->netmask, "");
    EXPECT_STREQ(entry->gateway, "");
    EXPECT_EQ(entry->metric, 0);
    EXPECT_EQ(route_cfg_entry_del("long"), 0);
}

TEST(Protocols, NumbersHaveNamesThatFitTheirPlace)
{
    char text[8] = "xxxxxxx";
    EXPECT_EQ(netintf_proto_enumtostr(proto_static, text, 3), 0);
    EXPECT_STREQ(text, "staxxxx");
    for (const uint32_t unknown : {0U, 4U, 0xffffffffU}) {
        EXPECT_EQ(netintf_proto_enumtostr(static_cast<netintf_proto>(unknown), text, sizeof(text)), -17);
        EXPECT_STREQ(text, "staxxxx");
    }
}

TEST(Protocols, AnUnknownTextLeavesTheProtocol)
{
    netintf_proto proto = proto_pppoe;
    EXPECT_EQ(netintf_proto_strtoenum("stat", &proto), -17);
    EXPECT_EQ(proto, proto_pppoe);
}

} // namespace
