#include "phy_double.h"
#include "platform/board.h"

#include <array>
#include <cerrno>
#include <gtest/gtest.h>
#include <linux/mii.h>

namespace {

constexpr uint32_t port_status = 0xB0000002;
using Words = std::array<uint32_t, 8>;

// The words, or the errno value of the failure.
int ask(Words &words)
{
    words.fill(0xDEADBEEF);
    uint32_t length = 0;
    if (knl_send_and_wait_response(port_status, nullptr, 0, words.data(), sizeof(words), &length) != 0) {
        return errno;
    }
    EXPECT_EQ(length, 32U);
    return 0;
}

TEST(SwitchQuery, EightWordsAllZeroWhileNoLinkIsUp)
{
    Words words;
    ASSERT_EQ(ask(words), 0);
    EXPECT_EQ(words, Words{});
}

TEST(SwitchQuery, LinkSpeedAndDuplexAreBits0And1To2And3)
{
    for (unsigned port = 0; port < 5; ++port) {
        phy(port).plug();
    }
    phy(0).registers[MII_LPA] = LPA_10HALF;
    phy(1).registers[MII_LPA] = LPA_10FULL | LPA_10HALF;
    phy(2).registers[MII_LPA] = LPA_100HALF | LPA_10FULL;
    phy(3).registers[MII_LPA] = LPA_100FULL | LPA_100HALF;
    phy(4).registers[MII_BMSR] = BMSR_ESTATEN;
    phy(4).registers[MII_CTRL1000] = ADVERTISE_1000FULL;
    phy(4).registers[MII_STAT1000] = LPA_1000FULL | LPA_1000HALF;
    Words words;
    ASSERT_EQ(ask(words), 0);
    EXPECT_EQ(words, (Words{1, 1 | 8, 1 | 1 << 1, 1 | 1 << 1 | 8, 1 | 2 << 1 | 8, 0, 0, 0}));
}

TEST(SwitchQuery, GigabitCountsOnlyWhenBothEndsOfferIt)
{
    phy(0).plug();
    phy(0).registers[MII_BMSR] = BMSR_ESTATEN;
    phy(0).registers[MII_CTRL1000] = ADVERTISE_1000FULL;
    phy(0).registers[MII_STAT1000] = LPA_1000HALF;
    Words words;
    ASSERT_EQ(ask(words), 0);
    EXPECT_EQ(words[0], 1U | 1 << 1 | 8) << "100 Mbit/s full duplex by the other registers";
}

TEST(SwitchQuery, WithoutNegotiationTheForcedModeCounts)
{
    phy(0).plug();
    phy(1).plug();
    phy(0).registers[MII_BMCR] = BMCR_SPEED100;
    phy(1).registers[MII_BMCR] = BMCR_FULLDPLX;
    Words words;
    ASSERT_EQ(ask(words), 0);
    EXPECT_EQ(words[0], 1U | 1 << 1);
    EXPECT_EQ(words[1], 1U | 8);
}

TEST(SwitchQuery, ALinkThatIsBackIsUp)
{
    phy(2).plug();
    phy(2).flap();
    Words words;
    ASSERT_EQ(ask(words), 0);
    EXPECT_EQ(words[2], 1U | 1 << 1 | 8) << "the latched loss is read away";
}

TEST(SwitchQuery, AFailingReadIsAnError)
{
    phy(3).failures = 1;
    Words words;
    EXPECT_EQ(ask(words), EIO);
    EXPECT_EQ(words[0], 0xDEADBEEF) << "nothing is delivered";
}

TEST(SwitchQuery, OtherQueriesAndShortBuffersAreErrors)
{
    Words words;
    uint32_t length = 0;
    EXPECT_NE(knl_send_and_wait_response(0xB0000001, nullptr, 0, words.data(), sizeof(words), &length), 0);
    EXPECT_EQ(errno, ENOTSUP);
    EXPECT_NE(knl_send_and_wait_response(port_status, nullptr, 0, words.data(), 31, &length), 0);
    EXPECT_EQ(errno, ENOBUFS);
    EXPECT_NE(knl_send_and_wait_response(port_status, nullptr, 0, nullptr, sizeof(words), &length), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(length, 0U);
    EXPECT_EQ(knl_send_and_wait_response(port_status, nullptr, 0, words.data(), sizeof(words), nullptr), 0);
}

} // namespace
