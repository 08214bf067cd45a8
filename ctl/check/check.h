// Whether a configuration is one to start with.
#pragma once

#include "json.h"

namespace ctl {

struct checked {
    bool readable;
    bool good;
    bool starts; // for all that is known
};

// Fills in the facts of "check".
checked check_configuration(const char *board, const char *config, json_object *facts);

} // namespace ctl
