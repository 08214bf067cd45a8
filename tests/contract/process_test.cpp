#include "../argv.h"
#include "bus_world.h"
#include "platform/command.h"

#include <cerrno>
#include <csignal>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using Requests = std::vector<std::string>;
using ProcessTest = BusTest;

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

TEST_F(ProcessTest, AStartIsTheSupervisorsAddWithCommandAndRespawn)
{
    Broker broker;
    Peer service("service");
    ASSERT_EQ(cmdlib_procd_start_inst("dhcp", "wan1",
                                      "/sbin/udhcpc  -t 0 -i wan1 -s /lib/ivarode/empty.sh -C -p "
                                      "/var/run/udhcpc-wan1.pid -f -m 20001",
                                      0),
              0);
    EXPECT_EQ(
        service.requests(),
        Requests{
            "add {\"name\":\"dhcp\",\"instances\":{\"wan1\":{\"command\":[\"/sbin/udhcpc\",\"-t\",\"0\","
            "\"-i\",\"wan1\",\"-s\",\"/lib/ivarode/empty.sh\",\"-C\",\"-p\",\"/var/run/udhcpc-wan1.pid\","
            "\"-f\",\"-m\",\"20001\"],\"respawn\":[\"3600\",\"5\",\"0\"]}}}"});
}

TEST_F(ProcessTest, RunsOfBlanksAndQuotesOfACommandLine)
{
    Broker broker;
    Peer service("service");
    ASSERT_EQ(
        cmdlib_procd_start_inst("pppoe", "wan1",
                                "/usr/sbin/pppd ipparam 'pppoec,20001'  +ipv6    plugin  \t rp-pppoe.so  "
                                "'' \"a \\\"b\\\" \\\\ \\n\" it\"'\"s \\x $HOME `id` * "
                                "nic-wan1_pe \n",
                                0),
        0);
    EXPECT_EQ(service.requests().at(0),
              R"(add {"name":"pppoe","instances":{"wan1":{"command":["/usr/sbin/pppd","ipparam",)"
              R"("pppoec,20001","+ipv6","plugin","rp-pppoe.so","","a \"b\" \\ \\n","it's","\\x",)"
              R"("$HOME","`id`","*","nic-wan1_pe"],)"
              R"("respawn":["3600","5","0"]}}})");
}

TEST_F(ProcessTest, TheSameCommandAgainIsFine)
{
    Broker broker;
    Peer service("service");
    ASSERT_EQ(cmdlib_procd_start_inst("dhcp", "wan1", "/sbin/udhcpc -i wan1", 0), 0);
    ASSERT_EQ(cmdlib_procd_start_inst("dhcp", "wan1", "/sbin/udhcpc -i wan1", 0), 0);
    EXPECT_EQ(cmdlib_kill_processes(), 0);
    EXPECT_EQ(service.requests().size(), 3U) << "one instance, so one deletion";
}

TEST_F(ProcessTest, ADeletionNamesServiceAndInstance)
{
    Broker broker;
    Peer service("service");
    ASSERT_EQ(cmdlib_procd_del_inst("pppoe", "wan2"), 0);
    EXPECT_EQ(service.requests(), Requests{"delete {\"name\":\"pppoe\",\"instance\":\"wan2\"}"});
}

TEST_F(ProcessTest, DeletingWhatTheSupervisorDoesNotKnowIsFine)
{
    Broker broker;
    Peer service("service");
    service.set_status(4);
    EXPECT_EQ(cmdlib_procd_del_inst("dhcp", "wan1"), 0);
}

TEST_F(ProcessTest, ASupervisorThatRefusesIsAnError)
{
    Broker broker;
    Peer service("service");
    service.set_status(2);
    EXPECT_NE(cmdlib_procd_start_inst("dhcp", "wan1", "/sbin/udhcpc", 0), 0);
    EXPECT_EQ(errno, EINVAL);
    service.set_status(6);
    EXPECT_NE(cmdlib_procd_del_inst("dhcp", "wan1"), 0);
    EXPECT_EQ(errno, EACCES);
}

TEST_F(ProcessTest, WithoutSupervisorOrBrokerItIsAnError)
{
    EXPECT_NE(cmdlib_procd_start_inst("dhcp", "wan1", "/sbin/udhcpc", 0), 0);
    EXPECT_EQ(errno, ECONNREFUSED);
    Broker broker;
    EXPECT_NE(cmdlib_procd_start_inst("dhcp", "wan1", "/sbin/udhcpc", 0), 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_NE(cmdlib_procd_del_inst("dhcp", "wan1"), 0);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(ProcessTest, WhatCannotBeStartedIsNotAskedFor)
{
    Broker broker;
    Peer service("service");
    EXPECT_NE(cmdlib_procd_start_inst("", "wan1", "/sbin/udhcpc", 0), 0);
    EXPECT_NE(cmdlib_procd_start_inst("dhcp", "", "/sbin/udhcpc", 0), 0);
    EXPECT_NE(cmdlib_procd_start_inst(nullptr, nullptr, nullptr, 0), 0);
    EXPECT_NE(cmdlib_procd_start_inst("dhcp", "wan1", "", 0), 0);
    EXPECT_NE(cmdlib_procd_start_inst("dhcp", "wan1", " \t ", 0), 0);
    EXPECT_NE(cmdlib_procd_start_inst("dhcp", "wan1", "/sbin/udhcpc 'open", 0), 0);
    EXPECT_NE(cmdlib_procd_start_inst("dhcp", "wan1", "/sbin/udhcpc", 1), 0) << "the flag is 0";
    EXPECT_NE(cmdlib_procd_del_inst("dhcp", nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(service.requests(), Requests{});
}

TEST_F(ProcessTest, APasswordDoesNotGetIntoTheLog)
{
    Broker broker;
    StderrCapture output;
    EXPECT_NE(cmdlib_procd_start_inst("pppoe", "wan1", "/usr/sbin/pppd user u password hush", 0), 0);
    EXPECT_TRUE(contains(output.text(), "debug: cmdlib_procd_start_inst(pppoe, wan1")) << output.text();
    EXPECT_FALSE(contains(output.text(), "hush")) << output.text();
}

TEST_F(ProcessTest, KillingDeletesEveryInstanceThatWasStarted)
{
    Broker broker;
    Peer service("service");
    ASSERT_EQ(cmdlib_procd_start_inst("dhcp", "wan1", "/sbin/udhcpc", 0), 0);
    ASSERT_EQ(cmdlib_procd_start_inst("pppoe", "wan1", "/usr/sbin/pppd", 0), 0);
    ASSERT_EQ(cmdlib_procd_start_inst("dhcp", "wan2", "/sbin/udhcpc", 0), 0);
    ASSERT_EQ(cmdlib_procd_start_inst("dhcp", "wan3", "/sbin/udhcpc", 0), 0);
    ASSERT_EQ(cmdlib_procd_del_inst("dhcp", "wan2"), 0);
    size_t before = service.requests().size();
    ASSERT_EQ(cmdlib_kill_processes(), 0);
    Requests all = service.requests();
    Requests deletions(all.begin() + static_cast<long>(before), all.end());
    EXPECT_EQ(deletions, (Requests{"delete {\"name\":\"dhcp\",\"instance\":\"wan3\"}",
                                   "delete {\"name\":\"pppoe\",\"instance\":\"wan1\"}",
                                   "delete {\"name\":\"dhcp\",\"instance\":\"wan1\"}"}));
    EXPECT_EQ(cmdlib_kill_processes(), 0);
    EXPECT_EQ(service.requests().size(), all.size()) << "nothing is left to delete";
}

TEST_F(ProcessTest, KillingGoesOnAfterAFailure)
{
    Broker broker;
    Peer service("service");
    ASSERT_EQ(cmdlib_procd_start_inst("dhcp", "wan1", "/sbin/udhcpc", 0), 0);
    ASSERT_EQ(cmdlib_procd_start_inst("dhcp", "wan2", "/sbin/udhcpc", 0), 0);
    service.set_status(9);
    EXPECT_NE(cmdlib_kill_processes(), 0);
    EXPECT_EQ(service.requests().size(), 4U);
    service.set_status(0);
    EXPECT_EQ(cmdlib_kill_processes(), 0) << "those that failed are tried again";
    EXPECT_EQ(service.requests().size(), 6U);
}

TEST_F(ProcessTest, KillingWithNothingStartedNeedsNoBus)
{
    EXPECT_EQ(cmdlib_kill_processes(), 0);
}

// A process that waits, with a command line of our choice.
class Sleeper {
public:
    explicit Sleeper(const std::vector<std::string> &arguments)
    {
        pid_ = fork();
        if (pid_ == 0) {
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            std::vector<std::string> words = {"sh", "-c", "echo > /tmp/ready; read x < /tmp/never"};
            words.insert(words.end(), arguments.begin(), arguments.end());
            execv("/bin/sh", argv_of(words).data());
            _exit(127);
        }
        EXPECT_TRUE(wait_for([] { return file_exists("/tmp/ready"); }));
    }
    Sleeper(const Sleeper &) = delete;
    Sleeper &operator=(const Sleeper &) = delete;
    ~Sleeper() { reap(); }
    void kill_only() const { ::kill(pid_, SIGKILL); }
    void reap()
    {
        if (pid_ > 0) {
            ::kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
            pid_ = -1;
        }
    }
    pid_t pid() const { return pid_; }

private:
    pid_t pid_ = -1;
};

class PidFileTest : public SandboxTest {
protected:
    void SetUp() override
    {
        SandboxTest::SetUp();
        if (!IsSkipped()) {
            ASSERT_EQ(run_program({"/usr/bin/mkfifo", "/tmp/never"}).status, 0);
        }
    }
};

const char *const pid_file = "/var/run/udhcpc-wan1.pid";

TEST_F(PidFileTest, ThePidOfALivingProcessThatNamesThisFile)
{
    Sleeper client({"-p", pid_file, "-f"});
    write_file(pid_file, std::to_string(client.pid()) + "\n");
    int pid = 0;
    ASSERT_EQ(cmdlib_get_proc_id(pid_file, &pid), 0);
    EXPECT_EQ(pid, client.pid());
    write_file(pid_file, std::to_string(client.pid()));
    EXPECT_EQ(cmdlib_get_proc_id(pid_file, &pid), 0) << "the line end is not needed";
}

TEST_F(PidFileTest, AnOptionMayHaveThePathBehindIt)
{
    Sleeper client({std::string("--pidfile=") + pid_file});
    write_file(pid_file, std::to_string(client.pid()));
    int pid = 0;
    EXPECT_EQ(cmdlib_get_proc_id(pid_file, &pid), 0);
}

TEST_F(PidFileTest, AStrangerIsAnError)
{
    Sleeper stranger({"-p", "/var/run/udhcpc-wan2.pid", "/other/var/run/udhcpc-wan1.pid", "udhcpc-wan1.pid"});
    write_file(pid_file, std::to_string(stranger.pid()));
    int pid = -7;
    EXPECT_NE(cmdlib_get_proc_id(pid_file, &pid), 0);
    EXPECT_EQ(errno, ESRCH);
    EXPECT_EQ(pid, -7) << "left alone";
}

TEST_F(PidFileTest, AnEndedProcessIsAnError)
{
    Sleeper client({"-p", pid_file});
    write_file(pid_file, std::to_string(client.pid()));
    client.kill_only();
    int pid = 0;
    ASSERT_TRUE(wait_for([&] { return cmdlib_get_proc_id(pid_file, &pid) != 0; })) << "not yet waited for";
    EXPECT_EQ(errno, ESRCH);
    client.reap();
    EXPECT_NE(cmdlib_get_proc_id(pid_file, &pid), 0) << "gone altogether";
    EXPECT_EQ(errno, ESRCH);
}

TEST_F(PidFileTest, AMissingFileIsAnError)
{
    int pid = 0;
    EXPECT_NE(cmdlib_get_proc_id(pid_file, &pid), 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_NE(cmdlib_get_proc_id(nullptr, &pid), 0);
    EXPECT_NE(cmdlib_get_proc_id(pid_file, nullptr), 0);
}

TEST_F(PidFileTest, WhatIsNoPidIsAnError)
{
    int pid = -7;
    for (const char *text : {"", "\n", "abc", "-1", "0", "1", "12x", "99999999999999999999", "4294967297"}) {
        write_file(pid_file, text);
        EXPECT_NE(cmdlib_get_proc_id(pid_file, &pid), 0) << text;
        EXPECT_EQ(errno, EINVAL) << text;
    }
    write_file(pid_file, std::string(100000, '7'));
    EXPECT_NE(cmdlib_get_proc_id(pid_file, &pid), 0);
    EXPECT_EQ(pid, -7);
}

} // namespace
