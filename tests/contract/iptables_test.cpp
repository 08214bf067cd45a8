#include "iptables_world.h"
#include "platform/command.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>

extern "C" {
#include <libubox/uloop.h>
}

namespace {

const char *const established = "-m conntrack  --ctstate RELATED,ESTABLISHED -j ACCEPT";

// What holds whether changes are made by commands or through a stream.
enum class Way { commands, stream };

class EitherWay : public IptablesTest, public testing::WithParamInterface<Way> {
protected:
    void SetUp() override
    {
        IptablesTest::SetUp();
        if (!IsSkipped() && GetParam() == Way::stream) {
            offer_stream();
        }
    }
};

INSTANTIATE_TEST_SUITE_P(Iptables, EitherWay, testing::Values(Way::commands, Way::stream),
                         [](const auto &way) { return way.param == Way::stream ? "Stream" : "Commands"; });

TEST_P(EitherWay, AChainExistsOrNot)
{
    EXPECT_NE(iptlib_chain_is_exist("filter", "INPUT"), 0) << "built in";
    EXPECT_EQ(iptlib_chain_is_exist("filter", "mine"), 0);
    ASSERT_EQ(iptlib_chain_new("filter", "mine"), 0);
    EXPECT_NE(iptlib_chain_is_exist("filter", "mine"), 0);
    EXPECT_TRUE(contains(iptables_table("filter"), "-N mine\n"));
}

TEST_P(EitherWay, ChainsAreComparedWhole)
{
    ASSERT_EQ(iptlib_chain_new("filter", "rules_10"), 0);
    EXPECT_EQ(iptlib_chain_is_exist("filter", "rules_1"), 0);
    EXPECT_EQ(iptlib_chain_is_exist("filter", "rules_100"), 0);
    EXPECT_EQ(iptlib_chain_is_exist("filter", "INPU"), 0);
}

TEST_P(EitherWay, EachTableHasItsOwnChains)
{
    ASSERT_EQ(iptlib_chain_new("nat", "mine"), 0);
    EXPECT_EQ(iptlib_chain_is_exist("filter", "mine"), 0);
    EXPECT_EQ(iptlib_chain_is_exist("mangle", "mine"), 0);
    EXPECT_NE(iptlib_chain_is_exist("nat", "mine"), 0);
}

TEST_P(EitherWay, AChainThatIsThereAlreadyIsFine)
{
    ASSERT_EQ(run_program({"/usr/sbin/iptables", "-N", "mine"}).status, 0);
    EXPECT_EQ(iptlib_chain_new("filter", "mine"), 0);
    EXPECT_EQ(iptlib_chain_new("filter", "mine"), 0);
}

TEST_P(EitherWay, AListedRuleContainsTheTextExactly)
{
    ASSERT_EQ(iptlib_chain_new("filter", "other"), 0);
    ASSERT_EQ(iptlib_rule_append("filter", "FORWARD", "-p tcp --dport 7547 -j other"), 0);
    EXPECT_NE(iptlib_rule_is_exist("filter", "FORWARD", "other"), 0);
    EXPECT_NE(iptlib_rule_is_exist("filter", "FORWARD", "-p tcp -m tcp --dport 7547 -j other"), 0)
        << "as listed";
    EXPECT_EQ(iptlib_rule_is_exist("filter", "FORWARD", "-p tcp --dport"), 0) << "not as given";
    EXPECT_EQ(iptlib_rule_is_exist("filter", "FORWARD", "Other"), 0);
    EXPECT_EQ(iptlib_rule_is_exist("filter", "INPUT", "other"), 0) << "of another chain";
    EXPECT_EQ(iptlib_rule_is_exist("filter", "FORWARD", "FORWARD"), 0)
        << "the chain's name is not its rule's text";
}

TEST_P(EitherWay, NoRuleOfAnAbsentChainExists)
{
    EXPECT_EQ(iptlib_rule_is_exist("filter", "nosuch", "x"), 0);
}

TEST_P(EitherWay, RulesAreAppendedInOrder)
{
    ASSERT_EQ(iptlib_chain_new("mangle", "one"), 0);
    ASSERT_EQ(iptlib_chain_new("mangle", "two"), 0);
    ASSERT_EQ(iptlib_rule_append("mangle", "PREROUTING", established), 0);
    ASSERT_EQ(iptlib_rule_append("mangle", "PREROUTING", "-j one"), 0);
    ASSERT_EQ(iptlib_rule_append("mangle", "PREROUTING", "-j two"), 0);
    EXPECT_TRUE(contains(iptables_table("mangle"),
                         "-A PREROUTING -m conntrack --ctstate RELATED,ESTABLISHED -j ACCEPT\n"
                         "-A PREROUTING -j one\n-A PREROUTING -j two\n"));
}

TEST_P(EitherWay, QuotesInARuleJoinWords)
{
    ASSERT_EQ(iptlib_rule_append("filter", "INPUT", "-m comment --comment 'two words' -j \"ACCEPT\""), 0);
    EXPECT_TRUE(contains(iptables_table("filter"), "--comment \"two words\" -j ACCEPT"));
}

TEST_P(EitherWay, NothingIsExpandedAndNoShellRuns)
{
    ASSERT_EQ(
        iptlib_rule_append("filter", "INPUT", "-m comment --comment $(touch${IFS}/tmp/x);`id`>*|& -j ACCEPT"),
        0);
    EXPECT_TRUE(contains(iptables_table("filter"), "--comment \"\\$(touch\\${IFS}/tmp/x);\\`id\\`>*|&\"") ||
                contains(iptables_table("filter"), "$(touch${IFS}/tmp/x);`id`>*|&"))
        << iptables_table("filter");
    EXPECT_FALSE(file_exists("/tmp/x"));
}

TEST_P(EitherWay, FlushEmptiesOneChain)
{
    ASSERT_EQ(iptlib_rule_append("filter", "INPUT", "-j ACCEPT"), 0);
    ASSERT_EQ(iptlib_rule_append("filter", "FORWARD", "-j ACCEPT"), 0);
    ASSERT_EQ(iptlib_rules_flush("filter", "INPUT"), 0);
    EXPECT_EQ(iptlib_rule_is_exist("filter", "INPUT", "ACCEPT"), 0);
    EXPECT_NE(iptlib_rule_is_exist("filter", "FORWARD", "ACCEPT"), 0);
    EXPECT_FALSE(contains(iptables_table("filter"), "-A INPUT"));
}

TEST_P(EitherWay, AWholeCommandLineIsRun)
{
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -t nat -N %s", "intf_sip_mesquerade"), 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -t nat -A %s -j MASQUERADE", "intf_sip_mesquerade"), 0);
    EXPECT_TRUE(contains(iptables_table("nat"), "-A intf_sip_mesquerade -j MASQUERADE\n"));
    EXPECT_NE(iptlib_chain_is_exist("nat", "intf_sip_mesquerade"), 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -N input_filter_rules_drop"), 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -A %s -j DROP -i %s", "input_filter_rules_drop", "wan+"), 0);
    EXPECT_TRUE(contains(iptables_table("filter"), "-A input_filter_rules_drop -i wan+ -j DROP\n"));
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -D %s -j DROP -i %s", "input_filter_rules_drop", "wan+"), 0);
    EXPECT_FALSE(contains(iptables_table("filter"), "wan+"));
}

TEST_P(EitherWay, OnlyIptablesIsRun)
{
    for (const char *line : {"touch /tmp/x", "", "  ", "ip6tables -N x", "iptables-save", "sh -c iptables"}) {
        EXPECT_NE(cmdlib_do_iptables_cmd("%s", line), 0) << line;
        EXPECT_EQ(errno, EINVAL) << line;
    }
    EXPECT_FALSE(file_exists("/tmp/x"));
    EXPECT_NE(cmdlib_do_iptables_cmd("iptables -N 'open"), 0);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(IptablesTest, EveryProcessWaitsForTheLock)
{
    iptlib_chain_is_exist("filter", "mine");
    ASSERT_EQ(iptlib_chain_new("filter", "mine"), 0);
    ASSERT_EQ(iptlib_rule_append("filter", "INPUT", "-j mine"), 0);
    ASSERT_EQ(iptlib_rules_flush("filter", "INPUT"), 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -N other"), 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -w -N third"), 0);
    EXPECT_EQ(runs(), (Lines{"-w -t filter -S", "-w -t filter -N mine", "-w -t filter -A INPUT -j mine",
                             "-w -t filter -F INPUT", "-w -N other", "-w -N third"}));
}

TEST_F(IptablesTest, ATableIsListedOnceForAllQuestions)
{
    for (const char *chain : {"INPUT", "FORWARD", "a", "b", "c"}) {
        iptlib_chain_is_exist("filter", chain);
        iptlib_rule_is_exist("filter", chain, "x");
    }
    EXPECT_EQ(runs(), Lines{"-w -t filter -S"});
}

TEST_F(IptablesTest, TheViewFollowsOurOwnChangesWithoutListingAgain)
{
    EXPECT_EQ(iptlib_rule_is_exist("mangle", "PREROUTING", "RELATED,ESTABLISHED"), 0);
    ASSERT_EQ(iptlib_rule_append("mangle", "PREROUTING", established), 0);
    EXPECT_NE(iptlib_rule_is_exist("mangle", "PREROUTING", "RELATED,ESTABLISHED"), 0);
    EXPECT_NE(iptlib_rule_is_exist("mangle", "PREROUTING", "--ctstate RELATED,ESTABLISHED -j ACCEPT"), 0);
    EXPECT_EQ(iptlib_chain_is_exist("mangle", "one"), 0);
    ASSERT_EQ(iptlib_chain_new("mangle", "one"), 0);
    EXPECT_EQ(iptlib_rule_is_exist("mangle", "PREROUTING", "one"), 0);
    ASSERT_EQ(iptlib_rule_append("mangle", "PREROUTING", "-j one"), 0);
    EXPECT_NE(iptlib_rule_is_exist("mangle", "PREROUTING", "one"), 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -t mangle -N two"), 0);
    EXPECT_NE(iptlib_chain_is_exist("mangle", "two"), 0);
    ASSERT_EQ(iptlib_rules_flush("mangle", "PREROUTING"), 0);
    EXPECT_EQ(iptlib_rule_is_exist("mangle", "PREROUTING", "one"), 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -t mangle -A two -j one"), 0);
    EXPECT_NE(iptlib_rule_is_exist("mangle", "two", "-j one"), 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -t mangle -F two"), 0);
    EXPECT_EQ(iptlib_rule_is_exist("mangle", "two", "-j one"), 0);
    EXPECT_EQ(runs().size(), 1U + 7U) << "one listing and one process for each change";
}

TEST_P(EitherWay, WhatTheViewFollowsIsWhatIptablesLists)
{
    iptlib_chain_is_exist("filter", "x");
    ASSERT_EQ(iptlib_chain_new("filter", "mine"), 0);
    for (const char *rule : {established, "-j mine", "-j ACCEPT", "-j DROP", "-j RETURN"}) {
        ASSERT_EQ(iptlib_rule_append("filter", "INPUT", rule), 0);
    }
    for (const char *listed : {"-m conntrack --ctstate RELATED,ESTABLISHED -j ACCEPT", "-j mine", "-j ACCEPT",
                               "-j DROP", "-j RETURN"}) {
        EXPECT_NE(iptlib_rule_is_exist("filter", "INPUT", listed), 0) << listed;
        EXPECT_TRUE(contains(iptables_table("filter"), std::string("-A INPUT ") + listed + "\n")) << listed;
    }
}

TEST_F(IptablesTest, AQuestionThatDependsOnARuleListedInOtherWordsMakesANewListing)
{
    iptlib_chain_is_exist("filter", "x");
    ASSERT_EQ(iptlib_rule_append("filter", "INPUT", "-p tcp --dport 7547 -j ACCEPT"), 0);
    EXPECT_EQ(runs().size(), 2U);
    EXPECT_EQ(iptlib_rule_is_exist("filter", "FORWARD", "7547"), 0) << "another chain";
    EXPECT_TRUE(runs().empty());
    EXPECT_NE(iptlib_rule_is_exist("filter", "INPUT", "-m tcp"), 0);
    EXPECT_NE(iptlib_rule_is_exist("filter", "INPUT", "7547"), 0);
    EXPECT_EQ(runs(), Lines{"-w -t filter -S"});
}

TEST_P(EitherWay, AFailureIsAnErrorAndTellsWhatIptablesSaid)
{
    StderrCapture output;
    EXPECT_NE(iptlib_rule_append("filter", "INPUT", "-j nosuch"), 0);
    EXPECT_NE(errno, 0);
    EXPECT_TRUE(contains(output.text(), "debug: iptlib_rule_append(filter, INPUT, -j nosuch [status "))
        << output.text();
    EXPECT_NE(cmdlib_do_iptables_cmd("iptables -t nosuch -N x"), 0);
    EXPECT_NE(iptlib_rules_flush("filter", "nosuch"), 0);
    EXPECT_NE(iptlib_chain_new("nosuch", "x"), 0);
}

TEST_P(EitherWay, AfterAnyFailureTheTableIsListedAnew)
{
    EXPECT_EQ(iptlib_chain_is_exist("filter", "mine"), 0);
    ASSERT_EQ(run_program({"/usr/sbin/iptables", "-N", "mine"}).status, 0);
    EXPECT_EQ(iptlib_chain_is_exist("filter", "mine"), 0) << "the view does not know";
    EXPECT_NE(iptlib_rule_append("nat", "PREROUTING", "-j nosuch"), 0);
    EXPECT_NE(iptlib_chain_is_exist("filter", "mine"), 0);
}

TEST_F(IptablesTest, ACommandThatTheViewCannotFollowMakesANewListing)
{
    ASSERT_EQ(iptlib_chain_new("filter", "mine"), 0);
    runs();
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -X mine"), 0);
    EXPECT_EQ(iptlib_chain_is_exist("filter", "mine"), 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -I INPUT -j ACCEPT"), 0);
    EXPECT_NE(iptlib_rule_is_exist("filter", "INPUT", "ACCEPT"), 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -A INPUT -t mangle -j DROP"), 0)
        << "the table after the chain";
    EXPECT_EQ(iptlib_rule_is_exist("filter", "INPUT", "DROP"), 0);
    EXPECT_NE(iptlib_rule_is_exist("mangle", "INPUT", "DROP"), 0);
}

TEST_F(IptablesTest, NamesThatWouldBeOptionsAreErrors)
{
    for (const char *name : {"", "-F", "!"}) {
        EXPECT_NE(iptlib_chain_new("filter", name), 0) << name;
        EXPECT_NE(iptlib_chain_new(name, "x"), 0) << name;
        EXPECT_NE(iptlib_rule_append("filter", name, "-j ACCEPT"), 0) << name;
        EXPECT_NE(iptlib_rules_flush("filter", name), 0) << name;
        EXPECT_EQ(iptlib_chain_is_exist("filter", name), 0) << name;
    }
    EXPECT_NE(iptlib_chain_new(nullptr, nullptr), 0);
    EXPECT_NE(iptlib_rule_append("filter", "INPUT", nullptr), 0);
    EXPECT_EQ(iptlib_rule_is_exist("filter", "INPUT", nullptr), 0);
    EXPECT_TRUE(runs().empty());
}

TEST_F(IptablesTest, WithoutIptablesQuestionsSayNoAndChangesFail)
{
    write_file("/tmp/bin/iptables", "#!/bin/sh\nkill -9 $$\n", 0755);
    StderrCapture output;
    EXPECT_EQ(iptlib_chain_is_exist("filter", "INPUT"), 0);
    EXPECT_TRUE(contains(output.text(), "debug: iptlib_chain_is_exist(filter, INPUT): ")) << output.text();
    EXPECT_NE(iptlib_chain_new("filter", "mine"), 0);
    EXPECT_TRUE(contains(output.text(), "status 137")) << output.text();
}

TEST_F(IptablesTest, ProgramsOfTheSystemAreFoundWithoutAPath)
{
    setenv("PATH", "/nowhere", 1);
    EXPECT_NE(iptlib_chain_is_exist("filter", "INPUT"), 0);
}

TEST_P(EitherWay, ExitStatusesSurviveAnEventLoopThatReapsChildren)
{
    ASSERT_EQ(uloop_init(), 0); // from here on SIGCHLD is handled, and system calls are interrupted by it
    for (int i = 0; i < 20; ++i) {
        std::string chain = "c" + std::to_string(i);
        EXPECT_EQ(iptlib_chain_new("filter", chain.c_str()), 0);
        EXPECT_NE(iptlib_rule_append("filter", chain.c_str(), "-j nosuch"), 0);
        uloop_run_timeout(0);
    }
}

TEST_P(EitherWay, ExitStatusesSurviveAParentThatIgnoredSigchld)
{
    signal(SIGCHLD, SIG_IGN);
    EXPECT_EQ(iptlib_chain_new("filter", "mine"), 0);
    EXPECT_NE(iptlib_rule_append("filter", "INPUT", "-j nosuch"), 0);
    EXPECT_EQ(signal(SIGCHLD, SIG_DFL), SIG_IGN) << "left as it was";
}

TEST_F(IptablesTest, ChildrenStartWithOrdinarySignals)
{
    write_file("/tmp/bin/iptables",
               "#!/bin/sh\ngrep -E '^Sig(Ign|Blk|Cgt)' /proc/self/status >> /tmp/signals\n", 0755);
    signal(SIGPIPE, SIG_IGN);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -N x"), 0);
    std::string status = read_file("/tmp/signals");
    EXPECT_TRUE(contains(status, "SigBlk:\t0000000000000000")) << status;
    // As many digits as the processor has signals; the last ones are the first signals.
    size_t digits_end = status.find('\n', status.find("SigIgn:"));
    ASSERT_NE(digits_end, std::string::npos) << status;
    auto ignored = std::strtoul(status.substr(digits_end - 8, 8).c_str(), nullptr, 16);
    EXPECT_EQ(ignored & (1UL << (SIGPIPE - 1)), 0U) << status;
}

} // namespace
