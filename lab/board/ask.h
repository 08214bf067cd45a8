#pragma once
// Puts one command line to a UNIX socket and copies the answer to standard output: one line, or everything
// until the other end closes when stream is set. Returns a process status (0, or 1 with a reason on stderr).

#include <string>

namespace lab {

int ask(const std::string &socket_path, const std::string &line, bool stream);

} // namespace lab
