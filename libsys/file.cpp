#include "file.h"

#include <climits>
#include <ctime>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>

namespace libsys {

namespace {

constexpr int lock_tries = 200;
constexpr timespec lock_pause = {0, 10'000'000};

int write_durably(int fd, std::string_view content)
{
    while (!content.empty()) {
        ssize_t sent = retry_eintr([&] { return write(fd, content.data(), content.size()); });
        if (sent < 0) {
            return errno;
        }
        content.remove_prefix(static_cast<size_t>(sent));
    }
    return retry_eintr([&] { return fsync(fd); }) == 0 ? 0 : errno;
}

// The name may be durable only once its folder is; a file system that cannot do that is no reason to fail.
void sync_folder(const char *path)
{
    unique_fd folder(retry_eintr([&] { return open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    if (folder) {
        retry_eintr([&] { return fsync(folder.get()); });
    }
}

int write_new(const char *path, mode_t mode, std::string_view content)
{
    if (unlink(path) != 0 && errno != ENOENT) {
        return errno;
    }
    unique_fd fd(retry_eintr(
        [&] { return open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR); }));
    if (!fd) {
        return errno;
    }
    if (fchmod(fd.get(), mode) != 0) {
        return errno;
    }
    return write_durably(fd.get(), content);
}

// path is absolute.
int replace_in_folder(const char *path, mode_t mode, std::string_view content)
{
    auto folder_length = static_cast<int>(strrchr(path, '/') - path);
    char folder[PATH_MAX];
    char fresh[PATH_MAX];
    snprintf(folder, sizeof(folder), "%.*s/", folder_length, path);
    int length = snprintf(fresh, sizeof(fresh), "%s.%s.new", folder, path + folder_length + 1);
    if (length >= static_cast<int>(sizeof(fresh))) {
        return ENAMETOOLONG;
    }
    int error = write_new(fresh, mode, content);
    if (error == 0 && rename(fresh, path) != 0) {
        error = errno;
    }
    if (error != 0) {
        unlink(fresh);
        return error;
    }
    sync_folder(folder);
    return 0;
}

} // namespace

int file_lock::acquire(const char *path)
{
    fd_.reset(retry_eintr(
        [&] { return open(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR); }));
    if (!fd_) {
        return errno;
    }
    for (int tries = 0; flock(fd_.get(), LOCK_EX | LOCK_NB) != 0;) {
        if (errno == EINTR) {
            continue;
        }
        if (errno != EWOULDBLOCK) {
            return errno;
        }
        if (++tries > lock_tries) {
            return ETIMEDOUT;
        }
        nanosleep(&lock_pause, nullptr);
    }
    return 0;
}

int read_file(const char *path, text &content, size_t limit)
{
    unique_fd fd(retry_eintr([&] { return open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK); }));
    if (!fd) {
        return errno;
    }
    struct stat info;
    if (fstat(fd.get(), &info) != 0) {
        return errno;
    }
    if (!S_ISREG(info.st_mode)) {
        return S_ISDIR(info.st_mode) ? EISDIR : EINVAL;
    }
    content.clear();
    for (;;) {
        constexpr size_t block = 4096;
        char *end = content.reserve(block);
        if (end == nullptr) {
            return ENOMEM;
        }
        ssize_t got = retry_eintr([&] { return read(fd.get(), end, block); });
        if (got < 0) {
            return errno;
        }
        if (got == 0) {
            content.append("");
            return 0;
        }
        content.grew(static_cast<size_t>(got));
        if (content.view().size() > limit) {
            return EFBIG;
        }
    }
}

int replace_file(const char *path, mode_t mode, std::string_view content, links link)
{
    char target[PATH_MAX];
    if (link == links::replace || realpath(path, target) == nullptr) {
        struct stat info;
        // A link that leads nowhere is not ours to replace.
        if (link == links::follow && (errno != ENOENT || lstat(path, &info) == 0)) {
            return errno;
        }
        if (strlen(path) >= sizeof(target)) {
            return ENAMETOOLONG;
        }
        strcpy(target, path);
    }
    return replace_in_folder(target, mode, content);
}

int make_folders(const char *path)
{
    char part[PATH_MAX];
    size_t length = strlen(path);
    if (length >= sizeof(part)) {
        return ENAMETOOLONG;
    }
    memcpy(part, path, length + 1);
    for (char *slash = part; slash != nullptr;) {
        slash = strchr(slash + 1, '/');
        if (slash != nullptr) {
            *slash = '\0';
        }
        if (mkdir(part, 0755) != 0 && errno != EEXIST) {
            return errno;
        }
        if (slash != nullptr) {
            *slash = '/';
        }
    }
    struct stat info;
    if (stat(path, &info) != 0) {
        return errno;
    }
    return S_ISDIR(info.st_mode) ? 0 : ENOTDIR;
}

} // namespace libsys
