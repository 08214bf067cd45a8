// The one question of the watchdog.
#pragma once

#include "guard/watchdog.h"

namespace ctl {

// At most ten seconds, whatever hangs. process is the daemon's, or 0.
answer ask_daemon(pid_t *process);

} // namespace ctl
