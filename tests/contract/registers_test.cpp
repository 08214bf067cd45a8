#include "platform/board.h"
#include "sandbox.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr uint32_t switch_block = 0x10110000;

// A sandbox whose /dev is private and whose /dev/mem is a sparse file.
class RegisterTest : public SandboxTest {
protected:
    void SetUp() override
    {
        SandboxTest::SetUp();
        if (!IsSkipped()) {
            ASSERT_EQ(mount("none", "/dev", "tmpfs", 0, nullptr), 0) << strerror(errno);
            memory_ = open("/dev/mem", O_RDWR | O_CREAT | O_CLOEXEC, 0600);
            ASSERT_GE(memory_, 0);
            ASSERT_EQ(ftruncate(memory_, switch_block + 0x2000), 0);
        }
    }
    void TearDown() override { close(memory_); }

    uint32_t stored(uint32_t addr) const
    {
        uint32_t value = 0;
        EXPECT_EQ(pread(memory_, &value, sizeof(value), addr), static_cast<ssize_t>(sizeof(value)));
        return value;
    }
    void store(uint32_t addr, uint32_t value) const
    {
        EXPECT_EQ(pwrite(memory_, &value, sizeof(value), addr), static_cast<ssize_t>(sizeof(value)));
    }

private:
    int memory_ = -1;
};

TEST_F(RegisterTest, AWrittenRegisterLiesAtItsPhysicalAddress)
{
    ASSERT_EQ(mtklib_cpu_reg_wr(switch_block + 0x40, 0x12345678), 0);
    EXPECT_EQ(stored(switch_block + 0x40), 0x12345678U);
    EXPECT_EQ(stored(switch_block + 0x3C), 0U);
    EXPECT_EQ(stored(switch_block + 0x44), 0U);
}

TEST_F(RegisterTest, ReadsWhatIsThereNow)
{
    uint32_t value = 0;
    store(switch_block + 0x48, 0xFEDCBA98);
    ASSERT_EQ(mtklib_cpu_reg_rd(switch_block + 0x48, &value), 0);
    EXPECT_EQ(value, 0xFEDCBA98U);
    store(switch_block + 0x48, 1);
    ASSERT_EQ(mtklib_cpu_reg_rd(switch_block + 0x48, &value), 0);
    EXPECT_EQ(value, 1U);
}

TEST_F(RegisterTest, AnyPage)
{
    uint32_t value = 0;
    ASSERT_EQ(mtklib_cpu_reg_wr(switch_block, 1), 0);
    ASSERT_EQ(mtklib_cpu_reg_wr(switch_block + 0x1FFC, 2), 0);
    ASSERT_EQ(mtklib_cpu_reg_wr(0, 3), 0);
    ASSERT_EQ(mtklib_cpu_reg_rd(switch_block, &value), 0);
    EXPECT_EQ(value, 1U);
    EXPECT_EQ(stored(switch_block + 0x1FFC), 2U);
    EXPECT_EQ(stored(0), 3U);
}

TEST_F(RegisterTest, BeyondTheEndIsAnErrorAndNotAFault)
{
    uint32_t value = 7;
    EXPECT_NE(mtklib_cpu_reg_rd(switch_block + 0x2000, &value), 0);
    EXPECT_EQ(errno, ENXIO);
    EXPECT_NE(mtklib_cpu_reg_wr(0xFFFFFFFC, 1), 0);
    EXPECT_EQ(errno, ENXIO);
    EXPECT_EQ(value, 7U);
}

TEST_F(RegisterTest, UnalignedAddressesAndNullPointersAreErrors)
{
    uint32_t value = 0;
    EXPECT_NE(mtklib_cpu_reg_rd(switch_block + 2, &value), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_NE(mtklib_cpu_reg_wr(switch_block + 1, 0), 0);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_NE(mtklib_cpu_reg_rd(switch_block, nullptr), 0);
    EXPECT_EQ(errno, EINVAL);
}

TEST_F(RegisterTest, WithoutTheDeviceItIsAnErrorThatSaysWhy)
{
    ASSERT_EQ(unlink("/dev/mem"), 0);
    StderrCapture output;
    uint32_t value = 0;
    EXPECT_NE(mtklib_cpu_reg_rd(switch_block, &value), 0);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(output.text(), "debug: mtklib_cpu_reg_rd(0x10110000): No such file or directory\n");
}

} // namespace
