// Port names: "lan" or "wan" and one more character.
#pragma once

#include <stdint.h>

// LAN or WAN by a port's name, or 0 for a name that is not a port's.
uint32_t netintf_port_name_type(const char *name);
