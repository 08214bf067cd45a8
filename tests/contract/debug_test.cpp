#include "platform/output.h"
#include "platform/safestr.h"
#include "sandbox.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

class Debug : public SandboxTest {
protected:
    static Finished tool(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), {program_folder() + "/ivarodectl", "debug"});
        return run_program(arguments);
    }
};

TEST_F(Debug, AreaIsNullUntilMapped)
{
    EXPECT_EQ(nullptr, g_netd_dbg_shm);
    ASSERT_EQ(0, netdbg_shm_init());
    ASSERT_NE(nullptr, g_netd_dbg_shm);
    EXPECT_EQ(0u, g_netd_dbg_shm[0]);
}

TEST_F(Debug, InitialisingTwiceKeepsTheArea)
{
    ASSERT_EQ(0, netdbg_shm_init());
    uint32_t *area = g_netd_dbg_shm;
    area[0] = 4;
    ASSERT_EQ(0, netdbg_shm_init());
    EXPECT_EQ(area, g_netd_dbg_shm);
    EXPECT_EQ(4u, area[0]);
    EXPECT_EQ(0, libsys_dbg_init());
    EXPECT_EQ(0, libsys_dbg_init());
}

TEST_F(Debug, WordAndCounterAreSharedWithTheTool)
{
    ASSERT_EQ(0, netdbg_shm_init());
    EXPECT_EQ(0, tool({"on", "daemon"}).status);
    EXPECT_EQ(4u, g_netd_dbg_shm[0]);
    EXPECT_EQ(0, tool({"on", "0x80000001"}).status);
    EXPECT_EQ(0x80000005u, g_netd_dbg_shm[0]);
    EXPECT_EQ(0, tool({"off", "5"}).status);
    EXPECT_EQ(0x80000000u, g_netd_dbg_shm[0]);
    EXPECT_EQ(0, tool({"word", "010"}).status);
    EXPECT_EQ(8u, g_netd_dbg_shm[0]);
    uint64_t counter = 0x1234567890;
    memcpy(reinterpret_cast<char *>(g_netd_dbg_shm) + 16, &counter, sizeof counter);
    EXPECT_EQ("debug word  0x00000008  daemon off\nsamples     78187493520\n"
              "null pointers to string operations  0\n",
              tool({}).out);
    EXPECT_EQ(0, tool({"counter", "18446744073709551615"}).status);
    memcpy(&counter, reinterpret_cast<char *>(g_netd_dbg_shm) + 16, sizeof counter);
    EXPECT_EQ(UINT64_MAX, counter);
    EXPECT_NE(std::string::npos, tool({"show"}).out.find("samples     18446744073709551615\n"));
}

TEST_F(Debug, SettingsBeforeTheStartCount)
{
    EXPECT_EQ(0, tool({"word", "4"}).status);
    ASSERT_EQ(0, netdbg_shm_init());
    EXPECT_EQ(4u, g_netd_dbg_shm[0]);
}

TEST_F(Debug, ToolRefusesWhatItDoesNotUnderstand)
{
    for (const std::vector<std::string> &wrong :
         std::vector<std::vector<std::string>>{{"rubbish"},
                                               {"word"},
                                               {"on", "x"},
                                               {"on", "4x"},
                                               {"on", "-1"},
                                               {"on", "0x100000000"},
                                               {"counter", "18446744073709551616"},
                                               {"show", "1"},
                                               {"forget", "1"},
                                               {"word", "1", "2"},
                                               {"word", ""}}) {
        Finished done = tool(wrong);
        EXPECT_EQ(2, done.status) << wrong[0];
        EXPECT_EQ(0u, done.err.find("ivarodectl: ")) << done.err;
        EXPECT_EQ(done.err.size() - 1, done.err.find('\n')) << done.err;
    }
    EXPECT_EQ(0, tool({"--help"}).status);
    EXPECT_NE(std::string::npos, tool({"-h"}).out.find("Usage: ivarodectl debug"));
    EXPECT_NE(std::string::npos, tool({}).out.find("debug word  0x00000000  daemon off\n"));
}

TEST_F(Debug, ObjectsArePrivateToTheirOwner)
{
    umask(0);
    ASSERT_EQ(0, netdbg_shm_init());
    ASSERT_EQ(0, libsys_dbg_init());
    for (const char *object : {"/dev/shm/ivarode-debug", "/dev/shm/ivarode-records"}) {
        struct stat info {};
        ASSERT_EQ(0, stat(object, &info)) << object;
        EXPECT_EQ(0600u, info.st_mode & 07777u);
    }
}

constexpr uid_t nobody = 65534;

// Ways to be first with a name in a folder that everybody may write to.
struct Obstacle {
    const char *name;
    void (*lay)(const char *path);
    const char *reason;
};

const Obstacle obstacles[] = {
    {"a file of somebody else",
     [](const char *path) {
         write_file(path, "theirs", 0666);
         ASSERT_EQ(0, chown(path, nobody, nobody));
     },
     "Operation not permitted"},
    {"a link to a file of root's",
     [](const char *path) { std::filesystem::create_symlink("/tmp/keep", path); },
     "Too many levels of symbolic links"},
    {"a dangling link", [](const char *path) { std::filesystem::create_symlink("/tmp/absent", path); },
     "Too many levels of symbolic links"},
    {"a link to a folder", [](const char *path) { std::filesystem::create_symlink("/tmp", path); },
     "Too many levels of symbolic links"},
    {"another name of a file of root's",
     [](const char *path) {
         write_file("/dev/shm/keep", "keep");
         ASSERT_EQ(0, link("/dev/shm/keep", path));
     },
     "Operation not permitted"},
    {"a folder", [](const char *path) { ASSERT_EQ(0, mkdir(path, 0777)); }, ""}, // C libraries differ
    {"a pipe", [](const char *path) { ASSERT_EQ(0, mkfifo(path, 0666)); }, "Operation not permitted"},
};

class DebugObstacle : public Debug, public testing::WithParamInterface<size_t> {};

INSTANTIATE_TEST_SUITE_P(All, DebugObstacle, testing::Range(size_t{0}, std::size(obstacles)));

// The daemon ends for good where these calls fail.
TEST_P(DebugObstacle, IsReplacedByPrivateMemoryWithOneWarningEach)
{
    const Obstacle &obstacle = obstacles[GetParam()];
    SCOPED_TRACE(obstacle.name);
    write_file("/tmp/keep", "keep");
    obstacle.lay("/dev/shm/ivarode-debug");
    StderrCapture err;
    ASSERT_EQ(0, netdbg_shm_init());
    ASSERT_NE(nullptr, g_netd_dbg_shm);
    EXPECT_EQ(0u, g_netd_dbg_shm[0]);
    g_netd_dbg_shm[0] = 4;
    EXPECT_EQ(0, netdbg_shm_init());
    EXPECT_EQ(4u, g_netd_dbg_shm[0]);
    const std::string said = err.text();
    EXPECT_EQ(0u, said.find(std::string("warning: /dev/shm/ivarode-debug cannot be used, "
                                        "ivarodectl sees nothing of it: ") +
                            obstacle.reason));
    EXPECT_EQ(said.size() - 1, said.find('\n')) << said;
    EXPECT_EQ("keep", read_file("/tmp/keep"));
    EXPECT_FALSE(file_exists("/tmp/absent"));
    if (file_exists("/dev/shm/keep")) {
        EXPECT_EQ("keep", read_file("/dev/shm/keep"));
    }
    Finished shown = tool({"show"});
    EXPECT_EQ(1, shown.status);
    EXPECT_NE(std::string::npos, shown.err.find("ivarodectl: /dev/shm/ivarode-debug: "));
}

TEST_P(DebugObstacle, OfTheRecordsToo)
{
    const Obstacle &obstacle = obstacles[GetParam()];
    SCOPED_TRACE(obstacle.name);
    write_file("/tmp/keep", "keep");
    obstacle.lay("/dev/shm/ivarode-records");
    StderrCapture err;
    EXPECT_EQ(0, libsys_dbg_init());
    char to[8] = "";
    strncpy_safe_record(to, nullptr, sizeof to, "here", 7);
    EXPECT_EQ(0u, err.text().find("warning: /dev/shm/ivarode-records cannot be used, "));
    EXPECT_EQ("keep", read_file("/tmp/keep"));
}

TEST_F(Debug, ToolOfAnotherUserMakesNothing)
{
    ASSERT_EQ(0, chmod("/dev/shm", 01777));
    const std::string program = program_folder() + "/ivarodectl";
    for (const char *object : {"/dev/shm/ivarode-debug", "/dev/shm/ivarode-records"}) {
        Finished done = run_program({"/usr/bin/setpriv", "--reuid=65534", "--regid=65534", "--clear-groups",
                                     program, "debug", "on"});
        EXPECT_EQ(1, done.status);
        EXPECT_NE(std::string::npos, done.err.find(std::string(object) + ": No such file or directory\n"));
        EXPECT_FALSE(file_exists(object));
    }
}

TEST_F(Debug, FullMemoryIsReplacedByPrivateMemory)
{
    ASSERT_EQ(0, mount("tmpfs", "/dev/shm", "tmpfs", 0, "size=8k"));
    write_file("/dev/shm/filler", std::string(8192, 'x'));
    StderrCapture err;
    EXPECT_EQ(0, netdbg_shm_init());
    ASSERT_NE(nullptr, g_netd_dbg_shm);
    g_netd_dbg_shm[0] = 4;
    EXPECT_NE(std::string::npos, err.text().find("No space left on device\n"));
    EXPECT_EQ(1, tool({"show"}).status);
    unlink("/dev/shm/filler");
    EXPECT_EQ(0, tool({"show"}).status);
}

TEST_F(Debug, ForgetDropsTheRecords)
{
    ASSERT_EQ(0, libsys_dbg_init());
    int fd = shm_open("/ivarode-records", O_RDWR, 0);
    ASSERT_GE(fd, 0);
    uint32_t lost = 7;
    ASSERT_EQ(4, pwrite(fd, &lost, sizeof lost, 0));
    EXPECT_NE(std::string::npos, tool({}).out.find("null pointers to string operations  7\n"));
    EXPECT_EQ(0, tool({"forget"}).status);
    EXPECT_NE(std::string::npos, tool({}).out.find("null pointers to string operations  0\n"));
    close(fd);
}

} // namespace
