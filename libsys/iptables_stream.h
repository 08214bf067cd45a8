/*
 * The iptables tables by one process for everything.
 *
 * The program behind the command `iptables` usually goes by several names. As `iptables-restore` it takes
 * changes from a stream, commits each where it is told to, and repeats comments: a comment behind a change
 * comes back when the change is made, and never when it is refused, because the program then ends. So every
 * change still has an answer of its own, and costs a few messages instead of a process. Listings come the
 * same way.
 *
 * The process is started when it is first needed, and let go by the event loop when it has had nothing to do
 * for a second. It reads the kernel's tables anew for each request, so what others do in between counts.
 *
 * Each function is false when a command has to do it: the stream refused, and a command tells why; or there
 * are words that the two might read differently; or the program offers no stream.
 */
#pragma once

#include "command.h"

namespace libsys {

// Makes the change that the words from `first` on describe ("-A CHAIN RULE", "-N CHAIN", ...). True: the
// kernel has it.
bool stream_change(const char *table, const argument_list &words, size_t first);
// Appends the table as `iptables -S` lists it. What is appended by a listing that fails is of no use.
bool stream_list(const char *table, text_buffer *into);

} // namespace libsys
