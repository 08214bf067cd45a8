#include "platform/output.h"
#include "sandbox.h"

#include <cerrno>
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

} // namespace
