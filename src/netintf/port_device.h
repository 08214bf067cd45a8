// Moving a port out of LAN 1's VLAN into its port VLAN with a port device, and back.
//
// A failing step is reported and ends the operation; nothing done before it is undone.
#pragma once

#include <stdint.h>

// LAN or WAN by a port's name, "lan" or "wan" and one more character; none for any other name.
uint32_t netintf_port_name_type(const char *name);

// Sets a port up as LAN or WAN port number: switch VLAN, PVID, port device, and the mark in the port's list
// head. 0, rv_invalid for a port of 5 or more, or the failing step's code.
int netintf_port_init(uint32_t type, int number, uint32_t hw_port);

// Gives a port back to LAN 1's VLAN, deletes its device and unmarks its list head. 0 or the failing step's
// code.
int netintf_hw_port_exit(uint32_t type, uint32_t hw_port);
