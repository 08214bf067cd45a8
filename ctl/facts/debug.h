// The counter of samples that the daemon keeps in shared memory.
#pragma once

#include <cstdint>

namespace ctl {

// False with errno set.
bool read_samples(uint64_t *samples);

} // namespace ctl
