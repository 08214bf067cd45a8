#include "launch.h"

#include "internal.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <poll.h>
#include <spawn.h>
#include <syslog.h>
#include <unistd.h>

namespace libsys {

namespace {

constexpr int noticed_silence_ms = 5000;

constexpr char system_folders[] = "/usr/sbin:/sbin:/usr/bin:/bin";

int find_in(const char *folders, const char *name, char (&path)[PATH_MAX])
{
    for (const char *folder = folders;; ++folder) {
        const auto length = static_cast<int>(strcspn(folder, ":"));
        const int needed = snprintf(path, sizeof(path), "%.*s%s%s", length, folder, length ? "/" : "", name);
        if (needed < PATH_MAX && access(path, X_OK) == 0) {
            return 0;
        }
        folder += length;
        if (!*folder) {
            return ENOENT;
        }
    }
}

class start_conditions {
public:
    start_conditions()
    {
        posix_spawn_file_actions_init(&files_);
        posix_spawnattr_init(&attributes_);
    }
    start_conditions(const start_conditions &) = delete;
    start_conditions &operator=(const start_conditions &) = delete;
    ~start_conditions()
    {
        posix_spawn_file_actions_destroy(&files_);
        posix_spawnattr_destroy(&attributes_);
    }

    // Signals as for a fresh program: the event loop ignores SIGPIPE, which children would inherit.
    int set_signals()
    {
        sigset_t none;
        sigset_t ordinary;
        sigemptyset(&none);
        sigemptyset(&ordinary);
        for (int signal : {SIGPIPE, SIGCHLD, SIGINT, SIGTERM}) {
            sigaddset(&ordinary, signal);
        }
        int error = posix_spawnattr_setsigmask(&attributes_, &none);
        error = error ? error : posix_spawnattr_setsigdefault(&attributes_, &ordinary);
        return error ? error
                     : posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    }

    int set_file(int place, int source)
    {
        if (source == standard_files::ours) {
            return 0;
        }
        return source == standard_files::nothing
                   ? posix_spawn_file_actions_addopen(&files_, place, "/dev/null", O_RDWR, 0)
                   : posix_spawn_file_actions_adddup2(&files_, source, place);
    }

    int start(pid_t *pid, const char *path, char *const *argv)
    {
        return posix_spawn(pid, path, &files_, &attributes_, argv, environ);
    }

private:
    posix_spawn_file_actions_t files_;
    posix_spawnattr_t attributes_;
};

} // namespace

int find_program(const char *name, char (&path)[PATH_MAX])
{
    if (strchr(name, '/') != nullptr) {
        return snprintf(path, sizeof(path), "%s", name) < PATH_MAX ? 0 : ENAMETOOLONG;
    }
    const char *folders = getenv("PATH");
    return folders != nullptr && find_in(folders, name, path) == 0 ? 0 : find_in(system_folders, name, path);
}

int spawn(pid_t *pid, const char *path, char *const *argv, const standard_files &files)
{
    start_conditions conditions;
    int error = conditions.set_signals();
    error = error ? error : conditions.set_file(STDIN_FILENO, files.input);
    error = error ? error : conditions.set_file(STDOUT_FILENO, files.output);
    error = error ? error : conditions.set_file(STDERR_FILENO, files.errors);
    return error ? error : conditions.start(pid, path, argv);
}

bool says_more(int output, pid_t process, const char *program, int longest_ms)
{
    pollfd readable = {output, POLLIN, 0};
    const auto wait = [&](int ms) { return retry_eintr([&] { return poll(&readable, 1, ms); }); };
    int ready = wait(noticed_silence_ms);
    if (ready == 0 && longest_ms > noticed_silence_ms) {
        log_line(LOG_WARNING, "%s has said nothing for %d s", program, noticed_silence_ms / 1000);
        ready = wait(longest_ms - noticed_silence_ms);
    }
    if (ready == 0) {
        log_line(LOG_WARNING, "%s has said nothing for %d s and is ended", program, longest_ms / 1000);
        kill(process, SIGKILL);
    }
    return ready == 1;
}

} // namespace libsys
