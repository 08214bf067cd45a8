// Changes through the stream of iptables-restore: as exact as by commands, and without a process for each.
#include "bus_world.h"
#include "iptables_world.h"
#include "platform/command.h"

#include <csignal>
#include <sys/wait.h>

extern "C" {
#include <libubox/uloop.h>
}

namespace {

const std::string stream = "-w --noflush --verbose";

class IptablesStreamTest : public IptablesTest {
protected:
    void SetUp() override
    {
        IptablesTest::SetUp();
        if (!IsSkipped()) {
            offer_stream();
        }
    }
    static pid_t process() { return std::stoi(read_file("/tmp/last")); }
    static std::string all_tables()
    {
        return iptables_table("filter") + iptables_table("nat") + iptables_table("mangle");
    }
};

TEST_F(IptablesStreamTest, OneProcessMakesAllChanges)
{
    ASSERT_EQ(iptlib_chain_new("nat", "first"), 0);
    runs();
    ASSERT_EQ(iptlib_rule_append("nat", "POSTROUTING", "-j first"), 0);
    ASSERT_EQ(iptlib_rules_flush("nat", "first"), 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -t nat -A first -j MASQUERADE"), 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -A INPUT -j DROP -i wan+"), 0);
    ASSERT_EQ(iptlib_rule_append("mangle", "FORWARD",
                                 "-p tcp --tcp-flags SYN,RST SYN -j TCPMSS --clamp-mss-to-pmtu"),
              0);
    EXPECT_EQ(runs(), Lines{});
    EXPECT_TRUE(contains(iptables_table("nat"), "-A POSTROUTING -j first\n-A first -j MASQUERADE\n"));
    EXPECT_TRUE(contains(iptables_table("filter"), "-A INPUT -i wan+ -j DROP\n"));
    EXPECT_TRUE(
        contains(iptables_table("mangle"), "--tcp-flags SYN,RST SYN -j TCPMSS --clamp-mss-to-pmtu\n"));
}

TEST_F(IptablesStreamTest, ListingsComeThroughTheStreamToo)
{
    ASSERT_EQ(run_program({"/usr/sbin/iptables", "-t", "nat", "-N", "theirs"}).status, 0);
    ASSERT_EQ(run_program({"/usr/sbin/iptables", "-t", "nat", "-A", "theirs", "-p", "tcp", "--dport", "80",
                           "-j", "REDIRECT"})
                  .status,
              0);
    EXPECT_NE(iptlib_chain_is_exist("nat", "theirs"), 0);
    EXPECT_NE(iptlib_rule_is_exist("nat", "theirs", "-p tcp -m tcp --dport 80 -j REDIRECT"), 0);
    EXPECT_EQ(iptlib_chain_is_exist("filter", "theirs"), 0);
    EXPECT_NE(iptlib_chain_is_exist("mangle", "FORWARD"), 0);
    EXPECT_EQ(runs(), Lines{stream});
}

// More than the two ends of a channel hold at once.
TEST_F(IptablesStreamTest, ALongListingComesWhole)
{
    constexpr int count = 20000;
    std::string rules = "*filter\n:long - [0:0]\n";
    for (int i = 0; i < count; i++) {
        rules +=
            "-A long -s 10." + std::to_string(i >> 8) + "." + std::to_string(i & 255) + ".0/24 -j DROP\n";
    }
    write_file("/tmp/rules", rules + "-A long -j RETURN\nCOMMIT\n");
    ASSERT_EQ(run_program({"/usr/sbin/iptables-restore", "/tmp/rules"}).status, 0);
    EXPECT_NE(iptlib_rule_is_exist("filter", "long", "-j RETURN"), 0);
    EXPECT_NE(iptlib_rule_is_exist("filter", "long", "-s 10.78.31.0/24 -j DROP"), 0);
    EXPECT_EQ(runs(), Lines{stream});
}

TEST_F(IptablesStreamTest, ATableThatCannotBeListedIsAnErrorAsByACommand)
{
    StderrCapture output;
    EXPECT_EQ(iptlib_chain_is_exist("nosuch", "x"), 0);
    EXPECT_NE(errno, 0);
    EXPECT_TRUE(contains(output.text(), "debug: iptlib_chain_is_exist(nosuch, x): ")) << output.text();
    EXPECT_EQ(runs(), (Lines{stream, "-w -t nosuch -S"}));
}

TEST_F(IptablesStreamTest, TheStreamWaitsForTheLockAndKeepsWhatIsThere)
{
    ASSERT_EQ(run_program({"/usr/sbin/iptables", "-A", "INPUT", "-j", "ACCEPT"}).status, 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -N mine"), 0);
    EXPECT_EQ(runs(), Lines{stream});
    EXPECT_TRUE(contains(iptables_table("filter"), "-A INPUT -j ACCEPT\n"));
}

// Whatever is asked for, status and outcome are those of commands. The words are real ones and wrong ones.
TEST_F(IptablesStreamTest, StatusAndOutcomeAreThoseOfCommands)
{
    const Lines lines = {
        "-N mine",
        "-N mine",
        "-N INPUT",
        "-F mine",
        "-F nosuch",
        "-F INPUT",
        "-t nat -F PREROUTING",
        "-t nosuch -N x",
        "-A mine -j ACCEPT",
        "-A mine -j ACCEPT",
        "-A nosuch -j ACCEPT",
        "-A mine -j nosuch",
        "-A INPUT -j mine",
        "-A mine -j mine",
        "-A mine -p tcp --dport 80 -j DROP",
        "-A mine --dport 80 -j DROP",
        "-A mine -p tcp --dport eighty -j DROP",
        "-A mine -s 10.0.0.0/8 ! -d 192.0.2.1 -j RETURN",
        "-A mine -s 10.0.0.300 -j RETURN",
        "-A mine -6 -j DROP",
        "-A mine -4 -j DROP",
        "-A mine -v -j DROP",
        "-A mine -w -j DROP",
        "-A mine -h",
        "-A mine",
        "-A mine -c 3 4 -j RETURN",
        "-A mine -j",
        "-A mine COMMIT",
        "-A mine -m comment --comment \"two words\" -j ACCEPT",
        "-A mine -m comment --comment #1 -j ACCEPT",
        "-A mine -m comment --comment '\"\\\\' -j ACCEPT",
        "-A mine -m comment --comment '' -j ACCEPT",
        "-A mine -m conntrack  --ctstate RELATED,ESTABLISHED -j ACCEPT",
        "-A mine -t mangle -j DROP",
        "-t mangle -A PREROUTING -j MARK --set-mark 0x10",
        "-t nat -A POSTROUTING -o wan1 -j MASQUERADE",
        "-A INPUT -j MASQUERADE",
        "-D mine -j ACCEPT",
        "-I mine -j DROP",
        "-P FORWARD DROP",
        "-X nosuch",
    };
    std::vector<bool> fine;
    for (const std::string &line : lines) {
        fine.push_back(cmdlib_do_iptables_cmd("iptables %s", line.c_str()) == 0);
    }
    const std::string outcome = all_tables();
    ASSERT_TRUE(contains(outcome, "-A INPUT -j mine\n")) << outcome;
    for (const char *table : {"filter", "nat", "mangle"}) {
        ASSERT_EQ(run_program({"/usr/sbin/iptables", "-t", table, "-F"}).status, 0);
        ASSERT_EQ(run_program({"/usr/sbin/iptables", "-t", table, "-X"}).status, 0);
    }
    ASSERT_EQ(run_program({"/usr/sbin/iptables", "-P", "FORWARD", "ACCEPT"}).status, 0);
    // A path is run as it stands.
    for (size_t i = 0; i < lines.size(); i++) {
        EXPECT_EQ(cmdlib_do_iptables_cmd("/usr/sbin/iptables %s", lines[i].c_str()) == 0, fine[i])
            << lines[i];
    }
    EXPECT_EQ(all_tables(), outcome);
}

// A stream's lines have a limit that command lines have not.
TEST_F(IptablesStreamTest, AVeryLongRuleGoesByACommand)
{
    const std::string comment = " -m comment --comment " + std::string(250, 'x');
    ASSERT_EQ(iptlib_rule_append("filter", "INPUT", (comment + comment + " -j DROP").c_str()), 0);
    ASSERT_EQ(runs().size(), 1U);
    ASSERT_EQ(iptlib_rule_append("filter", "INPUT", (comment + " -j ACCEPT").c_str()), 0);
    EXPECT_EQ(runs(), Lines{stream});
    EXPECT_TRUE(contains(iptables_table("filter"), "-j DROP\n-A INPUT"));
}

TEST_F(IptablesStreamTest, ARefusedChangeIsTriedByACommandThatTellsWhy)
{
    StderrCapture output;
    ASSERT_EQ(iptlib_chain_new("filter", "mine"), 0);
    runs();
    EXPECT_NE(iptlib_rule_append("filter", "mine", "-j nosuch"), 0);
    EXPECT_EQ(runs(), Lines{"-w -t filter -A mine -j nosuch"});
    EXPECT_TRUE(contains(output.text(), "debug: iptlib_rule_append(filter, mine, -j nosuch) [status ") ||
                contains(output.text(), "debug: iptlib_rule_append(filter, mine, -j nosuch [status "))
        << output.text();
    ASSERT_EQ(iptlib_rule_append("filter", "mine", "-j DROP"), 0);
    EXPECT_EQ(runs(), Lines{stream}) << "the next change opens a new one";
    EXPECT_TRUE(contains(iptables_table("filter"), "-A mine -j DROP\n"));
}

TEST_F(IptablesStreamTest, WhatOthersChangeInBetweenCounts)
{
    ASSERT_EQ(iptlib_chain_new("filter", "mine"), 0);
    ASSERT_EQ(run_program({"/usr/sbin/iptables", "-N", "theirs"}).status, 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -A mine -j theirs"), 0) << "a chain that was not there before";
    ASSERT_EQ(run_program({"/usr/sbin/iptables", "-F", "mine"}).status, 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -A mine -j DROP"), 0);
    EXPECT_TRUE(contains(iptables_table("filter"), "-A mine -j DROP\n"));
    EXPECT_FALSE(contains(iptables_table("filter"), "-A mine -j theirs\n"));
    ASSERT_EQ(run_program({"/usr/sbin/iptables", "-F", "mine"}).status, 0);
    ASSERT_EQ(run_program({"/usr/sbin/iptables", "-X", "mine"}).status, 0);
    EXPECT_NE(cmdlib_do_iptables_cmd("iptables -A mine -j DROP"), 0) << "a chain that has gone";
}

TEST_F(IptablesStreamTest, AProcessThatDiedCostsNothingButACommand)
{
    ASSERT_EQ(iptlib_chain_new("filter", "mine"), 0);
    ASSERT_EQ(kill(process(), SIGKILL), 0);
    siginfo_t ended;
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(process()), &ended, WEXITED | WNOWAIT), 0);
    runs();
    ASSERT_EQ(iptlib_rule_append("filter", "mine", "-j DROP"), 0);
    EXPECT_EQ(runs(), Lines{"-w -t filter -A mine -j DROP"});
    ASSERT_EQ(iptlib_rule_append("filter", "mine", "-j ACCEPT"), 0);
    EXPECT_EQ(runs(), Lines{stream});
    EXPECT_TRUE(contains(iptables_table("filter"), "-A mine -j DROP\n-A mine -j ACCEPT\n"));
}

TEST_F(IptablesStreamTest, TheProcessIsLetGoWhenThereIsNothingToDo)
{
    ASSERT_EQ(uloop_init(), 0);
    ASSERT_EQ(iptlib_chain_new("filter", "mine"), 0);
    const pid_t first = process();
    EXPECT_EQ(kill(first, 0), 0);
    EXPECT_TRUE(wait_for([first] {
        uloop_run_timeout(10);
        return kill(first, 0) != 0;
    }));
    ASSERT_EQ(iptlib_rule_append("filter", "mine", "-j DROP"), 0);
    EXPECT_NE(process(), first);
    EXPECT_TRUE(contains(iptables_table("filter"), "-A mine -j DROP\n"));
}

TEST_F(IptablesStreamTest, AProgramWithoutAStreamIsAskedForItOnce)
{
    offer_stream("#!/bin/sh\necho \"$*\" >> /tmp/runs\n"
                 "case \"$*\" in *--noflush*) exit 2 ;; esac\nexec /usr/sbin/iptables \"$@\"\n");
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -N mine"), 0);
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -A mine -j DROP"), 0);
    EXPECT_EQ(runs(), (Lines{stream, "-w -N mine", "-w -A mine -j DROP"}));
    EXPECT_TRUE(contains(iptables_table("filter"), "-A mine -j DROP\n"));
}

TEST_F(IptablesStreamTest, AProgramThatRepeatsNoCommentsIsGivenUp)
{
    offer_stream("#!/bin/sh\necho \"$*\" >> /tmp/runs; echo $$ > /tmp/last\n"
                 "case \"$*\" in *--noflush*) exec cat > /tmp/said ;; esac\n"
                 "exec /usr/sbin/iptables \"$@\"\n");
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -N mine"), 0);
    EXPECT_EQ(runs(), (Lines{stream, "-w -N mine"}));
    EXPECT_EQ(read_file("/tmp/said"), "#1\n") << "no change is sent before the first answer";
    ASSERT_EQ(cmdlib_do_iptables_cmd("iptables -A mine -j DROP"), 0);
    EXPECT_EQ(runs(), Lines{"-w -A mine -j DROP"});
}

} // namespace
