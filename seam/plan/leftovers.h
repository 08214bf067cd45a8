// What a start over this router would leave of before though a clean start does not make it: what has to go
// first.
#pragma once

#include "plan/now.h"
#include "world.h"

#include <string>
#include <vector>

namespace seam::plan {

// One removal, in words that a script can take apart.
struct Leftover {
    bool added;       // nothing in the configuration names it; else it is in the way of what is named
    std::string what; // "device lan7": docs/plan.md has all of them
};

// Leaves before what they stand on. What a start replaces itself is not among them, nor what others own.
std::vector<Leftover> leftovers(const World &world_now, const Now &now, const World &clean);

std::string lines_of(const std::vector<Leftover> &found);

} // namespace seam::plan
