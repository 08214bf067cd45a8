// The identifier that the linker gave a program or library of this machine's kind.
#pragma once

#include <cstddef>

namespace ctl {

// Hexadecimal; empty when the file cannot be read or has none.
void read_build_id(const char *path, char *out, size_t size);

} // namespace ctl
