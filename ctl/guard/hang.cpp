#include "guard/hang.h"

#include "apply/service.h"
#include "libsys/file.h"
#include "processes.h"

#include <cinttypes>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>

namespace ctl {

namespace {

constexpr const char *report = "/var/run/ivarode/hang";
constexpr const char *kept_recording = "/var/run/ivarode/hang.rec";
constexpr const char *recording = "/tmp/ivarode.rec";
constexpr size_t largest_recording = 16 << 20;
constexpr const char *first_words = "seconds since boot: ";

void append(libsys::text &into, pid_t process, const char *name)
{
    char path[64];
    char content[4096];
    snprintf(path, sizeof(path), "/proc/%d/%s", process, name);
    read_small_file(path, content, sizeof(content));
    into.append("\n== ");
    into.append(name);
    into.append('\n');
    into.append(content);
    into.append('\n');
}

// Of root's own file only: anybody may make one of that name where nothing is recorded.
void keep_recording()
{
    struct stat info;
    libsys::text content;
    if (lstat(recording, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == 0 &&
        libsys::read_file(recording, content, largest_recording) == 0) {
        libsys::replace_file(kept_recording, 0600, content.view(), libsys::links::replace);
    }
}

} // namespace

int64_t last_hang_s(int64_t unknown)
{
    char line[64];
    read_small_file(report, line, sizeof(line));
    const size_t length = strlen(first_words);
    return strncmp(line, first_words, length) == 0 ? strtoll(line + length, nullptr, 10) : unknown;
}

void end_hanging(pid_t process, int64_t now_s)
{
    char line[64];
    char where[64];
    snprintf(line, sizeof(line), "/proc/%d/wchan", process);
    read_small_file(line, where, sizeof(where));
    syslog(LOG_ERR, "ivarode (process %d) has not answered three times, waits in %s: restarted; see %s",
           process, *where != '\0' ? where : "?", report);
    snprintf(line, sizeof(line), "%s%" PRId64 "\n", first_words, now_s);
    libsys::text seen;
    seen.append(line);
    for (const char *name : {"wchan", "syscall", "stack", "status"}) {
        append(seen, process, name);
    }
    libsys::replace_file(report, 0600, seen.view(), libsys::links::replace);
    keep_recording();
    // It hears no other signal while it hangs. What it has laid is removed by the stop action of the restart.
    kill(process, SIGKILL);
    if (const int status = run_daemon_script("restart"); status != 0) {
        syslog(LOG_ERR, "the restart of ivarode failed with status %d", status);
    }
}

} // namespace ctl
