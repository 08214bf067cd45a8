// The iptables tables by one process for everything.
//
// The program behind the command `iptables` usually goes by several names. As `iptables-restore` it takes
// changes from a stream, commits each at a COMMIT, and repeats comments: a comment behind a change
// comes back when the change is made, and never when it is refused, because the program then ends. So every
// change still has its own answer, and costs a few messages instead of a process. Listings come the
// same way.
//
// The process is started when it is first needed, and let go by the event loop when it has had nothing to do
// for a second. It reads the kernel's tables again for each request, so what others do in between counts.
//
// A command has to do what the stream does not take (words that the two might read differently, a program
// that offers no stream), and what it has refused, since a command tells why. A program that has hung, or
// would not stop talking, is not asked for a stream again.
#pragma once

#include "command.h"

namespace libsys {

// Unknown: the program has gone without an answer, perhaps after the change was made.
enum class change { made, refused, unknown };

bool stream_takes(const char *table, const argument_list &words, size_t first);
// Makes the change that the words from `first` on describe ("-A CHAIN RULE", "-N CHAIN", ...).
change stream_change(const char *table, const argument_list &words, size_t first);
// Appends the table as `iptables -S` lists it. What is appended by a listing that fails is of no use.
bool stream_list(const char *table, text *into);

} // namespace libsys
