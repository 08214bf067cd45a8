#pragma once
// A file descriptor closed by scope, and errors that carry the kernel's reason.

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <utility>

namespace lab {

class Fd {
public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(Fd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Fd &operator=(Fd &&other) noexcept
    {
        if (this != &other) {
            reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    Fd(const Fd &) = delete;
    Fd &operator=(const Fd &) = delete;
    ~Fd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    void reset()
    {
        if (fd_ >= 0) {
            close(fd_);
        }
        fd_ = -1;
    }

private:
    int fd_ = -1;
};

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
