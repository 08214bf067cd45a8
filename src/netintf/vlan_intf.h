// VLAN devices of interfaces on user VLANs, and the VLAN's entry in the switch.
//
// No operation undoes its earlier steps when a later one fails.
#pragma once

#include <stdint.h>

// Puts a port and its CPU port into the VLAN vid1 and creates the device, and with a vid2 the inner device on
// it. 0, rv_invalid (port of 5 or more, no vid1, neither LAN nor WAN), or the failing step's code.
int netintf_vlan_intf_create(uint32_t type, uint32_t hw_port, int vid1, int vid2);

// Removes the devices when this was their last user, and the ports from the VLAN. 0, rv_invalid as above,
// rv_fail when no registered interface counts as a user, or the failing step's code.
int netintf_vlan_intf_delete(uint32_t type, uint32_t hw_port, int vid1, int vid2);

// How many registered interfaces that reach the CPU the same way use a VLAN. The first entry of each port's
// list never counts. 0 or rv_fail.
int netintf_vlan_users_count(uint32_t type, uint32_t vid1, uint32_t vid2, uint32_t *count);
