#include "show.h"

#include <cstring>

namespace ctl {

namespace {

constexpr struct {
    const char *verdict;
    const char *word;
    style how;
} lines[] = {
    {"ok", "ok     ", style::good}, {"failed", "FAILED ", style::bad}, {"unknown", "unknown", style::dim}};

} // namespace

void show_explain(const screen &on, json_object *facts)
{
    printf("%s%s%s\n", on.paint(style::head), shown(facts, "subject"), on.end());
    for (json_object *check : items(get(facts, "checks"))) {
        for (const auto &[verdict, word, how] : lines) {
            if (is(check, "verdict", verdict)) {
                printf("  %s%s%s  ", on.paint(how), word, on.end());
            }
        }
        char name[24];
        snprintf(name, sizeof(name), "%-21s", shown(check, "check"));
        printf("%s  ", name);
        on.paragraph(34, shown(check, "sentence"));
    }
    for (json_object *sentence : items(get(facts, "unread"))) {
        printf("not read: ");
        on.paragraph(10, json_object_get_string(sentence));
    }
    json_object *cause = get(facts, "first_cause");
    if (cause == nullptr) {
        puts("nothing is wrong here, as far as can be seen");
        return;
    }
    printf("first cause: ");
    on.paragraph(13, shown(cause, "sentence"));
    printf("what to do:  ");
    on.paragraph(13, shown(cause, "remedy"));
}

} // namespace ctl
