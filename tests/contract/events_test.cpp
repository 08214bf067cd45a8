#include "network.h"
#include "phy_double.h"
#include "platform/board.h"
#include "platform/events.h"

#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <functional>
#include <net/if.h>

extern "C" {
#include <libubox/uloop.h>
}

namespace {

using Clock = std::chrono::steady_clock;

std::vector<std::string> seen;

int on_link(const nl_link_event *event)
{
    seen.push_back(std::to_string(event->port) + (event->link ? " up" : " down"));
    return 0;
}

int on_address(const nl_addr_event *event)
{
    char text[INET_ADDRSTRLEN];
    in_addr address = {htonl(event->ipaddr)};
    char device[IFNAMSIZ] = "?";
    if_indextoname(event->ifindex, device);
    seen.push_back(std::string(device) + " " + inet_ntop(AF_INET, &address, text, sizeof(text)));
    return 0;
}

// Runs the event loop until a condition holds; false when it does not within the time.
bool run_until(const std::function<bool()> &condition, int milliseconds = 5000)
{
    auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
    while (!condition() && Clock::now() < deadline) {
        uloop_run_timeout(10);
    }
    return condition();
}

// Runs the event loop until the link watch has gone round so many times.
bool run_polls(int rounds)
{
    int goal = phy(4).reads + rounds;
    return run_until([&] { return phy(4).reads >= goal; });
}

class LinkEventTest : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(nl_duplex_init(), 0);
        ASSERT_EQ(uloop_init(), 0);
        ASSERT_EQ(nl_init("test"), 0);
        ASSERT_EQ(nl_rx_event_reg(1, on_link), 0);
    }
};

using Events = std::vector<std::string>;

TEST_F(LinkEventTest, EveryPortCountsAsDownBeforeTheFirstPoll)
{
    ASSERT_TRUE(run_polls(4));
    EXPECT_EQ(seen, Events{}) << "no link, no event";
}

TEST_F(LinkEventTest, LinksThatAreUpAreToldWithTheFirstPoll)
{
    phy(0).plug();
    phy(4).plug();
    ASSERT_TRUE(run_polls(1));
    EXPECT_EQ(seen, (Events{"0 up", "4 up"}));
    ASSERT_TRUE(run_polls(2));
    EXPECT_EQ(seen.size(), 2U) << "once only";
}

TEST_F(LinkEventTest, ALossAndAReturn)
{
    phy(2).plug();
    ASSERT_TRUE(run_polls(1));
    phy(2).pull();
    ASSERT_TRUE(run_until([] { return seen.size() == 2; }));
    phy(2).plug();
    ASSERT_TRUE(run_until([] { return seen.size() == 3; }));
    EXPECT_EQ(seen, (Events{"2 up", "2 down", "2 up"}));
}

TEST_F(LinkEventTest, ALossBetweenTwoPollsIsADownEventAndThenAnUpEvent)
{
    phy(1).plug();
    ASSERT_TRUE(run_polls(1));
    phy(1).flap();
    ASSERT_TRUE(run_until([] { return seen.size() == 3; }));
    EXPECT_EQ(seen, (Events{"1 up", "1 down", "1 up"}));
    ASSERT_TRUE(run_polls(4));
    EXPECT_EQ(seen.size(), 3U);
}

TEST_F(LinkEventTest, AFlapOfAPortThatWasDownIsAnUpEventOnly)
{
    phy(1).flap();
    ASSERT_TRUE(run_until([] { return !seen.empty(); }));
    ASSERT_TRUE(run_polls(4));
    EXPECT_EQ(seen, Events{"1 up"});
}

TEST_F(LinkEventTest, AFailingReadKeepsTheState)
{
    phy(3).plug();
    ASSERT_TRUE(run_polls(1));
    phy(3).failures = 2;
    ASSERT_TRUE(run_until([] { return phy(3).failures == 0; }));
    ASSERT_TRUE(run_polls(2));
    EXPECT_EQ(seen, Events{"3 up"});
}

TEST_F(LinkEventTest, ALossIsNotForgottenWhenTheSecondReadFails)
{
    phy(3).plug();
    ASSERT_TRUE(run_polls(1));
    phy(3).pull();
    ASSERT_TRUE(run_until([] {
        phy(3).failures = phy(3).dropped ? 0 : 1; // the read after the one that shows the loss
        return seen.size() >= 2 || phy(3).reads > 12;
    }));
    phy(3).failures = 0;
    ASSERT_TRUE(run_until([] { return seen.size() == 2; }));
    EXPECT_EQ(seen.back(), "3 down");
}

TEST_F(LinkEventTest, ALossThatTheStatusQueryHasReadIsStillTold)
{
    phy(1).plug();
    ASSERT_TRUE(run_polls(1));
    phy(1).flap();
    uint32_t words[8];
    ASSERT_EQ(knl_send_and_wait_response(0xB0000002, nullptr, 0, words, sizeof(words), nullptr), 0);
    EXPECT_EQ(words[1] & 1, 1U);
    ASSERT_TRUE(run_until([] { return seen.size() == 3; }));
    EXPECT_EQ(seen, (Events{"1 up", "1 down", "1 up"}));
}

TEST_F(LinkEventTest, PortsAreAskedEvery200Milliseconds)
{
    ASSERT_TRUE(run_polls(1));
    auto begin = Clock::now();
    int before = phy(0).reads;
    while (phy(0).reads < before + 10) { // five polls, two reads each while the link is down
        uloop_run_timeout(10);
    }
    auto took = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - begin).count();
    EXPECT_GE(took, 790) << "never more often";
}

TEST(LinkEvents, RegistrationNeedsTheChannelTheTypeAndACallback)
{
    ASSERT_EQ(uloop_init(), 0);
    EXPECT_NE(nl_rx_event_reg(1, on_link), 0) << "no nl_init yet";
    EXPECT_EQ(errno, ENOTCONN);
    EXPECT_NE(nl_init(nullptr), 0);
    EXPECT_NE(nl_init(""), 0);
    ASSERT_EQ(nl_init("test"), 0);
    EXPECT_NE(nl_rx_event_reg(2, on_link), 0);
    EXPECT_NE(nl_rx_event_reg(1, nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(nl_rx_event_reg(1, on_link), 0);
}

class AddressEventTest : public NetworkTest {
protected:
    void SetUp() override
    {
        NetworkTest::SetUp();
        if (!IsSkipped()) {
            ip("address add 192.168.9.1/24 dev w0");
            ip("link set w0 up");
            ASSERT_EQ(uloop_init(), 0);
            ASSERT_EQ(nl_rtmsg_init(), 0);
            ASSERT_EQ(nl_rtmsg_handler_reg(20, on_address), 0);
        }
    }
    static bool saw(const std::string &event) { return position(seen, event) >= 0; }
};

TEST_F(AddressEventTest, EachNewAddressIsDeliveredInHostByteOrder)
{
    ip("address add 10.1.2.3/8 dev v0");
    ip("address add 10.1.2.4/8 dev v1");
    ASSERT_TRUE(run_until([] { return saw("v1 10.1.2.4"); }));
    EXPECT_EQ(seen, (Events{"v0 10.1.2.3", "v1 10.1.2.4"})) << "and those that were there before are not";
}

TEST_F(AddressEventTest, ARemovalIsNotDelivered)
{
    ip("address add 10.1.2.3/8 dev v0");
    ip("address del 10.1.2.3/8 dev v0");
    ip("address add 10.9.9.9/8 dev v0");
    ASSERT_TRUE(run_until([] { return saw("v0 10.9.9.9"); }));
    EXPECT_EQ(seen, (Events{"v0 10.1.2.3", "v0 10.9.9.9"}));
}

TEST_F(AddressEventTest, Ipv6IsNotDelivered)
{
    Finished done = run_program({"/sbin/ip", "-6", "address", "add", "fd00::1/64", "dev", "v0"});
    if (done.status != 0) {
        GTEST_SKIP() << "this kernel has no IPv6: " << done.err;
    }
    ip("address add 10.9.9.9/8 dev v0");
    ASSERT_TRUE(run_until([] { return saw("v0 10.9.9.9"); }));
    EXPECT_EQ(seen, Events{"v0 10.9.9.9"});
}

TEST_F(AddressEventTest, AddressesOfADeviceThatComesBackUpAreDeliveredAgain)
{
    ip("link set v0 up");
    ip("address add 10.1.2.3/8 dev v0");
    ip("address add 10.1.2.4/8 dev v0");
    ASSERT_TRUE(run_until([] { return saw("v0 10.1.2.4"); }));
    seen.clear();
    ip("link set v0 down");
    ip("link set v0 up");
    ASSERT_TRUE(run_until([] { return saw("v0 10.1.2.4"); }));
    EXPECT_EQ(seen, (Events{"v0 10.1.2.3", "v0 10.1.2.4"})) << "those of other devices are not";
}

TEST_F(AddressEventTest, ADeviceThatWasUpFromTheBeginningIsKnownAsUp)
{
    ip("link set w0 mtu 1400"); // the kernel announces the device, which is up as before
    ip("address add 10.9.9.9/8 dev v0");
    ASSERT_TRUE(run_until([] { return saw("v0 10.9.9.9"); }));
    EXPECT_FALSE(saw("w0 192.168.9.1"));
    ip("link set w0 down");
    ip("link set w0 up");
    EXPECT_TRUE(run_until([] { return saw("w0 192.168.9.1"); }));
}

TEST_F(AddressEventTest, ADeviceThatIsMadeAnewIsForgottenFirst)
{
    ip("link set v0 up");
    ip("address add 10.1.2.3/8 dev v0");
    ASSERT_TRUE(run_until([] { return saw("v0 10.1.2.3"); }));
    std::string index = std::to_string(if_nametoindex("v0"));
    ip("link del v0");
    ip("link add v0 index " + index + " type veth peer name v1");
    ip("address add 10.1.2.5/8 dev v0");
    ASSERT_TRUE(run_until([] { return saw("v0 10.1.2.5"); }));
    seen.clear();
    ip("link set v0 up");
    EXPECT_TRUE(run_until([] { return saw("v0 10.1.2.5"); }));
}

TEST_F(AddressEventTest, NoEventIsLostForGoodWhenTheSocketOverflows)
{
    // The loop does not run meanwhile: far more than the socket holds.
    std::string batch;
    for (int i = 0; i < 2000; ++i) {
        batch += "link set w1 mtu " + std::to_string(1000 + i % 2) + "\n";
    }
    batch += "address add 10.1.2.3/8 dev v0\n";
    write_file("/tmp/batch", batch);
    ip("-batch /tmp/batch");
    EXPECT_TRUE(run_until([] { return saw("v0 10.1.2.3"); })) << "found by reading everything again";
    EXPECT_TRUE(saw("w0 192.168.9.1")) << "so the socket had overflowed";
    seen.clear();
    ip("address add 10.1.2.4/8 dev v0");
    EXPECT_TRUE(run_until([] { return saw("v0 10.1.2.4"); })) << "the channel still works";
    EXPECT_EQ(seen, Events{"v0 10.1.2.4"});
}

TEST_F(AddressEventTest, AnotherTypeOrNoCallbackIsAnError)
{
    EXPECT_NE(nl_rtmsg_handler_reg(21, on_address), 0);
    EXPECT_NE(nl_rtmsg_handler_reg(20, nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(AddressEventTest, OpeningTheChannelAgainIsFine)
{
    EXPECT_EQ(nl_rtmsg_init(), 0);
    ip("address add 10.1.2.3/8 dev v0");
    ASSERT_TRUE(run_until([] { return saw("v0 10.1.2.3"); }));
    EXPECT_EQ(seen, Events{"v0 10.1.2.3"}) << "not twice";
}

} // namespace
