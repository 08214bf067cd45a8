// The watchdog on a clock of the test's own: what it hears every 15 s, and when it ends a daemon.

#include "guard/watchdog.h"

#include <gtest/gtest.h>
#include <random>
#include <vector>

namespace {

using ctl::answer;
using ctl::watchdog;

// One letter for each question: "." answers, "-" silent, "?" unsure. The times at which the daemon is ended.
std::vector<int64_t> ends(watchdog judge, const std::string &heard, int64_t from = 1000, pid_t process = 7)
{
    std::vector<int64_t> out;
    for (size_t i = 0; i < heard.size(); ++i) {
        const int64_t now = from + static_cast<int64_t>(i) * ctl::ask_every_s;
        const answer one = heard[i] == '.' ? answer::given : heard[i] == '-' ? answer::none : answer::unsure;
        if (judge.take(now, one, process)) {
            out.push_back(now - from);
        }
    }
    return out;
}

using Times = std::vector<int64_t>;

TEST(Watchdog, EndsADaemonAtItsThirdSilence)
{
    EXPECT_EQ(ends(watchdog{}, "..---"), Times{60});
    EXPECT_EQ(ends(watchdog{}, "---"), Times{30});
    EXPECT_EQ(ends(watchdog{}, "--.--.--?--"), Times{});
}

TEST(Watchdog, LeavesAloneWhatOthersHold)
{
    EXPECT_EQ(ends(watchdog{}, std::string(1000, '?')), Times{}) << "it starts, or broker or supervisor hang";
    EXPECT_EQ(ends(watchdog{}, std::string(1000, '.')), Times{});
    EXPECT_EQ(ends(watchdog{}, "--?--?--?"), Times{});
}

TEST(Watchdog, ThreeSilencesAreOfOneProcess)
{
    watchdog judge;
    for (int i = 0; i < 100; ++i) {
        EXPECT_FALSE(judge.take(15 * i, answer::none, i / 2)) << "another one after each second silence";
    }
}

TEST(Watchdog, EndsAtMostOneInFiveMinutes)
{
    EXPECT_EQ(ends(watchdog{}, std::string(60, '-')), (Times{30, 330, 630}));
    EXPECT_EQ(ends(watchdog{900}, "---------------------"), Times{200 + 10})
        << "one was ended before this began";
}

TEST(Watchdog, EndsAreFarApartWhateverIsHeard)
{
    std::mt19937 random(1);
    for (int run = 0; run < 200; ++run) {
        std::string heard;
        for (int i = 0; i < 300; ++i) {
            heard += ".---?"[random() % 5];
        }
        const Times found = ends(watchdog{}, heard);
        for (size_t i = 0; i < found.size(); ++i) {
            const auto at = static_cast<size_t>(found[i] / ctl::ask_every_s);
            ASSERT_GE(at, 2U);
            EXPECT_EQ(heard.substr(at - 2, 3), "---");
            EXPECT_TRUE(i == 0 || found[i] - found[i - 1] >= watchdog::between_ends_s);
        }
    }
}

} // namespace
