// The bridge that each interface's addressing runs on, with its one member device.
//
// The bridge is named as the interface; a PPPoE interface's bridge has "_pe" behind the name, because the PPP
// link itself takes the name. No operation undoes its earlier steps when a later one fails.
#pragma once

#include <stddef.h>
#include <stdint.h>

// The device that carries an interface: its name, with "_pe" behind it for PPPoE.
void netintf_bridge_name(char *device, size_t size, const char *name, uint32_t proto);

// Creates the bridge, gives it the MAC unless that is all zero, and adds the member. With bring_up, the
// bridge is raised once more when its port has link. 0; rv_invalid (port of 5 or more, name neither lan nor
// wan); rv_device (MAC); rv_fail (any other step). A link that cannot be asked for is reported and is
// success.
int netintf_bridge_create(const char *name, uint32_t proto, uint32_t hw_port, const uint8_t *mac,
                          uint16_t vid1, uint16_t vid2, int bring_up);

// Removes the member, takes the bridge down and deletes it. 0, rv_invalid as above, or rv_fail.
int netintf_bridge_delete(const char *name, uint32_t proto, uint32_t hw_port, int vid1, int vid2);
