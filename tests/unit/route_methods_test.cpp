// Bus methods of static routes.

#include "daemon_test.h"
#include "route/table.h"

namespace unit {
namespace {

class RouteMethods : public DaemonTest {
protected:
    void on_list(const char *method, const Message &message, int status, const std::vector<Lines> &expected)
    {
        std::vector<Lines> lines{"ubuslib_bmsg_strlist_get(list, 16)"};
        lines.insert(lines.end(), expected.begin(), expected.end());
        expect_call("ivarode.route", method, message, status, lines);
    }
    static Message route(const std::string &name)
    {
        return Message()
            .text("name", name)
            .text("line", "wan1")
            .text("dstaddr", "20.0.0.0")
            .text("netmask", "255.0.0.0")
            .text("gateway", "10.0.0.1");
    }
    static void add(const std::string &name)
    {
        EXPECT_EQ(call("ivarode.route", "add", route(name)), 0);
        skip_trace();
    }
};

std::string kernel(const char *what, int metric = 0)
{
    return std::string{"netlib_rt_"} + what + "_gw(10000, '20.0.0.0', '255.0.0.0', '10.0.0.1', 'wan1', " +
           std::to_string(metric) + ")";
}

const Lines withdrawn = kernel("del");

TEST_F(RouteMethods, AddNeedsNoMetric)
{
    expect_call(
        "ivarode.route", "add", route("a"), 0,
        {info("cfg_name=a line=wan1 dstaddr=20.0.0.0 netmask=255.0.0.0 gateway=10.0.0.1 metric=(null) "
              "enable=1\n"),
         kernel("add"), info("route entry add ok\n")});
    EXPECT_EQ(route_cfg_entry_find("a")->metric, 0);
    expect_call(
        "ivarode.route", "add", route("b").text("metric", "-7"), 0,
        {info(
             "cfg_name=b line=wan1 dstaddr=20.0.0.0 netmask=255.0.0.0 gateway=10.0.0.1 metric=-7 enable=1\n"),
         kernel("add", -7), info("route entry add ok\n")});
}

TEST_F(RouteMethods, AddTakesWhatTheKernelRefuses)
{
    fail("netlib_rt_add_gw(");
    EXPECT_EQ(call("ivarode.route", "add", route("a")), 0);
    EXPECT_NE(route_cfg_entry_find("a"), nullptr);
}

TEST_F(RouteMethods, AddWithoutMemory)
{
    world.calloc_failing = 1;
    expect_call(
        "ivarode.route", "add", route("a"), 2,
        {info("cfg_name=a line=wan1 dstaddr=20.0.0.0 netmask=255.0.0.0 gateway=10.0.0.1 metric=(null) "
              "enable=1\n"),
         error("route entry new failed,rv=-12\n")});
}

TEST_F(RouteMethods, EditRewrites)
{
    add("a");
    expect_call("ivarode.route", "edit",
                Message()
                    .text("name", "a")
                    .text("line", "auto")
                    .text("dstaddr", "30.0.0.0")
                    .text("netmask", "255.255.0.0")
                    .text("gateway", "11.0.0.1")
                    .text("metric", "4"),
                0,
                {withdrawn, "netlib_rt_add_gw(10000, '30.0.0.0', '255.255.0.0', '11.0.0.1', null, 4)",
                 info("route entry edit ok, name=a\n")});
}

TEST_F(RouteMethods, DelStopsAtTheFirstUnknownName)
{
    add("a");
    add("b");
    on_list(
        "del", Message().texts("name", {"a", "x", "b"}), 2,
        {withdrawn, info("route entry del ok, name=a\n"), error("route entry del failed,name=x,rv=-1\n")});
    EXPECT_EQ(route_cfg_entry_find("a"), nullptr);
    EXPECT_NE(route_cfg_entry_find("b"), nullptr);
    on_list("del", Message().texts("name", {}), 0, {});
    on_list("del", Message().texts("name", {"b"}), 0, {withdrawn, info("route entry del ok, name=b\n")});
}

TEST_F(RouteMethods, EnableStopsAtTheFirstUnknownName)
{
    add("a");
    add("b");
    on_list("enable", Message().texts("name", {"a", "x", "b"}).number("enable", 0), 2,
            {info("route set enable OK!enable:0\n"), withdrawn,
             error("route_cfg_entry_enable 356 entry find failed\n"),
             error("route set enable error,name=x enable=0\n")});
    EXPECT_EQ(route_cfg_entry_find("a")->enable, 0U);
    EXPECT_EQ(route_cfg_entry_find("b")->enable, 1U);
    on_list("enable", Message().texts("name", {"b", "a"}).number("enable", 1), 0,
            {info("route set enable OK!enable:1\n"), kernel("add"), info("route set enable OK!enable:1\n"),
             kernel("add")});
    on_list("enable", Message().texts("name", {"a"}).number("enable", 0x80000000), 0,
            {info("route set enable OK!enable:-2147483648\n"), withdrawn});
    EXPECT_EQ(route_cfg_entry_find("a")->enable, 0x80000000U);
    on_list("enable", Message().texts("name", {}).number("enable", 1), 0, {});
}

TEST_F(RouteMethods, AtMostSixteenNames)
{
    for (const size_t count : {1U, 16U, 17U, 100U, 101U}) {
        std::vector<std::string> names;
        for (size_t i = 0; i < count; i++) {
            names.push_back("r" + std::to_string(i));
            add(names.back());
        }
        EXPECT_EQ(call("ivarode.route", "enable", Message().texts("name", names).number("enable", 0)), 0);
        EXPECT_EQ(call("ivarode.route", "del", Message().texts("name", names)), 0);
        for (size_t i = 0; i < count; i++) {
            const route_cfg_entry *entry = route_cfg_entry_find(names[i].c_str());
            EXPECT_EQ(entry == nullptr, i < 16) << i << " of " << count;
            if (entry != nullptr) {
                EXPECT_EQ(entry->enable, 1U);
                EXPECT_EQ(route_cfg_entry_del(names[i].c_str()), 0);
            }
        }
    }
}

} // namespace
} // namespace unit
