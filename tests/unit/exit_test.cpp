// The orderly end that a build may install.

#include "core/exit.h"
#include "daemon_test.h"

#include <csignal>

namespace unit {
namespace {

using Exit = DaemonTest;

const std::vector<Lines> goodbye = {info("net main exit\r\n"), "cmdlib_kill_processes()"};

TEST_F(Exit, SaysGoodbyeOnTheOutputChannelAlone)
{
    ivarode_main_exit();
    expect_trace(goodbye);
}

TEST_F(Exit, OnlySigtermEnds)
{
    for (const int number : {1, 2, 9, 14, 16, 17, 0, -1}) {
        EXPECT_EQ(ivarode_sig_handler(number), 15) << number;
    }
    expect_trace({});
    EXPECT_TRUE(runs_into_exit([] { ivarode_sig_handler(SIGTERM); }));
    expect_trace({goodbye[0], goodbye[1], "exit(0)"});
}

TEST_F(Exit, InstallsBoth)
{
    EXPECT_EQ(ivarode_sig_init(), 0);
    expect_trace({"signal(15)", "atexit()"});
    ASSERT_NE(handed.at_exit, nullptr);
    handed.at_exit();
    expect_trace(goodbye);
    ASSERT_NE(handed.on_signal, nullptr);
    EXPECT_TRUE(runs_into_exit([] { handed.on_signal(SIGTERM); }));
    expect_trace({goodbye[0], goodbye[1], "exit(0)"});
}

} // namespace
} // namespace unit
