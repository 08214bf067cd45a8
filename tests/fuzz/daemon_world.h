// A daemon in process on the recorded platform, for targets that hand it hostile input.
#pragma once

#include "netintf/registry.h"

namespace fuzz {

// A fresh daemon: registry built, bus objects published, nothing configured.
void daemon_fresh(bool two_cpu_ports);

// Every list is a ring of sound records, and nothing is left open.
void daemon_check();

} // namespace fuzz
