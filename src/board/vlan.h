// VLAN and switch port numbering that the whole daemon shares.
#pragma once

#include <stdint.h>

constexpr uint32_t front_port_count = 5; // switch ports 0..4, each with its PHY
constexpr uint32_t cpu_port_eth1 = 5;    // the second CPU port, of boards that have one
constexpr uint32_t cpu_port_eth0 = 6;

constexpr uint16_t vlan_none = 65535;         // no outer or inner VLAN
constexpr uint32_t port_vlan_base = 4090;     // the port VLAN of port p is 4090 + p, in VLAN table entry p
constexpr uint32_t vlan_entry_count = 16;     // entries of the switch's VLAN table
constexpr uint32_t vlan_pool_first = 5;       // entries 5..15 are for user VLANs
constexpr uint32_t vlan_index_by_vid = 10000; // given as an index: find the entry by its VLAN ID

// A port's bit in a member word. The switch has ports 0..6; a board may name others, and numbers of 32 and
// more count modulo 32.
constexpr uint32_t port_bit(uint32_t hw_port)
{
    return 1U << (hw_port & 31U);
}

constexpr uint32_t port_vlan(uint32_t hw_port)
{
    return port_vlan_base + hw_port;
}
