// Boards and configurations of the generator, as the files that the daemon's router has.
#pragma once

#include "oracle.h"

#include <string>
#include <vector>

namespace model {

const BoardPlan &board_of(unsigned seed);
std::string board_file(const BoardPlan &plan);

// Names of sections hold no dots, and one that comes again would be the same section.
std::vector<Section> for_a_file(std::vector<Section> sections);
std::string config_file(const std::vector<Section> &sections, const std::string &type = "interface");

} // namespace model
