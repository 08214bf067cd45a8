/*
 * The C library's functions as the platform library and the stand-ins call them, each made to fail at a
 * chosen occurrence. The test program's own definitions come first for the dynamic linker, and pass the call
 * on.
 *
 * The plan lies in memory shared with forked processes: one process is watched, by its pid, whoever arms it.
 * Nothing is counted and nothing fails while the plan is not armed. Blocks of memory are counted meanwhile:
 * what was taken minus what was given back.
 */
#pragma once

#include <atomic>
#include <string>
#include <sys/types.h>
#include <vector>

namespace seam {

// A transfer that takes or brings a part of the bytes, in place of an errno value.
constexpr int partial = -1;
// The process is killed in place of the call.
constexpr int death = -2;

struct Fault {
    const char *call;
    int error;
    // The call did nothing wrong, and whoever made it has to go on: a signal came, or there was less than
    // asked.
    bool harmless;
};
// Everything that is tried at each occurrence of a call.
const std::vector<Fault> &faults();
std::string describe(const Fault &fault, unsigned occurrence);

// Once, before the first fork.
void prepare();
void count_calls(pid_t process);
void fail(pid_t process, const Fault &fault, unsigned occurrence);
void disarm();

unsigned calls(const char *call); // since the plan was armed
bool happened();                  // the failure
long blocks();                    // of memory taken and not given back while the plan was armed

// For the definitions of the functions: 0, an errno value or `partial`.
int verdict(const char *call);
void count_block(long by);
// A library that is always given memory: part of its file's path. json-c is spared from the start: it does
// not survive a refusal (it follows the null pointer, or drops a member without a word), so what it does then
// says nothing about its callers.
void spare(const char *library);
// Whether this place belongs to such a library.
bool spares(const void *caller);

} // namespace seam
