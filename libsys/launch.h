// Starting a program of the system: with ordinary signals, and with no descriptor of ours but those it is
// given.
//
// find_program(): The file that a name stands for: a name with a slash is its own path, others are looked for
// in PATH and then in the folders of system programs, since a daemon may be started with a PATH that has
// none.
//
// spawn(): Starts it. Waiting for its end is the caller's.
//
// Both give 0 or a positive errno value.
//
// says_more(): Waits until a program that was started has something to be read, or has closed its output. One
// line in the log when it has been silent for 5 s. After `longest_ms` it is ended by SIGKILL, with a line:
// false.
#pragma once

#include <climits>
#include <cstddef>
#include <sys/types.h>

namespace libsys {

// Far above anything that a program has to say about a router. One that says more is out of its mind.
constexpr size_t longest_output = 4 << 20;

// How long a program of ours may be silent.
constexpr int longest_silence_ms = 30000;

int find_program(const char *name, char (&path)[PATH_MAX]);

// What stands behind the first three descriptors of a program.
struct standard_files {
    static constexpr int nothing = -1;
    static constexpr int ours = -2;

    int input = nothing;
    int output = nothing;
    int errors = nothing;
};

int spawn(pid_t *pid, const char *path, char *const *argv, const standard_files &files);
bool says_more(int output, pid_t process, const char *program, int longest_ms = longest_silence_ms);

} // namespace libsys
