// What is otherwise on a router than a clean start of its configuration would make it.
#pragma once

#include "world.h"

#include <cstdint>
#include <set>
#include <string>
#include <vector>

namespace seam::plan {

struct Difference {
    std::string what;   // in words
    std::string reason; // the likely one
};

// Of what the daemon lays: chains and rules of others, leases and sessions are none of it. Nor is it one that
// an interface is down, and without its routes, whose port has lost its link. rules: the policy rules of WANs
// that are there now.
std::vector<Difference> drift(const World &now, const std::set<uint32_t> &rules, const World &clean,
                              const std::set<std::string> &without_link);

std::string for_person(const std::vector<Difference> &found);
std::string for_programs(const std::vector<Difference> &found, int status);

} // namespace seam::plan
