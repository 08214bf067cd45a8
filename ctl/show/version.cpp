#include "show.h"

#include <cinttypes>

namespace ctl {

void show_version(const screen & /*on*/, json_object *facts)
{
    printf("ivarodectl %s (%s)\n", shown(facts, "ivarodectl"), shown(facts, "build"));
    for (json_object *part : items(get(facts, "parts"))) {
        printf("  %-20s %.40s  %s\n", shown(part, "name"), shown(part, "build_id", "no build identifier"),
               shown(part, "path"));
        if (get_flag(part, "replaced")) {
            printf("  %-20s the file has been replaced since it was started\n", "");
        } else if (get(part, "running") != nullptr && !get_flag(part, "running")) {
            printf("  %-20s does not run\n", "");
        }
    }
}

} // namespace ctl
