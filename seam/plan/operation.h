// What a call of the daemon does, in words for a person.
#pragma once

#include "plan/trace_call.h"

#include <string>
#include <vector>

namespace seam::plan {

enum class Area { kernel, hardware, firewall, clients, files, bus, time };
const char *name_of(Area area);

struct Operation {
    Area area;
    std::string words;
    std::string call; // the name of the function
    long result = 0;
    std::vector<std::string> changes; // facts of the world, as they are stated
};

// Nothing for a call that asks, or prepares the daemon itself. Passwords are left out.
std::optional<Operation> operation_of(const TraceCall &call);

// A fact with its password left out.
std::string without_password(const std::string &fact);

} // namespace seam::plan
