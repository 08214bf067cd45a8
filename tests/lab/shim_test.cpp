// The ioctl shim, through a program that knows nothing of it.
#include "mapped_file.h"
#include "phy.h"
#include "process.h"
#include "switch_regs.h"

#include <cerrno>
#include <gtest/gtest.h>

namespace lab_test {

namespace {

class ShimTest : public testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(regs.open((dir / "mem").c_str(), lab::switch_physical_base, lab::switch_block_size, true),
                  0);
        ASSERT_EQ(phys_file.open((dir / "phys").c_str(), 0, sizeof(lab::PhyFile), true), 0);
        phys = phys_file.as<lab::PhyFile>();
        for (lab::Phy &phy : phys->phy) {
            lab::phy_power_on(phy, false);
        }
        phys->magic.store(lab::PhyFile::valid);
    }
    // What the probe prints before its last line, which is always the closed descriptor's error.
    std::string probe(std::vector<std::string> words, bool in_lab = true)
    {
        words.insert(words.begin(), SHIM_PROBE);
        const std::string preload = std::string("LD_PRELOAD=") + SANITIZER_RUNTIME + SHIM;
        int status = 0;
        const std::string regs_path = "LAB_REGS=" + (dir / "mem");
        const std::string phys_path = "LAB_PHYS=" + (dir / "phys");
        const std::string text = in_lab ? Process(words, {preload, regs_path, phys_path}).finish(status)
                                        : Process(words, {preload}).finish(status);
        EXPECT_EQ(status, 0);
        const std::string last = "errno " + std::to_string(EBADF) + "\n";
        EXPECT_TRUE(text.ends_with(last)) << text;
        return text.substr(0, text.size() - last.size());
    }
    static std::string failed(int error) { return "errno " + std::to_string(error) + "\n"; }

    TempDir dir;
    lab::MappedFile regs;
    lab::MappedFile phys_file;
    lab::PhyFile *phys = nullptr;
};

TEST_F(ShimTest, RegistersAreThoseOfTheFile)
{
    auto *block = regs.as<volatile uint32_t>();
    block[0x50 / 4] = 0x00123456;
    EXPECT_EQ(
        probe({"read", "eth0", "0x50", "write", "eth0", "0x7ffc", "0x89abcdef", "read", "eth0", "0x7ffc"}),
        "0x123456\nok\n0x89abcdef\n");
    EXPECT_EQ(block[0x7ffc / 4], 0x89abcdefU);
}

TEST_F(ShimTest, OffsetsOutsideTheBlockAreRefused)
{
    EXPECT_EQ(probe({"read", "eth0", "0x8000", "write", "eth0", "0x42", "1", "read", "eth0", "0xfffffffc"}),
              failed(EINVAL) + failed(EINVAL) + failed(EINVAL));
}

TEST_F(ShimTest, PhysAnswerOnTheManagementBus)
{
    EXPECT_EQ(probe({"mii-read", "eth0", "1", "1", "mii-write", "eth0", "1", "0", "0x3900", "mii-read",
                     "eth0", "1", "0", "mii-read", "eth0", "1", "1"}),
              "0x786d\nok\n0x3900\n0x7849\n");
    EXPECT_FALSE(lab::phy_link(phys->phy[1]));
    EXPECT_TRUE(lab::phy_link(phys->phy[2]));
}

TEST_F(ShimTest, EmptyAndImpossiblePhyAddresses)
{
    EXPECT_EQ(probe({"mii-read", "eth0", "9", "1", "mii-write", "eth0", "9", "0", "0", "mii-read", "eth0",
                     "32", "0", "mii-write", "eth0", "0", "32", "0"}),
              "0xffff\nok\n" + failed(EIO) + failed(EIO));
}

TEST_F(ShimTest, NullBlockIsAFault)
{
    EXPECT_EQ(probe({"null", "eth0"}), failed(EFAULT));
}

TEST_F(ShimTest, OtherDevicesAndRequestsReachTheKernel)
{
    EXPECT_EQ(probe({"read", "nosuchdev", "0x50", "other", "nosuchdev", "other", "lo"}),
              failed(ENODEV) + failed(ENODEV) + "ok\n");
}

TEST_F(ShimTest, WithoutALabTheKernelIsAsked)
{
    // Whatever the kernel says of an eth0 it may or may not have, it does not serve these requests.
    const std::string answer = probe({"read", "eth0", "0x50"}, false);
    EXPECT_TRUE(answer == failed(ENODEV) || answer == failed(EOPNOTSUPP) || answer == failed(EPERM))
        << answer;
}

TEST_F(ShimTest, HardwareThatIsNotThereIsNoDevice)
{
    phys->magic.store(0);
    EXPECT_EQ(probe({"read", "eth0", "0x50"}), failed(ENODEV));
}

} // namespace

} // namespace lab_test
