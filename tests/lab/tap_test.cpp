// The switch program with real devices, in a network namespace of its own.
#include "frames.h"
#include "mapped_file.h"
#include "phy.h"
#include "process.h"

#include <arpa/inet.h>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/ethtool.h>
#include <linux/if_packet.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace lab_test {

namespace {

// Set aside for experiments: nothing else in the namespace sends it.
constexpr uint16_t test_protocol = 0x88b5;

Frame test_frame(uint64_t to, uint64_t from, std::initializer_list<unsigned> tags)
{
    Frame frame = make_frame(to, from, tags, 60, 0x33);
    const size_t type = 12 + 4 * tags.size();
    frame[type] = test_protocol >> 8;
    frame[type + 1] = test_protocol & 0xff;
    return frame;
}

ifreq request_for(const std::string &device)
{
    ifreq request{};
    strncpy(request.ifr_name, device.c_str(), IFNAMSIZ - 1);
    return request;
}

// A station on the far end of a cable.
class Station {
public:
    explicit Station(const std::string &name)
        : device(name), fd(socket(AF_PACKET, SOCK_RAW, htons(test_protocol)))
    {
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_protocol = htons(test_protocol);
        address.sll_ifindex = static_cast<int>(if_nametoindex(name.c_str()));
        ready = bring_up() && bind(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
    }

    // A device that has just come up refuses frames until the kernel has taken note of its carrier.
    bool send(const Frame &frame)
    {
        return eventually([&] { return ::send(fd.get(), frame.data(), frame.size(), 0) > 0; });
    }
    Frame receive()
    {
        pollfd waiting{fd.get(), POLLIN, 0};
        Frame frame(2048);
        if (poll(&waiting, 1, deadline_ms) <= 0) {
            return {};
        }
        for (;;) {
            sockaddr_ll from{};
            socklen_t size = sizeof from;
            const ssize_t length =
                recvfrom(fd.get(), frame.data(), frame.size(), 0, reinterpret_cast<sockaddr *>(&from), &size);
            if (length < 0) {
                return {};
            }
            if (from.sll_pkttype != PACKET_OUTGOING) {
                frame.resize(static_cast<size_t>(length));
                return frame;
            }
        }
    }
    bool carrier() const
    {
        ethtool_value value{ETHTOOL_GLINK, 0};
        ifreq request = request_for(device);
        request.ifr_data = reinterpret_cast<char *>(&value);
        return ioctl(fd.get(), SIOCETHTOOL, &request) == 0 && value.data == 1;
    }

    bool ready = false;

private:
    bool bring_up() const
    {
        ifreq request = request_for(device);
        request.ifr_flags = IFF_UP;
        return ioctl(fd.get(), SIOCSIFFLAGS, &request) == 0;
    }

    std::string device;
    lab::UniqueFd fd;
};

class TapTest : public testing::Test {
protected:
    void SetUp() override
    {
        if (unshare(CLONE_NEWNET) < 0 || !lab::UniqueFd(open("/dev/net/tun", O_RDWR | O_CLOEXEC))) {
            GTEST_SKIP() << "needs the right to make network devices";
        }
        process.emplace(std::vector<std::string>{VSWITCH, "--regs", dir / "mem", "--phys", dir / "p",
                                                 "--control", dir / "control"});
        ASSERT_TRUE(process->wait_line("ready"));
        ASSERT_EQ(regs.open((dir / "mem").c_str(), lab::switch_physical_base, lab::switch_block_size, false),
                  0);
        ASSERT_EQ(phys.open((dir / "p").c_str(), 0, sizeof(lab::PhyFile), false), 0);
        auto *block = regs.as<volatile uint32_t>();
        block[0x40 / 4] = 4090 | 4091U << 12;
        block[0x44 / 4] = 4091;
        block[0x50 / 4] = 4090 | 4091U << 12;
        block[0x70 / 4] = 0x41 | 0x46U << 8;
        block[0x100 / 4] = 0x3f | 0x3fU << 7;
        block[0x98 / 4] = 0x8000;
    }

    TempDir dir;
    std::optional<Process> process;
    lab::MappedFile regs;
    lab::MappedFile phys;
};

TEST_F(TapTest, FramesCrossBetweenStationsOfAVlanAndStayInIt)
{
    Station wan("port0");
    Station one("port1");
    Station two("port2");
    Station cpu("eth0");
    ASSERT_TRUE(wan.ready && one.ready && two.ready && cpu.ready);
    const Frame to_lan = test_frame(broadcast, 0x0200'0000'0001, {});
    ASSERT_TRUE(one.send(to_lan));
    EXPECT_EQ(two.receive(), to_lan);
    // Had the first frame leaked to the WAN, it would be received before this one.
    const Frame to_wan = test_frame(broadcast, 0x0200'0000'0006, {4090});
    ASSERT_TRUE(cpu.send(to_wan));
    EXPECT_EQ(wan.receive(), test_frame(broadcast, 0x0200'0000'0006, {}));
}

TEST_F(TapTest, CaptureShowsBothDirectionsAsOnTheWire)
{
    Station one("port1");
    Station cpu("eth0");
    ASSERT_TRUE(one.ready && cpu.ready);
    Connection capture(dir / "control");
    capture.write("capture eth0\n");
    ASSERT_EQ(capture.bytes(24).size(), 24U);
    const auto next = [&] {
        for (;;) {
            const std::string record = capture.bytes(16);
            if (record.size() < 16) {
                return Frame();
            }
            uint32_t length = 0;
            memcpy(&length, record.data() + 8, sizeof length);
            const std::string bytes = capture.bytes(length);
            if (bytes.size() > 18 && bytes[16] == static_cast<char>(0x88)) {
                return Frame(bytes.begin(), bytes.end());
            }
        }
    };
    ASSERT_TRUE(one.send(test_frame(broadcast, 0x0200'0000'0001, {})));
    EXPECT_EQ(next(), test_frame(broadcast, 0x0200'0000'0001, {4091}));
    ASSERT_TRUE(cpu.send(test_frame(broadcast, 0x0200'0000'0006, {4091})));
    EXPECT_EQ(next(), test_frame(broadcast, 0x0200'0000'0006, {4091}));
}

TEST_F(TapTest, ACaptureThatNobodyReadsDoesNotHoldUpTheSwitch)
{
    Station one("port1");
    Station two("port2");
    ASSERT_TRUE(one.ready && two.ready);
    Connection capture(dir / "control");
    capture.write("capture port1\n");
    ASSERT_EQ(capture.bytes(24).size(), 24U);
    Frame filler = test_frame(broadcast, 0x0200'0000'0001, {});
    filler.resize(1500);
    // More than the backlog of a capture and the socket's buffer hold together.
    for (int i = 0; i < 6000; i++) {
        ASSERT_TRUE(one.send(filler));
    }
    const Frame last = test_frame(0x0200'0000'0002, 0x0200'0000'0001, {});
    // The receiver's own buffer is full of the others: as these are taken out, there is room for this one.
    EXPECT_TRUE(eventually([&] { return one.send(last) && two.receive() == last; }));
}

TEST_F(TapTest, APulledCableTakesTheCarrierAway)
{
    Station one("port1");
    Station two("port2");
    ASSERT_TRUE(one.ready && two.ready);
    EXPECT_TRUE(eventually([&] { return one.carrier() && two.carrier(); }));
    Connection control(dir / "control");
    EXPECT_EQ(control.ask("link 1 down"), "{\"ok\":true}");
    EXPECT_TRUE(eventually([&] { return !one.carrier(); }));
    EXPECT_TRUE(two.carrier());
    EXPECT_EQ(control.ask("link 1 up"), "{\"ok\":true}");
    EXPECT_TRUE(eventually([&] { return one.carrier(); }));
}

TEST_F(TapTest, APhyPoweredDownByTheRouterTakesTheCarrierAway)
{
    Station one("port1");
    ASSERT_TRUE(one.ready);
    auto &file = *phys.as<lab::PhyFile>();
    ASSERT_TRUE(lab::mii_write(file, 1, 0, 0x3900));
    EXPECT_TRUE(eventually([&] { return !one.carrier(); }));
    ASSERT_TRUE(lab::mii_write(file, 1, 0, 0x3100));
    EXPECT_TRUE(eventually([&] { return one.carrier(); }));
}

TEST_F(TapTest, StationsAreShownAndFlushed)
{
    Station one("port1");
    Station two("port2");
    ASSERT_TRUE(one.ready && two.ready);
    Connection control(dir / "control");
    ASSERT_TRUE(one.send(test_frame(broadcast, 0x0200'0000'0001, {})));
    ASSERT_FALSE(two.receive().empty());
    EXPECT_NE(control.ask("mac").find("{\"vid\":4091,\"mac\":\"02:00:00:00:00:01\",\"port\":1,"),
              std::string::npos);
    EXPECT_EQ(control.ask("flush"), "{\"ok\":true}");
    EXPECT_EQ(control.ask("mac").find("02:00:00:00:00:01"), std::string::npos);
}

} // namespace

} // namespace lab_test
