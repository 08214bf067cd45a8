// Traffic statistics.

#include "daemon_test.h"
#include "netintf/statist.h"

#include <array>
#include <libubox/uloop.h>

namespace unit {
namespace {

class Statist : public DaemonTest {
protected:
    static constexpr const char *headers =
        "Inter-|   Receive                                                |  Transmit\n"
        " face |bytes    packets errs drop fifo frame compressed multicast|bytes    packets errs drop fifo "
        "colls "
        "carrier compressed\n";
    // One run over these lines.
    void sample(const std::string &lines)
    {
        world.net_dev = headers + lines;
        run();
    }
    void run()
    {
        uloop_timeout timeout{};
        netintf_statist_timer(&timeout);
        expect_trace({"fopen('/proc/net/dev', 'rt')", "uloop_timeout_set(3000)"});
        EXPECT_EQ(handed.timer, &timeout);
    }
};

std::string counters(const std::string &device, const std::string &rx, const std::string &tx)
{
    return device + rx + " 2 3 4 5 6 7 8 " + tx + " 10 11 12 13 14 15 16\n";
}

TEST_F(Statist, StartsItsTimer)
{
    netintf_statist_start();
    expect_trace({"uloop_timeout_set(3000)"});
    ASSERT_NE(handed.timer, nullptr);
    EXPECT_EQ(handed.timer->cb, netintf_statist_timer);
}

TEST_F(Statist, TheFirstAndTheNinthNumberCount)
{
    netintf_entry *entry = lan("lan2");
    sample(counters("  lan2:", " 3000", "6001"));
    EXPECT_EQ(entry->rx_bytes, 3000U);
    EXPECT_EQ(entry->tx_bytes, 6001U);
    EXPECT_EQ(entry->rx_bytes_prev, 0U);
    EXPECT_EQ(entry->tx_bytes_prev, 0U);
    EXPECT_EQ(entry->rx_rate, 1000U);
    EXPECT_EQ(entry->tx_rate, 2000U);
}

struct Rate {
    const char *before;
    const char *after;
    uint64_t rate;
};

TEST_F(Statist, RatesAreAThirdOfTheDifference)
{
    const Rate cases[] = {
        {"1000", "4000", 1000},
        {"1001", "1003", 0},
        {"1000", "1003", 1},
        {"5", "5", 0},
        {"0", "18446744073709551615", 6148914691236517205U},
        // A counter that went back.
        {"4000", "1000", (0U - uint64_t{3000}) / 3},
        {"1", "0", 6148914691236517205U},
    };
    for (const Rate &rate : cases) {
        board({{1, 1}, {1, 2}});
        netintf_entry *entry = lan("lan2");
        sample(counters("lan2:", rate.before, rate.before));
        sample(counters("lan2:", rate.after, rate.after));
        EXPECT_EQ(entry->rx_rate, rate.rate) << rate.before << " " << rate.after;
        EXPECT_EQ(entry->tx_rate, rate.rate) << rate.before << " " << rate.after;
        EXPECT_EQ(std::to_string(entry->rx_bytes_prev), rate.before);
        EXPECT_EQ(std::to_string(entry->tx_bytes_prev), rate.before);
    }
}

TEST_F(Statist, DevicesOfOthersAreIgnored)
{
    netintf_entry *entry = lan("lan2");
    sample(counters("    lo:", " 7", "7") + counters("  eth0:", "8", "8") + counters("lan2_x:", "9", "9") +
           counters("LAN2:", "9", "9"));
    EXPECT_EQ(entry->rx_bytes, 0U);
    sample(counters("    lo:", " 7", "7") + counters("\tlan2:", "\t30", "60") +
           counters("  eth0:", "8", "8"));
    EXPECT_EQ(entry->rx_bytes, 30U);
    EXPECT_EQ(entry->tx_bytes, 60U);
}

TEST_F(Statist, DisabledInterfacesAreSampledToo)
{
    netintf_entry *entry = lan("lan2");
    entry->enable = 0;
    sample(counters("lan2:", "30", "60"));
    EXPECT_EQ(entry->rx_bytes, 30U);
}

TEST_F(Statist, AShortLineTakesTheRestFromTheLineBefore)
{
    netintf_entry *first = lan("lan2");
    netintf_entry *second = lan("lan3");
    netintf_entry *third = lan("lan4");
    sample(counters("lan2:", "30", "60") + "lan3: 90\n" + "lan4: nonsense 1 2 3\n");
    EXPECT_EQ(first->tx_bytes, 60U);
    EXPECT_EQ(second->rx_bytes, 90U);
    EXPECT_EQ(second->tx_bytes, 60U);
    EXPECT_EQ(third->rx_bytes, 90U);
    EXPECT_EQ(third->tx_bytes, 60U);
    // The next run begins with zeros.
    sample("lan2:\n");
    EXPECT_EQ(first->rx_bytes, 0U);
    EXPECT_EQ(first->rx_bytes_prev, 30U);
}

// However many numbers a line has, those behind something else do not count.
TEST_F(Statist, ALineIsReadUpToWhatIsNoNumber)
{
    const std::string numbers[] = {"70",  "+2", "-3", "\t4", " 5", "0", "18446744073709551616",
                                   "\v8", "90", "10"};
    for (size_t count = 0; count <= std::size(numbers); count++) {
        board({{1, 1}, {1, 2}, {1, 3}});
        netintf_entry *before = lan("lan2");
        netintf_entry *entry = lan("lan3");
        std::string line = "lan3:";
        for (size_t i = 0; i < count; i++) {
            line += " " + numbers[i];
        }
        for (const char *end : {"", " x 6 7 8 9 10 11 12", " -", "\f+ 1 2 3 4 5 6 7 8 9"}) {
            sample(counters("lan2:", "30", "60") + line + end + "\n");
            EXPECT_EQ(before->rx_bytes, 30U);
            EXPECT_EQ(entry->rx_bytes, count >= 1 ? 70U : 30U) << line << end;
            EXPECT_EQ(entry->tx_bytes, count >= 9 ? 90U : 60U) << line << end;
        }
    }
}

TEST_F(Statist, BytesAreReadAsTheCLibraryReadsThem)
{
    netintf_entry *entry = lan("lan2");
    sample(counters("lan2:", " -1", "+7"));
    EXPECT_EQ(entry->rx_bytes, 18446744073709551615U);
    EXPECT_EQ(entry->tx_bytes, 7U);
    sample(counters("lan2:", "18446744073709551616", "99999999999999999999999"));
    EXPECT_EQ(entry->rx_bytes, 18446744073709551615U);
    EXPECT_EQ(entry->tx_bytes, 18446744073709551615U);
}

// Devices made anew stand behind others; each still finds its own record.
TEST_F(Statist, DevicesMayComeInAnyOrder)
{
    netintf_entry *entries[] = {lan("lan2"), lan("lan2.1"), lan("lan2.2")};
    for (const std::array<int, 3> &order :
         {std::array{0, 1, 2}, {0, 2, 1}, {1, 0, 2}, {1, 2, 0}, {2, 0, 1}, {2, 1, 0}}) {
        std::string lines;
        for (const int i : order) {
            lines += counters(std::string(entries[i]->name) + ":", std::to_string(i + 10), "1");
        }
        sample(lines);
        for (uint64_t i = 0; i < 3; i++) {
            EXPECT_EQ(entries[i]->rx_bytes, i + 10) << lines;
            entries[i]->rx_bytes = 0;
        }
    }
}

TEST_F(Statist, OddTables)
{
    netintf_entry *entry = lan("lan2");
    for (const std::string &table : std::vector<std::string>{
             "", "\n", "one header\n", std::string{headers}, std::string{headers} + "\n\n",
             std::string{headers} + ":\n   :  \n", std::string{headers} + std::string(20000, 'x'),
             // Headers are two lines, whatever they say.
             counters("lan2:", "1", "1") + counters("lan2:", "1", "1")}) {
        world.net_dev = table;
        run();
        EXPECT_EQ(entry->rx_bytes, 0U) << table;
    }
    // The last line needs no end.
    sample("lan2:30 2 3 4 5 6 7 8 60 10");
    EXPECT_EQ(entry->rx_bytes, 30U);
    EXPECT_EQ(entry->tx_bytes, 60U);
}

TEST_F(Statist, AnUnreadableTableSkipsTheSample)
{
    netintf_entry *entry = lan("lan2");
    entry->rx_bytes = 7;
    run();
    EXPECT_EQ(entry->rx_bytes, 7U);
    EXPECT_EQ(entry->rx_bytes_prev, 0U);
}

TEST_F(Statist, TheDebugCounterAdvancesByTwo)
{
    debug_area_map();
    run();
    EXPECT_EQ(debug_counter(), 2U);
    sample(counters("lan2:", "1", "1"));
    EXPECT_EQ(debug_counter(), 4U);
}

TEST_F(Statist, ReplyOfNothing)
{
    expect_call("ivarode.intf", "statist", {}, 0, {"reply({})"});
}

TEST_F(Statist, ReplyListsEnabledInterfacesOfLinkedPorts)
{
    wan("wan1");
    lan("lan1");
    lan("lan2")->enable = 0;
    netintf_entry *counted = lan("lan2.7");
    lan("lan3");
    netintf_entry *strange = lan("lan4");
    link_set(0, 1);
    link_set(2, 1);
    link_set(4, 1);
    counted->rx_bytes = 1;
    counted->tx_bytes = 2;
    counted->rx_rate = 3;
    counted->tx_rate = 4;
    strange->rx_bytes = strange->tx_rate = 18446744073709551615U;
    const auto zeros = [](const std::string &name) {
        return name + ": ['" + name +
               "', rx_bytes: '0', tx_bytes: '0', avg_rx_bytes: '0', avg_tx_bytes: '0']";
    };
    expect_call(
        "ivarode.intf", "statist", Message().number("ignored", 1), 0,
        {"reply({" + zeros("wan1") + ", " + zeros("lan1") +
         ", lan2.7: ['lan2.7', rx_bytes: '1', tx_bytes: '2', avg_rx_bytes: '3', avg_tx_bytes: '4'], lan4: "
         "['lan4', rx_bytes: '18446744073709551615', tx_bytes: '0', avg_rx_bytes: '0', avg_tx_bytes: "
         "'18446744073709551615']})"});
    // Asked again, it answers the same.
    EXPECT_EQ(call("ivarode.intf", "statist"), 0);
    EXPECT_EQ(trace_take().size(), 1U);
}

// An interface is not passed over for want of an answer.
TEST_F(Statist, ReplyAsksForALinkUntilItIsAnswered)
{
    lan("lan2");
    link_set(2, 1);
    world.link_asks_failing = 1000;
    expect_call(
        "ivarode.intf", "statist", {}, 0,
        {"reply({lan2: ['lan2', rx_bytes: '0', tx_bytes: '0', avg_rx_bytes: '0', avg_tx_bytes: '0']})"});
    EXPECT_EQ(world.link_asks_failing, 0);
}

TEST_F(Statist, ReplyEndsAtABrokenList)
{
    link_set(2, 1);
    link_set(3, 1);
    netintf_entry *entry = lan("lan2");
    lan("lan3");
    entry->next = nullptr;
    EXPECT_EQ(call("ivarode.intf", "statist"), 0);
    const std::vector<std::string> trace = trace_take();
    ASSERT_EQ(trace.size(), 1U);
    EXPECT_NE(trace[0].find("lan2: ["), std::string::npos);
    EXPECT_NE(trace[0].find("lan3: ["), std::string::npos);
    entry->next = netintf_port_head_get(2);
}

TEST_F(Statist, AReplyOfManyInterfaces)
{
    link_set(2, 1);
    for (int i = 0; i < 300; i++) {
        lan(("lan2." + std::to_string(i)).c_str());
    }
    EXPECT_EQ(call("ivarode.intf", "statist"), 0);
    const std::string reply = trace_take().back();
    EXPECT_NE(reply.find("lan2.0: ['lan2.0'"), std::string::npos);
    EXPECT_NE(
        reply.find(
            "lan2.299: ['lan2.299', rx_bytes: '0', tx_bytes: '0', avg_rx_bytes: '0', avg_tx_bytes: '0']})"),
        std::string::npos);
}

} // namespace
} // namespace unit
