// The Ethernet driver's private ioctls on "eth0", and the registers of the embedded switch behind them.
//
// A request is an ifreq with the device's name and a pointer to one of the blocks. The driver answers with 0,
// or -1 and errno.
#pragma once

#include <linux/sockios.h>
#include <stdint.h>

enum switch_ioctl {
    switch_reg_read = SIOCDEVPRIVATE + 1,  // switch_reg_block; fills value
    switch_reg_write = SIOCDEVPRIVATE + 2, // switch_reg_block
    switch_mii_read = SIOCDEVPRIVATE + 3,  // switch_mii_block; fills value_out
    switch_mii_write = SIOCDEVPRIVATE + 4, // switch_mii_block
};

struct switch_reg_block {
    uint32_t offset;
    uint32_t value;
};

struct switch_mii_block {
    uint32_t phy;
    uint32_t reg;
    uint32_t value_in;
    uint32_t value_out;
};

// Where the register block lies for mtklib_cpu_reg_rd, and offsets in it. Of a field that several ports or
// entries share a register for, the lowest has the lowest bits.
static const uint32_t switch_physical_base = 0x10110000;
static const uint32_t switch_pvid = 0x40;         // default VLAN of front port: 2 in a register, 12 bits each
static const uint32_t switch_vlan_id = 0x50;      // of a VLAN table entry: 2, 12 bits each
static const uint32_t switch_vlan_members = 0x70; // of an entry: 4, 8 bits each; bit n is port n
static const uint32_t switch_untag_control = 0x98; // bit 0x8000: the untag bits count
static const uint32_t switch_untag_enable = 0x8000;
static const uint32_t switch_vlan_untag = 0x100; // of an entry: 4, 7 bits each; bit n is port n
