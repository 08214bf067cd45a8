// Register access through the Ethernet driver's private calls.

#include "board/switch_mii.h"
#include "daemon_test.h"

namespace unit {
namespace {

class SwitchMii : public DaemonTest {
protected:
    SwitchMii() { world.show_registers = true; }
};

TEST_F(SwitchMii, EachAccessHasASocketOfItsOwn)
{
    world.registers[0x54] = 0x12345678;
    uint32_t value = 0;
    EXPECT_EQ(mtksw_reg_read(0x54, &value), 0);
    EXPECT_EQ(value, 0x12345678U);
    EXPECT_EQ(open_handles(), 0U);
    EXPECT_EQ(mtksw_reg_write(0x58, 0xcafe), 0);
    EXPECT_EQ(open_handles(), 0U);
    EXPECT_EQ(world.registers[0x58], 0xcafeU);
    expect_trace({"socket(IPv4 datagram, 0)", "switch_read(0x54)", "socket(IPv4 datagram, 0)",
                  "switch_write(0x58, 0x0000cafe)"});
}

TEST_F(SwitchMii, PhyRegistersCarryTheirAddress)
{
    world.phys[{3, 1}] = 0x782d;
    uint32_t value = 0;
    EXPECT_EQ(mtksw_mii_read(3, 1, &value), 0);
    EXPECT_EQ(value, 0x782dU);
    EXPECT_EQ(mtksw_mii_write(4, 0, 0x3300), 0);
    expect_trace({"socket(IPv4 datagram, 0)", "phy_read(3, 1)", "socket(IPv4 datagram, 0)",
                  "phy_write(4, 0, 0x3300)"});
}

struct Failure {
    const char *what;
    const char *failing;
    int (*run)();
    int result;
    std::vector<Lines> reports;
};

int reg_read()
{
    uint32_t value = 77;
    const int rv = mtksw_reg_read(0x50, &value);
    EXPECT_EQ(value, 77U);
    return rv;
}

int mii_read()
{
    uint32_t value = 77;
    const int rv = mtksw_mii_read(0, 0, &value);
    EXPECT_EQ(value, 77U);
    return rv;
}

class SwitchMiiFailing : public DaemonTest, public testing::WithParamInterface<Failure> {};

TEST_P(SwitchMiiFailing, LeavesNoSocketOpen)
{
    const Failure &failure = GetParam();
    fail(failure.failing);
    EXPECT_EQ(failure.run(), failure.result);
    expect_trace(failure.reports);
    EXPECT_EQ(open_handles(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    Accesses, SwitchMiiFailing,
    testing::Values(Failure{"read_socket", "socket(", reg_read, -5, {}},
                    Failure{"read_ioctl", "switch_read(", reg_read, -6, {}},
                    Failure{"write_socket", "socket(", [] { return mtksw_reg_write(0, 0); }, -5, {}},
                    Failure{"write_ioctl", "switch_write(", [] { return mtksw_reg_write(0, 0); }, -6, {}},
                    Failure{"read_null", "nothing", [] { return mtksw_reg_read(0, nullptr); }, -2, {}},
                    Failure{
                        "mii_read_socket", "socket(", mii_read, -1, {error("mii_read Open socket failed\n")}},
                    Failure{"mii_read_ioctl", "phy_read(", mii_read, -1, {error("mii_read: ioctl error\n")}},
                    Failure{"mii_write_socket",
                            "socket(",
                            [] { return mtksw_mii_write(0, 0, 0); },
                            -1,
                            {error("mii_write Open socket failed\n")}},
                    Failure{"mii_write_ioctl",
                            "phy_write(",
                            [] { return mtksw_mii_write(0, 0, 0); },
                            -1,
                            {error("mii_write: ioctl error\n")}},
                    Failure{"power_down_read",
                            "phy_read(",
                            [] { return mtksw_phy_power_down(1); },
                            -1,
                            {error("mii_read: ioctl error\n")}},
                    Failure{"power_down_write",
                            "phy_write(",
                            [] { return mtksw_phy_power_down(1); },
                            -1,
                            {error("mii_write: ioctl error\n")}},
                    Failure{"power_up_read",
                            "phy_read(",
                            [] { return mtksw_phy_power_up(1); },
                            -1,
                            {error("mii_read: ioctl error\n")}}),
    [](const auto &failure) { return std::string{failure.param.what}; });

TEST_F(SwitchMii, NullResultTouchesNothing)
{
    EXPECT_EQ(mtksw_reg_read(0x50, nullptr), -2);
    expect_quiet_trace({});
}

TEST_F(SwitchMii, PowerIsOneBitOfTheControlRegister)
{
    world.phys[{2, 0}] = 0x3100;
    EXPECT_EQ(mtksw_phy_power_down(2), 0);
    EXPECT_EQ((world.phys[{2, 0}]), 0x3900U);
    EXPECT_EQ(mtksw_phy_power_up(2), 0);
    EXPECT_EQ((world.phys[{2, 0}]), 0x3100U);
}

TEST_F(SwitchMii, PowersUpEveryPhyWhateverOnesFail)
{
    world.show_registers = false;
    for (uint32_t phy = 0; phy < 6; phy++) {
        world.phys[{phy, 0}] = 0xffff;
    }
    fail("phy_read(1,");
    fail("phy_write(3,");
    EXPECT_EQ(mtksw_phy_power_up_all(), -1);
    expect_trace({error("mii_read: ioctl error\n"), error("php port up error,i = 1\n"),
                  error("mii_write: ioctl error\n"), error("php port up error,i = 3\n")});
    const uint32_t expected[] = {0xf7ff, 0xffff, 0xf7ff, 0xffff, 0xf7ff, 0xffff};
    for (uint32_t phy = 0; phy < 6; phy++) {
        EXPECT_EQ((world.phys[{phy, 0}]), expected[phy]) << phy;
    }
    answers_forget();
    EXPECT_EQ(mtksw_phy_power_up_all(), 0);
    expect_trace({});
}

} // namespace
} // namespace unit
