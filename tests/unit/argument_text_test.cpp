// Texts that are well formed as arguments and odd as names: long, empty, with signs that formats, shells and
// SQL know. They go through unchanged, are cut where a field ends, and upset nothing.

#include "daemon_test.h"
#include "route/table.h"

namespace unit {
namespace {

using ArgumentText = DaemonTest;

std::vector<std::string> odd_texts()
{
    return {"",
            " ",
            "lan",
            "wan",
            "lan0",
            "LAN2",
            "%s%s%n%d",
            "a'b\"c`d$(e);f|g&h",
            "line\nbreak\r\ttab",
            "\xff\xfe\xc3\x28",
            "\x01\x7f",
            std::string(31, 'x'),
            std::string(32, 'x'),
            std::string(33, 'x'),
            std::string(1000, 'x'),
            "lan" + std::string(997, '9')};
}

TEST_F(ArgumentText, PortNamesThatResolveToNothing)
{
    for (const std::string &text : odd_texts()) {
        if (text.starts_with("lan") || text.starts_with("wan")) {
            continue;
        }
        expect_call("ivarode.intf", "port_add", Message().text("name", text), 1,
                    {info("netintf_ubus_port_add 3084 port_name=" + text + "\n"),
                     error("netintf_ubus_port_add 3090 port_name=" + text + "\n")});
        expect_call("ivarode.intf", "port_del", Message().text("name", text), 1, {});
    }
}

TEST_F(ArgumentText, PortNamesOfAPortTheBoardLacks)
{
    const std::pair<const char *, const char *> cases[] = {{"lan", "0"},    {"lan0", "0"}, {"lan9", "9"},
                                                           {"lan10", "10"}, {"lanx", "0"}, {"lan ", "0"}};
    for (const auto &[text, number] : cases) {
        const std::string missing = number;
        expect_call("ivarode.intf", "port_add", Message().text("name", text), 1,
                    {info(std::string{"netintf_ubus_port_add 3084 port_name="} + text + "\n"),
                     error("lan " + missing + " get hw port error\n"),
                     error(std::string{"netintf_ubus_port_add 3090 port_name="} + text + "\n")});
        expect_call("ivarode.intf", "port_del", Message().text("name", text), 1,
                    {error("lan " + missing + " get hw port error\n")});
    }
}

// A name is resolved before its length is looked at.
TEST_F(ArgumentText, PortNamesOfAnotherLengthThanFour)
{
    board({{1, 1}, {1, 2}, {1, 3}, {1, 4}, {0, 0}, {0, 0}, {0, 0}, {0, 0}, {0, 0}, {1, 0}});
    for (const std::string &text :
         std::vector<std::string>{"lan02", "lan2x", "lan2.1", "lan10", "lan 2", "lan2\n", "lan2%n",
                                  "lan2" + std::string(27, 'x'), "lan2" + std::string(996, 'x')}) {
        expect_call(
            "ivarode.intf", "port_add", Message().text("name", text), 1,
            {info("netintf_ubus_port_add 3084 port_name=" + text + "\n"), error("intf_name is error\n")});
        expect_call("ivarode.intf", "port_del", Message().text("name", text), 1,
                    {error("intf_name is error\n")});
    }
}

TEST_F(ArgumentText, InterfaceNames)
{
    for (const std::string &text : odd_texts()) {
        if (text.starts_with("lan") || text.starts_with("wan")) {
            continue;
        }
        expect_call("ivarode.intf", "add", Message().text("intf", text), 1, {error("intf_name is error\n")});
        expect_call("ivarode.intf", "del", Message().texts("intf", {text}), 2,
                    {"ubuslib_bmsg_strlist_get(list, 100)"});
        expect_call("ivarode.intf", "enable", Message().texts("intf", {text}).number("enable", 1), 0,
                    {"ubuslib_bmsg_strlist_get(list, 16)", error("port link get error\r\n")});
        expect_call("ivarode.intf", "config", Message().text("intf", text).text("old_intf", text), 9,
                    {error("net config get intf byname error\n")});
    }
}

TEST_F(ArgumentText, NamesOfInterfacesThatDoNotExist)
{
    for (const std::string &tail :
         std::vector<std::string>{"", ".100", "%s%n", "'\"; x", "\xff\n", std::string(27, 'x'),
                                  std::string(28, 'x'), std::string(29, 'x'), std::string(996, 'x')}) {
        const std::string text = "lan2" + tail;
        expect_call("ivarode.intf", "del", Message().texts("intf", {text}), 1,
                    {"ubuslib_bmsg_strlist_get(list, 100)", info("lan del err,intf=" + text + "\r\n")});
        expect_call("ivarode.intf", "enable", Message().texts("intf", {text}).number("enable", 1), 2,
                    {"ubuslib_bmsg_strlist_get(list, 16)",
                     error("vlan enalbe get intf name error,intf=" + text + "\n")});
    }
}

// A name that was cut is reached by what is left of it, and by that alone.
TEST_F(ArgumentText, CutInterfaceNames)
{
    for (const size_t length : {31U, 32U, 33U, 1000U}) {
        board({{1, 1}, {1, 2}});
        const std::string name = "lan2" + std::string(length - 4, 'x');
        EXPECT_EQ(call("ivarode.intf", "add",
                       Message().text("intf", name).text("ipaddr", "1.2.3.4").text("netmask", "255.0.0.0")),
                  0);
        EXPECT_EQ(names_on(2), std::vector<std::string>{name.substr(0, 31)});
        EXPECT_EQ(call("ivarode.intf", "del", Message().texts("intf", {name})), length > 31 ? 1 : 0);
        if (length > 31) {
            EXPECT_EQ(call("ivarode.intf", "del", Message().texts("intf", {name.substr(0, 31)})), 0);
        }
        EXPECT_EQ(names_on(2), std::vector<std::string>{});
    }
}

TEST_F(ArgumentText, AddressesGoThroughAsTheyAre)
{
    for (const std::string &text : odd_texts()) {
        board({{1, 1}, {1, 2}});
        EXPECT_EQ(call("ivarode.intf", "add",
                       Message().text("intf", "lan2").text("ipaddr", text).text("netmask", text)),
                  0);
        const std::vector<std::string> trace = trace_take();
        EXPECT_EQ(std::count(trace.begin(), trace.end(), "netlib_intf_set_ip('lan2', " + quote(text) + ")"),
                  1);
        EXPECT_EQ(
            std::count(trace.begin(), trace.end(), "netlib_intf_set_netmask('lan2', " + quote(text) + ")"),
            1);
    }
}

TEST_F(ArgumentText, RouteFields)
{
    for (const std::string &text : odd_texts()) {
        Message message;
        for (const char *field : {"name", "line", "dstaddr", "netmask", "gateway", "metric"}) {
            message.text(field, text);
        }
        const std::string cut = quote(text.substr(0, 31));
        expect_call("ivarode.route", "add", message, 0,
                    {info("cfg_name=" + text + " line=" + text + " dstaddr=" + text + " netmask=" + text +
                          " gateway=" + text + " metric=" + text + " enable=1\n"),
                     "netlib_rt_add_gw(10000, " + cut + ", " + cut + ", " + cut + ", " + cut + ", 0)",
                     info("route entry add ok\n")});
        const std::string key = text.substr(0, 31);
        EXPECT_NE(route_cfg_entry_find(key.c_str()), nullptr);
        EXPECT_EQ(route_cfg_entry_find(text.c_str()) != nullptr, text.size() <= 31);
        EXPECT_EQ(call("ivarode.route", "del", Message().texts("name", {key})), 0);
        skip_trace();
    }
}

TEST_F(ArgumentText, AccountsGoThroughAsTheyAre)
{
    for (const std::string &text : odd_texts()) {
        const std::string quoted_text = quote(text);
        expect_call("ivarode.pppuser", "add",
                    Message()
                        .text("username", text)
                        .text("provider", text)
                        .text("password", text)
                        .text("ipaddr", text),
                    0,
                    {"cslib_entry_add(" + quoted_text + ", " + quoted_text + ", " + quoted_text + ", " +
                     quoted_text + ")"});
        expect_call("ivarode.pppuser", "del", Message().text("username", text).text("provider", text), 0,
                    {"cslib_entry_del(" + quoted_text + ", " + quoted_text + ")"});
    }
}

} // namespace
} // namespace unit
