// Texts that are there as fields and yet cannot be had: the bus library never gives a null for a field of a
// message, and the methods are ready for it all the same. Their sources are built here once more with a
// reader of texts that gives null for the text "<null>".

#include "daemon_test.h"

namespace unit {
namespace {

struct NullText {
    const char *what;
    const char *object;
    const char *method;
    Message message;
    int status;
    std::vector<Lines> trace;
};

class NullTexts : public DaemonTest, public testing::WithParamInterface<NullText> {};

TEST_P(NullTexts, AreReported)
{
    const NullText &null_text = GetParam();
    netintf_entry *entry = wan("wan1", proto_none);
    entry->enable = 1;
    lan("lan2");
    EXPECT_EQ(call(null_text.object, null_text.method, null_text.message), null_text.status);
    expect_trace(null_text.trace);
}

constexpr const char *intf = "ivarode.intf";
constexpr const char *null = "<null>";

// "config" of wan1 comes as far as its protocol.
const Lines rebuilt = std::vector<std::string>{
    "netlib_intf_set_ip('wan1', '0.0.0.0')", "netlib_waninfo_db_del_byname('wan1')",
    "netlib_br_delif('wan1', 'eth0.4090')", "netlib_eth_intf_down('wan1')", "netlib_br_delete('wan1')"};

Lines made(const std::string &bridge)
{
    return std::vector<std::string>{"netlib_br_create('" + bridge + "')",
                                    "netlib_eth_intf_up('" + bridge + "')",
                                    "netlib_br_addif('" + bridge + "', 'eth0.4090')"};
}

const Lines failed = error("wan proto config failed\n");

NullText wan_config(const char *what, const char *proto, const Fields &settings, const char *bridge,
                    const char *report)
{
    return {what,
            intf,
            "config",
            fields({{"intf", "wan1"}, {"old_intf", "wan1"}, {"proto", proto}, {"defrt_pri", "20001"}})
                .fields(settings),
            1,
            {rebuilt, made(bridge), error(report), failed}};
}

NullText wan_static(const char *what, const char *ipaddr, const char *netmask, const char *gateway,
                    const char *report)
{
    return wan_config(what, "static", {{"ipaddr", ipaddr}, {"netmask", netmask}, {"gateway", gateway}},
                      "wan1", report);
}

NullText wan_pppoe(const char *what, const char *username, const char *password, const char *server,
                   const char *report)
{
    return wan_config(what, "pppoe", {{"username", username}, {"password", password}, {"server", server}},
                      "wan1_pe", report);
}

const Lines lan_rebuilt = std::vector<std::string>{"netlib_br_delif('lan2', 'eth0.4092')",
                                                   "netlib_eth_intf_down('lan2')",
                                                   "netlib_br_delete('lan2')",
                                                   "netlib_br_create('lan2')",
                                                   "netlib_eth_intf_up('lan2')",
                                                   "netlib_br_addif('lan2', 'eth0.4092')"};

NullText lan_config(const char *what, const char *ipaddr, const char *netmask)
{
    return {what,
            intf,
            "config",
            fields({{"intf", "lan2"},
                    {"old_intf", "lan2"},
                    {"proto", "static"},
                    {"ipaddr", ipaddr},
                    {"netmask", netmask}}),
            2,
            {lan_rebuilt, error("intf_name is null\n")}};
}

NullText user_add(const char *what, const char *username, const char *provider, const char *password,
                  const char *ipaddr, const char *report)
{
    return {
        what,
        "ivarode.pppuser",
        "add",
        fields({{"username", username}, {"provider", provider}, {"password", password}, {"ipaddr", ipaddr}}),
        2,
        {error(report)}};
}

NullText user_del(const char *what, const char *username, const char *provider, const char *report)
{
    return {what, "ivarode.pppuser", "del", fields({{"username", username}, {"provider", provider}}),
            2,    {error(report)}};
}

NullText notify(const char *what, const char *type, const char *ipaddr, const char *action,
                const char *username, const char *report)
{
    return {
        what,     "ivarode.pppauth",
        "notify", fields({{"type", type}, {"ipaddr", ipaddr}, {"action", action}, {"username", username}}),
        2,        {error(report)}};
}

INSTANTIATE_TEST_SUITE_P(
    Methods, NullTexts,
    testing::Values(
        NullText{"port_add", intf, "port_add", fields({{"name", null}}), 1, {error("intf_name is null\n")}},
        NullText{"port_del", intf, "port_del", fields({{"name", null}}), 1, {error("intf_name is null\n")}},
        NullText{"add_name", intf, "add", fields({{"intf", null}}), 1, {error("intf_name is null\n")}},
        NullText{"add_lan_ipaddr",
                 intf,
                 "add",
                 fields({{"intf", "lan2"}, {"ipaddr", null}, {"netmask", "x"}}),
                 2,
                 {error("ip addr is null\n")}},
        NullText{"add_lan_netmask",
                 intf,
                 "add",
                 fields({{"intf", "lan2"}, {"ipaddr", "x"}, {"netmask", null}}),
                 2,
                 {error("netmask is null\n")}},
        NullText{"add_wan_proto",
                 intf,
                 "add",
                 fields({{"intf", "wan1"}, {"proto", null}, {"defrt_pri", "7"}}),
                 2,
                 {error("wan if add proto is null\n")}},
        NullText{"add_wan_priority",
                 intf,
                 "add",
                 fields({{"intf", "wan1"}, {"proto", "dhcp"}, {"defrt_pri", null}}),
                 1,
                 {error("wan if add priority error\n")}},
        NullText{"config_name",
                 intf,
                 "config",
                 fields({{"intf", null}, {"old_intf", "lan2"}}),
                 2,
                 {error("ubus config intf param intf_name is null\n")}},
        NullText{"config_old_name",
                 intf,
                 "config",
                 fields({{"intf", "lan2"}, {"old_intf", null}}),
                 2,
                 {error("ubus config intf param old intf_name is null\n")}},
        lan_config("config_lan_ipaddr", null, "x"), lan_config("config_lan_netmask", "x", null),
        wan_static("config_wan_ipaddr", null, "255.0.0.0", "10.0.0.1", "ipaddr is null\n"),
        wan_static("config_wan_netmask", "10.0.0.2", null, "10.0.0.1", "netmask is null\n"),
        wan_static("config_wan_gateway", "10.0.0.2", "255.0.0.0", null, "gateway is null\n"),
        wan_static("config_wan_order", null, null, null, "ipaddr is null\n"),
        wan_pppoe("config_wan_username", null, "pw", "isp", "pppoe username is null\n"),
        wan_pppoe("config_wan_password", "joe", null, "isp", "pppoe password is null\n"),
        wan_pppoe("config_wan_server", "joe", "pw", null, "pppoe server is null\n"),
        user_add("user_add_username", null, null, null, null, "user is null\n"),
        user_add("user_add_provider", "u", null, null, null, "provider is null\n"),
        user_add("user_add_password", "u", "p", null, null, "password is null\n"),
        user_add("user_add_ipaddr", "u", "p", "s", null, "ipaddr is null\n"),
        user_del("user_del_username", null, "p", "user is null\n"),
        user_del("user_del_provider", "u", null, "provider is null\n"),
        notify("notify_type", null, null, null, null, "auth_type is null\n"),
        notify("notify_ipaddr", "t", null, null, null, "ipaddr is null\n"),
        notify("notify_action", "t", "i", null, null, "action is null\n"),
        notify("notify_username", "t", "i", "up", null, "username is null\n")),
    [](const auto &null_text) { return std::string{null_text.param.what}; });

// Null texts of a route leave their fields empty.
TEST_F(NullTexts, OfARouteAreNotGiven)
{
    expect_call(
        "ivarode.route", "add",
        fields({{"name", null},
                {"line", null},
                {"dstaddr", null},
                {"netmask", null},
                {"gateway", null},
                {"metric", null}}),
        0,
        {info("cfg_name=(null) line=(null) dstaddr=(null) netmask=(null) gateway=(null) metric=(null) "
              "enable=1\n"),
         "netlib_rt_add_gw(10000, '', '', '', '', 0)", info("route entry add ok\n")});
}

} // namespace
} // namespace unit
