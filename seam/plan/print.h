// A plan for a person, and for programs.
#pragma once

#include "plan/inputs.h"
#include "plan/story.h"

#include <string>

namespace seam::plan {

// The world is at its end. Quiet: only what is wrong, and nothing where nothing is.
std::string for_person(const Story &story, const Options &options, const Inputs &inputs, bool colours);
std::string only_wrong(const Story &story, const Options &options, const Inputs &inputs, bool colours);
// docs/plan.md says what stands where.
std::string for_programs(const Story &story, const Options &options, const Inputs &inputs, int status);

// The world drawn as the lab draws the virtual board.
std::string picture_of_world(const Inputs &inputs, bool colours);

enum class Style { up, down, head, dim };
std::string painted(bool colours, Style style, const std::string &text);

} // namespace seam::plan
