#include "show.h"

#include <cinttypes>

namespace ctl {

void show_health(const screen &on, json_object *facts)
{
    const bool up = is(facts, "state", "up");
    json_object *daemon = get(facts, "daemon");
    printf("%s%s%s: %s", on.paint(up ? style::good : style::bad), shown(facts, "state"), on.end(),
           shown(facts, "sentence"));
    if (get_flag(daemon, "running")) {
        printf("; process %" PRId64 ", %" PRId64 " s old", get_number(daemon, "pid"),
               get_number(daemon, "uptime_s"));
    }
    if (!up && get(daemon, "waits_in") != nullptr) {
        printf(", waits in %s", shown(daemon, "waits_in"));
    }
    if (up && get(facts, "samples") != nullptr) {
        printf(", %s samples", shown(facts, "samples"));
    }
    const char *separator = "; not on the bus: ";
    for (json_object *object : items(get(facts, "objects"))) {
        if (!get_flag(object, "there")) {
            printf("%s%s", separator, shown(object, "name"));
            separator = ", ";
        }
    }
    printf("\n");
}

} // namespace ctl
