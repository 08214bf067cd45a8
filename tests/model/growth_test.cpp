// Ten thousand link events and as many additions and removals leave nothing behind: no memory, no descriptor,
// nothing in the kernel or the switch.

#include "bench.h"
#include "netintf/events.h"
#include "trace.h"

#include <filesystem>
#include <functional>
#include <malloc.h>

namespace model {
namespace {

constexpr unsigned warm_up = 200;
constexpr size_t allocator_noise = 4096;

struct Held {
    size_t memory = 0;
    size_t descriptors = 0;
    std::string sw, below;
    bool operator==(const Held &) const = default;
};

class Growth : public Bench {
protected:
    Held held() const
    {
        seam::trace_take();
        below.asked_take();
        Held out;
        const std::filesystem::directory_iterator open("/proc/self/fd");
        out.descriptors = static_cast<size_t>(std::distance(begin(open), end(open)));
        for (const auto &[offset, value] : seam::world.hardware.registers) {
            out.sw += std::to_string(offset) + "=" + std::to_string(value) + " ";
        }
        out.below = seam::lines_of(seam::facts(below));
        out.memory = mallinfo2().uordblks;
        return out;
    }
    void expect_no_growth(const std::function<void(unsigned)> &round) const
    {
        for (unsigned i = 0; i < warm_up; i++) {
            round(i);
        }
        const unsigned rounds = wanted("MODEL_ROUNDS", 10'000);
        // Twice, so that there is one older look in memory at this look as at the last.
        Held before = held();
        before = held();
        for (unsigned i = 0; i < rounds; i++) {
            round(i);
            seam::trace_take();
            below.asked_take();
        }
        const Held after = held();
        EXPECT_EQ(after.descriptors, before.descriptors);
        EXPECT_EQ(after.sw, before.sw);
        EXPECT_EQ(after.below, before.below);
        // The allocator counts what it keeps for reuse as held. One lost byte for each round would be far
        // more.
        EXPECT_LE(after.memory, before.memory + allocator_noise);
    }
    static void link_only(unsigned port, unsigned up)
    {
        const nl_link_event event{port, up};
        EXPECT_EQ(netevt_nl_link_event(&event), 0);
    }
    static int ask(const std::string &method, const seam::Message &message)
    {
        return seam::call_method("ivarode.intf", method, message).value_or(-1000);
    }
};

TEST_F(Growth, TenThousandLinkEvents)
{
    ASSERT_EQ(restart(true,
                      {{"lan1", {{"ipaddr", "192.168.1.1"}, {"netmask", "255.255.255.0"}, {"enable", "1"}}}},
                      {{"wan1",
                        {{"proto", "static"},
                         {"ipaddr", "10.0.0.2"},
                         {"netmask", "255.0.0.0"},
                         {"gateway", "10.0.0.1"},
                         {"enable", "1"}}}}),
              0);
    ASSERT_EQ(port_add("lan2"), 0);
    ASSERT_EQ(add({{"intf", "wan1.d"}, {"proto", "dhcp"}, {"defrt_pri", "20002"}, {"vlanid1", "100"}}), 0);
    expect_no_growth([](unsigned i) { link_only(i % 5, i / 5 % 2); });
}

TEST_F(Growth, TenThousandAdditionsAndRemovals)
{
    ASSERT_EQ(port_add("lan2"), 0);
    ASSERT_EQ(port_add("wan1"), 0);
    const seam::Message lan = seam::Message()
                                  .text("intf", "lan2.100")
                                  .text("ipaddr", "10.1.0.1")
                                  .text("netmask", "255.255.0.0")
                                  .number("vlanid1", 100)
                                  .number("vlanid2", 7);
    const seam::Message wan = seam::Message()
                                  .text("intf", "wan1.200")
                                  .text("proto", "dhcp")
                                  .text("defrt_pri", "20001")
                                  .number("vlanid1", 200);
    const seam::Message both = seam::Message().texts("intf", {"lan2.100", "wan1.200"});
    expect_no_growth([&](unsigned) {
        EXPECT_EQ(ask("add", lan), 0);
        EXPECT_EQ(ask("add", wan), 0);
        EXPECT_EQ(ask("del", both), 0);
    });
}

TEST_F(Growth, TenThousandPortsAddedAndGivenBack)
{
    const seam::Message name = seam::Message().text("name", "lan3");
    expect_no_growth([&](unsigned) {
        EXPECT_EQ(ask("port_add", name), 0);
        EXPECT_EQ(ask("port_del", name), 0);
    });
}

} // namespace
} // namespace model
