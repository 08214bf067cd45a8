// What comes to the daemon in its event loop, beside requests: each leaves its line in the trace.
#pragma once

#include <cstdint>

namespace seam {

void link_changes(uint32_t port, uint32_t link);
void address_comes(uint32_t interface, uint32_t address);
void timer_rings();

} // namespace seam
