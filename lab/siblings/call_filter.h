// Which calls of the kernel a process and all that it starts may make, from a file in the form that container
// runtimes use: {"defaultAction": A, "syscalls": [{"names": [...], "action": A}]}. Conditions on arguments
// are not known.
//
// Names that this processor's kernel does not have are left out: one list serves several processors. A call
// by another processor's numbers ends the process.
//
// Errors: std::runtime_error names the file, or what the kernel refused. Nothing can be taken back: the next
// exec must be among the calls.
#pragma once

#include <string>

namespace lab {

void filter_calls(const std::string &file);

} // namespace lab
