// A bus message given in JSON, for the script: the types are those that the "ubus" tool gives to the same
// text.
#pragma once

#include "plan/script_text.h"

#include <string>

namespace seam::plan {

// The message's lines, with the one that ends it. Empty, or why the text is no message; the script is then
// not to be used.
std::string add_message(ScriptText &script, const std::string &json);

} // namespace seam::plan
