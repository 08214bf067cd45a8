// The switch's VLAN table: 16 entries, each with a VLAN ID and member ports, bit n for switch port n.
#pragma once

#include <stdint.h>

// Writes an entry. 0, rv_invalid (index of 16 or more, VLAN ID of 4096 or more, nothing touched), or the
// first failing register code; what was written before stays.
int mtksw_vlan_entry_set(uint32_t index, uint32_t vid, uint32_t members);

// Reads an entry; members come as bits 0..6. The VLAN ID is delivered even when reading the members fails.
int mtksw_vlan_entry_get(uint32_t index, uint32_t *vid, uint32_t *members);

// The entry 5..15 that carries a VLAN ID, or with allocate the first of them without members; -1 for none.
// Entries that cannot be read are passed over.
int mtksw_vlan_entry_find(uint32_t vid, int allocate);

// Adds a port to an entry, or removes it. The index vlan_index_by_vid stands for the entry of that VLAN ID;
// adding allocates one where there is none. Removing by VLAN ID frees an entry without members, and keeps the
// CPU port as long as a front port is a member.
int mtksw_vlan_member_set(uint32_t index, uint32_t vid, uint32_t hw_port);
int mtksw_vlan_member_clear(uint32_t index, uint32_t vid, uint32_t hw_port);
