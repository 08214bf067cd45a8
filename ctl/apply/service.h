// The init scripts, run by the tool.
#pragma once

#include "libsys/internal.h"

namespace ctl {

constexpr const char *run_folder = "/var/run/ivarode";

// The script's status, or -1 where it was ended for taking too long. What it writes is in a file of the
// run-time state: a terminal that goes away meanwhile must not end it.
int run_daemon_script(const char *action);

// Takes back what waits, with a reload, or a restart where that fails. False after a report: then the next
// try goes on from there.
bool take_back();

// One at a time changes what is pending. False after a report.
bool lock_changes(libsys::unique_fd &lock);

// The service that takes back holds this as long as it lives.
constexpr const char *guard_lock = "/var/run/ivarode/guard.lock";
bool guard_is_there();

} // namespace ctl
