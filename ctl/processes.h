// Processes of this machine, as /proc tells.
#pragma once

#include <climits>
#include <cstdint>
#include <sys/types.h>

namespace ctl {

struct process {
    pid_t pid = 0;
    int64_t age_s = 0;
    int64_t started_s = 0; // after the machine
    char state = '?';      // of proc(5): R, S, D, T, Z …
};

// The oldest process of a name in our own network; false when there is none. Processes of containers have
// other networks. Who may not look there takes every process.
bool find_process(const char *name, process *found);
bool describe_process(pid_t pid, process *found);

// The whole of a small file of /proc without its last line end, cut to fit; empty when it cannot be read.
void read_small_file(const char *path, char *out, size_t size);

} // namespace ctl
