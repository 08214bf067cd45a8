// Who may put a socket into a path, or take it away: one broker at a time.
//
// The lock is a file beside the path, "PATH.lock", which stays. It is believed only where it is a regular
// file of our own, since others could hold one of theirs for ever.
#pragma once

namespace broker {

class path_lock {
public:
    // Waits until no other broker holds it.
    explicit path_lock(const char *path);
    path_lock(const path_lock &) = delete;
    path_lock &operator=(const path_lock &) = delete;
    ~path_lock();

    // 0, or the errno value of what kept it from being taken.
    int error() const { return error_; }

private:
    int fd_;
    int error_;
};

} // namespace broker
