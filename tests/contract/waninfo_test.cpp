#include "interpose.h"
#include "platform/netdev.h"
#include "sandbox.h"

#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <set>
#include <sys/file.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr const char *row = "/var/run/ivarode/wan/wan1";

int insert(const char *name = "wan1", const char *address = "10.0.0.2", const char *proto = "static")
{
    return netlib_waninfo_db_insert(name, proto, address, "255.255.255.0", "10.0.0.1", "0.0.0.0", "0.0.0.0");
}

std::string text(const std::string &address, const std::string &proto = "static")
{
    return "name=wan1\nproto=" + proto + "\nipaddr=" + address +
           "\nnetmask=255.255.255.0\ngateway=10.0.0.1\naddr4=0.0.0.0\naddr5=0.0.0.0\n";
}

class WanInfo : public SandboxTest {
protected:
    static std::string names()
    {
        std::string found;
        std::set<std::string> sorted;
        for (const auto &entry : std::filesystem::directory_iterator("/var/run/ivarode/wan")) {
            sorted.insert(entry.path().filename());
        }
        for (const std::string &name : sorted) {
            found += name + " ";
        }
        return found;
    }
};

TEST_F(WanInfo, InsertWritesOneSmallFile)
{
    umask(077);
    EXPECT_EQ(0, insert());
    EXPECT_EQ(text("10.0.0.2"), read_file(row));
    struct stat info {};
    ASSERT_EQ(0, stat(row, &info));
    EXPECT_EQ(0644u, info.st_mode & 07777u);
    EXPECT_EQ(".lock wan1 ", names());
}

TEST_F(WanInfo, NullAddressIsAnEmptyValue)
{
    EXPECT_EQ(0, netlib_waninfo_db_insert("wan1", "dhcp", nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ("name=wan1\nproto=dhcp\nipaddr=\nnetmask=\ngateway=\naddr4=\naddr5=\n", read_file(row));
}

TEST_F(WanInfo, InsertOverARowReplacesIt)
{
    EXPECT_EQ(0, insert());
    EXPECT_EQ(0, insert("wan1", "10.0.0.99", "dhcp"));
    EXPECT_EQ(text("10.0.0.99", "dhcp"), read_file(row));
}

TEST_F(WanInfo, UpdateChangesARow)
{
    EXPECT_EQ(0, insert());
    EXPECT_EQ(
        0, netlib_waninfo_db_update("wan1", "pppoe", "0.0.0.0", "0.0.0.0", "0.0.0.0", "0.0.0.0", "0.0.0.0"));
    EXPECT_EQ("name=wan1\nproto=pppoe\nipaddr=0.0.0.0\nnetmask=0.0.0.0\ngateway=0.0.0.0\naddr4=0.0.0.0\n"
              "addr5=0.0.0.0\n",
              read_file(row));
}

TEST_F(WanInfo, UpdateOfAnAbsentRowIsAnError)
{
    StderrCapture err;
    EXPECT_NE(0, netlib_waninfo_db_update("wan1", "dhcp", nullptr, nullptr, nullptr, nullptr, nullptr));
    EXPECT_EQ(ENOENT, errno);
    EXPECT_FALSE(file_exists(row));
    EXPECT_EQ("debug: netlib_waninfo_db_update(wan1, dhcp, (null), (null), (null), (null), (null)): "
              "No such file or directory\n",
              err.text());
}

TEST_F(WanInfo, DeleteIsForThatRowAndAbsentIsFine)
{
    EXPECT_EQ(0, netlib_waninfo_db_del_byname("wan1"));
    EXPECT_EQ(0, insert());
    EXPECT_EQ(0, insert("wan2"));
    EXPECT_EQ(0, netlib_waninfo_db_del_byname("wan1"));
    EXPECT_EQ(".lock wan2 ", names());
    EXPECT_EQ(0, netlib_waninfo_db_del_byname("wan1"));
}

TEST_F(WanInfo, NamesThatAreNoFileNamesAreErrors)
{
    StderrCapture err;
    for (const char *bad : {"", ".", "..", ".lock", "../x", "a/b", "a\nb", "a b", "$(id)"}) {
        EXPECT_NE(0, insert(bad)) << bad;
        EXPECT_EQ(EINVAL, errno);
    }
    for (const char *bad : {"", ".lock", "../x"}) {
        EXPECT_NE(0, netlib_waninfo_db_del_byname(bad)) << bad;
    }
    EXPECT_NE(0, insert(nullptr));
    EXPECT_NE(0, insert(std::string(201, 'n').c_str()));
    EXPECT_NE(0, netlib_waninfo_db_del_byname(nullptr));
    EXPECT_EQ(0, insert(std::string(200, 'n').c_str()));
}

TEST_F(WanInfo, ValuesMeanNothingToAShell)
{
    StderrCapture err;
    EXPECT_EQ(0, insert());
    for (const char *bad : {"1\nname=x", "$(reboot)", "`x`", "a b", "a;b", "'", "\"", "\xff"}) {
        EXPECT_NE(0, insert("wan1", bad)) << bad;
        EXPECT_EQ(EINVAL, errno);
        EXPECT_NE(0, insert("wan1", "10.0.0.3", bad)) << bad;
    }
    EXPECT_NE(0, insert("wan1", "10.0.0.3", nullptr));
    EXPECT_EQ(text("10.0.0.2"), read_file(row));
    Finished shell = run_program({"/bin/sh", "-c", ". " + std::string(row) + "; echo $proto $ipaddr"});
    EXPECT_EQ("static 10.0.0.2\n", shell.out);
}

TEST_F(WanInfo, FullDiskKeepsTheOldRow)
{
    EXPECT_EQ(0, insert());
    ASSERT_EQ(0, mount("tmpfs", "/var/run/ivarode", "tmpfs", 0, "size=16k"));
    EXPECT_EQ(0, insert());
    write_file("/var/run/ivarode/filler", std::string(4096, 'x'));
    int fd = open("/var/run/ivarode/filler", O_WRONLY | O_APPEND | O_CLOEXEC);
    while (write(fd, "x", 1) == 1) {
    }
    close(fd);
    StderrCapture err;
    EXPECT_NE(0, insert("wan1", "10.0.0.77"));
    EXPECT_EQ(ENOSPC, errno);
    EXPECT_EQ(text("10.0.0.2"), read_file(row));
    EXPECT_EQ(".lock wan1 ", names());
}

TEST_F(WanInfo, FailingStepsKeepTheOldRowAndLeaveNothing)
{
    EXPECT_EQ(0, insert());
    StderrCapture err;
    for (const char *call : {"rename", "write", "fsync", "fchmod", "flock"}) {
        interpose::fail(call, EIO);
        EXPECT_NE(0, insert("wan1", "10.0.0.77")) << call;
        EXPECT_EQ(EIO, errno) << call;
        EXPECT_EQ(text("10.0.0.2"), read_file(row)) << call;
        EXPECT_EQ(".lock wan1 ", names()) << call;
        interpose::fail(call, 0, 0);
    }
    EXPECT_EQ(0, insert("wan1", "10.0.0.77"));
}

TEST_F(WanInfo, InterruptedCallsAreRepeated)
{
    for (const char *call : {"write", "fsync", "flock"}) {
        interpose::fail(call, EINTR, 3);
        EXPECT_EQ(0, insert("wan1", "10.0.0.5")) << call;
        EXPECT_GE(interpose::calls(call), 4) << call;
    }
    EXPECT_EQ(text("10.0.0.5"), read_file(row));
}

TEST_F(WanInfo, LinksInTheWayAreNotWrittenThrough)
{
    EXPECT_EQ(0, insert());
    write_file("/tmp/target", "keep");
    unlink(row);
    std::filesystem::create_symlink("/tmp/target", row);
    std::filesystem::create_symlink("/tmp/target", "/var/run/ivarode/wan/.wan1.new");
    EXPECT_EQ(0, insert());
    EXPECT_EQ("keep", read_file("/tmp/target"));
    EXPECT_EQ(text("10.0.0.2"), read_file(row));
    EXPECT_FALSE(std::filesystem::is_symlink(row));
    EXPECT_EQ(".lock wan1 ", names());
}

TEST_F(WanInfo, FolderThatIsNoFolder)
{
    write_file("/var/run/ivarode/wan", "");
    StderrCapture err;
    EXPECT_NE(0, insert());
    EXPECT_EQ(ENOTDIR, errno);
    EXPECT_NE(0, netlib_waninfo_db_del_byname("wan1"));
}

// Only an image whose /var/run is not root's alone can have one.
TEST_F(WanInfo, FolderThatIsNotOurs)
{
    constexpr uid_t nobody = 65534;
    const std::filesystem::path state = "/var/run/ivarode";
    std::filesystem::create_directory("/tmp/elsewhere");
    for (const std::filesystem::path &taken : {state, state / "wan"}) {
        for (const bool link : {true, false}) {
            std::filesystem::remove_all(state);
            std::filesystem::create_directories(taken);
            if (link) {
                std::filesystem::remove(taken);
                std::filesystem::create_symlink("/tmp/elsewhere", taken);
            } else {
                ASSERT_EQ(0, chown(taken.c_str(), nobody, nobody));
            }
            StderrCapture err;
            EXPECT_NE(0, insert()) << taken << link;
            EXPECT_EQ(EPERM, errno);
            EXPECT_NE(0, netlib_waninfo_db_del_byname("wan1"));
            EXPECT_FALSE(std::filesystem::exists(row));
        }
    }
}

TEST_F(WanInfo, WriterThatHangsDoesNotHoldUsForEver)
{
    EXPECT_EQ(0, insert());
    int fd = open("/var/run/ivarode/wan/.lock", O_RDWR | O_CLOEXEC);
    ASSERT_EQ(0, flock(fd, LOCK_EX));
    StderrCapture err;
    EXPECT_NE(0, insert("wan1", "10.0.0.77"));
    EXPECT_EQ(ETIMEDOUT, errno);
    EXPECT_EQ(text("10.0.0.2"), read_file(row));
    close(fd);
    EXPECT_EQ(0, insert("wan1", "10.0.0.77"));
}

TEST_F(WanInfo, ReadersNeverSeeAPart)
{
    EXPECT_EQ(0, insert());
    std::vector<pid_t> writers;
    for (int w = 0; w < 3; w++) {
        pid_t child = fork();
        if (child == 0) {
            int failed = 0;
            for (int i = 0; i < 100; i++) {
                std::string address = "10." + std::to_string(w) + ".0." + std::to_string(i);
                failed |= i % 2 ? insert("wan1", address.c_str())
                                : netlib_waninfo_db_update("wan1", "static", address.c_str(), "255.255.255.0",
                                                           "10.0.0.1", "0.0.0.0", "0.0.0.0");
            }
            _exit(failed ? 1 : 0);
        }
        writers.push_back(child);
    }
    size_t left = writers.size();
    while (left > 0) {
        std::string seen = read_file(row);
        size_t start = seen.find("ipaddr=") + 7;
        EXPECT_EQ(text(seen.substr(start, seen.find('\n', start) - start)), seen);
        int state = 0;
        if (waitpid(-1, &state, WNOHANG) > 0) {
            EXPECT_EQ(0, state);
            left--;
        }
    }
    EXPECT_EQ(".lock wan1 ", names());
}

} // namespace
