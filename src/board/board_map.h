// The board's port map: the switch ports of LANs and WANs, and the base MAC address.
//
// Filled once at start-up, read-only afterwards. The port records belong to the platform library and live as
// long as the process. LAN and WAN numbers count from 1.
#pragma once

#include "core/mac.h"
#include "platform/board.h"

#include <stdint.h>

constexpr uint32_t netbd_slot_count = 16;
constexpr uint32_t board_type_two_cpu_ports = 2;

enum netbd_role : uint8_t { role_lan = 1, role_wan = 2, role_lan_or_wan = 3 };

struct netbd_info {
    uint32_t board_type; // 2: WANs reach the CPU through a second CPU port
    uint8_t base_mac[mac_size];
    // Slot i: the port of Ethernet index i where that is a LAN port, else null. There can be gaps.
    const struct netbd_ether *lan_ports[netbd_slot_count];
    // Dense, from the highest Ethernet index down.
    const struct netbd_ether *wan_ports[netbd_slot_count];
    uint32_t port_total; // distinct switch ports 0..7 in use
};

// Fills the map from the platform's board information. Returns 0 or rv_board.
int netbd_lan_wan_init();

const struct netbd_info &netbd_info_get();

// The switch port of LAN or WAN number n. Returns 0, rv_invalid for a null result pointer, rv_fail (reported)
// when the board has no such number.
int netbd_lan_hwport_get(uint32_t number, uint32_t *hw_port);
int netbd_wan_hwport_get(uint32_t number, uint32_t *hw_port);

// The port's place in the board's sequence of ports, from 0: LAN ports by their slot, WAN ports from the top
// down. Returns 0, rv_invalid for a null result pointer, rv_fail when the port is neither.
int netbd_seqport_get(uint32_t hw_port, uint32_t *sequence);

// 2 on boards with a second CPU port, for WANs; else 1.
uint32_t netbd_board_type_get();

uint32_t netbd_port_total_get();

// Copies the base MAC, 6 bytes. Returns 0.
int netbd_basemac_get(uint8_t *mac);
