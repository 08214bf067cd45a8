// The trace: one line for each thing the daemon does at its seams. Written by one thread.
//
// Lines go to a file at once, so that a crash or a kill loses none, or are kept in memory until they are
// taken.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace seam {

// What is left out of a trace because there is much of it; a scenario or test asks for it.
struct Shown {
    bool safe_strings = false;
    bool options = false;
    bool changes = false; // of the world, behind each action
};
extern Shown shown;

// Opens the trace; an empty path writes nothing. With sites, each line carries the place of the call in the
// daemon ("\t@offset").
void trace_to_file(const std::string &path, bool sites);
// Ends the run with the line "endless" after so many lines of the file.
void trace_limit(unsigned lines);
// Leaves lines out of the trace, for runs of thousands of steps.
void trace_quiet(bool quiet);

void trace_to_memory();
// The lines since the last take.
std::vector<std::string> trace_take();

void trace_line(std::string_view line, const void *site = nullptr);

// Told of each line, too.
extern void (*trace_listener)(std::string_view line);

// True for an address in the code of the program below which this library is preloaded. Never in process.
bool from_daemon(const void *site);

} // namespace seam
