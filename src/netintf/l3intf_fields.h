// What the interface methods "add" and "config" read from their message in the same way.
#pragma once

#include "core/arguments.h"
#include "netintf/registry.h"

using intf_arguments = arguments<intf_field_count>;

// The low 16 bits of a VLAN ID field, or vlan_none when it is absent.
inline uint16_t l3intf_vlan(struct blob_attr *field)
{
    return field != nullptr ? static_cast<uint16_t>(blobmsg_get_u32(field)) : vlan_none;
}

struct l3intf_request {
    const char *name;
    uint32_t type; // of the name
    uint8_t mac[mac_size];
    uint16_t vlanid1;
    uint16_t vlanid2;
};
