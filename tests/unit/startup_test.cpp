// Interfaces at start-up, and the start-up sequence of the process.

#include "daemon_test.h"
#include "netintf/startup.h"
#include "route/table.h"

int ivarode_main(int argc, char **argv);

namespace unit {
namespace {

class Startup : public DaemonTest {
protected:
    Startup() { registry_drop(); }
};

const Lines lan_walk = "ucilib_foreach_section('lan_intf', 'interface')";
const Lines wan_walk = "ucilib_foreach_section('wan_intf', 'interface')";

TEST_F(Startup, InterfacesInOrder)
{
    EXPECT_EQ(netintf_lan_init(), 0);
    expect_trace({"netlib_eth_intf_up('eth0')", lan_walk, wan_walk, "uloop_timeout_set(3000)"});
    ASSERT_NE(netintf_port_head_get(4), nullptr);
    EXPECT_EQ(vlan_entry(1), (VlanEntry{4091, 0x1e}));
    ASSERT_NE(handed.timer, nullptr);
}

TEST_F(Startup, ASecondCpuPortIsRaisedToo)
{
    board_with_two_cpu_ports();
    registry_drop();
    EXPECT_EQ(netintf_lan_init(), 0);
    expect_trace({"netlib_eth_intf_up('eth0')", "netlib_eth_intf_up('eth1')", lan_walk, wan_walk,
                  "uloop_timeout_set(3000)"});
    registry_drop();
    answer("netlib_eth_intf_up('eth1')", -66);
    EXPECT_EQ(netintf_lan_init(), -66);
    expect_trace({"netlib_eth_intf_up('eth0')", "netlib_eth_intf_up('eth1')",
                  error("mtk switch init inif failed\r\n")});
}

TEST_F(Startup, InterfaceFailures)
{
    world.calloc_failing = 1;
    EXPECT_EQ(netintf_lan_init(), -12);
    expect_trace({error("mtk switch init inif failed\r\n")});

    answer("netlib_eth_intf_up(", -65);
    EXPECT_EQ(netintf_lan_init(), -65);
    expect_trace({"netlib_eth_intf_up('eth0')", error("mtk switch init inif failed\r\n")});

    answers_forget();
    registry_drop();
    fail("mtklib_cpu_reg_wr(");
    EXPECT_EQ(netintf_lan_init(), -25);
    expect_trace({"netlib_eth_intf_up('eth0')", error("mtk sw pvid set failed\n"),
                  error("mtk switch port vlan init failed,rv = -25\r\n"),
                  error("mtk switch init pre failed\r\n")});

    answers_forget();
    registry_drop();
    world.packages = {"lan_intf"};
    EXPECT_EQ(netintf_lan_init(), -8);
    expect_trace(
        {"netlib_eth_intf_up('eth0')", lan_walk, wan_walk, error("net interface wan  init err\r\n")});

    registry_drop();
    world.packages = {"wan_intf"};
    EXPECT_EQ(netintf_lan_init(), -8);
    expect_trace({"netlib_eth_intf_up('eth0')", lan_walk,
                  error("netintf_lan_init 2507 lan uci init failed\n"),
                  error("net interface lan init err\r\n")});
}

TEST_F(Startup, AFailingSectionStopsTheWalkAndWhatCameBeforeStays)
{
    world.sections = {{"lan_intf", "interface", "guest", {}},
                      {"lan_intf", "other", "lan1", {}},
                      {"lan_intf", "interface", "lan2", {}},
                      {"lan_intf", "interface", "lan9", {}},
                      {"lan_intf", "interface", "lan3", {}}};
    EXPECT_EQ(netintf_lan_init(), -8);
    EXPECT_EQ(names_on(2), std::vector<std::string>{"lan2"});
    EXPECT_EQ(names_on(1), std::vector<std::string>{});
    EXPECT_EQ(names_on(3), std::vector<std::string>{});
}

TEST_F(Startup, LinksThatTheSwitchTells)
{
    world.port_links = {{3, {0, 1}}};
    EXPECT_EQ(netintf_registry_init(), 0);
    EXPECT_EQ(netintf_port_head_get(3)->link, 1U);
    EXPECT_EQ(netintf_port_head_get(2)->link, 0U);
    registry_drop();
    world.port_links = {{3, {-44, 1}}};
    EXPECT_EQ(netintf_lan_init(), -44);
    expect_trace({error("mtk switch init inif failed\r\n")});
}

TEST_F(Startup, TheLatePassRaisesTheInterfacesOfLinkedPorts)
{
    EXPECT_EQ(netintf_registry_init(), 0);
    wan("wan1");
    lan("lan2");
    netintf_port_head_get(2)->hw_port = 2;
    world.port_links = {{0, {0, 1}}, {1, {-1, 1}}, {2, {0, 0}}};
    EXPECT_EQ(netintf_init_post(), 0);
    expect_trace({"sleep(5)", info("netintf_init_post 3025 i=0 link=1\n"), "netlib_eth_intf_up('wan1')",
                  info("netintf_init_post 3025 i=2 link=0\n"), info("netintf_init_post 3025 i=3 link=0\n"),
                  info("netintf_init_post 3025 i=4 link=0\n")});
    EXPECT_EQ(netintf_port_head_get(0)->link, 1U);
}

std::vector<std::string> post_lines()
{
    std::vector<std::string> lines{"sleep(5)"};
    for (int port = 0; port < 5; port++) {
        lines.push_back("outlib_info('netintf_init_post 3025 i=" + std::to_string(port) + " link=0\\n')");
    }
    return lines;
}

TEST_F(Startup, TheLatePassFindsNoLink)
{
    EXPECT_EQ(netintf_lan_init(), 0);
    skip_trace();
    link_set(2, 1);
    EXPECT_EQ(netintf_init_post(), 0);
    expect_trace({post_lines()});
    for (uint32_t phy = 0; phy < 5; phy++) {
        EXPECT_EQ((world.phys[{phy, 0}]), 0x3300U);
    }
    EXPECT_EQ(netintf_port_head_get(2)->link, 1U);
}

TEST_F(Startup, TheLatePassGoesOnWithoutPhys)
{
    fail("phy_write(");
    EXPECT_EQ(netintf_init_post(), 0);
    expect_trace({error("mii_write: ioctl error\n"), error("mtksw_mii_init 694 i=0 rv=-1,power up error\n"),
                  error("mtk switch mii init failed,rv = -1\r\n"), post_lines()});
}

// The whole process.

class Main : public Startup {
protected:
    static int run()
    {
        char name[] = "ivarode";
        char argument[] = "argument";
        char *argv[] = {name, argument, nullptr};
        return ivarode_main(2, argv);
    }
    // The lines of a firewall laid anew are another test's.
    static std::vector<std::string> trace_without_firewall()
    {
        std::vector<std::string> lines = trace_take();
        std::erase_if(lines, [](const std::string &line) {
            return line.starts_with("iptlib_") || line.starts_with("cmdlib_do_iptables_cmd");
        });
        return lines;
    }
    static void expect_lines(const std::vector<Lines> &parts)
    {
        std::vector<std::string> lines;
        for (const Lines &part : parts) {
            lines.insert(lines.end(), part.all().begin(), part.all().end());
        }
        EXPECT_EQ(join(trace_without_firewall()), join(lines));
    }
};

// Every step of a good start, in order.
struct Step {
    const char *name;
    std::vector<Lines> lines;
    const char *failing;
    const char *report;            // null: a failure is not reported
    std::vector<Lines> at_failure; // before the report; none: the lines of a good start
    bool ends;
    bool cleans_up;
};

const std::vector<Step> &steps()
{
    static const std::vector<Step> all = {
        {"client", {"outlib_client_init(2, 'ivarode')"}, "outlib_client_init(", nullptr, {}, false, false},
        {"syslog", {"openlog('ivarode', 3, 24)"}, nullptr, nullptr, {}, false, false},
        {"debug_area",
         {"netdbg_shm_init()"},
         "netdbg_shm_init(",
         "ivarode debug init failed\n",
         {"netdbg_shm_init()", error("net dbg shm init failed\n")},
         true,
         false},
        {"debug_records",
         {"libsys_dbg_init()"},
         "libsys_dbg_init(",
         "ivarode debug init failed\n",
         {"libsys_dbg_init()", error("sys dbg shm init failed\n")},
         true,
         false},
        {"gpio", {"sys_gpio_init2()"}, "sys_gpio_init2(", "ombrine sys gpio init failed\n", {}, false, false},
        {"bus",
         {"ubuslib_connect_init()"},
         "ubuslib_connect_init(",
         "ivarode ubus connect failed\n",
         {},
         true,
         false},
        {"sibling",
         {"ubuslib_task_status_wait('ombrine.run', 30)"},
         "ubuslib_task_status_wait(",
         "ivarode check ombrine.run failed\r\n",
         {},
         true,
         false},
        {"firewall",
         {},
         "iptlib_rule_append('mangle', 'PREROUTING'",
         "net pre init failed\n",
         {},
         true,
         false},
        {"duplex", {"nl_duplex_init()"}, "nl_duplex_init(", "net link duplex init failed\n", {}, true, false},
        {"board",
         {info("base-mac:00:11:22:33:44:50\n"), info("lan port:1234\n"), info("wan port:0\n"),
          info("\nnetbd_lan_wan_init 124 port_bitmap=0x1f port_total=5\n")},
         "sys_bdinfo_init(",
         "ivarode board info init failed\n",
         {error("ivarode board info init failed\n")},
         true,
         false},
        {"loop", {"uloop_init()"}, "uloop_init(", "ivarode uloop init failed\r\n", {}, true, false},
        {"interfaces",
         {"netlib_eth_intf_up('eth0')", lan_walk, wan_walk, "uloop_timeout_set(3000)"},
         "netlib_eth_intf_up('eth0')",
         "ivarode interface init  failed\n",
         {"netlib_eth_intf_up('eth0')", error("mtk switch init inif failed\r\n")},
         true,
         true},
        {"rule_gone", {"netlib_ip_rule_del(10000)"}, "netlib_ip_rule_del(", nullptr, {}, false, false},
        {"rule",
         {"netlib_ip_rule_add(10000, 'lookup 10000')"},
         "netlib_ip_rule_add(",
         nullptr,
         {},
         false,
         false},
        {"events", {"nl_init('ivarode')"}, "nl_init(", "net event init failed\n", {}, true, true},
        {"link_events",
         {"nl_rx_event_reg(1)"},
         "nl_rx_event_reg(",
         "net event init failed\n",
         {},
         true,
         true},
        {"late_pass", {post_lines()}, nullptr, nullptr, {}, false, false},
        {"routes",
         {"ucilib_foreach_section('route_config', 'route')"},
         "ucilib_foreach_section('route_config'",
         nullptr,
         {},
         false,
         false},
        {"route_messages",
         {"nl_rtmsg_init()"},
         "nl_rtmsg_init(",
         "netlink route init error\n",
         {},
         true,
         false},
        {"addresses", {"nl_rtmsg_handler_reg(20)"}, "nl_rtmsg_handler_reg(", nullptr, {}, false, false},
        {"objects",
         {"ubuslib_invoke_init(1, 5)"},
         "ubuslib_invoke_init(",
         "ivarode ubus init failed\n",
         {},
         true,
         false},
    };
    return all;
}

const std::vector<Lines> end_of_a_good_run = {notice("ivarode init success\n"), "uloop_run(-1)",
                                              "cmdlib_kill_processes()"};

TEST_F(Main, GoodRun)
{
    std::vector<Lines> expected;
    for (const Step &step : steps()) {
        expected.insert(expected.end(), step.lines.begin(), step.lines.end());
    }
    expected.insert(expected.end(), end_of_a_good_run.begin(), end_of_a_good_run.end());
    EXPECT_EQ(run(), 0);
    expect_lines(expected);
    EXPECT_EQ(handed.objects.size(), 5U);
    EXPECT_NE(handed.on_link, nullptr);
    EXPECT_NE(handed.on_address, nullptr);
    EXPECT_EQ(handed.on_signal, nullptr);
}

TEST_F(Main, TheFirewallIsLaidBetweenTheSiblingAndTheBoard)
{
    EXPECT_EQ(run(), 0);
    const std::vector<std::string> trace = trace_take();
    const auto at = [&](const char *begin) {
        return std::find_if(trace.begin(), trace.end(),
                            [begin](const std::string &line) { return line.starts_with(begin); }) -
               trace.begin();
    };
    EXPECT_EQ(at("iptlib_"), at("ubuslib_task_status_wait") + 1);
    EXPECT_LT(at("iptlib_"), at("nl_duplex_init"));
}

class MainFailing : public Main, public testing::WithParamInterface<size_t> {};

TEST_P(MainFailing, AtThisStep)
{
    const Step &failing = steps()[GetParam()];
    fail(failing.failing);
    std::vector<Lines> expected;
    for (size_t i = 0; i < GetParam(); i++) {
        expected.insert(expected.end(), steps()[i].lines.begin(), steps()[i].lines.end());
    }
    const std::vector<Lines> &reached = failing.at_failure.empty() ? failing.lines : failing.at_failure;
    expected.insert(expected.end(), reached.begin(), reached.end());
    if (failing.report != nullptr) {
        expected.push_back(error(failing.report));
    }
    if (failing.cleans_up) {
        expected.emplace_back("cmdlib_kill_processes()");
        expected.emplace_back(post_lines());
    }
    if (!failing.ends) {
        for (size_t i = GetParam() + 1; i < steps().size(); i++) {
            expected.insert(expected.end(), steps()[i].lines.begin(), steps()[i].lines.end());
        }
        expected.insert(expected.end(), end_of_a_good_run.begin(), end_of_a_good_run.end());
    }
    EXPECT_EQ(run(), failing.ends ? -3 : 0);
    expect_lines(expected);
}

std::vector<size_t> steps_that_can_fail()
{
    std::vector<size_t> numbers;
    for (size_t i = 0; i < steps().size(); i++) {
        if (steps()[i].failing != nullptr) {
            numbers.push_back(i);
        }
    }
    return numbers;
}

INSTANTIATE_TEST_SUITE_P(Steps, MainFailing, testing::ValuesIn(steps_that_can_fail()),
                         [](const auto &step) { return std::string{steps()[step.param].name}; });

} // namespace
} // namespace unit
