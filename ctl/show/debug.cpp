#include "show.h"

#include <cinttypes>

namespace ctl {

void show_debug(const screen & /*on*/, json_object *facts)
{
    printf("debug word  0x%08" PRIx64 "  daemon %s\n", get_number(facts, "word"),
           get_flag(facts, "daemon") ? "on" : "off");
    printf("samples     %s\n", shown(facts, "samples"));
    printf("null pointers to string operations  %" PRId64 "\n", get_number(facts, "null_pointers"));
    for (json_object *place : items(get(facts, "places"))) {
        printf("  %10" PRId64 "  %s:%" PRId64 "\n", get_number(place, "count"), shown(place, "function"),
               get_number(place, "line"));
    }
    if (get_number(facts, "elsewhere") > 0) {
        printf("  %10" PRId64 "  elsewhere\n", get_number(facts, "elsewhere"));
    }
}

} // namespace ctl
