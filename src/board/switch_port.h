// Start-up of the switch and its ports: PHYs, default VLANs (PVID), and the layout that puts every LAN port
// into the VLAN of LAN 1's port.
#pragma once

#include <stdint.h>

// Powers up PHYs 0..4 and restarts auto-negotiation; stops at the first failure and reports it.
int mtksw_mii_init();
// The same for the start-up sequence, which goes on without a PHY. Returns 0.
int mtksw_mii_init_post();

// Sets the default VLAN of a switch port. Ports 5 and above have none: nothing is done, and that is success.
// 0 or rv_register.
int mtksw_port_pvid_set(uint32_t hw_port, uint32_t pvid);

// Lays the start-up layout; the same for the start-up sequence, with a report of a failure.
int mtksw_port_vlan_init();
int mtksw_port_vlan_init_post();

// Leaves *link unchanged: ports count as down until their first link event. Returns 0.
int mtksw_port_link_get(uint32_t hw_port, uint32_t *link);
