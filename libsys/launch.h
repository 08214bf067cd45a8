/*
 * Starting a program of the system: with ordinary signals, and with no descriptor of ours but those it is
 * given.
 *
 * find_program(): The file that a name stands for: a name with a slash is its own path, others are looked for
 * in PATH and then in the folders of system programs, since a daemon may be started with a PATH that has
 * none.
 *
 * spawn(): Starts it. Waiting for its end is the caller's.
 *
 * Both give 0 or a positive errno value.
 */
#pragma once

#include <climits>
#include <sys/types.h>

namespace libsys {

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

} // namespace libsys
