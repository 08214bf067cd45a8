// The Ethernet switch, asked by the ioctls and registers that the daemon uses.
#pragma once

#include "json.h"

namespace ctl {

constexpr unsigned front_ports = 5;

// Fills "ports", "untagging" and "vlans"; false after a report.
bool read_switch(json_object *facts);

} // namespace ctl
