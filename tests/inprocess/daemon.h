// The daemon's parts in process, above the double: come as far as registry and bus objects, with nothing
// configured.
#pragma once

#include "platform/board.h"

#include <array>
#include <cstdint>
#include <vector>

namespace inprocess {

constexpr uint32_t two_cpu_ports = 0xc7a6e2d1; // WANs reach the CPU through "eth1"

struct Board {
    std::vector<netbd_ether> ports; // role and switch port of each Ethernet index from 0 on
    uint32_t cpu = 1;
    std::array<uint8_t, 6> mac{0x00, 0x11, 0x22, 0x33, 0x44, 0x50};
};

// Another world, and a daemon started on a board in it; nothing of this is left in the trace. The daemon
// before is gone. False when it does not start.
bool daemon_begin(const Board &board);

// No interface, no route, no memory of the daemon's any more.
void daemon_end();

// The daemon's interfaces are gone, and it starts once more as it did. The world stays.
bool daemon_restart();

} // namespace inprocess
