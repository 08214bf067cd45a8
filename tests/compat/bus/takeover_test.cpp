// Two brokers and one socket.
#include "support.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

using namespace support;

namespace {

const Bytes ping = from_hex("00030001 00000000 00000004");

class Takeover : public ::testing::Test {
protected:
    std::vector<std::string> second() const { return {tool("ubusd"), "-s", broker.socket(), "-A", "/none"}; }
    void expect_service() const { EXPECT_EQ(RawClient(broker.socket()).ask_status(ping), 0); }
    Broker broker;
};

TEST_F(Takeover, NotFromABrokerThatAnswers)
{
    RawClient client(broker.socket());
    const Output refused = run(second());
    EXPECT_EQ(refused.code, 1);
    EXPECT_EQ(refused.err, "ubusd: cannot listen on " + broker.socket() + ": Address already in use\n");
    EXPECT_EQ(client.ask_status(ping), 0);
    expect_service();
}

TEST_F(Takeover, FromABrokerThatWasKilled)
{
    broker.stop();
    ASSERT_TRUE(std::filesystem::is_socket(broker.socket()));
    broker.start();
    expect_service();
}

// The old one ends later: the socket is no longer its own.
TEST_F(Takeover, FromABrokerThatStandsStill)
{
    kill(broker.pid(), SIGSTOP);
    Child late(second(), -1, -1);
    struct stat first = {};
    struct stat now = {};
    ASSERT_EQ(stat(broker.socket().c_str(), &first), 0);
    ASSERT_TRUE(
        wait_until([&] { return stat(broker.socket().c_str(), &now) == 0 && now.st_ino != first.st_ino; }));
    kill(broker.pid(), SIGCONT);
    EXPECT_EQ(broker.end(), 0);
    expect_service();
    late.kill(SIGTERM);
    EXPECT_EQ(late.status(), 0);
    EXPECT_FALSE(std::filesystem::exists(broker.socket()));
}

// Each of them finds a socket on which nobody answers, and needs a second to be sure.
TEST_F(Takeover, OfManyThatStartAtOnceOneServes)
{
    kill(broker.pid(), SIGSTOP);
    std::vector<std::unique_ptr<Child>> started;
    for (int number = 0; number < 4; ++number) {
        started.push_back(std::make_unique<Child>(second(), -1, -1));
    }
    const auto running = [&] {
        return std::count_if(started.begin(), started.end(),
                             [](const auto &child) { return child->running(); });
    };
    EXPECT_TRUE(wait_until([&] { return running() == 1; })) << running() << " run";
    expect_service();
}

TEST_F(Takeover, NotWithALockOfSomebodyElses)
{
    if (geteuid() != 0) {
        GTEST_SKIP() << "needs root";
    }
    const std::string lock = broker.socket() + ".lock";
    broker.stop();
    for (const bool link : {false, true}) {
        std::filesystem::remove(lock);
        if (link) {
            std::filesystem::create_symlink("/etc/made-by-a-broker", lock);
        } else {
            std::ofstream(lock) << "theirs";
            ASSERT_EQ(chown(lock.c_str(), 65534, 65534), 0);
        }
        Child refused(second(), -1, -1);
        ASSERT_TRUE(wait_until([&] { return !refused.running(); }));
        EXPECT_EQ(refused.status(), 1);
        EXPECT_FALSE(std::filesystem::exists("/etc/made-by-a-broker"));
    }
}

TEST_F(Takeover, NotOfAFileThatIsNoSocket)
{
    EXPECT_EQ(broker.end(), 0);
    std::ofstream(broker.socket()) << "kept";
    const Output refused = run(second());
    EXPECT_EQ(refused.code, 1);
    EXPECT_EQ(std::filesystem::file_size(broker.socket()), 4u);
}

} // namespace
