// The end of a daemon that hangs, and what is kept of it.
#pragma once

#include <cstdint>
#include <sys/types.h>

namespace ctl {

// Seconds since the machine's start of the last one; `unknown` where there was none.
int64_t last_hang_s(int64_t unknown);

// Writes down what is seen of the process, ends it and has the init script restart it.
void end_hanging(pid_t process, int64_t now_s);

} // namespace ctl
