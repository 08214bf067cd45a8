// What may stand next on the command line, a word a line: commands, the options and words of a command's
// form, names of this router. The shell's completion asks; it shows those that begin as the word that is
// typed.

#include "commands.h"
#include "facts/router.h"
#include "report.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace ctl {

namespace {

constexpr int front_ports = 5;

void ignore(const char * /*line*/) {}

// In a form, capitals stand for something, signs separate, and all else is meant as it stands. Words that are
// no options come first.
void print_form(const char *form, bool words_too)
{
    for (const char *at = form; *at != '\0';) {
        const size_t length = strcspn(at, "[]| ");
        if (length > 0 && (*at == '-' || (words_too && isupper(*at) == 0))) {
            printf("%.*s\n", static_cast<int>(length), at);
        }
        at += length;
        at += strspn(at, "[]| ");
    }
}

bool takes_value(const char *option)
{
    for (const char *alone : {"--help", "-h", "--json", "--watch"}) {
        if (strcmp(option, alone) == 0) {
            return false;
        }
    }
    return *option == '-';
}

void print_names(json_object *elements)
{
    for (json_object *element : items(elements)) {
        puts(text_of(element, "name"));
    }
}

void print_subjects()
{
    const json facts = table();
    add_board(facts.get());
    add_configuration(facts.get());
    add_kernel(facts.get());
    add_accounts(facts.get());
    derive_interfaces(facts.get());
    print_names(get(facts.get(), "interfaces"));
    print_names(get(get(facts.get(), "configuration"), "route_config"));
    print_names(get(facts.get(), "ppp_users"));
}

void print_of_command(const command &what, const words &given)
{
    const char *last = given[given.count - 1];
    const bool explains = strcmp(what.name, "explain") == 0;
    if (explains && given.count == 2 && strcmp(last, "port") == 0) {
        for (int port = 0; port < front_ports; ++port) {
            printf("%d\n", port);
        }
        return;
    }
    print_form(what.form, given.count == 1);
    printf("--help\n--columns\n%s%s", what.prints_facts ? "--json\n" : "", what.can_watch ? "--watch\n" : "");
    if (explains && given.count == 1) {
        print_subjects();
    }
}

} // namespace

void complete(const words &given)
{
    const reports_to nobody(ignore);
    const command *what = given.count > 0 ? find_command(given[0]) : nullptr;
    if (given.count > 0 && takes_value(given[given.count - 1])) {
        return; // a file, or a number
    }
    if (what != nullptr) {
        print_of_command(*what, given);
    } else if (given.count == 0) {
        for (size_t i = 0; i < command_count; ++i) {
            puts(commands[i].name);
        }
        puts("--help");
    }
}

} // namespace ctl
