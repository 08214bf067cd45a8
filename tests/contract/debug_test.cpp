#include "platform/output.h"
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
        arguments.insert(arguments.begin(), program_folder() + "/ivarode-dbg");
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
                                               {"on"},
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
        EXPECT_NE(std::string::npos, done.err.find("Usage: ivarode-dbg"));
    }
    EXPECT_EQ(0, tool({"--help"}).status);
    EXPECT_NE(std::string::npos, tool({"-h"}).out.find("Usage: ivarode-dbg"));
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

TEST_F(Debug, SomebodyElsesObjectIsRefused)
{
    write_file("/dev/shm/ivarode-debug", "", 0666);
    ASSERT_EQ(0, chown("/dev/shm/ivarode-debug", 12345, 12345));
    StderrCapture err;
    EXPECT_NE(0, netdbg_shm_init());
    EXPECT_EQ(EPERM, errno);
    EXPECT_EQ(nullptr, g_netd_dbg_shm);
    EXPECT_EQ("debug: netdbg_shm_init(/ivarode-debug): Operation not permitted\n", err.text());
}

TEST_F(Debug, LinkInTheWayIsNotFollowed)
{
    write_file("/tmp/target", "keep");
    std::filesystem::create_symlink("/tmp/target", "/dev/shm/ivarode-records");
    StderrCapture err;
    EXPECT_NE(0, libsys_dbg_init());
    EXPECT_EQ(ELOOP, errno);
    EXPECT_EQ("keep", read_file("/tmp/target"));
}

TEST_F(Debug, FullMemoryIsAnErrorNow)
{
    ASSERT_EQ(0, mount("tmpfs", "/dev/shm", "tmpfs", 0, "size=8k"));
    write_file("/dev/shm/filler", std::string(8192, 'x'));
    StderrCapture err;
    EXPECT_NE(0, netdbg_shm_init());
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_EQ(nullptr, g_netd_dbg_shm);
    EXPECT_EQ(1, tool({"show"}).status);
    unlink("/dev/shm/filler");
    EXPECT_EQ(0, netdbg_shm_init());
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
