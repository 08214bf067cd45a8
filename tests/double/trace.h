// The trace: one line for each thing the daemon does at its seams.
//
// Lines go to the file at once, so that a crash or a kill loses none. Written by one thread.
#pragma once

#include "text.h"

#include <string>
#include <string_view>

namespace recorder {

using doubles::hex;
using doubles::mac_text;

// Opens the trace; an empty path keeps the recorder silent. With sites, each line carries the place of the
// call in the daemon ("\t@offset").
void trace_open(const std::string &path, bool sites);
// Ends the run with the line "endless" after so many lines.
void trace_limit(unsigned lines);
// Leaves lines out of the trace, for runs of thousands of steps.
void trace_quiet(bool quiet);
void trace_line(std::string_view line, const void *site = nullptr);

// A C text in quotes with C escapes, or null.
std::string quote(const char *text);
std::string quote(std::string_view text);
// A null pointer as the empty text.
std::string plain(const char *text);

// True for an address in the daemon's own code.
bool from_daemon(const void *site);

// Ends the process at once: no destructors, no handlers, the model saved first where the script says so.
[[noreturn]] void leave(int status);

} // namespace recorder
