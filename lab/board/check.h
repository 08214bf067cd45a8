#pragma once
// File descriptors closed by scope, and errors that carry the kernel's reason.

#include "../hw/unique_fd.h"

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace lab {

[[noreturn]] inline void fail(const std::string &what)
{
    throw std::runtime_error(what + ": " + std::strerror(errno));
}

// Throws "what: reason" when a system call's result says that it failed.
inline int check(int result, const std::string &what)
{
    if (result < 0) {
        fail(what);
    }
    return result;
}

} // namespace lab
