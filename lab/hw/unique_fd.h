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
        std::swap(fd, other.fd);
        return *this;
    }
    ~UniqueFd()
    {
        if (fd >= 0) {
            close(fd);
        }
    }

    int get() const { return fd; }
    explicit operator bool() const { return fd >= 0; }

private:
    int fd = -1;
};

} // namespace lab
