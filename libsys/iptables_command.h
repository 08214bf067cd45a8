// What a command line of iptables asks for.
#pragma once

#include "command.h"

namespace libsys {

struct parsed_command {
    const char *table = "filter";
    const char *option = nullptr; // "-A", "-N", "-F"
    const char *chain = nullptr;
    size_t rule = 0; // first word of the rule
    bool waits = false;
    bool by_path = false;
};

// Reads "iptables [-w] [-t TABLE] -X CHAIN ..." as far as the view has to follow; other forms leave option
// null.
parsed_command parse(const argument_list &command);

// Makes a change, which the words from `first` on describe; by the stream where that will do, and without a
// word about its failure.
bool change_quietly(const char *table, const argument_list &command, size_t first);

} // namespace libsys
