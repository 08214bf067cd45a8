// A file descriptor closed by scope.
#pragma once

#include <unistd.h>
#include <utility>

namespace lab {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor) : fd(descriptor) {}
    UniqueFd(UniqueFd &&other) noexcept : fd(std::exchange(other.fd, -1)) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept
    {
        if (this != &other) {
            reset();
            fd = std::exchange(other.fd, -1);
        }
        return *this;
    }
    ~UniqueFd() { reset(); }

    int get() const { return fd; }
    explicit operator bool() const { return fd >= 0; }
    void reset()
    {
        if (fd >= 0) {
            close(fd);
        }
        fd = -1;
    }

private:
    int fd = -1;
};

} // namespace lab
