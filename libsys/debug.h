// Records of null pointers handed to the library, kept in shared memory for ivarodectl.
#pragma once

namespace libsys {

// Counts one under the caller's function name and line and writes a debug line. Never fails: before the
// records are mapped, and when there are more places than records, only the line is written.
void record_null(const char *operation, const char *function, int line);

} // namespace libsys
