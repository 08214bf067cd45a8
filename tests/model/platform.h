// The kernel below the daemon.
#pragma once

#include "kernel.h"

namespace model {

extern Kernel below;

} // namespace model
