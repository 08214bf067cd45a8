// Registers of the switch, and its PHYs, by the questions that the daemon asks too.

#include "../../libsys/internal.h"
#include "plan/now.h"
#include "platform/board.h"
#include "platform/switch_driver.h"

#include <cstring>
#include <linux/mii.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace seam::plan {

namespace {

constexpr uint32_t phy_restart = 0x0200; // clears itself once it is heard

template <class Block> int ask(int fd, unsigned long question, Block &block)
{
    ifreq request{};
    std::strcpy(request.ifr_name, "eth0");
    request.ifr_data = reinterpret_cast<char *>(&block);
    return ioctl(fd, question, &request) < 0 ? errno : 0;
}

int read_registers(int fd, Hardware &hardware, uint32_t first, uint32_t count)
{
    for (uint32_t offset = first; offset < first + 4 * count; offset += 4) {
        switch_reg_block block{offset, 0};
        if (const int error = ask(fd, switch_reg_read, block)) {
            return error;
        }
        hardware.registers[offset] = block.value;
    }
    return 0;
}

int read_phy(int fd, uint32_t phy, uint32_t number, uint32_t &value)
{
    switch_mii_block block{phy, number, 0, 0};
    const int error = ask(fd, switch_mii_read, block);
    value = block.value_out;
    return error;
}

// Its control register as the daemon writes it, and whether it has link.
int read_phys(int fd, Hardware &hardware, Now &now)
{
    for (uint32_t port = 0; port < Hardware::front_ports; ++port) {
        uint32_t control = 0;
        uint32_t status = 0;
        int error = read_phy(fd, port, MII_BMCR, control);
        error = error != 0 ? error : read_phy(fd, port, MII_BMSR, status);
        if (error != 0) {
            return error;
        }
        hardware.phys[{port, MII_BMCR}] = control | phy_restart;
        now.links[port] = (status & BMSR_LSTATUS) != 0;
    }
    return 0;
}

} // namespace

int read_switch(Hardware &hardware, Now &now)
{
    const libsys::unique_fd fd{socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    if (!fd) {
        return errno;
    }
    for (const auto &[first, count] :
         {std::pair{switch_vlan_id, 8U}, std::pair{switch_vlan_members, 4U},
          std::pair{switch_untag_control, 1U}, std::pair{switch_vlan_untag, 4U}}) {
        if (const int error = read_registers(fd.get(), hardware, first, count)) {
            return error;
        }
    }
    for (uint32_t offset = switch_pvid; offset < switch_pvid + 12; offset += 4) {
        if (mtklib_cpu_reg_rd(switch_physical_base + offset, &hardware.registers[offset]) != 0) {
            return errno;
        }
    }
    return read_phys(fd.get(), hardware, now);
}

} // namespace seam::plan
