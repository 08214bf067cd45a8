#include "path_lock.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace broker {

namespace {

int open_beside(const char *path)
{
    char name[PATH_MAX];
    snprintf(name, sizeof(name), "%s.lock", path);
    int fd;
    do {
        fd = open(name, O_RDWR | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    } while (fd < 0 && errno == EINTR);
    return fd;
}

// 0 or an errno value.
int take(int fd)
{
    struct stat info = {};
    if (fd < 0 || fstat(fd, &info) < 0) {
        return errno;
    }
    if (!S_ISREG(info.st_mode) || info.st_uid != geteuid()) {
        return EPERM;
    }
    int result;
    do {
        result = flock(fd, LOCK_EX);
    } while (result < 0 && (errno == EINTR || errno == EWOULDBLOCK));
    return result < 0 ? errno : 0;
}

} // namespace

path_lock::path_lock(const char *path) : fd_(open_beside(path)), error_(take(fd_)) {}

path_lock::~path_lock()
{
    if (fd_ >= 0) {
        close(fd_);
    }
}

} // namespace broker
