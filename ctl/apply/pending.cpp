#include "apply/pending.h"

#include "libsys/file.h"
#include "processes.h"

#include <cinttypes>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace ctl {

namespace {

constexpr const char *state = "/etc/ivarode";
constexpr const char *fresh = "/etc/ivarode/backup.new";
constexpr const char *backup = "/etc/ivarode/backup";
constexpr const char *rollback = "/etc/ivarode/rollback";
constexpr const char *old = "/etc/ivarode/backup.old";
constexpr const char *deadline = "/etc/ivarode/backup/until";
constexpr const char *running = "/var/run/ivarode/config";
constexpr const char *boot_id = "/proc/sys/kernel/random/boot_id";

constexpr const char *packages[] = {"lan_intf", "wan_intf", "route_config"};
constexpr const char *absent = ".absent"; // behind a package's name: there was no such file
constexpr size_t largest_package = 1 << 20;
constexpr mode_t secret = 0600; // there are passwords in it

struct path {
    path(const char *folder, const char *name, const char *end = "")
    {
        snprintf(text, sizeof(text), "%s/%s%s", folder, name, end);
    }
    operator const char *() const { return text; }
    char text[96];
};

bool exists(const char *name)
{
    struct stat info;
    return lstat(name, &info) == 0;
}

// What was renamed in a folder stays so after a power cut.
int sync_folder(const char *name)
{
    const libsys::unique_fd fd(open(name, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    return fd && fsync(fd.get()) == 0 ? 0 : errno;
}

int move(const char *from, const char *to)
{
    return rename(from, to) == 0 ? sync_folder(state) : errno;
}

int ignore_missing(int result)
{
    return result == 0 || errno == ENOENT ? 0 : errno;
}

// With all that writers have left in it.
int remove_folder(const char *name)
{
    {
        const libsys::owned<DIR, closedir> folder(opendir(name));
        while (const dirent *entry = folder != nullptr ? readdir(folder.get()) : nullptr) {
            unlinkat(dirfd(folder.get()), entry->d_name, 0);
        }
    }
    return ignore_missing(rmdir(name));
}

int copy_package(const char *package)
{
    libsys::text content;
    const int error = libsys::read_file(path(running, package), content, largest_package);
    if (error == ENOENT) {
        return libsys::replace_file(path(fresh, package, absent), secret, "", libsys::links::replace);
    }
    return error != 0
               ? error
               : libsys::replace_file(path(fresh, package), secret, content.view(), libsys::links::replace);
}

int write_deadline(const char *file, int64_t until_s)
{
    char id[64];
    char line[96];
    read_small_file(boot_id, id, sizeof(id));
    snprintf(line, sizeof(line), "%s %" PRId64 "\n", id, until_s);
    return libsys::replace_file(file, secret, line, libsys::links::replace);
}

// Where they lie on different disks, the file is written and made durable first.
int return_package(const char *package)
{
    const path from(rollback, package);
    const path to(config_folder, package);
    if (exists(path(rollback, package, absent))) {
        return ignore_missing(unlink(to));
    }
    if (rename(from, to) == 0 || errno == ENOENT) { // gone before: it is back already
        return 0;
    }
    libsys::text content;
    int error = errno == EXDEV ? libsys::read_file(from, content, largest_package) : errno;
    error = error != 0 ? error : libsys::replace_file(to, secret, content.view(), libsys::links::replace);
    return error != 0 ? error : ignore_missing(unlink(from));
}

int read_both(const char *package, libsys::text &first, libsys::text &second, bool *differs)
{
    const int one = libsys::read_file(path(running, package), first, largest_package);
    const int other = libsys::read_file(path(config_folder, package), second, largest_package);
    for (const int error : {one, other}) {
        if (error != 0 && error != ENOENT) {
            return error;
        }
    }
    *differs = *differs || one != other || first.view() != second.view();
    return 0;
}

} // namespace

change pending_change()
{
    return exists(rollback) ? change::goes_back : exists(backup) ? change::waits : change::none;
}

int compare_with_running(bool *differs)
{
    *differs = false;
    if (!exists(running)) {
        return ENOENT;
    }
    for (const char *package : packages) {
        libsys::text first;
        libsys::text second;
        if (const int error = read_both(package, first, second, differs); error != 0) {
            return error;
        }
    }
    return 0;
}

int keep_backup(int64_t until_s)
{
    for (const char *folder : {fresh, old}) {
        if (const int error = remove_folder(folder); error != 0) {
            return error;
        }
    }
    if ((mkdir(state, 0700) != 0 && errno != EEXIST) || mkdir(fresh, 0700) != 0) {
        return errno;
    }
    for (const char *package : packages) {
        if (const int error = copy_package(package); error != 0) {
            return error;
        }
    }
    int error = write_deadline(path(fresh, "until"), until_s);
    error = error != 0 ? error : sync_folder(fresh);
    return error != 0 ? error : move(fresh, backup);
}

int64_t seconds_since_boot()
{
    timespec now = {};
    clock_gettime(CLOCK_BOOTTIME, &now);
    return now.tv_sec;
}

int set_deadline(int64_t until_s)
{
    return write_deadline(deadline, until_s);
}

bool is_of_this_boot()
{
    char line[96];
    char id[64];
    read_small_file(deadline, line, sizeof(line));
    read_small_file(boot_id, id, sizeof(id));
    return *id != '\0' && strncmp(line, id, strlen(id)) == 0;
}

int64_t seconds_left()
{
    char line[96];
    read_small_file(deadline, line, sizeof(line));
    const char *until = strchr(line, ' ');
    return until != nullptr && is_of_this_boot() ? strtoll(until, nullptr, 10) - seconds_since_boot() : 0;
}

int put_back()
{
    if (!exists(rollback)) {
        if (const int error = move(backup, rollback); error != 0) {
            return error;
        }
    }
    for (const char *package : packages) {
        if (const int error = return_package(package); error != 0) {
            return error;
        }
    }
    return sync_folder(config_folder);
}

int forget_backup()
{
    remove_folder(old);
    const char *from = exists(rollback) ? rollback : backup;
    const int error = move(from, old);
    return error != 0 ? error : remove_folder(old);
}

} // namespace ctl
