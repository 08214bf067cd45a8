// The tool on a machine that has nothing of a router, and with words that it does not know: clear lines, and
// an end.

#include "../sandbox.h"
#include "commands.h"

#include <filesystem>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

const std::string long_word(1000, 'x');

Finished tool(std::vector<std::string> words)
{
    words.insert(words.begin(), program_folder() + "/ivarodectl");
    return run_program(words);
}

bool is_one_line(const std::string &text)
{
    return text.starts_with("ivarodectl: ") && text.find('\n') == text.size() - 1 && text.size() < 500;
}

std::vector<const ctl::command *> all_commands()
{
    std::vector<const ctl::command *> all;
    for (size_t i = 0; i < ctl::command_count; ++i) {
        all.push_back(&ctl::commands[i]);
    }
    return all;
}

TEST(ToolWords, EveryCommandHasHelp)
{
    const std::string list = tool({"--help"}).out;
    for (const ctl::command *each : all_commands()) {
        EXPECT_NE(list.find("\n  " + std::string(each->name) + " "), std::string::npos) << each->name;
        const Finished shown = tool({each->name, "--help"});
        EXPECT_EQ(shown.status, 0) << each->name;
        EXPECT_EQ(shown.out.rfind("Usage: ivarodectl " + std::string(each->name), 0), 0U) << shown.out;
        EXPECT_EQ(shown.err, "");
    }
}

TEST(ToolWords, HelpFitsATerminal)
{
    std::string all = tool({"--help"}).out;
    for (const ctl::command *each : all_commands()) {
        all += tool({each->name, "--help"}).out;
    }
    for (size_t at = 0; at < all.size(); at = all.find('\n', at) + 1) {
        EXPECT_LE(all.find('\n', at) - at, 110U) << all.substr(at, 120);
    }
}

TEST(ToolWords, WithoutACommandItIsWrongUsage)
{
    const Finished said = tool({});
    EXPECT_EQ(said.status, 2);
    EXPECT_EQ(said.out, "");
    EXPECT_EQ(said.err, tool({"--help"}).out);
}

TEST(ToolWords, WhatIsUnknownIsOneLine)
{
    for (const std::vector<std::string> &wrong : std::vector<std::vector<std::string>>{
             {"nix"},
             {long_word},
             {"\x1b[31m\n"},
             {""},
             {"--nix"},
             {"--" + long_word, "health"},
             {"health", "--columns"},
             {"health", "--columns", "39"},
             {"health", "--columns", "1001"},
             {"health", "--columns", "80x"},
             {"health", "--columns", "-80"},
             {"version", "--watch"},
             {"explain"},
             {"explain", "port", "1", "2"},
             {"explain", "lan1", "lan2"},
             {"explain", "a", "b", "c", "d", "e"},
         }) {
        const Finished said = tool(wrong);
        EXPECT_EQ(said.status, 2) << wrong[0];
        EXPECT_EQ(said.out, "") << wrong[0];
        EXPECT_TRUE(is_one_line(said.err)) << said.err;
    }
}

class ToolOnNothing : public SandboxTest {
protected:
    static void expect_end(const std::vector<std::string> &words)
    {
        const Finished said = tool(words);
        EXPECT_TRUE(said.status == 1 || said.status == 2) << words[0] << " " << said.status;
        EXPECT_FALSE(said.out.empty() && said.err.empty()) << words[0];
        for (size_t at = 0; at < said.err.size(); at = said.err.find('\n', at) + 1) {
            EXPECT_EQ(said.err.compare(at, 12, "ivarodectl: "), 0) << said.err;
        }
        EXPECT_LT(said.err.size(), 1000U);
    }
};

TEST_F(ToolOnNothing, EveryCommandRefusesAWordOfAThousandCharacters)
{
    for (const ctl::command *each : all_commands()) {
        expect_end({each->name, long_word});
        expect_end({each->name, long_word, "--json"});
    }
    expect_end({"explain", "port", long_word});
    expect_end({"explain", "port", "9"});
    expect_end({"explain", "port", "-1"});
    expect_end({"explain", "port", "99999999999999999999"});
}

TEST_F(ToolOnNothing, WithoutABusTheDaemonIsDown)
{
    const Finished said = tool({"health"});
    EXPECT_EQ(said.status, 1);
    EXPECT_EQ(said.out, "down: no process of the daemon is there\n");
    EXPECT_EQ(said.err, "");
}

TEST_F(ToolOnNothing, WhatCannotBeReadIsNamed)
{
    const Finished said = tool({"status"});
    EXPECT_EQ(said.status, 1);
    for (const char *wanted :
         {"not read: the switch", "not read: the board file", "not read: package lan_intf",
          "not read: package route_config", "not read: no bus broker answers"}) {
        EXPECT_NE(said.out.find(wanted), std::string::npos) << wanted << "\n" << said.out;
    }
    EXPECT_EQ(tool({"status", "--json"}).out.rfind("{\"version\":1,\"unread\":[", 0), 0U);
    EXPECT_NE(tool({"metrics"}).out.find("\nivarode_state{state=\"down\"} 1\n"), std::string::npos);
    EXPECT_EQ(tool({"metrics"}).status, 0);
    EXPECT_NE(tool({"metrics"}).out.find("# TYPE ivarode_samples_total counter\n"), std::string::npos);
    EXPECT_NE(tool({"metrics", "openmetrics"}).out.find("# TYPE ivarode_samples counter\n"),
              std::string::npos);
    EXPECT_EQ(tool({"metrics", "closed"}).status, 2);
    EXPECT_EQ(tool({"explain", "lan1"}).status, 1);
}

TEST_F(ToolOnNothing, ABrokenBoardFileIsNamedOnce)
{
    write_file("/etc/board.json", "{");
    const std::string said = tool({"explain", "lan1"}).err;
    EXPECT_NE(said.find("ivarodectl: /etc/board.json: "), std::string::npos) << said;
    EXPECT_EQ(said.find("/etc/board.json", said.find("/etc/board.json") + 1), std::string::npos) << said;
}

TEST_F(ToolOnNothing, ABrokerThatHangsIsGivenUp)
{
    std::filesystem::create_directories("/var/run/ubus");
    const int broker = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un place = {AF_UNIX, "/var/run/ubus/ubus.sock"};
    ASSERT_EQ(bind(broker, reinterpret_cast<sockaddr *>(&place), sizeof(place)), 0);
    ASSERT_EQ(listen(broker, 8), 0);
    const Finished said = tool({"status"});
    EXPECT_EQ(said.status, 1);
    EXPECT_NE(said.out.find("not read: the bus broker does not greet within 3 s"), std::string::npos)
        << said.out;
    close(broker);
}

TEST_F(ToolOnNothing, AnotherUserIsToldWhatHeMayNotRead)
{
    const std::string program = program_folder() + "/ivarodectl";
    const std::vector<std::string> as_nobody = {"/usr/bin/setpriv", "--reuid=65534", "--regid=65534",
                                                "--clear-groups", program};
    for (const ctl::command *each : all_commands()) {
        std::vector<std::string> words = as_nobody;
        words.emplace_back(each->name);
        const Finished said = run_program(words);
        EXPECT_LE(said.status, 2) << each->name;
        EXPECT_FALSE(said.out.empty() && said.err.empty()) << each->name;
    }
    std::vector<std::string> words = as_nobody;
    words.insert(words.end(), {"debug", "on"});
    const Finished said = run_program(words);
    EXPECT_EQ(said.status, 1);
    EXPECT_EQ(said.err, "ivarodectl: /dev/shm/ivarode-debug: No such file or directory\n"
                        "ivarodectl: /dev/shm/ivarode-records: No such file or directory\n");
}

} // namespace
