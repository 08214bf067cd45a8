#include "apply/service.h"

#include "apply/pending.h"
#include "libsys/file.h"
#include "report.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <syslog.h>

namespace ctl {

namespace {

constexpr const char *script = "/etc/init.d/ivarode";
constexpr const char *output = "/var/run/ivarode/apply.log";
constexpr const char *changes_lock = "/var/run/ivarode/apply.lock";
constexpr int longest_action_s = 120; // of that: 30 s for the sibling, 10 s for each client's end
constexpr long pause_ns = 50000000;   // 20 looks a second

[[noreturn]] void become(const char *action)
{
    setsid();
    const int to = open(output, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW, 0600);
    const int nothing = open("/dev/null", O_RDWR);
    dup2(nothing, STDIN_FILENO);
    dup2(to >= 0 ? to : nothing, STDOUT_FILENO);
    dup2(to >= 0 ? to : nothing, STDERR_FILENO);
    for (const int number : {SIGHUP, SIGINT, SIGPIPE, SIGTERM}) {
        signal(number, SIG_DFL);
    }
    execl(script, script, action, nullptr);
    _exit(127);
}

} // namespace

int run_daemon_script(const char *action)
{
    const pid_t child = fork();
    if (child == 0) {
        become(action);
    }
    if (child < 0) {
        return -1;
    }
    const int64_t until = seconds_since_boot() + longest_action_s;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (seconds_since_boot() >= until) {
            kill(-child, SIGKILL);
            waitpid(child, &status, 0);
            return -1;
        }
        const timespec pause = {0, pause_ns};
        nanosleep(&pause, nullptr);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool take_back()
{
    if (const int error = put_back(); error != 0) {
        complain("the configuration cannot be put back: %s", strerror(error));
        return false;
    }
    if (run_daemon_script("reload") != 0 && run_daemon_script("restart") != 0) {
        syslog(LOG_ERR, "configuration put back, but %s restart failed", script);
    }
    const int error = forget_backup();
    if (error != 0) {
        complain("the configuration is back, but its backup stays: %s", strerror(error));
    }
    return error == 0;
}

bool lock_changes(libsys::unique_fd &lock)
{
    int error = libsys::make_folders(run_folder);
    if (error == 0) {
        lock.reset(open(changes_lock, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
        error = lock && flock(lock.get(), LOCK_EX | LOCK_NB) == 0 ? 0 : errno;
    }
    if (error != 0) {
        complain("%s: %s", changes_lock,
                 error == EWOULDBLOCK ? "another apply, confirm or rollback is at work" : strerror(error));
    }
    return error == 0;
}

bool guard_is_there()
{
    const libsys::unique_fd lock(open(guard_lock, O_RDWR | O_CLOEXEC | O_NOFOLLOW));
    return lock && flock(lock.get(), LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
}

} // namespace ctl
