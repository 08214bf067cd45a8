// A chain that a start empties and fills again (start.h).
//
// Emptying is put off. The rule that is appended first takes the place of the first old one, in one commit,
// and so on: a chain that ends as it began has all of its rules at any moment. Old rules that are left go
// before anything else is asked or changed, at the latest with the end of the start.
#pragma once

#include "iptables.h"
#include "iptables_command.h"

namespace libsys {

// False where the chain is to be emptied at once. The view, which must outlive the start, counts it as empty.
bool begin_refill(table_view &view, const char *table, const char *chain);
// Whether the command was the next rule of the chain, and has been put in the place of an old one.
bool refill_takes(const parsed_command &parsed, const argument_list &command);
// Removes what is left of the old rules.
void finish_refill();

} // namespace libsys
