// One run of the daemon on the simulated router.
#pragma once

#include <string>

namespace seam::plan {

struct DaemonRun {
    std::string trace;
    std::string said; // by loader and daemon on standard output and error; usually nothing
    int status = 0;   // as waitpid gives it
};

// Runs the program with the script. Nothing of it touches a file system: script, trace and output are in
// memory. A daemon that stands still or loops without a call is ended by the kernel after some seconds. False
// after a report.
bool run_daemon(const std::string &program, const std::string &script, DaemonRun &run);

// "ivarode" beside this program; the library with the world, which the loader takes for the platform library.
std::string daemon_beside();
std::string world_library();

} // namespace seam::plan
