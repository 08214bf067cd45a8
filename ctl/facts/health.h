// Whether daemon and broker work.
#pragma once

#include "json.h"

namespace ctl {

// Fills in the facts of "health", with or without up to four seconds of waiting for a sample; true when all
// is well.
bool read_health(json_object *facts, bool samples_too);

} // namespace ctl
