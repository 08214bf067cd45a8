// Reporting.

#include "core/log.h"
#include "daemon_test.h"

namespace unit {
namespace {

using Log = DaemonTest;

TEST_F(Log, NullFormatLogsNothing)
{
    const char *format = nullptr;
    EXPECT_EQ(ivarode_log(3, format), -1);
    expect_trace({});
}

TEST_F(Log, LevelAndTextPassThrough)
{
    for (const int level : {0, 3, 4, 5, 7}) {
        EXPECT_EQ(ivarode_log(level, "%s %d\n", "port", 7), 0);
        expect_trace({"syslog(" + std::to_string(level) + ", 'port 7\\n')"});
    }
}

TEST_F(Log, CutsAt1023Characters)
{
    for (const size_t length : {0U, 1U, 1022U, 1023U, 1024U, 5000U}) {
        const std::string text(length, 'x');
        EXPECT_EQ(ivarode_log(3, "%s", text.c_str()), 0);
        expect_trace({"syslog(3, '" + text.substr(0, 1023) + "')"});
    }
}

TEST_F(Log, PercentSignsOfTheTextAreNoFormat)
{
    EXPECT_EQ(ivarode_log(3, "%s%%", "%n%s%1000d%"), 0);
    expect_trace({"syslog(3, '%n%s%1000d%%')"});
}

TEST_F(Log, ReportsGoToTheSystemLogFirst)
{
    NET_ERROR("a %d\r\n", 1);
    NET_WARNING("b %d\n", 2);
    NET_NOTICE("c %d\n", 3);
    NET_INFO("d %d\n", 4);
    expect_trace({"syslog(3, 'a 1\\r\\n')", "outlib_error('a 1\\r\\n')", "syslog(4, 'b 2\\n')",
                  "outlib_warning('b 2\\n')", "syslog(5, 'c 3\\n')", "outlib_notice('c 3\\n')",
                  "outlib_info('d 4\\n')"});
}

TEST_F(Log, DebugTextsNeedBitFourOfTheDebugWord)
{
    NET_DEBUG("before the area is mapped\n");
    debug_area_map();
    for (const uint32_t bits : {0U, 1U, 2U, 3U, 8U, 0xfffffffbU}) {
        debug_bits_set(bits);
        EXPECT_FALSE(ivarode_dbg_enabled());
        NET_DEBUG("off\n");
    }
    expect_trace({});
    for (const uint32_t bits : {4U, 5U, 0xffffffffU}) {
        debug_bits_set(bits);
        EXPECT_TRUE(ivarode_dbg_enabled());
        NET_DEBUG("on %u\n", bits);
        expect_trace({"outlib_debug('on " + std::to_string(bits) + "\\n')"});
    }
}

TEST_F(Log, OpensItsChannels)
{
    EXPECT_EQ(ivarode_dbg_init(), 0);
    expect_trace({"openlog('ivarode', 3, 24)", "netdbg_shm_init()", "libsys_dbg_init()"});
    fail("libsys_dbg_init(");
    EXPECT_EQ(ivarode_dbg_init(), -4);
    expect_trace({"openlog('ivarode', 3, 24)", "netdbg_shm_init()", "libsys_dbg_init()",
                  error("sys dbg shm init failed\n")});
    fail("netdbg_shm_init(");
    EXPECT_EQ(ivarode_dbg_init(), -4);
    expect_trace({"openlog('ivarode', 3, 24)", "netdbg_shm_init()", error("net dbg shm init failed\n")});
}

} // namespace
} // namespace unit
