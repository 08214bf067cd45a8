// The steps that a scenario takes inside the event loop.
#pragma once

#include "message.h"

#include <string>
#include <vector>

namespace recorder {

// Calls a method of a registered object; its status goes to the trace.
void call_method(const std::string &object, const std::string &method, const Message &message);
// Any other step; false when the word is not one.
bool step(const std::vector<std::string> &line);
// True while a request is being handled and this is its record.
bool is_current_request(const void *context, const void *request);

} // namespace recorder
