// VLAN devices, the MAC addresses they get, and the way an interface reaches the CPU.
//
// No operation undoes its earlier steps when a later one fails.
#pragma once

#include <stdint.h>

// How an interface type reaches the CPU: LANs, and WANs on boards with one CPU port, through "eth0"; WANs on
// boards with two through "eth1".
struct cpu_path {
    const char *master;
    uint32_t cpu_port;
};
cpu_path netintf_cpu_path(uint32_t type);

bool netintf_mac_is_zero(const uint8_t *mac);

// The base MAC with the sequence number added to its low 24 bits, without carry into the upper three bytes.
// Returns 0.
int netintf_port_mac_get(uint32_t sequence, uint8_t *mac);

// The MAC of a port's devices: the port MAC with its first byte increased by 2. 0, or the error of the
// sequence lookup, which is reported.
int netintf_device_mac_get(uint32_t hw_port, uint8_t *mac);

// Creates device master.vid with a MAC and brings it up; an all-zero MAC leaves the device's own. 0 or
// rv_device.
int netintf_vintf_init(const char *master, int vid, const uint8_t *mac);

// Takes a device down and deletes it. 0 or rv_device.
int netintf_vintf_delete(const char *name);
