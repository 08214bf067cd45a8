// The WAN half of "config": the new protocol, its addresses and the WAN information row.
#pragma once

#include "netintf/l3intf_fields.h"

// Configures a rebuilt WAN interface. 0, or rv_fail after the failing step's own message, where it has one.
int l3intf_wan_config(netintf_entry *entry, const char *name, const intf_fields &fields, netintf_proto proto);
