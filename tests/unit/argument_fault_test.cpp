// Every method with every argument missing, of another type, or naming nothing: the status, the texts on both
// channels in order, and nothing else touched.

#include "daemon_test.h"

namespace unit {
namespace {

struct Fault {
    std::string what;
    const char *object;
    const char *method;
    Message message;
    int status;
    std::vector<Lines> trace;
};

void PrintTo(const Fault &fault, std::ostream *out)
{
    *out << fault.what;
}

class ArgumentFault : public DaemonTest, public testing::WithParamInterface<Fault> {};

TEST_P(ArgumentFault, TouchesNothing)
{
    const Fault &fault = GetParam();
    lan("lan2");
    wan("wan1");
    EXPECT_EQ(call(fault.object, fault.method, fault.message), fault.status);
    expect_quiet_trace(fault.trace);
    EXPECT_EQ(names_on(2), std::vector<std::string>{"lan2"});
    EXPECT_EQ(names_on(0), std::vector<std::string>{"wan1"});
}

std::string test_name(const testing::TestParamInfo<Fault> &fault)
{
    return fault.param.what;
}

constexpr const char *intf = "ivarode.intf";
constexpr const char *route = "ivarode.route";
constexpr const char *user = "ivarode.pppuser";
constexpr const char *auth = "ivarode.pppauth";

// A field that is there, but not as a method wants it. Wrong types of texts first, then of numbers.
struct Shape {
    const char *what;
    int type;
    std::string_view bytes;
};

using namespace std::string_view_literals;

const Shape no_text[] = {
    {"unspecified", BLOBMSG_TYPE_UNSPEC, ""sv},
    {"array", BLOBMSG_TYPE_ARRAY, ""sv},
    {"table", BLOBMSG_TYPE_TABLE, ""sv},
    {"int32", BLOBMSG_TYPE_INT32, "\0\0\0\1"sv},
    {"int8", BLOBMSG_TYPE_INT8, "\1"sv},
    {"unterminated", BLOBMSG_TYPE_STRING, "lan2"sv},
    {"no_bytes_at_all", BLOBMSG_TYPE_STRING, ""sv},
};

const Shape no_number[] = {
    {"unspecified", BLOBMSG_TYPE_UNSPEC, ""sv},
    {"string", BLOBMSG_TYPE_STRING, "1\0"sv},
    {"int64", BLOBMSG_TYPE_INT64, "\0\0\0\0\0\0\0\1"sv},
    {"int16", BLOBMSG_TYPE_INT16, "\0\1"sv},
    {"int8", BLOBMSG_TYPE_INT8, "\1"sv},
    {"three_bytes", BLOBMSG_TYPE_INT32, "\0\0\1"sv},
    {"array", BLOBMSG_TYPE_ARRAY, ""sv},
};

const Shape no_list[] = {
    {"string", BLOBMSG_TYPE_STRING, "lan2\0"sv},
    {"table", BLOBMSG_TYPE_TABLE, ""sv},
    {"int32", BLOBMSG_TYPE_INT32, "\0\0\0\1"sv},
};

// A method whose one field may be missing or shaped wrongly, with the same outcome.
template <size_t N>
void add_shapes(std::vector<Fault> &faults, const std::string &what, const char *object, const char *method,
                const std::function<Message()> &others, const char *field, const Shape (&shapes)[N],
                int status, const std::vector<Lines> &trace)
{
    faults.push_back({what + "_missing", object, method, others(), status, trace});
    for (const Shape &shape : shapes) {
        faults.push_back({what + "_" + shape.what, object, method,
                          others().field(field, shape.type, shape.bytes), status, trace});
    }
}

Message nothing()
{
    return {};
}

std::vector<Fault> port_faults()
{
    std::vector<Fault> faults;
    add_shapes(faults, "port_add_name", intf, "port_add", nothing, "name", no_text, 2,
               {error("l3 port add  interface name error\n")});
    add_shapes(faults, "port_del_name", intf, "port_del", nothing, "name", no_text, 2,
               {error("l3 port del  interface name error\n")});
    add_shapes(faults, "port_dump_port", intf, "port_dump", nothing, "port", no_number, 2,
               {error("port dump param error\n")});
    for (const uint32_t port : {5U, 15U, 65535U, 65536U, 0x80000000U, 0xffffffffU}) {
        faults.push_back({"port_dump_of_" + std::to_string(port),
                          intf,
                          "port_dump",
                          Message().number("port", port),
                          2,
                          {error("port dump intf null error")}});
    }
    return faults;
}

INSTANTIATE_TEST_SUITE_P(Ports, ArgumentFault, testing::ValuesIn(port_faults()), test_name);

std::vector<Fault> intf_faults()
{
    std::vector<Fault> faults;
    const std::vector<Lines> no_address = {error("l3intf_config ipaddr or netmask null\n")};
    add_shapes(faults, "add_intf", intf, "add", nothing, "intf", no_text, 2,
               {error("l3intf_add interface name error\n")});
    add_shapes(
        faults, "add_lan_ipaddr", intf, "add",
        [] {
            return fields({{"intf", "lan2"}, {"netmask", "255.0.0.0"}});
        },
        "ipaddr", no_text, 2, no_address);
    add_shapes(
        faults, "add_lan_netmask", intf, "add",
        [] {
            return fields({{"intf", "lan2"}, {"ipaddr", "10.0.0.1"}});
        },
        "netmask", no_text, 2, no_address);
    add_shapes(faults, "add_wan_proto", intf, "add",
               [] {
                   return fields({{"intf", "wan1"}, {"defrt_pri", "7"}});
               },
               "proto", no_text, 2, {error("wan if add proto is null\n")});
    add_shapes(faults, "add_wan_priority", intf, "add",
               [] {
                   return fields({{"intf", "wan1"}, {"proto", "dhcp"}});
               },
               "defrt_pri", no_text, 1, {error("wan if add priority error\n")});
    for (const char *proto : {"", "l2tp", "DHCP", "stat", "%s"}) {
        faults.push_back({"add_wan_proto_unknown" + std::to_string(faults.size()),
                          intf,
                          "add",
                          fields({{"intf", "wan1"}, {"proto", proto}, {"defrt_pri", "7"}}),
                          2,
                          {}});
    }
    faults.push_back({"add_lan_unknown",
                      intf,
                      "add",
                      fields({{"intf", "lan9"}, {"ipaddr", "1.2.3.4"}, {"netmask", "255.0.0.0"}}),
                      1,
                      {error("lan 9 get hw port error\n"), error("netintf_lan_add 2240\n"),
                       error("lan if add failed\n")}});
    // A WAN's link is asked for before all else.
    faults.push_back({"add_wan_unknown",
                      intf,
                      "add",
                      fields({{"intf", "wan9"}, {"proto", "dhcp"}, {"defrt_pri", "7"}}),
                      1,
                      {error("wan 9 get hw port error\n"), error("wan 9 get hw port error\n"),
                       error("wan if add failed\n")}});
    faults.push_back({"add_wan_unknown_without_proto",
                      intf,
                      "add",
                      fields({{"intf", "wan9"}}),
                      2,
                      {error("wan 9 get hw port error\n"), error("wan if add proto is null\n")}});
    for (const char *name : {"", "la", "guest", "LAN2", "Wan1", "xlan1", " lan2"}) {
        faults.push_back({"add_name" + std::to_string(faults.size()),
                          intf,
                          "add",
                          fields({{"intf", name}, {"proto", "dhcp"}, {"defrt_pri", "7"}}),
                          1,
                          {error("intf_name is error\n")}});
    }

    add_shapes(faults, "del_intf", intf, "del", nothing, "intf", no_list, 2,
               {error("l3intf_del interface name error\n")});
    add_shapes(faults, "enable_value", intf, "enable", [] { return Message().texts("intf", {"lan2"}); },
               "enable", no_number, 2, {error("intf enable enable param error,(nil)\n")});
    add_shapes(faults, "enable_intf", intf, "enable", [] { return Message().number("enable", 1); }, "intf",
               no_list, 2,
               {"ubuslib_bmsg_strlist_get(null, 16)", error("intf enable pool get strlist error,(nil)\n")});

    add_shapes(faults, "config_intf", intf, "config",
               [] {
                   return fields({{"old_intf", "lan2"}});
               },
               "intf", no_text, 2, {error("l3intf_config interface name error\n")});
    add_shapes(faults, "config_old_intf", intf, "config",
               [] {
                   return fields({{"intf", "lan2"}});
               },
               "old_intf", no_text, 2, {error("ubus config intf param old intf_name is null\n")});
    for (const char *name : {"lan3", "guest", "", "LAN2", "lan2 "}) {
        faults.push_back({"config_of_nothing" + std::to_string(faults.size()),
                          intf,
                          "config",
                          fields({{"intf", "lan2"}, {"old_intf", name}, {"proto", "static"}}),
                          9,
                          {error("net config get intf byname error\n")}});
    }
    faults.push_back({"config_of_a_port_the_board_lacks",
                      intf,
                      "config",
                      fields({{"intf", "lan2"}, {"old_intf", "lan9"}}),
                      9,
                      {error("lan 9 get hw port error\n"), error("net config get intf byname error\n")}});
    return faults;
}

INSTANTIATE_TEST_SUITE_P(Interfaces, ArgumentFault, testing::ValuesIn(intf_faults()), test_name);

// Lists with something else than a text in them.
std::vector<Fault> list_faults()
{
    struct Method {
        const char *what;
        const char *object;
        const char *method;
        const char *field;
        bool with_value;
        std::vector<Lines> trace;
    };
    const Method methods[] = {
        {"intf_del",
         intf,
         "del",
         "intf",
         false,
         {"ubuslib_bmsg_strlist_get(list, 100)", error("intf del  get strlist error,ADDRESS\n")}},
        {"intf_enable",
         intf,
         "enable",
         "intf",
         true,
         {"ubuslib_bmsg_strlist_get(list, 16)", error("intf enable pool get strlist error,ADDRESS\n")}},
        {"route_del", route, "del", "name", false, {"ubuslib_bmsg_strlist_get(list, 16)"}},
        {"route_enable",
         route,
         "enable",
         "name",
         true,
         {"ubuslib_bmsg_strlist_get(list, 16)", error("route entry get strlist error\n")}},
    };
    struct Element {
        const char *what;
        std::function<void(blob_buf *)> add;
    };
    const Element elements[] = {
        {"number", [](blob_buf *buf) { blobmsg_add_u32(buf, nullptr, 7); }},
        {"table", [](blob_buf *buf) { blobmsg_close_table(buf, blobmsg_open_table(buf, nullptr)); }},
        {"list", [](blob_buf *buf) { blobmsg_close_array(buf, blobmsg_open_array(buf, nullptr)); }},
    };
    std::vector<Fault> faults;
    for (const Method &method : methods) {
        for (const Element &element : elements) {
            for (const bool behind : {false, true}) {
                Message message;
                message.array(method.field, [&](blob_buf *buf) {
                    if (behind) {
                        blobmsg_add_string(buf, nullptr, "lan2");
                    }
                    element.add(buf);
                });
                if (method.with_value) {
                    message.number("enable", 1);
                }
                faults.push_back(
                    {std::string{method.what} + "_with_" + element.what + (behind ? "_behind" : ""),
                     method.object, method.method, message, 2, method.trace});
            }
        }
    }
    return faults;
}

INSTANTIATE_TEST_SUITE_P(Lists, ArgumentFault, testing::ValuesIn(list_faults()), test_name);

std::vector<Fault> route_faults()
{
    const char *const names[] = {"name", "line", "dstaddr", "netmask", "gateway", "metric"};
    std::vector<Fault> faults;
    for (const char *method : {"add", "edit"}) {
        const int required = std::string_view{method} == "add" ? 5 : 6;
        for (int missing = 0; missing < required; missing++) {
            const auto others = [&] {
                Message message;
                for (int i = 0; i < 6; i++) {
                    // Of several missing fields the first is reported.
                    if (i != missing && (i != 5 || required == 6)) {
                        message.text(names[i], "1.2.3.4");
                    }
                }
                return message;
            };
            add_shapes(faults, std::string{"route_"} + method + "_" + names[missing], route, method, others,
                       names[missing], no_text, 2,
                       {error("route entry add err,param err ,i=" + std::to_string(missing) + "\n")});
        }
        faults.push_back({std::string{"route_"} + method + "_all",
                          route,
                          method,
                          {},
                          2,
                          {error("route entry add err,param err ,i=0\n")}});
        faults.push_back({std::string{"route_"} + method + "_all_but_the_first",
                          route,
                          method,
                          Message().text("name", "a"),
                          2,
                          {error("route entry add err,param err ,i=1\n")}});
    }
    Message unknown;
    for (const char *name : names) {
        unknown.text(name, "x");
    }
    faults.push_back({"route_edit_unknown",
                      route,
                      "edit",
                      unknown,
                      2,
                      {error("edit route entry find failed\n"), error("edit route entry failed,rv=-2\n")}});

    add_shapes(faults, "route_del_name", route, "del", nothing, "name", no_list, 2,
               {error("route entry del err,param err ,i=0\n")});
    faults.push_back(
        {"route_del_unknown",
         route,
         "del",
         Message().texts("name", {"x", "y"}),
         2,
         {"ubuslib_bmsg_strlist_get(list, 16)", error("route entry del failed,name=x,rv=-1\n")}});
    add_shapes(faults, "route_enable_name", route, "enable", [] { return Message().number("enable", 1); },
               "name", no_list, 2, {error("route entry enable err,param err (nil) ADDRESS\n")});
    add_shapes(faults, "route_enable_value", route, "enable", [] { return Message().texts("name", {"a"}); },
               "enable", no_number, 2, {error("route entry enable err,param err ADDRESS (nil)\n")});
    faults.push_back({"route_enable_nothing",
                      route,
                      "enable",
                      {},
                      2,
                      {error("route entry enable err,param err (nil) (nil)\n")}});
    faults.push_back(
        {"route_enable_unknown",
         route,
         "enable",
         Message().texts("name", {"x", "y"}).number("enable", 9),
         2,
         {"ubuslib_bmsg_strlist_get(list, 16)", error("route_cfg_entry_enable 356 entry find failed\n"),
          error("route set enable error,name=x enable=9\n")}});
    return faults;
}

INSTANTIATE_TEST_SUITE_P(Routes, ArgumentFault, testing::ValuesIn(route_faults()), test_name);

void add_account_faults(std::vector<Fault> &faults, const char *object, const char *method,
                        const std::vector<std::pair<const char *, const char *>> &required)
{
    for (size_t missing = 0; missing < required.size(); missing++) {
        const auto others = [&] {
            Message message;
            for (size_t i = 0; i < required.size(); i++) {
                if (i != missing) {
                    message.text(required[i].first, "x");
                }
            }
            return message;
        };
        add_shapes(faults, std::string{method} + "_" + required[missing].first, object, method, others,
                   required[missing].first, no_text, 2, {error(required[missing].second)});
    }
    faults.push_back({std::string{method} + "_nothing", object, method, {}, 2, {error(required[0].second)}});
}

std::vector<Fault> account_faults()
{
    const char *no_add = "ppp user add input is null\n";
    const char *no_del = "ppp user del input is null\n";
    std::vector<Fault> faults;
    add_account_faults(
        faults, user, "add",
        {{"username", no_add}, {"provider", no_add}, {"password", no_add}, {"ipaddr", no_add}});
    add_account_faults(faults, user, "del", {{"username", no_del}, {"provider", no_del}});
    add_account_faults(faults, auth, "notify",
                       {{"type", "auth_type is null\n"},
                        {"ipaddr", "ipaddr is null\n"},
                        {"action", "action is null\n"},
                        {"username", "username is null\n"}});
    // The order in which missing fields are reported.
    faults.push_back(
        {"notify_type_alone", auth, "notify", Message().text("type", "x"), 2, {error("ipaddr is null\n")}});
    faults.push_back({"notify_without_action_and_username",
                      auth,
                      "notify",
                      Message().text("type", "x").text("ipaddr", "x"),
                      2,
                      {error("action is null\n")}});
    return faults;
}

INSTANTIATE_TEST_SUITE_P(Accounts, ArgumentFault, testing::ValuesIn(account_faults()), test_name);

// A field of the wrong type does not stand in the way of the same field behind it.
TEST_F(ArgumentFault, TheFirstFieldOfTheRightTypeCounts)
{
    expect_call(intf, "port_dump", Message().text("port", "2").number("port", 2).number("port", 3), 0,
                {info(" vid1=0 vid2=0\n")});
}

// What follows a malformed field is not looked at.
TEST_F(ArgumentFault, AMalformedFieldEndsTheMessage)
{
    expect_call(intf, "port_dump", Message().field("x", BLOBMSG_TYPE_INT32, "abc").number("port", 2), 2,
                {error("port dump param error\n")});
    expect_call(intf, "port_dump", Message().number("port", 2).field("x", BLOBMSG_TYPE_INT32, "abc"), 0,
                {info(" vid1=0 vid2=0\n")});
}

} // namespace
} // namespace unit
