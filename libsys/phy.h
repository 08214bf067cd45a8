// The PHYs of the five front ports, read through the Ethernet driver's private MII ioctl on "eth0".
//
// The link bit latches low: after the link was lost it reads 0 once, even if the link is back. A reader takes
// that away from the next one, so a loss that the status query meets is kept for the link watch.
//
// All functions give 0 or a positive errno value.
#pragma once

#include <cstdint>

namespace libsys {

constexpr unsigned phy_count = 5;

// The link as the watch has to see it.
struct link_reading {
    bool lost; // at some moment since the watch last looked
    bool up;   // now
};
int watch_link(unsigned phy, link_reading *out);

// Bit 0 link, bits 1..2 speed (0: 10, 1: 100, 2: 1000 Mbit/s), bit 3 full duplex; 0 while the link is down.
int read_port_status(unsigned phy, uint32_t *out);

} // namespace libsys
