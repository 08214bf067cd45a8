// The daemon's process: what it has handed over, and what it holds open.
#pragma once

#include "platform/events.h"

#include <cstdint>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

struct ubus_object;
struct uloop_timeout;

namespace seam {

struct Process {
    std::vector<ubus_object *> objects;
    int (*on_link)(const nl_link_event *) = nullptr;
    int (*on_address)(const nl_addr_event *) = nullptr;
    uloop_timeout *timer = nullptr;

    std::set<int> sockets;
    std::set<std::FILE *> files;
    bool database_open = false;
    // Uses of descriptors that were not open, replies to other requests, texts given to the system log as
    // formats.
    unsigned misused = 0;

    // "sockets=1 files=0 databases=0"; empty when nothing is open.
    std::string left_open() const;
};
extern Process process;

// The debug area, mapped or not.
uint32_t *debug_words();
uint64_t debug_counter();

// Calls of the C library go to the double from now on; before, they are what they always are.
void watch_begin();
// What stands in for the event loop of the daemon.
extern void (*event_loop)();

// In process: forgets world, process, demands and trace, and starts again, with the trace kept in memory. The
// debug area is unmapped.
void begin_in_process();

} // namespace seam
