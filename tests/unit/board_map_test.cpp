// The board's port map.

#include "board/board_map.h"
#include "daemon_test.h"

namespace unit {
namespace {

using BoardMap = DaemonTest;

void map_again()
{
    trace_take();
    ASSERT_EQ(netbd_lan_wan_init(), 0);
}

TEST_F(BoardMap, ReportsWhatItFinds)
{
    board({{1, 1}, {1, 2}, {1, 3}, {1, 4}, {2, 0}});
    map_again();
    expect_trace({info("base-mac:00:11:22:33:44:50\n"), info("lan port:1234\n"), info("wan port:0\n"),
                  info("\nnetbd_lan_wan_init 124 port_bitmap=0x1f port_total=5\n")});
}

TEST_F(BoardMap, AsksTheBoardUpwardsForLansAndDownwardsForWans)
{
    world.show_board = true;
    map_again();
    std::vector<Lines> expected{"sys_bdinfo_init()", "sys_bdinfo_macbase_get()",
                                info("base-mac:00:11:22:33:44:50\n"), "sys_bdinfo_cpuid_get()"};
    for (int i = 0; i < 16; i++) {
        expected.emplace_back("sys_bdinfo_ether_get(" + std::to_string(i) + ")");
    }
    expected.push_back(info("lan port:1234\n"));
    for (int i = 15; i >= 0; i--) {
        expected.emplace_back("sys_bdinfo_ether_get(" + std::to_string(i) + ")");
    }
    expected.push_back(info("wan port:0\n"));
    expected.push_back(info("\nnetbd_lan_wan_init 124 port_bitmap=0x1f port_total=5\n"));
    expect_trace(expected);
}

TEST_F(BoardMap, LeavesTheRecordAloneWhenTheBoardCannotBeAsked)
{
    const netbd_info before = netbd_info_get();
    world.ports[0] = netbd_ether{2, 7};
    world.mac = {};
    fail("sys_bdinfo_init(");
    EXPECT_EQ(netbd_lan_wan_init(), -19);
    expect_trace({error("ivarode board info init failed\n")});
    EXPECT_EQ(netbd_info_get().lan_ports[0], before.lan_ports[0]);
    EXPECT_EQ(netbd_info_get().port_total, before.port_total);
    EXPECT_EQ(netbd_info_get().base_mac[2], 0x22);
}

struct Found {
    const char *what;
    Ports ports;
    const char *lans;
    const char *wans;
    uint32_t bitmap;
    uint32_t total;
};

class BoardMapFinds : public DaemonTest, public testing::WithParamInterface<Found> {};

TEST_P(BoardMapFinds, PortsByRole)
{
    const Found &found = GetParam();
    board(found.ports);
    map_again();
    char last[96];
    std::snprintf(last, sizeof last, "\nnetbd_lan_wan_init 124 port_bitmap=0x%x port_total=%u\n",
                  found.bitmap, found.total);
    expect_trace({info("base-mac:00:11:22:33:44:50\n"), info(std::string{"lan port:"} + found.lans + "\n"),
                  info(std::string{"wan port:"} + found.wans + "\n"), info(last)});
    EXPECT_EQ(netbd_port_total_get(), found.total);
}

INSTANTIATE_TEST_SUITE_P(
    Boards, BoardMapFinds,
    testing::Values(Found{"none", {}, "", "", 0, 0}, Found{"roles", {{0, 0}, {4, 1}, {255, 2}}, "", "", 0, 0},
                    // A role that is both is listed twice and counted once.
                    Found{"both", {{3, 2}}, "2", "2", 4, 1},
                    // Of a number of two digits the first shows; ports from 8 on are not counted.
                    Found{"two_digits", {{1, 12}, {1, 1}}, "11", "", 0x1002, 1},
                    // The bit is the port number modulo 32.
                    Found{"bit_wraps", {{1, 33}, {2, 7}}, "3", "7", 0x82, 2},
                    Found{"wan_downwards", {{2, 0}, {2, 1}, {2, 2}}, "", "210", 7, 3},
                    Found{"sixteen",
                          {{1, 0},
                           {1, 1},
                           {1, 2},
                           {1, 3},
                           {1, 4},
                           {1, 5},
                           {1, 6},
                           {1, 7},
                           {3, 0},
                           {3, 1},
                           {3, 2},
                           {3, 3},
                           {3, 4},
                           {3, 5},
                           {3, 6},
                           {3, 7}},
                          "0123456701234567",
                          "76543210",
                          0xff,
                          8}),
    [](const auto &found) { return std::string{found.param.what}; });

TEST_F(BoardMap, TypeTwoIsOneCpuIdentifierAlone)
{
    for (const auto &[cpuid, type] : {std::pair{0xc7a6e2d1U, 2U}, std::pair{0xc7a6e2d0U, 1U},
                                      std::pair{0U, 1U}, std::pair{0xffffffffU, 1U}}) {
        board({{1, 0}}, cpuid);
        EXPECT_EQ(netbd_board_type_get(), type) << std::hex << cpuid;
    }
}

TEST_F(BoardMap, SlotsOfLansFollowTheBoardIndexAndHaveGaps)
{
    board({{2, 0}, {0, 1}, {1, 3}});
    uint32_t port = 99;
    EXPECT_EQ(netbd_lan_hwport_get(1, &port), -1);
    EXPECT_EQ(netbd_lan_hwport_get(2, &port), -1);
    EXPECT_EQ(port, 99U);
    expect_trace({error("lan 1 get hw port error\n"), error("lan 2 get hw port error\n")});
    EXPECT_EQ(netbd_lan_hwport_get(3, &port), 0);
    EXPECT_EQ(port, 3U);
    expect_trace({});
}

TEST_F(BoardMap, WansAreDense)
{
    board({{2, 4}, {1, 0}, {2, 2}});
    uint32_t port = 99;
    EXPECT_EQ(netbd_wan_hwport_get(1, &port), 0);
    EXPECT_EQ(port, 2U);
    EXPECT_EQ(netbd_wan_hwport_get(2, &port), 0);
    EXPECT_EQ(port, 4U);
    EXPECT_EQ(netbd_wan_hwport_get(3, &port), -1);
    expect_trace({error("wan 3 get hw port error\n")});
}

TEST_F(BoardMap, NumbersOutsideTheTableAreNoPorts)
{
    uint32_t port = 99;
    EXPECT_EQ(netbd_lan_hwport_get(0, &port), -1);
    EXPECT_EQ(netbd_lan_hwport_get(17, &port), -1);
    EXPECT_EQ(netbd_wan_hwport_get(0xffffffff, &port), -1);
    expect_trace({error("lan 0 get hw port error\n"), error("lan 17 get hw port error\n"),
                  error("wan -1 get hw port error\n")});
    EXPECT_EQ(port, 99U);
}

TEST_F(BoardMap, NullResultsAreRefusedSilently)
{
    EXPECT_EQ(netbd_lan_hwport_get(1, nullptr), -2);
    EXPECT_EQ(netbd_wan_hwport_get(9, nullptr), -2);
    EXPECT_EQ(netbd_seqport_get(1, nullptr), -2);
    expect_trace({});
}

TEST_F(BoardMap, SequenceIsTheLanSlotOrCountsWansFromTheTop)
{
    // Five ports in all; the WAN of the highest index is the first.
    board({{1, 1}, {1, 2}, {3, 3}, {2, 4}, {2, 0}});
    const std::pair<uint32_t, uint32_t> sequence_of[] = {{1, 0}, {2, 1}, {3, 2}, {0, 4}, {4, 3}};
    for (const auto &[port, wanted] : sequence_of) {
        uint32_t sequence = 99;
        EXPECT_EQ(netbd_seqport_get(port, &sequence), 0);
        EXPECT_EQ(sequence, wanted) << "port " << port;
    }
    uint32_t sequence = 99;
    EXPECT_EQ(netbd_seqport_get(6, &sequence), -1);
    EXPECT_EQ(sequence, 99U);
    expect_trace({});
}

TEST_F(BoardMap, FirstSlotOfAPortGivesItsSequence)
{
    board({{0, 0}, {1, 2}, {1, 2}});
    uint32_t sequence = 99;
    EXPECT_EQ(netbd_seqport_get(2, &sequence), 0);
    EXPECT_EQ(sequence, 1U);
}

TEST_F(BoardMap, CopiesTheBaseMac)
{
    uint8_t mac[6] = {};
    EXPECT_EQ(netbd_basemac_get(mac), 0);
    EXPECT_TRUE(std::equal(std::begin(mac), std::end(mac), world.mac.begin()));
}

} // namespace
} // namespace unit
