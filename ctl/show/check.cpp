#include "show.h"

#include <cinttypes>

namespace ctl {

namespace {

void show_problem(const screen &on, json_object *problem)
{
    const bool ends = is(problem, "effect", "ends");
    printf("%s%s%s", on.paint(ends ? style::bad : style::head), shown(problem, "file"), on.end());
    for (const char *part : {"section", "option"}) {
        if (get(problem, part) != nullptr) {
            printf(", %s", shown(problem, part));
        }
    }
    printf(": %s: %s\n", shown(problem, "what"), shown(problem, "does"));
}

} // namespace

void show_check(const screen &on, json_object *facts)
{
    json_object *problems = get(facts, "problems");
    json_object *daemon = get(facts, "daemon");
    for (json_object *problem : items(problems)) {
        show_problem(on, problem);
    }
    for (json_object *line : items(get(daemon, "says"))) {
        printf("the daemon says: %s\n", json_object_get_string(line));
    }
    const bool starts = get_flag(facts, "starts") && (daemon == nullptr || get_flag(daemon, "starts"));
    if (!starts) {
        printf("%sthe daemon would not start%s\n", on.paint(style::bad), on.end());
    } else if (count_of(problems) == 0) {
        printf("%sgood%s%s\n", on.paint(style::good), on.end(),
               daemon != nullptr ? ", and the daemon starts with it" : "");
    } else {
        printf("the daemon starts all the same\n");
    }
}

} // namespace ctl
