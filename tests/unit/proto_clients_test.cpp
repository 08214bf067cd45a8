// The command lines of DHCP and PPPoE clients.

#include "daemon_test.h"
#include "netintf/proto.h"

#include <csignal>

namespace unit {
namespace {

using ProtoClients = DaemonTest;

// The items of pppd's line, each followed by one blank.
std::string pppd_line(const std::string &name, int priority, const std::string &user,
                      const std::string &password, const std::string &service, const std::string &nic)
{
    const std::string items[] = {"/usr/sbin/pppd",
                                 "nodetach",
                                 "ipparam",
                                 "'pppoec," + std::to_string(priority) + "'",
                                 "ifname",
                                 name,
                                 " +ipv6 ",
                                 "nodefaultroute ",
                                 "usepeerdns ",
                                 "persist ",
                                 "maxfail ",
                                 "0",
                                 user,
                                 password,
                                 "mtu",
                                 "1492",
                                 "mru",
                                 "1492",
                                 "plugin",
                                 " rp-pppoe.so",
                                 service,
                                 nic};
    std::string line;
    for (const std::string &item : items) {
        line += item + " ";
    }
    return line.substr(0, 511);
}

std::vector<Lines> start_lines(const std::string &name, const std::string &line)
{
    return {info("netintf_proto_config_pppoe 920 cmd_line=" + line + "\n"),
            "cmdlib_procd_start_inst('pppoe', " + quote(name) + ", " + quote(line) + ", 0)"};
}

TEST_F(ProtoClients, DhcpLine)
{
    netintf_entry *entry = wan("wan1", proto_none);
    EXPECT_EQ(netintf_proto_config_dhcp(entry), 0);
    expect_trace(
        {"cmdlib_procd_start_inst('dhcp', 'wan1', '/sbin/udhcpc  -t 0 -i wan1 -s /lib/ivarode/empty.sh "
         "-C -p /var/run/udhcpc-wan1.pid -f -m 20001', 0)"});
    EXPECT_EQ(entry->proto, proto_dhcp);
}

TEST_F(ProtoClients, DhcpKeepsTheProtocolWhenTheStartIsRefused)
{
    netintf_entry *entry = wan("wan1", proto_none);
    answer("cmdlib_procd_start_inst(", 42);
    EXPECT_EQ(netintf_proto_config_dhcp(entry), 42);
    EXPECT_EQ(entry->proto, proto_none);
}

TEST_F(ProtoClients, DhcpLineOfTheLongestName)
{
    const std::string name = "wan1." + std::string(26, 'n');
    netintf_entry *entry = wan(name.c_str(), proto_none);
    entry->defrt_pri = -2147483647 - 1;
    EXPECT_EQ(netintf_proto_config_dhcp(entry), 0);
    expect_trace({"cmdlib_procd_start_inst('dhcp', '" + name + "', '/sbin/udhcpc  -t 0 -i " + name +
                  " -s /lib/ivarode/empty.sh -C -p /var/run/udhcpc-" + name + ".pid -f -m -2147483648', 0)"});
}

struct Account {
    const char *what;
    const char *service;
    const char *user;
    const char *password;
    const char *service_item;
    const char *user_item;
    const char *password_item;
};

class PppoeLine : public DaemonTest, public testing::WithParamInterface<Account> {};

TEST_P(PppoeLine, ItemsThatAreNotGivenAreEmpty)
{
    const Account &account = GetParam();
    netintf_entry *entry = wan("wan1", proto_none);
    EXPECT_EQ(netintf_proto_config_pppoe(entry, 1, account.service, account.user, account.password), 0);
    expect_trace(start_lines("wan1", pppd_line("wan1", 20001, account.user_item, account.password_item,
                                               account.service_item, "nic-wan1_pe")));
    EXPECT_EQ(entry->proto, proto_pppoe);
}

INSTANTIATE_TEST_SUITE_P(
    Accounts, PppoeLine,
    testing::Values(Account{"all", "isp", "joe", "pw", "rp_pppoe_service isp", "user joe", "password pw"},
                    Account{"none", nullptr, nullptr, nullptr, "", "", ""},
                    Account{"no_service", nullptr, "joe", "pw", "", "user joe", "password pw"},
                    Account{"empty_texts", "", "", "", "rp_pppoe_service ", "user ", "password "},
                    Account{"blanks_and_quotes", "a b", "j o'e", "p\"w%s", "rp_pppoe_service a b",
                            "user j o'e", "password p\"w%s"}),
    [](const auto &account) { return std::string{account.param.what}; });

TEST_F(ProtoClients, PppoeLineAsItIsPassed)
{
    netintf_entry *entry = wan("wan1", proto_none);
    EXPECT_EQ(netintf_proto_config_pppoe(entry, 1, nullptr, "joe", "pw"), 0);
    const std::string line =
        "/usr/sbin/pppd nodetach ipparam 'pppoec,20001' ifname wan1  +ipv6  nodefaultroute  "
        "usepeerdns  persist  maxfail  0 user joe password pw mtu 1492 mru 1492 plugin  "
        "rp-pppoe.so  nic-wan1_pe ";
    expect_trace(start_lines("wan1", line));
}

TEST_F(ProtoClients, PppoeLineIsCutAt511Characters)
{
    netintf_entry *entry = wan("wan1", proto_none);
    const std::string user(1000, 'u');
    EXPECT_EQ(netintf_proto_config_pppoe(entry, 1, "isp", user.c_str(), "pw"), 0);
    const std::string line = pppd_line("wan1", 20001, "user " + user, "password pw", "", "");
    EXPECT_EQ(line.size(), 511U);
    expect_trace(start_lines("wan1", line));
    // Each length around the end, where an item boundary may fall.
    for (size_t length = 300; length < 420; length++) {
        const std::string text(length, 'p');
        EXPECT_EQ(netintf_proto_config_pppoe(entry, 1, "isp", "joe", text.c_str()), 0);
        expect_trace(start_lines("wan1", pppd_line("wan1", 20001, "user joe", "password " + text,
                                                   "rp_pppoe_service isp", "nic-wan1_pe")));
    }
}

TEST_F(ProtoClients, PppoeNicIsCutAt31Characters)
{
    const std::string name = "wan1" + std::string(27, 'x');
    netintf_entry *entry = wan(name.c_str(), proto_none);
    EXPECT_EQ(netintf_proto_config_pppoe(entry, 1, nullptr, nullptr, nullptr), 0);
    // The device is cut to 31 characters, and so is what "nic-" is put before.
    expect_trace(start_lines(name, pppd_line(name, 20001, "", "", "", ("nic-" + name).substr(0, 31))));
}

TEST_F(ProtoClients, PppoeStartsAsOftenAsAsked)
{
    netintf_entry *entry = wan("wan1", proto_none);
    EXPECT_EQ(netintf_proto_config_pppoe(entry, 0, "isp", "joe", "pw"), 0);
    expect_trace({});
    EXPECT_EQ(entry->proto, proto_pppoe);

    entry->proto = proto_none;
    EXPECT_EQ(netintf_proto_config_pppoe(entry, 2, "isp", "joe", "pw"), 0);
    const std::vector<Lines> once = start_lines(
        "wan1", pppd_line("wan1", 20001, "user joe", "password pw", "rp_pppoe_service isp", "nic-wan1_pe"));
    expect_trace({once[0], once[1], once[0], once[1]});
    EXPECT_EQ(entry->proto, proto_pppoe);

    entry->proto = proto_none;
    answer("cmdlib_procd_start_inst(", -33, 2);
    EXPECT_EQ(netintf_proto_config_pppoe(entry, 3, "isp", "joe", "pw"), -33);
    expect_trace({once[0], once[1], once[0], once[1], error("start process failed\n")});
    EXPECT_EQ(entry->proto, proto_none);
}

TEST_F(ProtoClients, SignalsGoToThePidOfThePidFile)
{
    netintf_entry *entry = wan("wan1", proto_dhcp);
    world.pids["/var/run/udhcpc-wan1.pid"] = 321;
    EXPECT_EQ(netintf_dhcp_client_kill(entry, SIGUSR1), 0);
    expect_trace(
        {"cmdlib_get_proc_id('/var/run/udhcpc-wan1.pid')", "kill(321, " + std::to_string(SIGUSR1) + ")"});
    fail("kill(");
    EXPECT_EQ(netintf_dhcp_client_kill(entry, SIGUSR2), 0);
    expect_trace(
        {"cmdlib_get_proc_id('/var/run/udhcpc-wan1.pid')", "kill(321, " + std::to_string(SIGUSR2) + ")"});
    answer("cmdlib_get_proc_id(", -7);
    EXPECT_EQ(netintf_dhcp_client_kill(entry, SIGUSR1), -7);
    expect_trace({"cmdlib_get_proc_id('/var/run/udhcpc-wan1.pid')"});
}

} // namespace
} // namespace unit
