// The table of static routes, its loading from configuration, and new addresses.

#include "daemon_test.h"
#include "route/address_event.h"
#include "route/table.h"
#include "route/uci_load.h"

#include <cstddef>

namespace unit {
namespace {

class RouteTable : public DaemonTest {
protected:
    static void add(const char *name, uint32_t enable = 1, const char *gateway = "10.0.0.1",
                    const char *netmask = "255.255.255.0")
    {
        EXPECT_EQ(route_cfg_entry_new(enable, {name, "wan1", "20.0.0.0", netmask, gateway, "5"}), 0);
        skip_trace();
    }
    static std::vector<std::string> names()
    {
        std::vector<std::string> out;
        const list_head *head = &route_cfg_list_get().head;
        for (const list_head *links = head->next; links != head; links = links->next) {
            const auto *base = reinterpret_cast<const char *>(links) - offsetof(route_cfg_entry, links);
            out.emplace_back(reinterpret_cast<const route_cfg_entry *>(base)->name);
        }
        return out;
    }
};

TEST_F(RouteTable, TheRuleIsReplacedAndNeverFails)
{
    const std::vector<Lines> lines = {"netlib_ip_rule_del(10000)",
                                      "netlib_ip_rule_add(10000, 'lookup 10000')"};
    EXPECT_EQ(route_cfg_rule_init(), 0);
    expect_trace(lines);
    fail("netlib_ip_rule_");
    EXPECT_EQ(route_cfg_rule_init(), 0);
    expect_trace(lines);
}

struct Device {
    const char *line;
    const char *device;
};

TEST_F(RouteTable, LinesThatBeginWithAutoAreNoDevice)
{
    const Device cases[] = {{nullptr, "null"},  {"auto", "null"},     {"automatic", "null"},
                            {"auto1", "null"},  {"", "''"},           {"aut", "'aut'"},
                            {"Auto", "'Auto'"}, {" auto", "' auto'"}, {"wan1", "'wan1'"}};
    for (const Device &device : cases) {
        const std::string arguments =
            std::string{"(10000, '1.0.0.0', '255.0.0.0', '2.0.0.1', "} + device.device + ", 7)";
        EXPECT_EQ(route_cfg_entry_rt_add(device.line, "1.0.0.0", "255.0.0.0", "2.0.0.1", 7), 0);
        EXPECT_EQ(route_cfg_entry_rt_del(device.line, "1.0.0.0", "255.0.0.0", "2.0.0.1", 7), 0);
        expect_trace({"netlib_rt_add_gw" + arguments, "netlib_rt_del_gw" + arguments});
    }
    fail("netlib_rt_");
    EXPECT_EQ(route_cfg_entry_rt_add("wan1", "a", "b", "c", 7), -21);
    EXPECT_EQ(route_cfg_entry_rt_del("wan1", "a", "b", "c", 7), -21);
    // No address at all goes through as it is.
    answers_forget();
    skip_trace();
    EXPECT_EQ(route_cfg_entry_rt_add("wan1", nullptr, nullptr, nullptr, 0), 0);
    expect_trace({"netlib_rt_add_gw(10000, null, null, null, 'wan1', 0)"});
}

TEST_F(RouteTable, ANewRouteIsLoggedKeptAndInstalled)
{
    EXPECT_EQ(route_cfg_entry_new(1, {"a", "wan1", "20.0.0.0", "255.0.0.0", "10.0.0.1", "5x"}), 0);
    expect_trace(
        {info(
             "cfg_name=a line=wan1 dstaddr=20.0.0.0 netmask=255.0.0.0 gateway=10.0.0.1 metric=5x enable=1\n"),
         "netlib_rt_add_gw(10000, '20.0.0.0', '255.0.0.0', '10.0.0.1', 'wan1', 5)"});
    const route_cfg_entry *entry = route_cfg_entry_find("a");
    ASSERT_NE(entry, nullptr);
    EXPECT_STREQ(entry->line, "wan1");
    EXPECT_STREQ(entry->dstaddr, "20.0.0.0");
    EXPECT_STREQ(entry->netmask, "255.0.0.0");
    EXPECT_STREQ(entry->gateway, "10.0.0.1");
    EXPECT_EQ(entry->metric, 5);
    EXPECT_EQ(entry->enable, 1U);
}

TEST_F(RouteTable, ARefusedRouteStays)
{
    fail("netlib_rt_add_gw(");
    EXPECT_EQ(route_cfg_entry_new(1, {"a", "wan1", "20.0.0.0", "255.0.0.0", "10.0.0.1", nullptr}), 0);
    EXPECT_NE(route_cfg_entry_find("a"), nullptr);
}

TEST_F(RouteTable, OnlyEnableOneInstalls)
{
    for (const uint32_t enable : {0U, 2U, 0xffffffffU}) {
        EXPECT_EQ(route_cfg_entry_new(enable, {"a", nullptr, nullptr, nullptr, nullptr, nullptr}), 0);
        expect_trace({info(
            "cfg_name=a line=(null) dstaddr=(null) netmask=(null) gateway=(null) metric=(null) enable=" +
            std::to_string(static_cast<int>(enable)) + "\n")});
        EXPECT_EQ(route_cfg_entry_find("a")->enable, enable);
        EXPECT_STREQ(route_cfg_entry_find("a")->gateway, "");
        EXPECT_EQ(route_cfg_entry_find("a")->metric, 0);
        EXPECT_EQ(route_cfg_entry_del("a"), 0);
        skip_trace();
    }
}

TEST_F(RouteTable, WithoutMemoryOnlyTheLogLineIsLeft)
{
    const uint32_t count = route_cfg_list_get().route_cfg_count;
    world.calloc_failing = 1;
    EXPECT_EQ(route_cfg_entry_new(1, {"a", "b", "c", "d", "e", "f"}), -12);
    expect_trace({info("cfg_name=a line=b dstaddr=c netmask=d gateway=e metric=f enable=1\n")});
    EXPECT_EQ(names(), std::vector<std::string>{});
    EXPECT_EQ(route_cfg_list_get().route_cfg_count, count);
}

TEST_F(RouteTable, OfTwoRoutesOfOneNameTheOlderIsReached)
{
    add("a", 1, "10.0.0.1");
    add("a", 1, "10.0.0.2");
    EXPECT_STREQ(route_cfg_entry_find("a")->gateway, "10.0.0.1");
    EXPECT_EQ(route_cfg_entry_enable("a", 0), 0);
    expect_trace({info("route set enable OK!enable:0\n"),
                  "netlib_rt_del_gw(10000, '20.0.0.0', '255.255.255.0', '10.0.0.1', 'wan1', 5)"});
    EXPECT_EQ(route_cfg_entry_del("a"), 0);
    EXPECT_STREQ(route_cfg_entry_find("a")->gateway, "10.0.0.2");
    EXPECT_EQ(route_cfg_entry_del("a"), 0);
    EXPECT_EQ(route_cfg_entry_del("a"), -1);
}

TEST_F(RouteTable, NamesAreCutAt31CharactersAndComparedAt32)
{
    const std::string name(40, 'n');
    add(name.c_str());
    EXPECT_EQ(names(), std::vector<std::string>{name.substr(0, 31)});
    EXPECT_NE(route_cfg_entry_find(name.substr(0, 31).c_str()), nullptr);
    EXPECT_EQ(route_cfg_entry_find(name.substr(0, 32).c_str()), nullptr);
    EXPECT_EQ(route_cfg_entry_find(name.c_str()), nullptr);
    EXPECT_EQ(route_cfg_entry_find(name.substr(0, 30).c_str()), nullptr);
    EXPECT_EQ(route_cfg_entry_find(""), nullptr);
}

TEST_F(RouteTable, TheCounterCountsCreations)
{
    const uint32_t before = route_cfg_list_get().route_cfg_count;
    add("a");
    add("b");
    add("c");
    EXPECT_EQ(names(), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(route_cfg_entry_del("b"), 0);
    EXPECT_EQ(names(), (std::vector<std::string>{"a", "c"}));
    EXPECT_EQ(route_cfg_entry_del("a"), 0);
    EXPECT_EQ(route_cfg_entry_del("c"), 0);
    EXPECT_EQ(route_cfg_list_get().route_cfg_count, before + 3);
}

TEST_F(RouteTable, DeletingWithdrawsWhateverTheStateAndTheAnswer)
{
    for (const uint32_t enable : {0U, 1U}) {
        add("a", enable);
        fail("netlib_rt_del_gw(");
        EXPECT_EQ(route_cfg_entry_del("a"), 0);
        expect_trace({"netlib_rt_del_gw(10000, '20.0.0.0', '255.255.255.0', '10.0.0.1', 'wan1', 5)"});
        EXPECT_EQ(names(), std::vector<std::string>{});
    }
}

const Lines old_gone = "netlib_rt_del_gw(10000, '20.0.0.0', '255.255.255.0', '10.0.0.1', 'wan1', 5)";

TEST_F(RouteTable, EditingAnEnabledRoute)
{
    add("a");
    fail("netlib_rt_");
    EXPECT_EQ(route_cfg_entry_edit({"a", "auto", "30.0.0.0", "255.0.0.0", "11.0.0.1", "9"}), 0);
    expect_trace({old_gone, "netlib_rt_add_gw(10000, '30.0.0.0', '255.0.0.0', '11.0.0.1', null, 9)"});
    EXPECT_STREQ(route_cfg_entry_find("a")->line, "auto");
}

TEST_F(RouteTable, EditingADisabledRouteLeavesItDisabled)
{
    for (const uint32_t enable : {0U, 2U}) {
        add("a", enable);
        EXPECT_EQ(route_cfg_entry_edit({"a", "auto", "30.0.0.0", "255.0.0.0", "11.0.0.1", "9"}), 0);
        expect_trace({old_gone});
        EXPECT_EQ(route_cfg_entry_find("a")->enable, enable);
        EXPECT_EQ(route_cfg_entry_del("a"), 0);
        skip_trace();
    }
}

TEST_F(RouteTable, TextsThatAreNotGivenEmptyTheirFields)
{
    add("a", 0);
    EXPECT_EQ(route_cfg_entry_edit({"a", nullptr, nullptr, nullptr, nullptr, nullptr}), 0);
    const route_cfg_entry *entry = route_cfg_entry_find("a");
    ASSERT_NE(entry, nullptr);
    EXPECT_STREQ(entry->line, "");
    EXPECT_STREQ(entry->dstaddr, "");
    EXPECT_STREQ(entry->netmask, "");
    EXPECT_STREQ(entry->gateway, "");
    EXPECT_EQ(entry->metric, 0);
}

TEST_F(RouteTable, EditingWhatIsNotThere)
{
    EXPECT_EQ(route_cfg_entry_edit({"a", "b", "c", "d", "e", "f"}), -2);
    expect_trace({error("edit route entry find failed\n")});
}

TEST_F(RouteTable, EnablingInstallsAndAnythingElseWithdraws)
{
    add("a", 0);
    const Lines installed = "netlib_rt_add_gw(10000, '20.0.0.0', '255.255.255.0', '10.0.0.1', 'wan1', 5)";
    fail("netlib_rt_");
    for (const uint32_t enable : {1U, 1U, 0U, 0U, 2U, 1U, 0xffffffffU}) {
        EXPECT_EQ(route_cfg_entry_enable("a", enable), 0);
        expect_trace({info("route set enable OK!enable:" + std::to_string(static_cast<int>(enable)) + "\n"),
                      enable == 1 ? installed : old_gone});
        EXPECT_EQ(route_cfg_entry_find("a")->enable, enable);
    }
    EXPECT_EQ(route_cfg_entry_enable("b", 1), -1);
    expect_trace({error("route_cfg_entry_enable 356 entry find failed\n")});
}

struct Subnet {
    const char *address;
    const char *reached;
};

TEST_F(RouteTable, TheFirstRouteWhoseGatewayAnAddressReaches)
{
    add("host", 1, "10.1.1.1", "255.255.255.255");
    add("small", 0, "10.1.1.5", "255.255.255.0");
    add("large", 1, "10.1.1.9", "255.255.0.0");
    add("other", 1, "11.0.0.1", "255.0.0.0");
    const Subnet cases[] = {{"10.1.1.1", "host"},
                            {"10.1.1.2", "small"},
                            {"10.1.2.2", "large"},
                            {"11.9.9.9", "other"},
                            {"12.0.0.1", nullptr}};
    for (const Subnet &subnet : cases) {
        const route_cfg_entry *entry = route_cfg_entry_find_by_gateway(subnet.address);
        if (subnet.reached == nullptr) {
            EXPECT_EQ(entry, nullptr) << subnet.address;
        } else {
            ASSERT_NE(entry, nullptr) << subnet.address;
            EXPECT_STREQ(entry->name, subnet.reached) << subnet.address;
        }
    }
}

// A netmask that is none masks everything away: any address reaches its gateway.
TEST_F(RouteTable, NetmasksThatAreNone)
{
    add("any", 1, "10.1.1.1", "0.0.0.0");
    EXPECT_NE(route_cfg_entry_find_by_gateway("99.9.9.9"), nullptr);
    EXPECT_EQ(route_cfg_entry_del("any"), 0);
    // What cannot be read as an address is all ones, as mask and as address.
    add("garbage", 1, "nonsense", "nonsense");
    EXPECT_EQ(route_cfg_entry_find_by_gateway("99.9.9.9"), nullptr);
    EXPECT_NE(route_cfg_entry_find_by_gateway("255.255.255.255"), nullptr);
    EXPECT_NE(route_cfg_entry_find_by_gateway("also nonsense"), nullptr);
}

TEST_F(RouteTable, AnAddressInstallsTheFirstRouteAgain)
{
    add("first", 1, "10.1.1.1");
    add("second", 1, "10.1.1.2");
    fail("netlib_rt_add_gw(");
    EXPECT_EQ(route_cfg_entry_gateway_update("10.1.1.77"), 0);
    expect_trace({info("update route item gateway=10.1.1.77\n"),
                  "netlib_rt_add_gw(10000, '20.0.0.0', '255.255.255.0', '10.1.1.1', 'wan1', 5)"});
    EXPECT_EQ(route_cfg_entry_gateway_update("10.9.9.9"), -2);
    expect_trace({info("update route item gateway=10.9.9.9\n")});
    for (const uint32_t enable : {0U, 2U}) {
        route_cfg_entry_find("first")->enable = enable;
        EXPECT_EQ(route_cfg_entry_gateway_update("10.1.1.77"), 0);
        expect_trace({info("update route item gateway=10.1.1.77\n")});
    }
}

TEST_F(RouteTable, AddressEventsAreInHostOrder)
{
    const std::pair<uint32_t, const char *> cases[] = {
        {0x0a010203, "10.1.2.3"}, {0xffffffff, "255.255.255.255"}, {0, "0.0.0.0"}, {0x80000001, "128.0.0.1"}};
    for (const auto &[number, text] : cases) {
        const nl_addr_event event = {3, number};
        EXPECT_EQ(route_addr_event_handler(&event), 0);
        expect_trace({info(std::string{"update route item gateway="} + text + "\n")});
    }
    add("a", 1, "10.1.2.1");
    const nl_addr_event event = {3, 0x0a010203};
    EXPECT_EQ(route_addr_event_handler(&event), 0);
    EXPECT_EQ(trace_take().size(), 2U);
}

const Lines walked = "ucilib_foreach_section('route_config', 'route')";

TEST_F(RouteTable, LoadingFromConfiguration)
{
    world.sections = {{"route_config",
                       "route",
                       "r1",
                       {{"line", "wan1"},
                        {"dstaddr", "20.0.0.0"},
                        {"netmask", "255.0.0.0"},
                        {"gateway", "10.0.0.1"},
                        {"metric", "3"},
                        {"enable", "1"}}},
                      {"route_config", "other", "r2", {}},
                      {"route_config", "route", "r3", {{"gateway", "10.0.0.2"}, {"enable", "2"}}},
                      {"route_config", "route", "r4", {}}};
    EXPECT_EQ(route_cfg_init(), 0);
    expect_trace(
        {walked,
         info(
             "cfg_name=r1 line=wan1 dstaddr=20.0.0.0 netmask=255.0.0.0 gateway=10.0.0.1 metric=3 enable=1\n"),
         "netlib_rt_add_gw(10000, '20.0.0.0', '255.0.0.0', '10.0.0.1', 'wan1', 3)",
         info("cfg_name=r3 line=(null) dstaddr=(null) netmask=(null) gateway=10.0.0.2 metric=(null) "
              "enable=2\n"),
         info("cfg_name=r4 line=(null) dstaddr=(null) netmask=(null) gateway=(null) metric=(null) "
              "enable=0\n")});
    EXPECT_EQ(names(), (std::vector<std::string>{"r1", "r3", "r4"}));
    EXPECT_EQ(route_cfg_list_get().route_cfg_count, 3U);
}

TEST_F(RouteTable, LoadingFails)
{
    world.packages.clear();
    EXPECT_EQ(route_cfg_init(), -1);
    expect_trace({walked});
    EXPECT_EQ(route_cfg_list_get().route_cfg_count, 0U);
    EXPECT_EQ(names(), std::vector<std::string>{});

    world.packages = {"route_config"};
    world.sections = {{"route_config", "route", "r1", {}},
                      {"route_config", "route", "r2", {}},
                      {"route_config", "route", "r3", {}}};
    world.calloc_failing = 2;
    EXPECT_EQ(route_cfg_init(), -1);
    EXPECT_EQ(names(), std::vector<std::string>{"r1"});
    EXPECT_EQ(route_cfg_list_get().route_cfg_count, 1U);
}

} // namespace
} // namespace unit
