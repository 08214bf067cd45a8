// The facts of status that are numbers, for a monitoring system.

#include "facts/debug.h"
#include "facts/health.h"
#include "facts/router.h"
#include "gather.h"
#include "report.h"

#include <cstring>

namespace ctl {

int gather_metrics(const words &given, json_object *facts)
{
    if (given.count > 1 || (given.count == 1 && strcmp(given[0], "openmetrics") != 0)) {
        complain("metrics takes no word but openmetrics; \"%.80s\" is one", given[given.count - 1]);
        return wrong_usage;
    }
    put(facts, "format", given.count == 1 ? "openmetrics" : "prometheus");
    read_router(facts);
    add_rates(facts);
    uint64_t samples = 0;
    if (read_samples(&samples)) {
        json_object_object_add(facts, "samples", json_object_new_uint64(samples));
    }
    // A monitoring system reads "up" among the rest: a router that does not answer is no failure to tell so.
    return done;
}

} // namespace ctl
