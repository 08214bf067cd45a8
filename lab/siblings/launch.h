// Starts a child process for the supervisor.
#pragma once

#include "instance_config.h"

#include <sys/types.h>

namespace lab {

// Standard input is empty, output and error go to `output` (which stays the caller's). The child ends with
// its parent, however that ends. A command that cannot be executed says so in its output and ends with status
// 127. An instance with a jail is started through `jail_helper`, and as any other where there is no such
// program. The process id, or -1 with errno.
pid_t launch(const InstanceConfig &config, const std::string &jail_helper, int output);

} // namespace lab
