#include "phy_double.h"

#include "interpose.h"

#include <cerrno>
#include <cstring>
#include <linux/mii.h>
#include <linux/sockios.h>
#include <net/if.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

PhyDouble fresh()
{
    PhyDouble made;
    made.registers[MII_BMCR] = BMCR_ANENABLE;
    made.registers[MII_ADVERTISE] = ADVERTISE_ALL;
    made.registers[MII_LPA] = LPA_100FULL | LPA_10FULL;
    return made;
}

int read_phy(ifreq *request)
{
    uint32_t block[4];
    memcpy(block, request->ifr_data, sizeof(block));
    if (strcmp(request->ifr_name, "eth0") != 0 || block[0] > 4 || block[1] > 31) {
        return -ENODEV;
    }
    PhyDouble &asked = phy(block[0]);
    ++asked.reads;
    if (asked.failures > 0) {
        --asked.failures;
        return -EIO;
    }
    block[3] = asked.registers[block[1]];
    if (block[1] == MII_BMSR) {
        bool shown = asked.link && !asked.dropped;
        asked.dropped = false;
        block[3] = (block[3] & ~uint32_t{BMSR_LSTATUS}) | (shown ? BMSR_LSTATUS : 0U);
    }
    memcpy(request->ifr_data, block, sizeof(block));
    return 0;
}

int read_switch(ifreq *request)
{
    uint32_t block[2];
    memcpy(block, request->ifr_data, sizeof(block));
    block[1] = switch_registers()[block[0]];
    memcpy(request->ifr_data, block, sizeof(block));
    return strcmp(request->ifr_name, "eth0") == 0 ? 0 : -ENODEV;
}

// In place from the start of each test process; a test that needs other ioctls answered puts its own there.
const bool installed = [] {
    interpose::answer_ioctl([](int fd, unsigned long request, void *argument) {
        if (request == SIOCDEVPRIVATE + 1) {
            return read_switch(static_cast<ifreq *>(argument));
        }
        if (request == SIOCDEVPRIVATE + 3) {
            return read_phy(static_cast<ifreq *>(argument));
        }
        auto result = static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
        return result < 0 ? -errno : result;
    });
    return true;
}();

} // namespace

void PhyDouble::pull()
{
    link = false;
    dropped = true;
}

void PhyDouble::plug()
{
    link = true;
}

void PhyDouble::flap()
{
    pull();
    plug();
}

PhyDouble &phy(unsigned number)
{
    static std::array<PhyDouble, 5> all = {fresh(), fresh(), fresh(), fresh(), fresh()};
    return all.at(number);
}

std::map<uint32_t, uint32_t> &switch_registers()
{
    static std::map<uint32_t, uint32_t> registers;
    return registers;
}
