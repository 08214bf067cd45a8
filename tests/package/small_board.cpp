// A platform library's answers that are no plain success, for the daemon on another C library: a board with
// four LANs and a WAN, whose switch keeps what is written to it and whose ports all have link. It is linked
// together with those parts of the real platform library that need the C library alone, and comes before the
// C library, so that ioctls arrive here.
#include "libsys/device.h"
#include "platform/board.h"
#include "platform/netdev.h"
#include "platform/switch_driver.h"

#include <cstring>
#include <net/if.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

constexpr uint8_t base[6] = {0x00, 0x0c, 0x43, 0x10, 0x20, 0x30};
constexpr netbd_ether lans[] = {{1, 1}, {1, 2}, {1, 3}, {1, 4}};
constexpr netbd_ether wan = {2, 0};
constexpr uint32_t wan_index = 15;
constexpr uint32_t block_size = 0x200;
constexpr uint32_t phy_status = 1, link_is_up = 4;

uint32_t registers[block_size / sizeof(uint32_t)];

uint32_t &word(uint32_t offset)
{
    return registers[offset % block_size / sizeof(uint32_t)];
}

} // namespace

// None of its devices has an address.
bool libsys::device_has_address(const char *, uint32_t)
{
    return false;
}

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED const uint8_t *sys_bdinfo_macbase_get(void)
{
    return base;
}

EXPORTED const struct netbd_ether *sys_bdinfo_ether_get(uint32_t index)
{
    if (index == wan_index) {
        return &wan;
    }
    return index < sizeof(lans) / sizeof(*lans) ? &lans[index] : nullptr;
}

EXPORTED int mtklib_cpu_reg_rd(uint32_t addr, uint32_t *value)
{
    *value = word(addr - switch_physical_base);
    return 0;
}

EXPORTED int mtklib_cpu_reg_wr(uint32_t addr, uint32_t value)
{
    word(addr - switch_physical_base) = value;
    return 0;
}

EXPORTED int netlib_eth_mac_get(const char *, uint8_t *mac)
{
    memcpy(mac, base, sizeof(base));
    return 0;
}

// "ioctl", whose number is an int in one C library and an unsigned long in another; the driver's fit into
// either.
EXPORTED int answer_ioctl(int fd, unsigned long number, void *argument) __asm__("ioctl");

int answer_ioctl(int fd, unsigned long number, void *argument)
{
    auto *block = static_cast<uint32_t *>(argument);
    if (number >= switch_reg_read && number <= switch_mii_write) {
        block = reinterpret_cast<uint32_t *>(static_cast<ifreq *>(argument)->ifr_data);
    }
    switch (number) {
    case switch_reg_read:
        block[1] = word(block[0]);
        return 0;
    case switch_reg_write:
        word(block[0]) = block[1];
        return 0;
    case switch_mii_read:
        block[3] = block[1] == phy_status ? link_is_up : 0;
        return 0;
    case switch_mii_write:
        return 0;
    default:
        return static_cast<int>(syscall(SYS_ioctl, fd, number, argument));
    }
}
