/*
 * An emulated switch: the test program answers the Ethernet driver's private ioctls on "eth0" that read a
 * switch register or a register of a PHY itself, in place of the kernel; every other ioctl reaches the
 * kernel.
 */
#pragma once

#include <array>
#include <cstdint>
#include <map>

struct PhyDouble {
    std::array<uint16_t, 32> registers{};
    bool link = false;    // now
    bool dropped = false; // and has been down since the status register was last read
    int failures = 0;     // so many reads fail, with EIO
    int reads = 0;        // of any register

    void pull(); // the cable
    void plug();
    void flap(); // both, faster than anyone looks
};

// PHY 0..4; fresh in each test process: link down, negotiating, offering and being offered 100 Mbit/s full
// duplex.
PhyDouble &phy(unsigned number);

// By offset; those that are not there read as 0.
std::map<uint32_t, uint32_t> &switch_registers();
