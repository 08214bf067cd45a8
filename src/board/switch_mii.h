// The switch's registers and the PHYs' MII registers, through the Ethernet driver's private ioctls.
//
// Every operation opens a socket, issues one ioctl and closes the socket: nothing is kept. A write takes
// effect on its own; there is no retry. Register operations are silent, MII operations report their failures.
#pragma once

#include <stdint.h>

constexpr uint32_t mii_control = 0; // number of a PHY's control register

// One switch register by its offset. 0, rv_invalid (null pointer), rv_socket or rv_ioctl.
int mtksw_reg_read(uint32_t offset, uint32_t *value);
int mtksw_reg_write(uint32_t offset, uint32_t value);

// One MII register of a PHY. 0 or rv_fail.
int mtksw_mii_read(uint32_t phy, uint32_t reg, uint32_t *value);
int mtksw_mii_write(uint32_t phy, uint32_t reg, uint32_t value);

// Sets and clears a PHY's power-down bit. The first failing code, or 0. No start-up step and no bus method
// uses them.
int mtksw_phy_power_down(uint32_t phy);
int mtksw_phy_power_up(uint32_t phy);
// Powers up PHYs 0..4; a failing one is reported and the rest still tried. 0, or rv_fail if any failed.
int mtksw_phy_power_up_all();
