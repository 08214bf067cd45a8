// The tool runs inside the test, where the emulated switch answers it.

#include "../phy_double.h"
#include "../sandbox.h"
#include "commands.h"

#include <cstring>
#include <fcntl.h>
#include <linux/mii.h>
#include <sys/mount.h>
#include <unistd.h>

namespace {

struct Shown {
    int status;
    std::string out;
};

Shown run_tool(std::vector<std::string> arguments)
{
    arguments.insert(arguments.begin(), {"ivarodectl", "switch"});
    std::vector<char *> argv;
    for (std::string &argument : arguments) {
        argv.push_back(argument.data());
    }
    testing::internal::CaptureStdout();
    int status = ctl::dispatch(static_cast<int>(argv.size()), argv.data());
    return {status, testing::internal::GetCapturedStdout()};
}

class SwitchToolTest : public SandboxTest {
protected:
    void SetUp() override
    {
        SandboxTest::SetUp();
        if (IsSkipped()) {
            return;
        }
        ASSERT_EQ(mount("none", "/dev", "tmpfs", 0, nullptr), 0) << strerror(errno);
        uint32_t pvids[3] = {4091 | 4092 << 12, 4091 | 4094 << 12, 4090};
        int memory = open("/dev/mem", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        EXPECT_EQ(pwrite(memory, pvids, sizeof(pvids), 0x10110040), static_cast<ssize_t>(sizeof(pvids)));
        EXPECT_EQ(ftruncate(memory, 0x10118000), 0);
        close(memory);
    }
};

// Entry 1: VLAN 4091 with ports 0, 2 and 6, bare on 0 to 5. Entry 5: VLAN 100 with ports 3 and 6.
void program_two_vlans()
{
    switch_registers()[0x50] = 4091U << 12;
    switch_registers()[0x58] = 100U << 12;
    switch_registers()[0x70] = 0x45U << 8;
    switch_registers()[0x74] = 0x48U << 8;
    switch_registers()[0x100] = 0x3FU << 7;
    switch_registers()[0x98] = 0x8000;
}

TEST_F(SwitchToolTest, ShowsPortsAndTable)
{
    program_two_vlans();
    phy(2).plug();
    Shown shown = run_tool({});
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.out, "port  link              default VLAN\n"
                         "   0  down              4091\n"
                         "   1  down              4092\n"
                         "   2  100 Mbit/s full   4091\n"
                         "   3  down              4094\n"
                         "   4  down              4090\n"
                         "   5  CPU side          -\n"
                         "   6  CPU side          -\n"
                         "\n"
                         "entry  VLAN  ports 0 1 2 3 4 5 6\n"
                         "    1  4091        u . u . . . t\n"
                         "    5   100        . . . t . . t\n"
                         "untagging is on\n");
}

TEST_F(SwitchToolTest, WithoutUntaggingEveryMemberIsTagged)
{
    program_two_vlans();
    switch_registers()[0x98] = 0;
    std::string out = run_tool({}).out;
    EXPECT_NE(out.find("    1  4091        t . t . . . t\n"), std::string::npos) << out;
    EXPECT_NE(out.find("untagging is off\n"), std::string::npos) << out;
}

TEST_F(SwitchToolTest, AnEmptyTable)
{
    std::string out = run_tool({}).out;
    EXPECT_NE(out.find("(no entry in use)"), std::string::npos) << out;
}

TEST_F(SwitchToolTest, JsonForPrograms)
{
    program_two_vlans();
    phy(2).plug();
    Shown shown = run_tool({"--json"});
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(
        shown.out,
        R"({"version":1,"ports":[{"port":0,"link":false,"speed":0,"full_duplex":false,"pvid":4091},)"
        R"({"port":1,"link":false,"speed":0,"full_duplex":false,"pvid":4092},)"
        R"({"port":2,"link":true,"speed":100,"full_duplex":true,"pvid":4091},)"
        R"({"port":3,"link":false,"speed":0,"full_duplex":false,"pvid":4094},)"
        R"({"port":4,"link":false,"speed":0,"full_duplex":false,"pvid":4090}],"untagging":true,"vlans":[)"
        R"({"entry":1,"vid":4091,"members":[0,2,6],"untag":[0,1,2,3,4,5]},)"
        R"({"entry":5,"vid":100,"members":[3,6],"untag":[]}]})"
        "\n");
}

TEST_F(SwitchToolTest, APhyThatCannotBeReadIsAFailure)
{
    StderrCapture errors;
    phy(4).failures = 1;
    Shown shown = run_tool({});
    EXPECT_EQ(shown.status, 1);
    EXPECT_EQ(shown.out, "");
    EXPECT_NE(errors.text().find("ivarodectl: the ports' PHYs: Input/output error\n"), std::string::npos);
}

TEST_F(SwitchToolTest, ARegisterThatCannotBeReadIsAFailure)
{
    StderrCapture errors;
    ASSERT_EQ(unlink("/dev/mem"), 0);
    EXPECT_EQ(run_tool({}).status, 1);
    EXPECT_NE(errors.text().find("ivarodectl: register 0x10110040: No such file or directory\n"),
              std::string::npos)
        << errors.text();
}

TEST(SwitchTool, HelpAndWrongUsage)
{
    Shown shown = run_tool({"--help"});
    EXPECT_EQ(shown.status, 0);
    EXPECT_EQ(shown.out.rfind("Usage: ivarodectl switch", 0), 0U);
    StderrCapture errors;
    EXPECT_EQ(run_tool({"--jsno"}).status, 2);
    EXPECT_EQ(run_tool({"--json", "more"}).status, 2);
    EXPECT_NE(errors.text().find("unknown option \"--jsno\"; --help"), std::string::npos) << errors.text();
    EXPECT_NE(errors.text().find("\"more\" is one"), std::string::npos) << errors.text();
}

} // namespace
