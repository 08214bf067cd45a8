#include "platform/output.h"
#include "sandbox.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>

namespace {

TEST(Output, EachLevelWritesItsWordAndTheText)
{
    StderrCapture err;
    EXPECT_EQ(0, outlib_client_init(0, nullptr));
    EXPECT_EQ(0, outlib_error("e %d\n", 1));
    EXPECT_EQ(0, outlib_warning("w %s\n", "two"));
    EXPECT_EQ(0, outlib_notice("n\n"));
    EXPECT_EQ(0, outlib_info("i\n"));
    EXPECT_EQ(0, outlib_debug("d\n"));
    EXPECT_EQ("error: e 1\nwarning: w two\nnotice: n\ninfo: i\ndebug: d\n", err.text());
}

TEST(Output, LineWithoutNewlineGetsOneAndAnEmptyTextIsALine)
{
    StderrCapture err;
    outlib_info("no newline");
    outlib_info("%s", "");
    outlib_info("net main exit\r\n");
    EXPECT_EQ("info: no newline\ninfo: \ninfo: net main exit\r\n", err.text());
}

TEST(Output, TextsOfAnyLengthArriveWhole)
{
    for (size_t length : {1014, 1015, 1016, 1017, 1018, 1023, 1024, 1025, 5000, 100000}) {
        StderrCapture err;
        std::string text(length, 'x');
        outlib_error("%s", text.c_str());
        EXPECT_EQ("error: " + text + "\n", err.text()) << length;
    }
}

TEST(Output, PercentInAnArgumentIsOnlyText)
{
    StderrCapture err;
    outlib_error("%s\n", "%s%n%d");
    EXPECT_EQ("error: %s%n%d\n", err.text());
}

TEST(Output, ErrnoSurvives)
{
    StderrCapture err;
    errno = EXDEV;
    outlib_error("x\n");
    EXPECT_EQ(EXDEV, errno);
}

TEST(Output, ALineThatCannotBeWrittenIsNotASuccess)
{
    int saved = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
    ASSERT_GE(full, 0);
    dup2(full, STDERR_FILENO);
    int result = outlib_error("lost\n");
    dup2(saved, STDERR_FILENO);
    close(saved);
    close(full);
    EXPECT_NE(0, result);
}

class Clock : public SandboxTest {};

TEST_F(Clock, LocalTimeAsText)
{
    setenv("TZ", "XXX-5:30", 1);
    char text[32];
    time_t before = time(nullptr);
    ASSERT_EQ(0, timelib_curtime_str_get(text, sizeof text));
    time_t after = time(nullptr);
    auto expected = [](time_t moment) {
        char buffer[32];
        moment += 5 * 3600 + 30 * 60;
        tm parts{};
        gmtime_r(&moment, &parts);
        strftime(buffer, sizeof buffer, "%Y-%m-%d %H:%M:%S", &parts);
        return std::string(buffer);
    };
    EXPECT_TRUE(text == expected(before) || text == expected(after)) << text;
}

TEST_F(Clock, NeverWritesPastTheBuffer)
{
    StderrCapture err;
    char text[32];
    memset(text, 'x', sizeof text);
    EXPECT_NE(0, timelib_curtime_str_get(text, 19));
    EXPECT_EQ(ERANGE, errno);
    EXPECT_EQ(18u, strlen(text));
    EXPECT_EQ('x', text[19]);
    EXPECT_EQ(0, timelib_curtime_str_get(text, 20));
    EXPECT_EQ(19u, strlen(text));
    EXPECT_NE(0, timelib_curtime_str_get(text, 0));
    EXPECT_NE(0, timelib_curtime_str_get(text, -1));
    EXPECT_EQ(EINVAL, errno);
    EXPECT_NE(0, timelib_curtime_str_get(nullptr, 32));
    EXPECT_NE(std::string::npos, err.text().find("debug: timelib_curtime_str_get(19): "));
}

} // namespace
