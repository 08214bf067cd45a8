// The switch program and its control socket, without devices.
#include "mapped_file.h"
#include "phy.h"
#include "process.h"
#include "switch_regs.h"

#include <csignal>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

namespace lab_test {

namespace {

class ControlTest : public testing::Test {
protected:
    void start(const std::vector<std::string> &more = {})
    {
        std::vector<std::string> command = {VSWITCH,   "--regs",    dir / "mem",     "--phys",
                                            dir / "p", "--control", dir / "control", "--no-tap"};
        command.insert(command.end(), more.begin(), more.end());
        process.emplace(command);
        ASSERT_TRUE(process->wait_line("ready"));
    }
    // The part of the status that describes this port or entry.
    std::string part(const std::string &status, const std::string &begin)
    {
        const size_t from = status.find(begin);
        return from == std::string::npos ? "" : status.substr(from, status.find("},{", from) - from);
    }
    static bool has(const std::string &text, const std::string &piece)
    {
        return text.find(piece) != std::string::npos;
    }

    TempDir dir;
    std::optional<Process> process;
};

TEST_F(ControlTest, StatusShowsPortsAndDecodedVlans)
{
    start();
    lab::MappedFile regs;
    ASSERT_EQ(regs.open((dir / "mem").c_str(), lab::switch_physical_base, lab::switch_block_size, false), 0);
    auto *block = regs.as<volatile uint32_t>();
    block[0x40 / 4] = 4090 | 4091U << 12;
    block[0x50 / 4] = 4090 | 4091U << 12;
    block[0x70 / 4] = 0x41 | 0x5eU << 8;
    block[0x100 / 4] = 0x3fU << 7;
    block[0x98 / 4] = 0x8000;
    Connection connection(dir / "control");
    const std::string status = connection.ask("status");
    EXPECT_TRUE(has(part(status, "{\"port\":1,"), "\"pvid\":4091,")) << status;
    EXPECT_TRUE(has(part(status, "{\"port\":6,"), "\"name\":\"eth0\",\"cpu\":true")) << status;
    EXPECT_FALSE(has(status, "\"port\":5,")) << status;
    EXPECT_TRUE(
        has(part(status, "{\"entry\":1,"), "\"vid\":4091,\"members\":[1,2,3,4,6],\"untag\":[0,1,2,3,4,5]"))
        << status;
    EXPECT_TRUE(has(part(status, "{\"entry\":2,"), "\"free\":true")) << status;
    EXPECT_TRUE(has(status, "\"untag_enabled\":true,\"macs\":0,\"mac_capacity\":1024}")) << status;
}

TEST_F(ControlTest, SecondCpuPortIsThereWhenAskedFor)
{
    start({"--cpu-ports", "2"});
    Connection connection(dir / "control");
    EXPECT_TRUE(has(connection.ask("status"), "{\"port\":5,\"name\":\"eth1\",\"cpu\":true"));
}

TEST_F(ControlTest, LinkCommandMovesTheCable)
{
    start();
    Connection connection(dir / "control");
    EXPECT_EQ(connection.ask("link 2 down"), "{\"ok\":true}");
    EXPECT_TRUE(
        has(part(connection.ask("status"), "{\"port\":2,"), "\"link\":false,\"cable\":false,\"power\":true"));
    EXPECT_EQ(connection.ask("link port2 up 10 half"), "{\"ok\":true}");
    EXPECT_TRUE(
        has(part(connection.ask("status"), "{\"port\":2,"),
            "\"link\":true,\"cable\":true,\"power\":true,\"speed\":10,\"full_duplex\":false,\"losses\":1"));
    EXPECT_EQ(connection.ask("power 3 off"), "{\"ok\":true}");
    EXPECT_TRUE(
        has(part(connection.ask("status"), "{\"port\":3,"), "\"link\":false,\"cable\":true,\"power\":false"));
}

TEST_F(ControlTest, WrongCommandsAreToldAndChangeNothing)
{
    start();
    Connection connection(dir / "control");
    const std::string before = connection.ask("status");
    for (const char *command :
         {"", "nonsense", "status now", "link", "link 9 up", "link 5 up", "link eth0 down", "link 1 sideways",
          "link 1 up 11", "link 1 up 100 quarter", "link 1 up 100 full stop", "link 1 down 100", "power 1",
          "power 6 on", "capture", "capture 7", "capture 1 2", "\x01\"\\"}) {
        EXPECT_TRUE(connection.ask(command).starts_with("{\"error\":\"")) << command;
    }
    EXPECT_EQ(connection.ask("status"), before);
}

TEST_F(ControlTest, CommandsMayComeInPiecesAndTogether)
{
    start();
    Connection connection(dir / "control");
    connection.write("fl");
    connection.write("ush\nmac\nfl");
    EXPECT_EQ(connection.line(), "{\"ok\":true}");
    EXPECT_EQ(connection.line(), "{\"macs\":[]}");
    connection.write("ush\n");
    EXPECT_EQ(connection.line(), "{\"ok\":true}");
}

TEST_F(ControlTest, AnEndlessLineEndsItsConnectionOnly)
{
    start();
    Connection flooding(dir / "control");
    Connection other(dir / "control");
    flooding.write(std::string(3000, 'x'));
    EXPECT_TRUE(flooding.line().starts_with("{\"error\":"));
    EXPECT_TRUE(flooding.ended());
    EXPECT_EQ(other.ask("flush"), "{\"ok\":true}");
}

TEST_F(ControlTest, AReaderWhoNeverReadsIsCutOff)
{
    start();
    Connection silent(dir / "control");
    Connection other(dir / "control");
    std::string flood;
    for (int i = 0; i < 2000; i++) {
        flood += "status\n";
    }
    silent.write(flood);
    EXPECT_EQ(other.ask("flush"), "{\"ok\":true}");
    // Far fewer replies than questions: the rest went with the connection.
    int replies = 0;
    while (!silent.line().empty()) {
        replies++;
    }
    EXPECT_LT(replies, 2000);
}

TEST_F(ControlTest, WhoEndsAfterTheLastLineStillGetsEveryAnswer)
{
    start();
    Connection connection(dir / "control");
    std::string lines;
    for (int i = 0; i < 1000; i++) {
        lines += "flush\n"; // far more answers than a socket holds
    }
    connection.write(lines);
    connection.end_writing();
    for (int i = 0; i < 1000; i++) {
        ASSERT_EQ(connection.line(), "{\"ok\":true}") << i;
    }
    EXPECT_TRUE(connection.ended());
}

TEST_F(ControlTest, CaptureStartsWithTheFileHeader)
{
    start();
    Connection connection(dir / "control");
    connection.write("capture 1\n");
    const std::string header = connection.bytes(24);
    ASSERT_EQ(header.size(), 24U);
    uint32_t magic = 0;
    memcpy(&magic, header.data(), sizeof magic);
    EXPECT_EQ(magic, 0xa1b2c3d4U);
    EXPECT_EQ(header[20], 1) << "Ethernet";
}

TEST_F(ControlTest, ARestartedSwitchFindsCablesAndRegistersAsTheyWere)
{
    start();
    {
        Connection connection(dir / "control");
        connection.ask("link 4 down");
    }
    process->send_signal(SIGTERM);
    EXPECT_EQ(process->wait(), 0);
    struct stat gone {};
    EXPECT_NE(stat((dir / "control").c_str(), &gone), 0) << "the socket is removed";
    start();
    Connection connection(dir / "control");
    EXPECT_TRUE(has(part(connection.ask("status"), "{\"port\":4,"), "\"cable\":false"));
}

TEST_F(ControlTest, ASocketLeftByAKilledSwitchIsReplaced)
{
    start();
    process->send_signal(SIGKILL);
    process->wait();
    start();
    EXPECT_EQ(Connection(dir / "control").ask("flush"), "{\"ok\":true}");
}

TEST_F(ControlTest, RegisterFileIsSparse)
{
    start();
    struct stat status {};
    ASSERT_EQ(stat((dir / "mem").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, off_t{lab::switch_physical_base + lab::switch_block_size});
    EXPECT_LT(status.st_blocks, 1024) << "half a megabyte";
}

TEST(VswitchOptions, WrongOnesEndWithStatusTwo)
{
    for (const std::vector<std::string> &options : {std::vector<std::string>{},
                                                    {"--regs", "/tmp/x"},
                                                    {"--regs", "a", "--phys", "b", "--cpu-ports", "3"},
                                                    {"--regs", "a", "--phys", "b", "--phy-speed", "7"},
                                                    {"--nonsense"},
                                                    {"--regs", "a", "--phys", "b", "c"}}) {
        std::vector<std::string> command = {VSWITCH};
        command.insert(command.end(), options.begin(), options.end());
        int status = 0;
        Process(command).finish(status);
        EXPECT_EQ(status, 2);
    }
}

TEST(VswitchOptions, HelpIsOnStandardOutput)
{
    int status = 0;
    const std::string text = Process({VSWITCH, "--help"}).finish(status);
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(text.starts_with("usage: vswitch"));
}

TEST(VswitchOptions, FilesThatCannotBeMadeEndWithStatusOne)
{
    int status = 0;
    Process({VSWITCH, "--no-tap", "--regs", "/nonexistent/r", "--phys", "/nonexistent/p"}).finish(status);
    EXPECT_EQ(status, 1);
}

} // namespace

} // namespace lab_test
