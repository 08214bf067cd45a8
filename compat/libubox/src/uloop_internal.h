// What the parts of the event loop share; nothing of it is exported.
#pragma once

#include "exported.h"

namespace uloop_parts {

// Descriptors. Opened and closed with the loop.
bool fds_open();
void fds_close();
// Waits up to timeout ms (below 0: for ever) unless events are left over, then serves one descriptor.
void fds_run(int timeout);

// Timers.
void timeouts_run();
void timeouts_clear();

// Children. `children_changed` is for the signal handler.
extern volatile bool children_changed;
void children_reap();
void children_forget();

} // namespace uloop_parts
