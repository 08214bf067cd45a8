// A file descriptor closed by scope.
#pragma once

#include <unistd.h>
#include <utility>

namespace lab {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int descriptor) : fd_(descriptor) {}
    UniqueFd(UniqueFd &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    UniqueFd &operator=(UniqueFd &&other) noexcept
    {
        if (this != &other) {
            reset();
            fd_ = std::exchange(other.fd_, -1);
        }
        return *this;
    }
    ~UniqueFd() { reset(); }

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

} // namespace lab
