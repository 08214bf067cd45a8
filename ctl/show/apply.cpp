#include "show.h"

#include <cinttypes>

namespace ctl {

void show_apply(const screen &on, json_object *facts)
{
    if (get(facts, "problems") != nullptr) {
        show_check(on, facts);
    }
    if (!get_flag(facts, "applied")) {
        printf("nothing is applied\n");
        return;
    }
    printf("applied; goes back in %" PRId64 " s unless: ivarodectl confirm\n",
           get_number(facts, "goes_back_in_s"));
}

void show_confirm(const screen & /*on*/, json_object *facts)
{
    if (get_flag(facts, "confirmed")) {
        printf("confirmed\n");
    }
}

void show_rollback(const screen & /*on*/, json_object *facts)
{
    if (get_flag(facts, "taken_back")) {
        printf("the configuration before the change is back\n");
    }
}

} // namespace ctl
