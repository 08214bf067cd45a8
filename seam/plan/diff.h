// What is otherwise on a router than a clean start of its configuration would make it.
#pragma once

#include "world.h"

#include <string>
#include <vector>

namespace seam::plan {

struct Difference {
    std::string what;   // in words
    std::string reason; // the likely one
};

// Of what the daemon lays: chains and rules of others, leases and sessions are none of it.
std::vector<Difference> drift(const World &now, const World &clean);

std::string for_person(const std::vector<Difference> &found);
std::string for_programs(const std::vector<Difference> &found, int status);

} // namespace seam::plan
