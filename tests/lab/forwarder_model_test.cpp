// The forwarding plane against a slow model written from the rules alone: random registers, links, clocks and
// frames.
#include "frames.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <optional>
#include <random>
#include <set>

namespace lab_test {

namespace {

// Reads the registers bit by bit and keeps its stations in a list.
class SlowSwitch {
public:
    SlowSwitch(lab::SwitchRegs registers, bool second_cpu) : regs(registers), two(second_cpu) {}

    std::vector<Sent> send(unsigned port, const Frame &frame, uint64_t now)
    {
        if (!up(port) || frame.size() < 14 || frame.size() > 1522 || (frame[6] & 1)) {
            return {};
        }
        const bool tagged = frame[12] == 0x81 && frame[13] == 0x00;
        if (tagged && frame.size() < 18) {
            return {};
        }
        const unsigned tci = tagged ? frame[14] * 256U + frame[15] : 0;
        unsigned vid = tci % 4096;
        if (vid == 0) {
            if (port >= 5) {
                return {};
            }
            vid = bits(0x40 + port / 2 * 4, port % 2 * 12, 12);
        }
        const auto entry = entry_of(vid);
        if (!entry || !member(*entry, port)) {
            return {};
        }
        const Frame from(frame.begin() + 6, frame.begin() + 12);
        const Frame to(frame.begin(), frame.begin() + 6);
        learn(vid, from, port, now);
        std::set<unsigned> targets;
        for (unsigned other = 0; other < 7; other++) {
            if (member(*entry, other) && up(other)) {
                targets.insert(other);
            }
        }
        const auto at = (to[0] & 1) ? std::nullopt : locate(vid, to, now);
        if (at && *at == port) {
            return {};
        }
        if (at && targets.contains(*at)) {
            targets = {*at};
        }
        targets.erase(port);
        std::vector<Sent> sent;
        sent.reserve(targets.size());
        for (const unsigned target : targets) {
            sent.push_back({target, leave(frame, tagged, tci / 4096 * 4096 + vid, *entry, target)});
        }
        return sent;
    }

    void links(uint8_t mask)
    {
        for (unsigned port = 0; port < 5; port++) {
            if ((link_mask >> port & 1) && !(mask >> port & 1)) {
                std::erase_if(stations, [&](const Station &station) { return station.port == port; });
            }
        }
        link_mask = mask;
    }
    void expire(uint64_t now)
    {
        std::erase_if(stations, [&](const Station &station) { return station.heard + 300'000 <= now; });
    }
    size_t known() const { return stations.size(); }

private:
    struct Station {
        unsigned vid;
        Frame address;
        unsigned port;
        uint64_t heard;
    };

    unsigned bits(unsigned offset, unsigned first, unsigned count) const
    {
        unsigned value = 0;
        for (unsigned i = 0; i < count; i++) {
            value += (regs.read(offset) >> (first + i) & 1) << i;
        }
        return value;
    }
    bool up(unsigned port) const
    {
        return port == 6 || (port == 5 && two) || (port < 5 && (link_mask >> port & 1));
    }
    bool member(unsigned entry, unsigned port) const
    {
        return bits(0x70 + entry / 4 * 4, entry % 4 * 8 + port, 1) != 0;
    }
    std::optional<unsigned> entry_of(unsigned vid) const
    {
        for (unsigned i = 0; i < 16; i++) {
            const bool used =
                bits(0x50 + i / 2 * 4, i % 2 * 12, 12) != 0 || bits(0x70 + i / 4 * 4, i % 4 * 8, 7) != 0;
            if (used && bits(0x50 + i / 2 * 4, i % 2 * 12, 12) == vid) {
                return i;
            }
        }
        return std::nullopt;
    }
    void learn(unsigned vid, const Frame &address, unsigned port, uint64_t now)
    {
        for (Station &station : stations) {
            if (station.vid == vid && station.address == address) {
                station.port = port;
                station.heard = now;
                return;
            }
        }
        if (stations.size() < 1024) {
            stations.push_back({vid, address, port, now});
        }
    }
    std::optional<unsigned> locate(unsigned vid, const Frame &address, uint64_t now) const
    {
        for (const Station &station : stations) {
            if (station.vid == vid && station.address == address && station.heard + 300'000 > now) {
                return station.port;
            }
        }
        return std::nullopt;
    }
    Frame leave(const Frame &frame, bool tagged, unsigned tci, unsigned entry, unsigned port) const
    {
        Frame out(frame.begin(), frame.begin() + 12);
        const bool strip =
            port < 5 && bits(0x98, 15, 1) && bits(0x100 + entry / 4 * 4, entry % 4 * 7 + port, 1);
        if (!strip) {
            put_word(out, 0x8100);
            put_word(out, tci);
        }
        out.insert(out.end(), frame.begin() + (tagged ? 16 : 12), frame.end());
        return out;
    }

    lab::SwitchRegs regs;
    bool two;
    uint8_t link_mask = 0x1f;
    std::vector<Station> stations;
};

class Chance {
public:
    explicit Chance(unsigned seed) : engine(seed) {}

    unsigned below(unsigned limit) { return static_cast<unsigned>(engine() % limit); }
    bool one_in(unsigned n) { return below(n) == 0; }

private:
    std::mt19937 engine;
};

// Few VLANs and stations, so that they meet.
unsigned some_vid(Chance &chance)
{
    static constexpr unsigned vids[] = {0, 1, 100, 101, 4090, 4091, 4095};
    return vids[chance.below(7)];
}

uint64_t some_station(Chance &chance, bool many)
{
    return 0x0200'0000'0000 + chance.below(many ? 5000 : 12);
}

Frame some_frame(Chance &chance, bool many)
{
    const uint64_t to = chance.one_in(4) ? broadcast : some_station(chance, many);
    const uint64_t from = chance.one_in(50) ? 0x0100'0000'0001 : some_station(chance, many);
    const size_t payload = chance.one_in(30) ? 1480 + chance.below(40) : chance.below(80);
    Frame frame;
    switch (chance.below(4)) {
    case 0:
        frame = make_frame(to, from, {}, payload);
        break;
    case 1:
        frame = make_frame(to, from, {some_vid(chance) | chance.below(16) << 12, some_vid(chance)}, payload);
        break;
    default:
        frame = make_frame(to, from, {some_vid(chance) | chance.below(16) << 12}, payload);
        break;
    }
    if (chance.one_in(40)) {
        frame.resize(chance.below(20));
    }
    return frame;
}

void change_registers(Chance &chance, TestSwitch &sw)
{
    switch (chance.below(3)) {
    case 0:
        sw.pvid(chance.below(5), some_vid(chance));
        break;
    case 1:
        sw.vlan(chance.below(16), some_vid(chance), chance.below(256), chance.below(128));
        break;
    default:
        sw.untagging(chance.one_in(2));
        break;
    }
}

class ForwarderModel : public testing::TestWithParam<unsigned> {};

TEST_P(ForwarderModel, AgreesWithTheRealPlane)
{
    Chance chance(GetParam());
    const bool two = chance.one_in(2);
    const bool many = chance.one_in(4);
    TestSwitch sw(two ? 2 : 1);
    SlowSwitch model(sw.regs(), two);
    sw.daemon_layout();
    for (unsigned entry = 2; entry < 9; entry++) {
        sw.vlan(entry, some_vid(chance), chance.below(128) | 0x53, chance.below(128));
    }
    uint64_t now = 0;
    size_t delivered = 0;
    for (int step = 0; step < 20000; step++) {
        now += chance.one_in(4000) ? 200'000 : chance.below(10);
        if (chance.one_in(500)) {
            change_registers(chance, sw);
        }
        if (chance.one_in(300)) {
            const auto mask = static_cast<uint8_t>(chance.one_in(2) ? 0x1f : chance.below(32));
            sw.forwarder.set_link(mask);
            model.links(mask);
        }
        if (chance.one_in(50)) {
            sw.forwarder.mac_table().expire(now);
            model.expire(now);
        }
        const Frame frame = some_frame(chance, many);
        const unsigned port = chance.below(7);
        const auto sent = sw.send(port, frame, now);
        ASSERT_EQ(sent, model.send(port, frame, now)) << "seed " << GetParam() << ", step " << step;
        ASSERT_EQ(sw.forwarder.mac_table().size(), model.known())
            << "seed " << GetParam() << ", step " << step;
        delivered += sent.size();
    }
    // The comparison means something only if frames did get through.
    EXPECT_GT(delivered, 3000U);
    for (unsigned port = 0; port < lab::port_count; port++) {
        uint64_t dropped = 0;
        for (const uint64_t count : sw.forwarder.counters(port).drops) {
            dropped += count;
        }
        EXPECT_LE(dropped, sw.forwarder.counters(port).rx_frames);
    }
}

INSTANTIATE_TEST_SUITE_P(Seeds, ForwarderModel, testing::Range(1U, 25U));

TEST(ForwarderIsolation, NoFrameOfAVlanReachesAnotherVlansPorts)
{
    // Ports 0 and 1 against ports 2, 3 and 4, whatever tags the stations forge.
    Chance chance(7);
    TestSwitch sw;
    sw.untagging(true);
    sw.vlan(0, 100, 0x03, 0x03);
    sw.vlan(5, 101, 0x1c, 0x0c);
    for (unsigned port = 0; port < 5; port++) {
        sw.pvid(port, port < 2 ? 100 : 101);
    }
    size_t delivered = 0;
    for (int step = 0; step < 20000; step++) {
        const unsigned port = chance.below(5);
        for (const Sent &sent : sw.send(port, some_frame(chance, false), static_cast<uint64_t>(step))) {
            ASSERT_EQ(sent.port < 2, port < 2) << "step " << step;
            delivered++;
        }
    }
    EXPECT_GT(delivered, 1000U);
}

} // namespace

} // namespace lab_test
