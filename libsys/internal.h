// What the files of the platform library share.
//
// fail() is the one way to report that an operation did not work: it sets errno, writes one outlib_debug line
// "operation(arguments): reason" and gives -1 to return. Whether that is worth an error message is the
// caller's to decide.
//
// log_line() is for the few things that only the library knows of and that an operator must hear: one line in
// the system log and on the output, as a warning or a notice.
//
// unique_fd and unique_file own a descriptor and a stdio stream. Both close at the end of the scope and leave
// errno alone, so a guard may go out of scope after fail(). retry_eintr() repeats a system call that a signal
// interrupted. owned<T, release> owns what a C library made and takes back by one function.
//
// Nothing here allocates.
#pragma once

#include <cerrno>
#include <cstdio>
#include <memory>
#include <unistd.h>
#include <utility>

namespace libsys {

// Always -1. `error` is an errno value; 0 is taken as EIO, for libraries that fail without saying why.
[[gnu::format(printf, 3, 4)]] int fail(int error, const char *operation, const char *arguments, ...);

// LOG_WARNING or LOG_NOTICE; the text without a newline.
[[gnu::format(printf, 2, 3)]] void log_line(int priority, const char *format, ...);

// The text to print for a string argument that may be null.
inline const char *shown(const char *text)
{
    return text != nullptr ? text : "(null)";
}

template <auto Release> struct releaser {
    template <typename T> void operator()(T *thing) const { Release(thing); }
};
template <typename T, auto Release> using owned = std::unique_ptr<T, releaser<Release>>;

class unique_fd {
public:
    unique_fd() = default;
    explicit unique_fd(int fd) : fd_(fd) {}
    unique_fd(unique_fd &&other) noexcept : fd_(other.release()) {}
    unique_fd &operator=(unique_fd &&other) noexcept
    {
        reset(other.release());
        return *this;
    }
    unique_fd(const unique_fd &) = delete;
    unique_fd &operator=(const unique_fd &) = delete;
    ~unique_fd() { reset(); }

    explicit operator bool() const { return fd_ >= 0; }
    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1)
    {
        if (fd_ >= 0) {
            int saved = errno;
            close(fd_);
            errno = saved;
        }
        fd_ = fd;
    }

private:
    int fd_ = -1;
};

class unique_file {
public:
    unique_file() = default;
    explicit unique_file(FILE *file) : file_(file) {}
    unique_file(unique_file &&other) noexcept : file_(std::exchange(other.file_, nullptr)) {}
    unique_file &operator=(unique_file &&) = delete;
    unique_file(const unique_file &) = delete;
    unique_file &operator=(const unique_file &) = delete;
    ~unique_file()
    {
        if (file_ != nullptr) {
            int saved = errno;
            fclose(file_);
            errno = saved;
        }
    }

    explicit operator bool() const { return file_ != nullptr; }
    FILE *get() const { return file_; }
    // For writers that must know whether the last bytes arrived: the result of fclose().
    int close_now() { return fclose(std::exchange(file_, nullptr)); }

private:
    FILE *file_ = nullptr;
};

template <typename Call> auto retry_eintr(Call call)
{
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace libsys
