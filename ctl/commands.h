// The table of commands. Dispatch and help read it.
//
// A command gathers facts into a table, which --json prints as it is and draw() shows to a person. What
// could not be gathered is reported by the gatherer, in one line, and is not in the table.
#pragma once

#include "json.h"
#include "screen.h"

#include <cstddef>

namespace ctl {

// The words behind the command's name.
struct words {
    const char *const *at;
    size_t count;

    const char *operator[](size_t place) const { return place < count ? at[place] : nullptr; }
};

struct command {
    const char *name;
    const char *form;    // of the words behind it, as help shows it
    const char *summary; // a line of the list
    const char *details; // the rest of its help
    bool prints_facts;   // takes --json
    bool can_watch;      // takes --watch
    // An exit_status; wrong_usage for words that it does not know, reported or not.
    int (*gather)(const words &given, json_object *facts);
    // Not called without facts.
    void (*draw)(const screen &on, json_object *facts);
};

extern const command commands[];
extern const size_t command_count;
// Null for none.
const command *find_command(const char *name);

// Prints what may stand behind these words, a word a line.
void complete(const words &given);

// Runs what the command line says; an exit_status.
int dispatch(int argc, char **argv);

} // namespace ctl
