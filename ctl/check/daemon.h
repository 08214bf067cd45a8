// What the daemon itself says of files, by the program that plans.
#pragma once

#include "json.h"

namespace ctl {

// "daemon": not there where the planner is not installed or cannot read the files.
void ask_planner(const char *board, const char *config, json_object *facts);

} // namespace ctl
