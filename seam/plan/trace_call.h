// A line of the trace, taken apart again.
#pragma once

#include "world.h"

#include <optional>
#include <string>
#include <vector>

namespace seam::plan {

struct TraceCall {
    std::string name;
    std::vector<Text> arguments; // texts without their quotes; nothing for a null pointer
    std::optional<long> result;  // nothing for a saying
    std::string out;

    // An argument that is not there, or null, is empty.
    std::string argument(size_t index) const;
};

// Nothing for a line that is no call.
std::optional<TraceCall> call_of(const std::string &line);
// The text that a quoted one stands for; `at` is its first quote and then behind its last.
std::string unquoted(const std::string &line, size_t &at);

} // namespace seam::plan
