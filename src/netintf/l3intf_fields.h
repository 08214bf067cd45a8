// What the interface methods "add" and "config" read from their message in the same way.
//
// Texts lie in the message and are valid only while the handler runs.
#pragma once

#include "core/policies.h"
#include "netintf/registry.h"

#include <stdint.h>

using intf_fields = struct blob_attr *[intf_field_count];

// The low 16 bits of a VLAN ID field, vlan_none when it is absent.
uint16_t l3intf_vlan(struct blob_attr *field);

// A text that may be absent, as the WAN information row wants it: "0.0.0.0" when unknown.
const char *l3intf_address_or_any(struct blob_attr *field);

bool l3intf_name_is_lan(const char *name);
bool l3intf_name_is_wan(const char *name);
