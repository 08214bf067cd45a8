// The questions that "bench" answers, one function each; words: what follows the question on the command
// line.
#pragma once

#include <string>
#include <vector>

namespace bench {

using words = std::vector<std::string>;

void ask_relay(const words &);      // ROUNDS
void ask_call(const words &);       // NAME ROUNDS OBJECT METHOD [JSON]
void ask_routes(const words &);     // SAMPLES SIZE...
void ask_direct(const words &);     // COUNT
void ask_interfaces(const words &); // ROUNDS
void ask_frames(const words &);     // DEVICE SECONDS DESTINATION SOURCE
void ask_time(const words &);       // COMMAND...

} // namespace bench
