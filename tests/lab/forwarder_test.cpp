// The forwarding plane, rule by rule.
#include "frames.h"

#include <gtest/gtest.h>

namespace lab_test {

namespace {

using lab::Drop;
using Ports = std::vector<unsigned>;

constexpr uint64_t station_a = 0x0200'0000'000a;
constexpr uint64_t station_b = 0x0200'0000'000b;
constexpr uint64_t station_c = 0x0200'0000'000c;

TEST(Forwarder, NothingPassesBeforeTheSwitchIsProgrammed)
{
    TestSwitch sw;
    EXPECT_EQ(sw.ports_reached(1, make_frame(broadcast, station_a, {})), Ports());
    EXPECT_EQ(sw.drops(1, Drop::unknown_vlan), 1U);
}

TEST(Forwarder, UntaggedFramesTakeThePvidAndReachMembersOnly)
{
    TestSwitch sw;
    sw.daemon_layout();
    const Frame frame = make_frame(broadcast, station_a, {});
    const Frame tagged = make_frame(broadcast, station_a, {4091});
    EXPECT_EQ(sw.send(1, frame), (std::vector<Sent>{{2, frame}, {3, frame}, {4, frame}, {6, tagged}}));
}

TEST(Forwarder, WanPortMeetsOnlyTheCpu)
{
    TestSwitch sw;
    sw.daemon_layout();
    EXPECT_EQ(sw.ports_reached(0, make_frame(broadcast, station_a, {})), Ports{6});
    EXPECT_EQ(sw.ports_reached(6, make_frame(broadcast, station_b, {4090})), Ports{0});
}

TEST(Forwarder, PriorityTagKeepsItsPriorityAndTakesThePvid)
{
    TestSwitch sw;
    sw.daemon_layout();
    const auto sent = sw.send(0, make_frame(broadcast, station_a, {0xe000}));
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].frame, make_frame(broadcast, station_a, {0xe000 | 4090}));
}

TEST(Forwarder, TaggedFrameIsUntaggedWhereTheEntrySaysSo)
{
    TestSwitch sw;
    sw.untagging(true);
    sw.vlan(5, 100, 0x46, 0x04);
    const Frame tagged = make_frame(broadcast, station_a, {100});
    EXPECT_EQ(sw.send(6, tagged),
              (std::vector<Sent>{{1, tagged}, {2, make_frame(broadcast, station_a, {})}}));
}

TEST(Forwarder, UntagBitsCountOnlyWhileUntaggingIsEnabled)
{
    TestSwitch sw;
    sw.vlan(5, 100, 0x42, 0x7f);
    const Frame tagged = make_frame(broadcast, station_a, {100});
    EXPECT_EQ(sw.send(6, tagged), (std::vector<Sent>{{1, tagged}}));
    sw.untagging(true);
    EXPECT_EQ(sw.send(6, tagged), (std::vector<Sent>{{1, make_frame(broadcast, station_a, {})}}));
}

TEST(Forwarder, CpuSidePortsKeepTheirTagsWhateverTheUntagBits)
{
    TestSwitch sw(2);
    sw.untagging(true);
    sw.vlan(5, 100, 0x61, 0x7f);
    sw.pvid(0, 100);
    const Frame tagged = make_frame(broadcast, station_a, {100});
    EXPECT_EQ(sw.send(0, make_frame(broadcast, station_a, {})),
              (std::vector<Sent>{{5, tagged}, {6, tagged}}));
}

TEST(Forwarder, PortFiveExistsOnlyWithTwoCpuPorts)
{
    TestSwitch sw(1);
    sw.vlan(5, 100, 0x7f);
    EXPECT_EQ(sw.ports_reached(6, make_frame(broadcast, station_a, {100})), (Ports{0, 1, 2, 3, 4}));
    EXPECT_EQ(sw.ports_reached(5, make_frame(broadcast, station_a, {100})), Ports());
    EXPECT_EQ(sw.forwarder.counters(5).rx_frames, 0U);
}

TEST(Forwarder, CpuSideFramesWithoutVlanAreDropped)
{
    TestSwitch sw;
    sw.vlan(5, 0, 0x7f);
    EXPECT_EQ(sw.ports_reached(6, make_frame(broadcast, station_a, {})), Ports());
    EXPECT_EQ(sw.ports_reached(6, make_frame(broadcast, station_a, {0x2000})), Ports());
    EXPECT_EQ(sw.drops(6, Drop::cpu_untagged), 2U);
}

TEST(Forwarder, TaggedFrameFromAPortOutsideItsVlanIsDropped)
{
    TestSwitch sw;
    sw.daemon_layout();
    EXPECT_EQ(sw.ports_reached(0, make_frame(broadcast, station_a, {4091})), Ports());
    EXPECT_EQ(sw.drops(0, Drop::not_member), 1U);
}

TEST(Forwarder, UntaggedFrameFromAPortOutsideItsPvidsVlanIsDropped)
{
    TestSwitch sw;
    sw.daemon_layout();
    sw.vlan(1, 4091, 0x5c, 0x3f);
    EXPECT_EQ(sw.ports_reached(1, make_frame(broadcast, station_a, {})), Ports());
    EXPECT_EQ(sw.drops(1, Drop::not_member), 1U);
}

TEST(Forwarder, FirstEntryOfAVlanIdWins)
{
    TestSwitch sw;
    sw.vlan(5, 100, 0x42);
    sw.vlan(6, 100, 0x4c);
    EXPECT_EQ(sw.ports_reached(6, make_frame(broadcast, station_a, {100})), Ports{1});
}

TEST(Forwarder, AnEntryLeftWithoutMembersStillHidesLaterOnes)
{
    TestSwitch sw;
    sw.vlan(5, 100, 0);
    sw.vlan(6, 100, 0x4c);
    EXPECT_EQ(sw.ports_reached(6, make_frame(broadcast, station_a, {100})), Ports());
    EXPECT_EQ(sw.drops(6, Drop::not_member), 1U);
}

TEST(Forwarder, KnownStationGetsItsFramesAlone)
{
    TestSwitch sw;
    sw.daemon_layout();
    sw.send(2, make_frame(broadcast, station_b, {}));
    EXPECT_EQ(sw.ports_reached(1, make_frame(station_b, station_a, {})), Ports{2});
    EXPECT_EQ(sw.ports_reached(6, make_frame(station_b, station_c, {4091})), Ports{2});
}

TEST(Forwarder, UnknownStationIsFlooded)
{
    TestSwitch sw;
    sw.daemon_layout();
    EXPECT_EQ(sw.ports_reached(1, make_frame(station_b, station_a, {})), (Ports{2, 3, 4, 6}));
}

TEST(Forwarder, AFrameNeverReturnsToItsPort)
{
    TestSwitch sw;
    sw.daemon_layout();
    sw.send(2, make_frame(broadcast, station_b, {}));
    EXPECT_EQ(sw.ports_reached(2, make_frame(station_b, station_a, {})), Ports());
    EXPECT_EQ(sw.drops(2, Drop::same_port), 1U);
}

TEST(Forwarder, StationsAreLearntPerVlan)
{
    TestSwitch sw;
    sw.vlan(5, 100, 0x46);
    sw.vlan(6, 200, 0x46);
    sw.send(1, make_frame(broadcast, station_a, {100}));
    EXPECT_EQ(sw.ports_reached(6, make_frame(station_a, station_b, {100})), Ports{1});
    EXPECT_EQ(sw.ports_reached(6, make_frame(station_a, station_b, {200})), (Ports{1, 2}));
}

TEST(Forwarder, AStationThatMovesIsFoundAtItsNewPort)
{
    TestSwitch sw;
    sw.daemon_layout();
    sw.send(2, make_frame(broadcast, station_b, {}));
    sw.send(3, make_frame(broadcast, station_b, {}));
    EXPECT_EQ(sw.ports_reached(1, make_frame(station_b, station_a, {})), Ports{3});
    EXPECT_EQ(sw.forwarder.mac_table().size(), 2U);
}

TEST(Forwarder, AStationWhosePortLeftTheVlanIsUnknown)
{
    TestSwitch sw;
    sw.daemon_layout();
    sw.send(2, make_frame(broadcast, station_b, {}));
    sw.vlan(1, 4091, 0x5a, 0x3f);
    EXPECT_EQ(sw.ports_reached(1, make_frame(station_b, station_a, {})), (Ports{3, 4, 6}));
}

TEST(Forwarder, StationsAgeAfterFiveMinutes)
{
    TestSwitch sw;
    sw.daemon_layout();
    sw.send(2, make_frame(broadcast, station_b, {}), 1000);
    EXPECT_EQ(sw.ports_reached(1, make_frame(station_b, station_a, {}), 300'999), Ports{2});
    EXPECT_EQ(sw.ports_reached(1, make_frame(station_b, station_a, {}), 301'000), (Ports{2, 3, 4, 6}));
    sw.forwarder.mac_table().expire(301'000);
    EXPECT_EQ(sw.forwarder.mac_table().size(), 1U);
}

TEST(Forwarder, AFullAddressTableFloodsAndLearnsAgainWhenThereIsRoom)
{
    TestSwitch sw;
    sw.daemon_layout();
    for (uint64_t i = 0; i < lab::mac_table_size + 100; i++) {
        sw.send(2, make_frame(broadcast, 0x0200'0001'0000 + i, {}));
    }
    EXPECT_EQ(sw.forwarder.mac_table().size(), lab::mac_table_size);
    EXPECT_EQ(sw.ports_reached(1, make_frame(0x0200'0001'0000, station_a, {})), Ports{2});
    EXPECT_EQ(sw.ports_reached(1, make_frame(0x0200'0001'0000 + lab::mac_table_size, station_a, {})),
              (Ports{2, 3, 4, 6}));
    sw.forwarder.mac_table().expire(300'000);
    sw.send(1, make_frame(broadcast, station_a, {}), 300'000);
    EXPECT_EQ(sw.ports_reached(2, make_frame(station_a, station_b, {}), 300'000), Ports{1});
}

TEST(Forwarder, APortWithoutLinkNeitherSendsNorReceivesNorKeepsStations)
{
    TestSwitch sw;
    sw.daemon_layout();
    sw.send(2, make_frame(broadcast, station_b, {}));
    sw.forwarder.set_link(0x1b);
    EXPECT_EQ(sw.ports_reached(1, make_frame(station_b, station_a, {})), (Ports{3, 4, 6}));
    EXPECT_EQ(sw.ports_reached(2, make_frame(station_a, station_b, {})), Ports());
    EXPECT_EQ(sw.drops(2, Drop::port_down), 1U);
    sw.forwarder.set_link(0x1f);
    EXPECT_EQ(sw.ports_reached(1, make_frame(station_b, station_a, {})), (Ports{2, 3, 4, 6}));
}

TEST(Forwarder, AFlapForgetsThatPortsStationsOnly)
{
    TestSwitch sw;
    sw.daemon_layout();
    sw.send(2, make_frame(broadcast, station_b, {}));
    sw.send(3, make_frame(broadcast, station_c, {}));
    sw.forwarder.link_lost(2);
    EXPECT_EQ(sw.ports_reached(1, make_frame(station_b, station_a, {})), (Ports{2, 3, 4, 6}));
    EXPECT_EQ(sw.ports_reached(1, make_frame(station_c, station_a, {})), Ports{3});
}

TEST(Forwarder, InnerTagIsPayload)
{
    TestSwitch sw;
    sw.daemon_layout();
    sw.vlan(5, 100, 0x42, 0x02);
    EXPECT_EQ(sw.send(6, make_frame(broadcast, station_a, {100, 7})),
              (std::vector<Sent>{{1, make_frame(broadcast, station_a, {7})}}));
    const Frame twice = make_frame(broadcast, station_b, {100, 7});
    EXPECT_EQ(sw.send(1, twice), (std::vector<Sent>{{6, twice}}));
}

TEST(Forwarder, RuntsAreDroppedAndCounted)
{
    TestSwitch sw;
    sw.daemon_layout();
    Frame frame = make_frame(broadcast, station_a, {4091}, 0);
    for (size_t length = 0; length < 18; length++) {
        EXPECT_EQ(sw.ports_reached(1, Frame(frame.begin(), frame.begin() + static_cast<long>(length))),
                  Ports());
    }
    EXPECT_EQ(sw.drops(1, Drop::runt), 18U);
    EXPECT_EQ(sw.ports_reached(1, frame), (Ports{2, 3, 4, 6}));
    EXPECT_EQ(sw.ports_reached(1, make_frame(broadcast, station_a, {}, 0)), (Ports{2, 3, 4, 6}));
}

TEST(Forwarder, OversizeFramesAreDroppedAndCounted)
{
    TestSwitch sw;
    sw.daemon_layout();
    const Frame longest = make_frame(broadcast, station_a, {}, lab::max_frame - 14);
    const auto sent = sw.send(0, longest);
    ASSERT_EQ(sent.size(), 1U);
    EXPECT_EQ(sent[0].frame, make_frame(broadcast, station_a, {4090}, lab::max_frame - 14));
    EXPECT_EQ(sw.ports_reached(0, make_frame(broadcast, station_a, {}, lab::max_frame - 13)), Ports());
    EXPECT_EQ(sw.drops(0, Drop::oversize), 1U);
}

TEST(Forwarder, GroupSourceIsDroppedAndNotLearnt)
{
    TestSwitch sw;
    sw.daemon_layout();
    EXPECT_EQ(sw.ports_reached(1, make_frame(broadcast, 0x0100'5e00'0001, {})), Ports());
    EXPECT_EQ(sw.drops(1, Drop::bad_source), 1U);
    EXPECT_EQ(sw.forwarder.mac_table().size(), 0U);
}

TEST(Forwarder, CountersAddUp)
{
    TestSwitch sw;
    sw.daemon_layout();
    const Frame frame = make_frame(broadcast, station_a, {}, 100);
    sw.send(0, frame);
    sw.send(0, frame);
    EXPECT_EQ(sw.forwarder.counters(0).rx_frames, 2U);
    EXPECT_EQ(sw.forwarder.counters(0).rx_bytes, 2 * frame.size());
    EXPECT_EQ(sw.forwarder.counters(6).tx_frames, 2U);
    EXPECT_EQ(sw.forwarder.counters(6).tx_bytes, 2 * (frame.size() + 4));
}

TEST(Forwarder, RegisterChangesTakeEffectWithTheNextFrame)
{
    TestSwitch sw;
    sw.daemon_layout();
    const Frame frame = make_frame(broadcast, station_a, {});
    EXPECT_EQ(sw.ports_reached(4, frame), (Ports{1, 2, 3, 6}));
    sw.pvid(4, 4094);
    sw.vlan(4, 4094, 0x50, 0x3f);
    EXPECT_EQ(sw.ports_reached(4, frame), Ports{6});
}

} // namespace

} // namespace lab_test
