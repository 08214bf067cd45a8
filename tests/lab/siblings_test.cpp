// The sibling programs on a private bus, with real processes under supervision.
#include "bus_client.h"
#include "process.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <unistd.h>

namespace lab_test {

namespace {

bool has(const std::string &text, const std::string &piece)
{
    return text.find(piece) != std::string::npos;
}

class SiblingsTest : public testing::Test {
protected:
    void SetUp() override
    {
        start_broker();
        start_siblings();
    }
    void start_broker()
    {
        broker.emplace(std::vector<std::string>{UBUSD, "-s", dir / "bus"});
        client.emplace(dir / "bus");
    }
    void start_siblings(const std::vector<std::string> &more = {})
    {
        std::vector<std::string> command = {SIBLINGS,    "--socket",      dir / "bus", "--log",
                                            dir / "log", "--dhcp-record", dir / "dhcp"};
        command.insert(command.end(), more.begin(), more.end());
        siblings.emplace(command);
        ASSERT_TRUE(siblings->wait_line("ready"));
    }
    Answer service(const std::string &method, const std::string &arguments = "{}")
    {
        return client->call("service", method, arguments);
    }
    // add or set of one instance with a shell command and more fields (each led by a comma).
    int put(const std::string &method, const std::string &name, const std::string &instance,
            const std::string &script, const std::string &fields = "")
    {
        return service(method, "{\"name\":\"" + name + "\",\"instances\":{\"" + instance +
                                   "\":{\"command\":[\"/bin/sh\",\"-c\",\"" + script + "\"]" + fields + "}}}")
            .status;
    }
    std::string list() { return service("list").json; }
    bool becomes(const std::string &piece)
    {
        return eventually([&] { return has(list(), piece); });
    }
    int pid_of(const std::string &instance)
    {
        const std::string text = list();
        const std::string key = std::string("\"").append(instance).append("\":{\"running\":true,\"pid\":");
        const size_t at = text.find(key);
        return at == std::string::npos ? -1 : atoi(text.c_str() + at + key.size());
    }
    bool logged(const std::string &line)
    {
        return eventually(
            [&] { return has(std::string("\n").append(read_file(dir / "log")), "\n" + line + "\n"); });
    }
    static bool alive(int pid) { return kill(pid, 0) == 0; }

    TempDir dir;
    std::optional<Process> broker;
    std::optional<BusClient> client;
    std::optional<Process> siblings;
};

TEST_F(SiblingsTest, StartsWithNoServices)
{
    EXPECT_EQ(list(), "{}");
    EXPECT_EQ(service("list", R"({"name":"none"})").json, "{}");
}

TEST_F(SiblingsTest, AddedInstanceRunsAndIsListed)
{
    ASSERT_EQ(put("add", "dhcp", "wan1", "echo here; exec sleep 1000", R"(,"respawn":["3600","5","0"])"), 0);
    const std::string pid = std::to_string(pid_of("wan1"));
    EXPECT_EQ(list(), R"({"dhcp":{"instances":{"wan1":{"running":true,"pid":)" + pid +
                          R"(,"command":["/bin/sh","-c","echo here; exec sleep 1000"],"term_timeout":5,)" +
                          R"("respawn":{"threshold":3600,"timeout":5,"retry":0}}}}})");
    EXPECT_TRUE(alive(pid_of("wan1")));
    EXPECT_TRUE(logged("[dhcp/wan1] here"));
}

TEST_F(SiblingsTest, ServiceNeedsAName)
{
    EXPECT_EQ(service("set", R"({"instances":{}})").status, UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(service("add", R"({"name":5})").status, UBUS_STATUS_INVALID_ARGUMENT);
}

TEST_F(SiblingsTest, SameCommandAgainChangesNothing)
{
    ASSERT_EQ(put("add", "dhcp", "wan1", "exec sleep 1000"), 0);
    const int pid = pid_of("wan1");
    ASSERT_EQ(put("add", "dhcp", "wan1", "exec sleep 1000", R"(,"data":{"note":"new"})"), 0);
    EXPECT_EQ(pid_of("wan1"), pid);
    EXPECT_TRUE(has(list(), R"("data":{"note":"new"})"));
}

TEST_F(SiblingsTest, AnotherCommandRestarts)
{
    ASSERT_EQ(put("add", "dhcp", "wan1", "exec sleep 1000"), 0);
    const int pid = pid_of("wan1");
    ASSERT_EQ(put("add", "dhcp", "wan1", "exec sleep 2000"), 0);
    EXPECT_TRUE(eventually([&] { return pid_of("wan1") > 0 && pid_of("wan1") != pid; }));
    EXPECT_FALSE(alive(pid)) << "ended and reaped";
    EXPECT_TRUE(has(list(), "sleep 2000"));
}

TEST_F(SiblingsTest, AddLeavesOtherInstancesAndSetReplacesThem)
{
    ASSERT_EQ(put("add", "dhcp", "wan1", "exec sleep 1000"), 0);
    ASSERT_EQ(put("add", "dhcp", "wan2", "exec sleep 1000"), 0);
    const int first = pid_of("wan1");
    const int second = pid_of("wan2");
    EXPECT_GT(first, 0);
    EXPECT_GT(second, 0);
    ASSERT_EQ(put("set", "dhcp", "wan2", "exec sleep 1000"), 0);
    EXPECT_TRUE(eventually([&] { return !has(list(), "wan1"); }));
    EXPECT_FALSE(alive(first));
    EXPECT_EQ(pid_of("wan2"), second);
}

TEST_F(SiblingsTest, DeleteEndsOneInstanceOrTheService)
{
    ASSERT_EQ(put("add", "dhcp", "wan1", "exec sleep 1000"), 0);
    ASSERT_EQ(put("add", "dhcp", "wan2", "exec sleep 1000"), 0);
    EXPECT_EQ(service("delete", R"({"name":"dhcp","instance":"wan1"})").status, 0);
    EXPECT_TRUE(eventually([&] { return !has(list(), "wan1"); }));
    EXPECT_GT(pid_of("wan2"), 0);
    EXPECT_EQ(service("delete", R"({"name":"dhcp"})").status, 0);
    EXPECT_TRUE(eventually([&] { return list() == "{}"; }));
}

TEST_F(SiblingsTest, DeleteOfTheUnknownIsNotFound)
{
    ASSERT_EQ(put("add", "dhcp", "wan1", "exec sleep 1000"), 0);
    EXPECT_EQ(service("delete", R"({"name":"pppoe"})").status, UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(service("delete", R"({"name":"dhcp","instance":"wan9"})").status, UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(service("delete").status, UBUS_STATUS_NOT_FOUND);
}

TEST_F(SiblingsTest, EndedInstanceStaysListedWithItsExitCode)
{
    ASSERT_EQ(put("add", "dhcp", "wan1", "exit 7"), 0);
    EXPECT_TRUE(becomes(
        R"("wan1":{"running":false,"command":["/bin/sh","-c","exit 7"],"term_timeout":5,"exit_code":7})"));
    ASSERT_EQ(put("add", "dhcp", "wan2", "kill -9 $$"), 0);
    EXPECT_TRUE(becomes(R"("exit_code":137)"));
    EXPECT_EQ(service("delete", R"({"name":"dhcp"})").status, 0);
    EXPECT_EQ(list(), "{}") << "nothing runs, so it vanishes at once";
}

TEST_F(SiblingsTest, RespawnsUntilTheRetriesAreUsedUp)
{
    ASSERT_EQ(put("add", "dhcp", "wan1", "echo started; exit 1", R"(,"respawn":["3600","0","2"])"), 0);
    EXPECT_TRUE(logged("[dhcp/wan1] ends again and again; given up"));
    const std::string log = read_file(dir / "log");
    size_t starts = 0;
    for (size_t at = 0; (at = log.find("] started, process", at)) != std::string::npos; at++) {
        starts++;
    }
    EXPECT_EQ(starts, 3U);
    EXPECT_EQ(pid_of("wan1"), -1);
    EXPECT_TRUE(has(list(), "wan1") && !has(list(), "respawn")) << list();
}

TEST_F(SiblingsTest, AnExitAfterTheThresholdIsNoCrash)
{
    ASSERT_EQ(put("add", "dhcp", "wan1", "exit 1", R"(,"respawn":["0","0","1"])"), 0);
    // With a retry of 1 two crashes would be the end; lives at least as long as the threshold never count.
    EXPECT_TRUE(eventually([&] {
        const std::string log = read_file(dir / "log");
        return std::count(log.begin(), log.end(), '\n') > 12;
    }));
    EXPECT_FALSE(has(read_file(dir / "log"), "given up"));
}

TEST_F(SiblingsTest, AListThatIsNoCommandMakesNoInstance)
{
    EXPECT_EQ(
        service("add", R"({"name":"x","instances":{"a":{"command":["sleep",5]},"b":{"command":[]}}})").status,
        0);
    EXPECT_EQ(list(), R"({"x":{}})");
    EXPECT_TRUE(logged("[x/a] dropped: no list of words as its command, or an impossible setting"));
    EXPECT_TRUE(logged("[x/b] dropped: no list of words as its command, or an impossible setting"));
}

TEST_F(SiblingsTest, WithoutACommandItIsListedAndNeverStarts)
{
    EXPECT_EQ(service("add", R"({"name":"x","instances":{"a":{},"b":{"command":"sleep 5"}}})").status, 0);
    EXPECT_EQ(list(), R"({"x":{"instances":{"a":{"running":false,"term_timeout":5,"exit_code":0},)"
                      R"("b":{"running":false,"term_timeout":5,"exit_code":0}}}})");
    EXPECT_TRUE(logged("[x/a] not started: no usable command"));
}

TEST_F(SiblingsTest, WithAnErrorItNeverStarts)
{
    EXPECT_EQ(service("add", R"({"name":"x","instances":{"d":{"command":["true"],"error":["no"]}}})").status,
              0);
    EXPECT_TRUE(has(list(), R"("d":{"running":false,"command":["true"])"));
    EXPECT_TRUE(logged("[x/d] not started: no usable command"));
}

TEST_F(SiblingsTest, RespawnOfTextsThatAreNoNumbersIsZero)
{
    ASSERT_EQ(put("add", "x", "a", "exec sleep 1000", R"(,"respawn":["often","soon","some"])"), 0);
    EXPECT_TRUE(has(list(), R"("respawn":{"threshold":0,"timeout":0,"retry":0})"));
}

// What a service asks for beside its command; a text of its own would be another service's.
const std::string confinement = R"(,"limits":{"core":"0","nofile":"100 200"},"no_new_privs":true,)"
                                R"("capabilities":"FILE")";

class JailTest : public SiblingsTest {
protected:
    void SetUp() override
    {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
        start_broker();
        file = dir / "capabilities";
        std::ofstream(file) << R"({"bounding":["CAP_NET_ADMIN","CAP_NET_RAW"],"effective":["CAP_NET_ADMIN"],)"
                               R"("permitted":["CAP_NET_ADMIN"],"inheritable":["CAP_NET_RAW"],"ambient":[]})";
    }
    std::string fields(const std::string &more) const
    {
        std::string text = confinement + more;
        return text.replace(text.find("FILE"), 4, file);
    }
    // What an instance with these fields sees of itself.
    std::string seen(const std::string &more)
    {
        EXPECT_EQ(put("add", "x", "a",
                      "grep -E '^Cap(Inh|Prm|Eff|Bnd)|^NoNew' /proc/$$/status; ulimit -Sn; ulimit -Hn; tr "
                      "'\\\\0' ' ' "
                      "</proc/$$/environ; echo; echo end; exec sleep 1000",
                      fields(more)),
                  0);
        EXPECT_TRUE(logged("[x/a] end"));
        return read_file(dir / "log");
    }

    std::string file;
};

TEST_F(JailTest, ConfinesAndEmptiesTheEnvironment)
{
    start_siblings({"--jail", JAIL});
    const std::string log = seen(R"(,"jail":{"name":"x"},"env":{"COLOUR":"blue"})");
    // an exec by root would fill the sets up to the bounds, were it not for no_new_privs
    for (const char *line :
         {"CapPrm:\t0000000000001000", "CapEff:\t0000000000001000", "CapBnd:\t0000000000003000",
          "CapInh:\t0000000000002000", "NoNewPrivs:\t1", "100", "200"}) {
        EXPECT_TRUE(has(log, std::string("[x/a] ") + line + "\n")) << log;
    }
    EXPECT_TRUE(has(log, "[x/a] container=ujail PWD=/ COLOUR=blue \n")) << log;
}

TEST_F(JailTest, WithoutAJailOnlyLimitsTakeEffect)
{
    start_siblings({"--jail", JAIL});
    const std::string log = seen("");
    const std::string own = read_file("/proc/self/status");
    const size_t at = own.find("CapBnd:");
    EXPECT_TRUE(has(log, "[x/a] " + own.substr(at, own.find('\n', at) - at) + "\n")) << log;
    EXPECT_TRUE(has(log, "[x/a] NoNewPrivs:\t0\n") && has(log, "[x/a] 100\n") && has(log, "[x/a] 200\n"))
        << log;
    EXPECT_TRUE(has(log, "PATH=")) << log;
}

TEST_F(JailTest, WithoutTheHelperItStartsAsAnyOther)
{
    start_siblings({"--jail", dir / "none"});
    const std::string log = seen(R"(,"jail":{"name":"x"})");
    EXPECT_TRUE(has(log, "[x/a] NoNewPrivs:\t0\n") && has(log, "PATH=")) << log;
}

// What a shell says that makes a folder, with a filter of this text.
class CallFilterTest : public JailTest {
protected:
    std::string said_under(const std::string &text, const std::string &jail = R"(,"jail":{"name":"x"})")
    {
        start_siblings({"--jail", JAIL});
        const std::string calls = dir / "calls";
        std::ofstream(calls) << text;
        EXPECT_EQ(put("add", "x", "a",
                      "grep Seccomp: /proc/self/status; mkdir " + (dir / "made") +
                          " 2>&1; echo status $?; exec sleep 1000",
                      R"(,"no_new_privs":true,"seccomp":")" + calls + "\"" + jail),
                  0);
        EXPECT_TRUE(eventually([&] {
            const std::string log = read_file(dir / "log");
            return has(log, "[x/a] status") || has(log, "[x/a] ended");
        }));
        return read_file(dir / "log");
    }
};

constexpr const char *no_folders =
    R"({"defaultAction":"SCMP_ACT_ALLOW","syscalls":[{"names":["mkdirat","no_call_of_any_kernel","mkdir"],)"
    R"("action":"SCMP_ACT_REFUSED"}]})";

std::string no_folders_but(const std::string &action)
{
    std::string text = no_folders;
    return text.replace(text.find("SCMP_ACT_REFUSED"), strlen("SCMP_ACT_REFUSED"), action);
}

TEST_F(CallFilterTest, EndsAProcessThatMakesAForbiddenCallAndNoOther)
{
    const std::string log = said_under(no_folders_but("SCMP_ACT_KILL_PROCESS"));
    EXPECT_TRUE(has(log, "[x/a] Seccomp:\t2\n") && has(log, "[x/a] status 159\n")) << log;
    EXPECT_FALSE(std::filesystem::exists(dir / "made"));
    EXPECT_GT(pid_of("a"), 0);
}

TEST_F(CallFilterTest, RefusesWithAnError)
{
    const std::string log = said_under(no_folders_but("SCMP_ACT_ERRNO"));
    EXPECT_TRUE(has(log, "Operation not permitted\n[x/a] status 1\n")) << log;
    EXPECT_FALSE(std::filesystem::exists(dir / "made"));
}

TEST_F(CallFilterTest, TakesEffectInAJailAlone)
{
    const std::string log = said_under(no_folders_but("SCMP_ACT_KILL_PROCESS"), "");
    EXPECT_TRUE(has(log, "[x/a] Seccomp:\t0\n") && has(log, "[x/a] status 0\n")) << log;
    EXPECT_TRUE(has(list(), R"("no_new_privs":true,"seccomp":")" + (dir / "calls") + "\"")) << list();
}

TEST_F(CallFilterTest, AnUnknownActionStartsNothing)
{
    const std::string log = said_under(no_folders);
    EXPECT_TRUE(has(log, "[x/a] lab-jail: " + (dir / "calls") + ": no such action\n")) << log;
    EXPECT_TRUE(becomes(R"("exit_code":125)"));
}

TEST_F(CallFilterTest, AFileThatIsNoFilterStartsNothing)
{
    const std::string log = said_under("{}");
    EXPECT_TRUE(has(log, "[x/a] lab-jail: " + (dir / "calls") + ": no list of rules\n")) << log;
    EXPECT_TRUE(becomes(R"("exit_code":125)"));
}

TEST_F(JailTest, IsListedAsItWasAskedFor)
{
    start_siblings({"--jail", JAIL});
    ASSERT_EQ(
        put("add", "x", "a", "exec sleep 1000", fields(R"(,"jail":{"name":"x","log":true,"mount":{}})")), 0);
    EXPECT_TRUE(
        has(list(), R"("term_timeout":5,"limits":{"core":"0","nofile":"100 200"},"no_new_privs":true,)"
                    R"("capabilities":")" +
                        file +
                        R"(","jail":{"name":"x","procfs":false,"sysfs":false,)"
                        R"("ubus":false,"log":true,"ronly":false,"netns":false,"userns":false,)"
                        R"("cgroupsns":false,"console":false}})"))
        << list();
}

TEST_F(JailTest, AChangeOfItRestarts)
{
    start_siblings({"--jail", JAIL});
    ASSERT_EQ(put("add", "x", "a", "exec sleep 1000"), 0);
    const int pid = pid_of("a");
    ASSERT_EQ(put("add", "x", "a", "exec sleep 1000", R"(,"jail":{"name":"x"})"), 0);
    EXPECT_TRUE(eventually([&] { return pid_of("a") > 0 && pid_of("a") != pid; }));
}

TEST_F(JailTest, ACapabilityThatDoesNotExistStartsNothing)
{
    start_siblings({"--jail", JAIL});
    std::ofstream(file)
        << R"({"bounding":["CAP_FLY"],"effective":[],"permitted":[],"inheritable":[],"ambient":[]})";
    ASSERT_EQ(put("add", "x", "a", "exec sleep 1000", fields(R"(,"jail":{"name":"x"})")), 0);
    EXPECT_TRUE(logged("[x/a] lab-jail: " + file + ": no such capability"));
    EXPECT_TRUE(becomes(R"("exit_code":125)"));
}

TEST_F(SiblingsTest, ACommandThatDoesNotExistSaysSo)
{
    EXPECT_EQ(service("add", R"({"name":"x","instances":{"a":{"command":["/nonexistent/program"]}}})").status,
              0);
    EXPECT_TRUE(becomes(R"("exit_code":127)"));
    EXPECT_TRUE(logged("[x/a] cannot execute /nonexistent/program: No such file or directory"));
}

TEST_F(SiblingsTest, AProcessThatIgnoresSigtermIsKilledAfterItsTime)
{
    ASSERT_EQ(put("add", "x", "stubborn", "trap '' TERM; echo deaf; while :; do sleep 0.05; done",
                  R"(,"term_timeout":1)"),
              0);
    ASSERT_TRUE(logged("[x/stubborn] deaf"));
    const int pid = pid_of("stubborn");
    const int64_t before = clock_ms();
    EXPECT_EQ(service("delete", R"({"name":"x"})").status, 0);
    EXPECT_LT(clock_ms() - before, 900) << "the answer does not wait for the end";
    EXPECT_TRUE(alive(pid));
    EXPECT_TRUE(eventually([&] { return list() == "{}"; }));
    EXPECT_GE(clock_ms() - before, 990);
    EXPECT_FALSE(alive(pid));
    EXPECT_TRUE(logged("[x/stubborn] ended, exit code 137"));
}

TEST_F(SiblingsTest, AddedAgainWhileStoppingItStartsAnew)
{
    ASSERT_EQ(put("add", "x", "a", "trap 'sleep 0.2; exit 0' TERM; echo up; while :; do sleep 0.05; done"),
              0);
    ASSERT_TRUE(logged("[x/a] up"));
    const int pid = pid_of("a");
    EXPECT_EQ(service("delete", R"({"name":"x","instance":"a"})").status, 0);
    ASSERT_EQ(put("add", "x", "a", "exec sleep 1000"), 0);
    EXPECT_TRUE(eventually([&] { return pid_of("a") > 0 && pid_of("a") != pid; }));
    EXPECT_FALSE(alive(pid));
}

TEST_F(SiblingsTest, EnvironmentPidfileAndEmptyInput)
{
    const std::string pidfile = dir / "pid";
    ASSERT_EQ(put("add", "x", "a", "echo v=$COLOUR; cat; echo end; exec sleep 1000",
                  R"(,"env":{"COLOUR":"blue"},"pidfile":")" + pidfile + "\""),
              0);
    EXPECT_TRUE(logged("[x/a] v=blue"));
    EXPECT_TRUE(logged("[x/a] end"));
    EXPECT_EQ(read_file(pidfile), std::to_string(pid_of("a")) + "\n");
    EXPECT_EQ(service("delete", R"({"name":"x"})").status, 0);
    EXPECT_TRUE(eventually([&] { return access(pidfile.c_str(), F_OK) != 0; }));
}

TEST_F(SiblingsTest, ReloadSignalTakesThePlaceOfARestart)
{
    const std::string script = "trap 'echo reloaded' HUP; echo up; while :; do sleep 0.05; done";
    ASSERT_EQ(put("add", "x", "a", script, R"(,"reload_signal":1)"), 0);
    ASSERT_TRUE(logged("[x/a] up"));
    const int pid = pid_of("a");
    ASSERT_EQ(put("add", "x", "a", script, R"(,"reload_signal":1,"env":{"A":"b"})"), 0);
    EXPECT_TRUE(logged("[x/a] reloaded"));
    EXPECT_EQ(pid_of("a"), pid);
}

TEST_F(SiblingsTest, SignalsAreDelivered)
{
    ASSERT_EQ(put("add", "x", "a",
                  "trap 'echo hup' HUP; trap 'echo usr' USR1; echo up; while :; do sleep 0.05; done"),
              0);
    ASSERT_TRUE(logged("[x/a] up"));
    EXPECT_EQ(service("signal", R"({"name":"x"})").status, 0);
    EXPECT_TRUE(logged("[x/a] hup"));
    EXPECT_EQ(service("signal", R"({"name":"x","instance":"a","signal":10})").status, 0);
    EXPECT_TRUE(logged("[x/a] usr"));
    EXPECT_EQ(service("signal", R"({"name":"x","signal":9999})").status, UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(service("signal", R"({"name":"y"})").status, UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(service("signal", R"({"name":"x","instance":"b"})").status, UBUS_STATUS_NOT_FOUND);
}

TEST_F(SiblingsTest, StateStopsAndStartsWithoutForgetting)
{
    ASSERT_EQ(put("add", "x", "a", "exec sleep 1000"), 0);
    EXPECT_EQ(service("state", R"({"name":"x","spawn":false})").status, 0);
    EXPECT_TRUE(becomes(R"("a":{"running":false)"));
    EXPECT_EQ(service("state", R"({"name":"x","spawn":true})").status, 0);
    EXPECT_GT(pid_of("a"), 0);
    EXPECT_EQ(service("state", R"({"name":"x"})").status, UBUS_STATUS_INVALID_ARGUMENT);
    EXPECT_EQ(service("state", R"({"spawn":true})").status, UBUS_STATUS_NOT_FOUND);
}

TEST_F(SiblingsTest, AutostartFalseOnlyRegisters)
{
    EXPECT_EQ(service("set", R"({"name":"x","autostart":false,"instances":{"a":{"command":["sleep","9"]}}})")
                  .status,
              0);
    EXPECT_TRUE(has(list(), R"({"x":{"autostart":false,"instances":{"a":{"running":false)"));
}

TEST_F(SiblingsTest, OmbrineAnswers)
{
    EXPECT_EQ(client->call("ombrine.run", "run").status, 0);
}

TEST_F(SiblingsTest, OmbrineMayComeLateOrNever)
{
    siblings.reset();
    ASSERT_TRUE(eventually([&] { return service("list").status == UBUS_STATUS_NOT_FOUND; }));
    start_siblings({"--ombrine-delay", "300"});
    EXPECT_EQ(client->call("ombrine.run", "run").status, UBUS_STATUS_NOT_FOUND);
    EXPECT_TRUE(eventually([&] { return client->call("ombrine.run", "run").status == 0; }));
    siblings.reset();
    ASSERT_TRUE(eventually([&] { return service("list").status == UBUS_STATUS_NOT_FOUND; }));
    start_siblings({"--no-ombrine"});
    EXPECT_EQ(client->call("ombrine.run", "run").status, UBUS_STATUS_NOT_FOUND);
    EXPECT_EQ(service("list").status, 0);
}

TEST_F(SiblingsTest, DhcpPoolsAreRecordedAsTheyCome)
{
    const std::string pool = R"({"name":"p1","intf":"lan1","ipstart":"10.0.0.2","lease_time":3600})";
    EXPECT_EQ(client->call("dnsmasq.dhcp", "add", pool).status, 0);
    EXPECT_EQ(client->call("dnsmasq.dhcp", "add", R"({"name":"p2","lease_time":"soon"})").status, 0);
    EXPECT_EQ(read_file(dir / "dhcp"), pool + "\n" + R"({"name":"p2","lease_time":"soon"})" + "\n");
    EXPECT_EQ(client->call("dnsmasq.dhcp", "dump").json,
              R"({"pools":[)" + pool + R"(,{"name":"p2","lease_time":"soon"}]})");
    EXPECT_EQ(client->call("dnsmasq.dhcp", "clear").status, 0);
    EXPECT_EQ(client->call("dnsmasq.dhcp", "dump").json, R"({"pools":[]})");
}

TEST_F(SiblingsTest, ObjectsReturnAfterTheBrokerDied)
{
    ASSERT_EQ(put("add", "x", "a", "exec sleep 1000"), 0);
    const int pid = pid_of("a");
    client.reset();
    broker->send_signal(SIGKILL);
    broker.reset();
    start_broker();
    EXPECT_TRUE(eventually([&] { return pid_of("a") == pid; }));
    EXPECT_TRUE(eventually([&] { return client->call("ombrine.run", "run").status == 0; }));
    EXPECT_EQ(client->call("dnsmasq.dhcp", "dump").status, 0);
}

TEST_F(SiblingsTest, SigtermEndsEverythingInOrder)
{
    ASSERT_EQ(put("add", "x", "a", "trap 'echo bye; exit 0' TERM; echo up; while :; do sleep 0.05; done"), 0);
    ASSERT_TRUE(logged("[x/a] up"));
    const int pid = pid_of("a");
    siblings->send_signal(SIGTERM);
    EXPECT_EQ(siblings->wait(), 0);
    EXPECT_FALSE(alive(pid));
    EXPECT_TRUE(has(read_file(dir / "log"), "[x/a] bye\n"));
}

TEST_F(SiblingsTest, ChildrenDoNotOutliveAKilledSupervisor)
{
    ASSERT_EQ(put("add", "x", "a", "exec sleep 1000"), 0);
    const int pid = pid_of("a");
    ASSERT_GT(pid, 0);
    siblings->send_signal(SIGKILL);
    siblings->wait();
    EXPECT_TRUE(eventually([&] {
        return read_file(std::string("/proc/").append(std::to_string(pid)).append("/cmdline")).empty();
    }));
}

TEST_F(SiblingsTest, ASecondSupervisorFindsTheNamesTaken)
{
    int status = 0;
    Process({SIBLINGS, "--socket", dir / "bus"}).finish(status);
    EXPECT_EQ(status, 1);
    EXPECT_EQ(list(), "{}");
}

TEST(SiblingsOptions, WrongOnesEndWithStatusTwo)
{
    for (const std::vector<std::string> &options : {std::vector<std::string>{"--nonsense"},
                                                    {"--ombrine-delay", "x"},
                                                    {"--ombrine-delay", "-1"},
                                                    {"word"}}) {
        std::vector<std::string> command = {SIBLINGS};
        command.insert(command.end(), options.begin(), options.end());
        int status = 0;
        Process(command).finish(status);
        EXPECT_EQ(status, 2);
    }
}

} // namespace

} // namespace lab_test
