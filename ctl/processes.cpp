#include "processes.h"

#include "libsys/internal.h"

#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

namespace ctl {

namespace {

// Seconds since the machine's start, from the clock that processes are dated by.
double uptime()
{
    char text[64];
    read_small_file("/proc/uptime", text, sizeof(text));
    return strtod(text, nullptr);
}

bool shares_our_network(const dirent *entry)
{
    struct stat own;
    struct stat other;
    char path[64];
    snprintf(path, sizeof(path), "/proc/%.20s/ns/net", entry->d_name);
    return stat("/proc/self/ns/net", &own) != 0 || stat(path, &other) != 0 || own.st_ino == other.st_ino;
}

} // namespace

void read_small_file(const char *path, char *out, size_t size)
{
    const libsys::unique_fd fd(open(path, O_RDONLY | O_CLOEXEC));
    const ssize_t got = !fd ? -1 : libsys::retry_eintr([&] { return read(fd.get(), out, size - 1); });
    size_t length = got > 0 ? static_cast<size_t>(got) : 0;
    while (length > 0 && out[length - 1] == '\n') {
        --length;
    }
    out[length] = '\0';
}

bool describe_process(pid_t pid, process *found)
{
    char path[64];
    char text[512];
    snprintf(path, sizeof(path), "/proc/%d/stat", pid);
    read_small_file(path, text, sizeof(text));
    // The name, the second field, may hold blanks and brackets.
    const char *rest = strrchr(text, ')');
    if (rest == nullptr || rest[1] != ' ') {
        return false;
    }
    found->pid = pid;
    found->state = rest[2];
    constexpr int fields_to_start = 20; // from the state on
    const char *field = rest + 1;
    for (int i = 1; field != nullptr && i < fields_to_start; ++i) {
        field = strchr(field + 1, ' ');
    }
    if (field == nullptr) {
        return false;
    }
    const double started = strtod(field, nullptr) / static_cast<double>(sysconf(_SC_CLK_TCK));
    found->started_s = static_cast<int64_t>(started);
    found->age_s = static_cast<int64_t>(uptime() - started);
    return true;
}

bool find_process(const char *name, process *found)
{
    const libsys::owned<DIR, closedir> folder(opendir("/proc"));
    bool any = false;
    while (const dirent *entry = folder != nullptr ? readdir(folder.get()) : nullptr) {
        const auto pid = static_cast<pid_t>(strtol(entry->d_name, nullptr, 10));
        char path[64];
        char comm[32];
        snprintf(path, sizeof(path), "/proc/%d/comm", pid);
        process seen;
        if (pid <= 0) {
            continue;
        }
        read_small_file(path, comm, sizeof(comm));
        if (strcmp(comm, name) == 0 && shares_our_network(entry) && describe_process(pid, &seen) &&
            seen.state != 'Z' && (!any || seen.age_s > found->age_s)) {
            *found = seen;
            any = true;
        }
    }
    return any;
}

} // namespace ctl
