// Creating and removing single LAN and WAN interfaces.
//
// No operation undoes its earlier steps when a later one fails: an add that fails behind the registry step
// leaves the record in place.
#pragma once

#include "netintf/registry.h"

#include <stdint.h>

// mac: 6 bytes; all zero takes the MAC of the created device. enable: whether the device is brought up.
// The new record, owned by the registry, or null; a LAN's failures are reported.
netintf_entry *netintf_lan_add(const char *name, const uint8_t *mac, uint16_t vlanid1, uint16_t vlanid2,
                               uint32_t enable);
netintf_entry *netintf_wan_add(const char *name, uint32_t proto, const uint8_t *mac, uint16_t vlanid1,
                               uint16_t vlanid2, uint32_t enable);

// 0; rv_device when there is no such interface; rv_startup when the record could not be freed; or the error
// of a teardown step. A WAN's protocol is stopped and its WAN information row deleted first.
int netintf_lan_del(const char *name);
int netintf_wan_del(const char *name);
