// What a start over a running router leaves where it is until the event loop runs.
#include "iptables_world.h"
#include "network.h"
#include "phy_double.h"
#include "platform/command.h"
#include "platform/events.h"
#include "platform/netdev.h"
#include "platform/output.h"

#include <csignal>
#include <functional>
#include <sys/wait.h>
#include <unistd.h>

extern "C" {
#include <libubox/uloop.h>
}

namespace {

using Events = std::vector<std::string>;

// The steps of a start up to the event loop.
void start(int (*on_link)(const nl_link_event *))
{
    outlib_client_init(0, nullptr);
    ASSERT_EQ(nl_duplex_init(), 0);
    ASSERT_EQ(uloop_init(), 0);
    ASSERT_EQ(nl_init("test"), 0);
    ASSERT_EQ(nl_rx_event_reg(1, on_link), 0);
}

int take_no_notice(const nl_link_event *)
{
    return 0;
}

// Runs the event loop until the ports have been polled; true when they have.
bool poll_links()
{
    const int before = phy(4).reads;
    for (int turn = 0; turn < 500 && phy(4).reads == before; ++turn) {
        uloop_run_timeout(10);
    }
    return phy(4).reads > before;
}

// A child's status: 0, or 128 and the signal that has ended it.
int in_a_child(const std::function<void()> &work)
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0) {
        work();
        _exit(9);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

std::string rules()
{
    return ip("rule");
}

// A WAN that carries traffic, as the daemon before has left it.
class StartRules : public TwoWansTest {
protected:
    void SetUp() override
    {
        TwoWansTest::SetUp();
        if (!IsSkipped()) {
            ip("rule add pref 10000 lookup 10000 proto 105");
            ip("rule add pref 10001 lookup main suppress_prefixlength 0 proto 105");
            ip("rule add pref 20001 lookup 20001 proto 105");
            ip("route add default via 192.0.2.254 dev v0 metric 20001 table 20001 proto 105");
            before_ = rules();
        }
    }
    std::string before_;
};

TEST_F(StartRules, ARemovedRuleStaysUntilThePortsHaveBeenPolled)
{
    start(take_no_notice);
    Monitor monitor;
    ASSERT_EQ(netlib_intf_plcrt_del("v0", 20001), 0);
    EXPECT_EQ(rules(), before_);
    ASSERT_TRUE(poll_links());
    EXPECT_EQ(monitor.events(), (Events{"-rule 20001", "-rule 10001"}));
}

TEST_F(StartRules, RemovedAndLaidAgainItIsNotTouched)
{
    start(take_no_notice);
    Monitor monitor;
    ASSERT_EQ(netlib_intf_plcrt_del("v0", 20001), 0);
    ASSERT_EQ(netlib_intf_plcrt_add("v0", 20001), 0);
    ASSERT_EQ(netlib_ip_rule_del(10000), 0);
    ASSERT_EQ(netlib_ip_rule_add(10000, "lookup 10000"), 0);
    ASSERT_TRUE(poll_links());
    EXPECT_EQ(monitor.events(), Events{});
}

int lay_again(const nl_link_event *event)
{
    if (event->link != 0) {
        EXPECT_EQ(netlib_intf_plcrt_del("v0", 20001), 0);
        EXPECT_EQ(netlib_intf_plcrt_add("v0", 20001), 0);
    }
    return 0;
}

TEST_F(StartRules, LaidAgainBecauseOfALinkItIsNotTouched)
{
    phy(0).plug();
    start(lay_again);
    Monitor monitor;
    ASSERT_EQ(netlib_intf_plcrt_del("v0", 20001), 0);
    ASSERT_TRUE(poll_links());
    EXPECT_EQ(monitor.events(), Events{});
}

TEST_F(StartRules, ALinkThatComesLaterLaysTheRuleAgain)
{
    start(lay_again);
    ASSERT_EQ(netlib_intf_plcrt_del("v0", 20001), 0);
    ASSERT_TRUE(poll_links());
    EXPECT_FALSE(contains(rules(), "20001:")) << "there is no link";
    phy(0).plug();
    ASSERT_TRUE(poll_links());
    EXPECT_EQ(rules(), before_);
}

TEST_F(StartRules, AfterThatRemovalsAreMadeAtOnce)
{
    start(take_no_notice);
    ASSERT_TRUE(poll_links());
    ASSERT_EQ(netlib_intf_plcrt_del("v0", 20001), 0);
    ASSERT_EQ(netlib_ip_rule_del(10000), 0);
    EXPECT_FALSE(contains(rules(), "proto 105"));
}

TEST_F(StartRules, AnotherRuleTakesThePlaceOfARemovedOne)
{
    start(take_no_notice);
    ip("rule add pref 10000 from 10.0.0.0/8 lookup 5");
    ASSERT_EQ(netlib_ip_rule_del(10000), 0);
    ASSERT_EQ(netlib_ip_rule_add(10000, "lookup 7"), 0);
    EXPECT_TRUE(contains(rules(), "10000:\tfrom all lookup 7 proto 105\n"));
    EXPECT_FALSE(contains(rules(), "lookup 10000") || contains(rules(), "lookup 5"));
    ASSERT_TRUE(poll_links());
    EXPECT_TRUE(contains(rules(), "10000:\tfrom all lookup 7 proto 105\n"));
}

TEST_F(StartRules, ARuleThatIsNotRemovedMakesNoRoom)
{
    start(take_no_notice);
    EXPECT_NE(netlib_ip_rule_add(10000, "lookup 7"), 0);
    EXPECT_EQ(rules(), before_);
}

TEST_F(StartRules, TheRuleStaysForAnotherWanThatHasComeMeanwhile)
{
    start(take_no_notice);
    ASSERT_EQ(netlib_intf_plcrt_del("v0", 20001), 0);
    // as the event script of a DHCP client does that shares the number
    ip("route append default via 198.51.100.254 dev w0 metric 20001 table 20001");
    ASSERT_TRUE(poll_links());
    EXPECT_EQ(rules(), before_);
}

TEST_F(StartRules, EachWanIsRememberedForItself)
{
    ip("rule add pref 20002 lookup 20002 proto 105");
    start(take_no_notice);
    ASSERT_EQ(netlib_intf_plcrt_del("v0", 20001), 0);
    ASSERT_EQ(netlib_intf_plcrt_del("v0", 20001), 0) << "twice is once";
    ASSERT_EQ(netlib_intf_plcrt_del("w0", 20002), 0);
    ASSERT_EQ(netlib_intf_plcrt_add("w0", 20002), 0);
    ASSERT_TRUE(poll_links());
    EXPECT_FALSE(contains(rules(), "20001:"));
    EXPECT_TRUE(contains(rules(), "10001:") && contains(rules(), "20002:"));
}

TEST_F(StartRules, MoreThanCanBeRememberedAreRemovedAtOnce)
{
    start(take_no_notice);
    for (uint32_t number = 1; number <= 64; ++number) {
        ASSERT_EQ(netlib_ip_rule_del(number), 0);
    }
    ASSERT_EQ(netlib_ip_rule_del(10000), 0);
    EXPECT_FALSE(contains(rules(), "10000:"));
}

TEST_F(StartRules, AProcessThatEndsInOrderLeavesWhatWasAsked)
{
    EXPECT_EQ(in_a_child([] {
                  outlib_client_init(0, nullptr);
                  netlib_intf_plcrt_del("v0", 20001);
                  netlib_ip_rule_del(10000);
                  exit(0);
              }),
              0);
    EXPECT_FALSE(contains(rules(), "proto 105"));
}

TEST_F(StartRules, AProcessThatIsKilledHasRemovedNothing)
{
    EXPECT_EQ(in_a_child([] {
                  outlib_client_init(0, nullptr);
                  netlib_intf_plcrt_del("v0", 20001);
                  netlib_ip_rule_del(10000);
                  raise(SIGTERM); // nobody handles it before the event loop
              }),
              128 + SIGTERM);
    EXPECT_EQ(rules(), before_);
}

TEST_F(StartRules, ALateRemovalThatFailsIsReported)
{
    StderrCapture said;
    EXPECT_EQ(in_a_child([] {
                  outlib_client_init(0, nullptr);
                  netlib_intf_plcrt_del("v0", 20001);
                  EXPECT_EQ(seteuid(65534), 0);
                  exit(0);
              }),
              0);
    EXPECT_TRUE(
        contains(said.text(), "warning: the policy rule 20001 cannot be removed: Operation not permitted\n"));
    EXPECT_EQ(rules(), before_);
}

// A chain of three rules, which a start empties and fills.
class StartChain : public IptablesTest {
protected:
    void SetUp() override
    {
        IptablesTest::SetUp();
        if (!IsSkipped()) {
            write_file("/tmp/rules", "*filter\n:own - [0:0]\n:other - [0:0]\n" + three() + "COMMIT\n");
            ASSERT_EQ(run_program({"/usr/sbin/iptables-restore", "/tmp/rules"}).status, 0);
            outlib_client_init(0, nullptr);
        }
    }
    static std::string three()
    {
        return "-A own -i wan+ -j DROP\n-A own -i usb+ -j DROP\n-A own -p udp -m udp --dport 53 -j DROP\n";
    }
    static std::string own() { return with_words(iptables_table("filter"), "-A own "); }
    static int append_first()
    {
        return cmdlib_do_iptables_cmd("iptables -A %s -j DROP -i %s", "own", "wan+");
    }
    static int append_second()
    {
        return cmdlib_do_iptables_cmd("iptables -A %s -j DROP -i %s", "own", "usb+");
    }
    static int append_third() { return iptlib_rule_append("filter", "own", "-p udp --dport 53 -j DROP"); }

private:
    static std::string with_words(const std::string &table, const std::string &words)
    {
        std::string found;
        std::istringstream lines(table);
        for (std::string line; std::getline(lines, line);) {
            found += line.starts_with(words) ? line + "\n" : "";
        }
        return found;
    }
};

TEST_F(StartChain, FilledAsItWasItIsNeverWithoutARule)
{
    ASSERT_EQ(iptlib_rules_flush("filter", "own"), 0);
    EXPECT_EQ(own(), three());
    for (int (*append)() : {append_first, append_second, append_third}) {
        ASSERT_EQ(append(), 0);
        EXPECT_EQ(own(), three());
    }
    EXPECT_EQ(runs(), (Lines{"-w -t filter -S", "-w -R own 1 -j DROP -i wan+", "-w -R own 2 -j DROP -i usb+",
                             "-w -t filter -R own 3 -p udp --dport 53 -j DROP"}));
}

TEST_F(StartChain, ByTheStreamToo)
{
    offer_stream();
    ASSERT_EQ(iptlib_rules_flush("filter", "own"), 0);
    for (int (*append)() : {append_first, append_second, append_third}) {
        ASSERT_EQ(append(), 0);
        EXPECT_EQ(own(), three());
    }
    EXPECT_EQ(runs(), Lines{"-w --noflush --verbose"});
}

TEST_F(StartChain, OtherRulesTakeThePlacesOfTheOldOnes)
{
    ASSERT_EQ(iptlib_rules_flush("filter", "own"), 0);
    ASSERT_EQ(append_third(), 0);
    ASSERT_EQ(append_first(), 0);
    ASSERT_EQ(append_second(), 0);
    ASSERT_EQ(iptlib_rule_append("filter", "own", "-j RETURN"), 0) << "one more than there were";
    EXPECT_EQ(own(),
              "-A own -p udp -m udp --dport 53 -j DROP\n-A own -i wan+ -j DROP\n-A own -i usb+ -j DROP\n"
              "-A own -j RETURN\n");
}

TEST_F(StartChain, OldRulesThatAreLeftGoBeforeAnythingElse)
{
    const std::function<void()> next[] = {
        [] { EXPECT_NE(iptlib_chain_is_exist("filter", "own"), 0); },
        [] { EXPECT_EQ(iptlib_rule_is_exist("filter", "own", "usb+"), 0); },
        [] { EXPECT_EQ(iptlib_rule_append("filter", "other", "-j RETURN"), 0); },
        [] { EXPECT_EQ(iptlib_chain_new("nat", "third"), 0); },
        [] { EXPECT_EQ(iptlib_rules_flush("filter", "other"), 0); },
    };
    for (const auto &operation : next) {
        ASSERT_EQ(run_program({"/usr/sbin/iptables-restore", "--noflush", "/tmp/rules"}).status, 0);
        ASSERT_EQ(iptlib_rules_flush("filter", "own"), 0);
        ASSERT_EQ(append_first(), 0);
        EXPECT_EQ(own().find(three()), 0U);
        operation();
        EXPECT_EQ(own(), "-A own -i wan+ -j DROP\n");
        ASSERT_EQ(run_program({"/usr/sbin/iptables", "-F", "own"}).status, 0);
        iptlib_rule_append("filter", "other", "-j no_such_target"); // a failure: the table is listed again
    }
}

TEST_F(StartChain, OldRulesThatAreLeftGoWithTheFirstPoll)
{
    start(take_no_notice);
    ASSERT_EQ(iptlib_rules_flush("filter", "own"), 0);
    ASSERT_EQ(append_first(), 0);
    ASSERT_TRUE(poll_links());
    EXPECT_EQ(own(), "-A own -i wan+ -j DROP\n");
}

TEST_F(StartChain, OldRulesThatAreLeftGoWithAnEndInOrder)
{
    EXPECT_EQ(in_a_child([] {
                  iptlib_rules_flush("filter", "own");
                  exit(0);
              }),
              0);
    EXPECT_EQ(own(), "");
}

TEST_F(StartChain, OldRulesThatCannotBeRemovedAreReported)
{
    StderrCapture said;
    ASSERT_EQ(iptlib_rules_flush("filter", "own"), 0);
    write_file("/tmp/bin/iptables",
               "#!/bin/sh\ncase \"$*\" in *-D*) exit 4 ;; *) exec /usr/sbin/iptables \"$@\" ;; esac\n", 0755);
    EXPECT_NE(iptlib_chain_is_exist("filter", "own"), 0);
    EXPECT_TRUE(
        contains(said.text(), "warning: old rules of the chain own in table filter cannot be removed\n"));
    EXPECT_EQ(own(), three());
}

TEST_F(StartChain, ARefusedRuleIsAnErrorAndTheOldOnesGo)
{
    ASSERT_EQ(iptlib_rules_flush("filter", "own"), 0);
    ASSERT_EQ(append_first(), 0);
    EXPECT_NE(iptlib_rule_append("filter", "own", "-j no_such_target"), 0);
    EXPECT_EQ(own(), "-A own -i wan+ -j DROP\n");
}

TEST_F(StartChain, RulesThatSomebodyElseHasRemovedMeanwhile)
{
    ASSERT_EQ(iptlib_rules_flush("filter", "own"), 0);
    ASSERT_EQ(run_program({"/usr/sbin/iptables", "-F", "own"}).status, 0);
    ASSERT_EQ(append_first(), 0);
    ASSERT_EQ(append_second(), 0);
    ASSERT_EQ(append_third(), 0);
    EXPECT_EQ(own(), three());
}

TEST_F(StartChain, AnAbsentChainIsAnError)
{
    EXPECT_NE(iptlib_rules_flush("filter", "nosuch"), 0);
}

TEST_F(StartChain, AfterThatAChainIsEmptiedAtOnce)
{
    start(take_no_notice);
    ASSERT_TRUE(poll_links());
    ASSERT_EQ(iptlib_rules_flush("filter", "own"), 0);
    EXPECT_EQ(own(), "");
}

// The row of a WAN whose client lives on.
class StartRow : public TwoWansTest {
protected:
    static constexpr const char *path = "/var/run/ivarode/wan/v0";

    static int insert(const char *proto, const char *address = "0.0.0.0")
    {
        return netlib_waninfo_db_insert("v0", proto, address, "0.0.0.0", "0.0.0.0", "0.0.0.0", "0.0.0.0");
    }
    static std::string row(const std::string &proto, const std::string &address)
    {
        return "name=v0\nproto=" + proto + "\nipaddr=" + address +
               "\nnetmask=255.255.255.0\ngateway=192.0.2.254\naddr4=0.0.0.0\naddr5=0.0.0.0\n";
    }
};

TEST_F(StartRow, KeepsAddressesThatItsDeviceHas)
{
    outlib_client_init(0, nullptr);
    write_file(path, row("dhcp", "192.0.2.1"));
    ASSERT_EQ(insert("dhcp"), 0);
    EXPECT_EQ(read_file(path), row("dhcp", "192.0.2.1"));
}

TEST_F(StartRow, IsWrittenWhereItIsNotTrueAnyLonger)
{
    outlib_client_init(0, nullptr);
    for (const std::string &old :
         {row("dhcp", "192.0.2.9"), row("pppoe", "192.0.2.1"), row("dhcp", "0.0.0.0"), row("dhcp", ""),
          std::string("name=v0\n"), std::string()}) {
        write_file(path, old);
        ASSERT_EQ(insert("dhcp"), 0);
        EXPECT_TRUE(contains(read_file(path), "proto=dhcp\nipaddr=0.0.0.0\nnetmask=0.0.0.0\n")) << old;
    }
    write_file(path, row("dhcp", "192.0.2.1"));
    ASSERT_EQ(insert("dhcp", "192.0.2.7"), 0) << "an address that is known is written";
    EXPECT_TRUE(contains(read_file(path), "ipaddr=192.0.2.7\n"));
}

TEST_F(StartRow, IsWrittenAfterTheStart)
{
    start(take_no_notice);
    ASSERT_TRUE(poll_links());
    write_file(path, row("dhcp", "192.0.2.1"));
    ASSERT_EQ(insert("dhcp"), 0);
    EXPECT_TRUE(contains(read_file(path), "ipaddr=0.0.0.0\n"));
}

} // namespace
