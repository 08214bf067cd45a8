#include "phy.h"

#include "internal.h"
#include "platform/switch_driver.h"

#include <cstring>
#include <linux/mii.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

namespace libsys {

namespace {

constexpr char switch_device[] = "eth0";

constexpr uint32_t speed_100 = 1;
constexpr uint32_t speed_1000 = 2;
constexpr uint32_t full_duplex = 1 << 3;

// A loss of link that somebody else than the watch has read.
bool unseen_loss[phy_count];

constexpr uint32_t speed(uint32_t code)
{
    return code << 1;
}

int read_mii(unsigned phy, uint32_t reg, uint32_t *value)
{
    // Kept: this is asked several times a second.
    static int kept_socket = -1;
    if (kept_socket < 0) {
        kept_socket = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (kept_socket < 0) {
            return errno;
        }
    }
    switch_mii_block block = {phy, reg, 0, 0};
    ifreq request = {};
    memcpy(request.ifr_name, switch_device, sizeof(switch_device));
    request.ifr_data = reinterpret_cast<char *>(&block);
    if (retry_eintr([&] { return ioctl(kept_socket, switch_mii_read, &request); }) < 0) {
        return errno;
    }
    *value = block.value_out;
    return 0;
}

// *status: the PHY's status register. A second read is needed only where the first one tells of a loss.
int read_link(unsigned phy, link_reading *out, uint32_t *status)
{
    if (int error = read_mii(phy, MII_BMSR, status)) {
        return error;
    }
    *out = {(*status & BMSR_LSTATUS) == 0, (*status & BMSR_LSTATUS) != 0};
    if (out->lost) {
        unseen_loss[phy] = true;
        if (int error = read_mii(phy, MII_BMSR, status)) {
            return error;
        }
        out->up = (*status & BMSR_LSTATUS) != 0;
    }
    return 0;
}

// What both ends offer, best first, or 10 Mbit/s half duplex when they agree on nothing.
uint32_t negotiated(uint32_t offers)
{
    return offers & ADVERTISE_100FULL   ? speed(speed_100) | full_duplex
           : offers & ADVERTISE_100HALF ? speed(speed_100)
           : offers & ADVERTISE_10FULL  ? full_duplex
                                        : 0;
}

uint32_t forced(uint32_t control)
{
    uint32_t code = control & BMCR_SPEED1000 ? speed_1000 : control & BMCR_SPEED100 ? speed_100 : 0;
    return speed(code) | (control & BMCR_FULLDPLX ? full_duplex : 0);
}

// Gigabit, where the PHY has the registers for it; 0 when it was not agreed on.
int read_gigabit(unsigned phy, uint32_t status, uint32_t *mode)
{
    *mode = 0;
    if (!(status & BMSR_ESTATEN)) {
        return 0;
    }
    uint32_t offered = 0;
    uint32_t partner = 0;
    int error = read_mii(phy, MII_CTRL1000, &offered);
    error = error ? error : read_mii(phy, MII_STAT1000, &partner);
    // The partner's offers stand two bits above ours.
    uint32_t offers = offered & (partner >> 2);
    if (!error && (offers & (ADVERTISE_1000FULL | ADVERTISE_1000HALF))) {
        *mode = speed(speed_1000) | (offers & ADVERTISE_1000FULL ? full_duplex : 0);
    }
    return error;
}

} // namespace

int watch_link(unsigned phy, link_reading *out)
{
    uint32_t status = 0;
    int error = read_link(phy, out, &status);
    if (!error) {
        out->lost = out->lost || unseen_loss[phy];
        unseen_loss[phy] = false;
    }
    return error;
}

int read_port_status(unsigned phy, uint32_t *out)
{
    link_reading link;
    uint32_t status = 0;
    int error = read_link(phy, &link, &status);
    if (error || !link.up) {
        *out = 0;
        return error;
    }
    uint32_t control = 0;
    uint32_t offered = 0;
    uint32_t partner = 0;
    uint32_t gigabit = 0;
    error = read_mii(phy, MII_BMCR, &control);
    error = error ? error : read_mii(phy, MII_ADVERTISE, &offered);
    error = error ? error : read_mii(phy, MII_LPA, &partner);
    error = error ? error : read_gigabit(phy, status, &gigabit);
    if (error) {
        return error;
    }
    uint32_t mode = !(control & BMCR_ANENABLE) ? forced(control)
                    : gigabit                  ? gigabit
                                               : negotiated(offered & partner);
    *out = 1 | mode;
    return 0;
}

} // namespace libsys
