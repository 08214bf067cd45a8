// An iptables-restore that dies, stops or talks without end in the middle of a change.
#include "iptables_world.h"
#include "platform/command.h"

#include <cerrno>
#include <ctime>
#include <poll.h>
#include <sys/syscall.h>

namespace {

int wait_divisor = 1;

} // namespace

// The library's waits, as a part of their time; the dynamic linker takes this definition before that of libc.
extern "C" int poll(pollfd *list, nfds_t count, int timeout)
{
    timeout = timeout > 0 ? timeout / wait_divisor : timeout;
    const timespec limit = {timeout / 1000, timeout % 1000 * 1000000L};
    return static_cast<int>(syscall(SYS_ppoll, list, count, timeout < 0 ? nullptr : &limit, nullptr, 0));
}

namespace {

// Works as the real one, change by change, and reads from /tmp/whim what to do instead with the next.
constexpr std::string_view whimsical = R"(#!/bin/sh
echo "$*" >> /tmp/runs
case "$*" in
*--noflush*) ;;
*) exec /usr/sbin/iptables "$@" ;;
esac
lines=
while read -r line; do
    case $line in
    '#'*)
        whim=
        if [ -n "$lines" ] && [ -e /tmp/whim ]; then
            whim=$(cat /tmp/whim)
            rm /tmp/whim
        fi
        case $whim in
        die-first) kill -KILL $$ ;;
        stop-first) kill -STOP $$ ;;
        talk) exec yes ;;
        esac
        [ -z "$lines" ] || printf '%s\n' "$lines" | /usr/sbin/iptables-restore -w --noflush --verbose || exit
        case $whim in
        die) kill -KILL $$ ;;
        stop) kill -STOP $$ ;;
        end) exit 0 ;;
        esac
        echo "$line"
        lines=
        ;;
    *) lines=${lines:+$lines
}$line ;;
    esac
done
)";

class IptablesWhims : public IptablesTest {
protected:
    void SetUp() override
    {
        IptablesTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        offer_stream(whimsical);
        ASSERT_EQ(run_program({"/usr/sbin/iptables", "-N", "mine"}).status, 0);
        ASSERT_EQ(run_program({"/usr/sbin/iptables", "-A", "mine", "-j", "DROP"}).status, 0);
    }
    // The table is listed before, so that the whim is for the change.
    static void has_whim(const char *whim)
    {
        ASSERT_NE(iptlib_chain_is_exist("filter", "mine"), 0);
        runs();
        write_file("/tmp/whim", whim);
    }
    static bool was_moody() { return !file_exists("/tmp/whim"); }
    // Waits of the library are a fiftieth as long from here on.
    static void hurry() { wait_divisor = 50; }
    static std::string rules()
    {
        std::string found;
        std::istringstream table(iptables_table("filter"));
        for (std::string line; std::getline(table, line);) {
            found += line.starts_with("-A") || line.starts_with("-N") ? line + ";" : "";
        }
        return found;
    }
};

class IptablesWhim : public IptablesWhims, public testing::WithParamInterface<const char *> {};

INSTANTIATE_TEST_SUITE_P(Each, IptablesWhim,
                         testing::Values("die-first", "die", "end", "stop-first", "stop"));

// A rule like the first is there already, and one more is asked for: one more it is, made before the answer
// was lost or not.
TEST_P(IptablesWhim, AnAppendedRuleIsThereOnce)
{
    hurry();
    has_whim(GetParam());
    EXPECT_EQ(iptlib_rule_append("filter", "mine", "-j DROP"), 0);
    EXPECT_TRUE(was_moody());
    EXPECT_EQ(rules(), "-N mine;-A mine -j DROP;-A mine -j DROP;");
    EXPECT_NE(iptlib_rule_is_exist("filter", "mine", "-j DROP"), 0);
    EXPECT_EQ(iptlib_rule_append("filter", "mine", "-j ACCEPT"), 0);
    EXPECT_EQ(rules(), "-N mine;-A mine -j DROP;-A mine -j DROP;-A mine -j ACCEPT;");
}

TEST_P(IptablesWhim, AChainIsMadeOnceAndThatIsNoError)
{
    hurry();
    has_whim(GetParam());
    EXPECT_EQ(cmdlib_do_iptables_cmd("iptables -N other"), 0);
    EXPECT_TRUE(was_moody());
    EXPECT_EQ(rules(), "-N mine;-N other;-A mine -j DROP;");
    EXPECT_EQ(iptlib_rules_flush("filter", "other"), 0);
}

TEST_P(IptablesWhim, AChainIsFlushed)
{
    hurry();
    has_whim(GetParam());
    EXPECT_EQ(iptlib_rules_flush("filter", "mine"), 0);
    EXPECT_TRUE(was_moody());
    EXPECT_EQ(rules(), "-N mine;");
}

TEST_F(IptablesWhims, SilenceIsToldOfAndEndsTheProgram)
{
    hurry();
    StderrCapture output;
    has_whim("stop");
    EXPECT_EQ(iptlib_rule_append("filter", "mine", "-j ACCEPT"), 0);
    EXPECT_EQ(output.text(), "warning: iptables-restore has said nothing for 5 s\n"
                             "warning: iptables-restore has said nothing for 30 s and is ended\n");
    EXPECT_EQ(runs(), Lines{"-w -t filter -S"}) << "the stream is not trusted with the look-up";
}

TEST_F(IptablesWhims, EndlessTalkEndsTheProgram)
{
    has_whim("talk");
    EXPECT_EQ(iptlib_rule_append("filter", "mine", "-j ACCEPT"), 0);
    EXPECT_TRUE(was_moody());
    EXPECT_EQ(runs(), (Lines{"-w -t filter -S", "-w -t filter -A mine -j ACCEPT"}));
    EXPECT_EQ(rules(), "-N mine;-A mine -j DROP;-A mine -j ACCEPT;");
}

TEST_F(IptablesWhims, ACommandThatIsSilentOrTalksWithoutEndIsAnError)
{
    hurry();
    StderrCapture output;
    offer_stream("#!/bin/sh\nexec yes\n");
    unlink("/tmp/bin/iptables");
    ASSERT_EQ(symlink("yes-man", "/tmp/bin/iptables"), 0);
    write_file("/tmp/bin/yes-man", "#!/bin/sh\nexec yes\n", 0755);
    EXPECT_NE(cmdlib_do_iptables_cmd("iptables -N other"), 0);
    EXPECT_EQ(errno, EFBIG);
    write_file("/tmp/bin/yes-man", "#!/bin/sh\nkill -STOP $$\n", 0755);
    EXPECT_NE(cmdlib_do_iptables_cmd("iptables -N other"), 0);
    EXPECT_EQ(errno, ETIMEDOUT);
    EXPECT_EQ(output.text(), "debug: cmdlib_do_iptables_cmd(iptables -N other): File too large\n"
                             "warning: iptables has said nothing for 5 s\n"
                             "warning: iptables has said nothing for 30 s and is ended\n"
                             "debug: cmdlib_do_iptables_cmd(iptables -N other): Connection timed out\n");
}

} // namespace
