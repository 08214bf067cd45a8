// A network device as the kernel describes it.
//
// find_device() and the change functions give 0 or a positive errno value; ENODEV for a device that is not
// there and for a name that no device can have (null, empty, longer than 15 characters).
#pragma once

#include <cstdint>
#include <net/if.h>

namespace libsys {

struct device {
    uint32_t index;
    unsigned flags;  // IFF_*
    uint32_t lower;  // a VLAN device's own master, else 0
    uint32_t bridge; // the bridge that the device is a port of, or 0
    bool has_mac;    // an Ethernet address of six bytes
    uint8_t mac[6];
    char kind[IFNAMSIZ]; // "vlan", "bridge", "veth", ...; empty for hardware
    uint32_t vlan_id;    // of a VLAN device
    bool is_8021q;       // a VLAN device with ordinary tags
    uint32_t stp;        // of a bridge: spanning tree on
    uint32_t forward_delay;
};

int find_device(const char *name, device *out);

bool is_kind(const device &which, const char *kind);

// Whether the kernel takes a text as a new device's name, and the error if not: 0, EINVAL or ENAMETOOLONG.
int check_new_name(const char *name);

// Deletes a device by its index.
int delete_device(uint32_t index);

// Whether a device is there and has the IPv4 address (host byte order); false where that cannot be found out.
bool device_has_address(const char *name, uint32_t ip);

} // namespace libsys
