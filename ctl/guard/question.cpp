#include "guard/question.h"

#include "bus.h"
#include "processes.h"

#include <climits>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>

namespace ctl {

namespace {

constexpr int longest_question_ms = 10000;

// A start waits 30 s for the sibling and 5 s for the PHYs, and puts its objects on the bus last.
constexpr int64_t youngest_s = 45;

constexpr const char *objects[] = {"ivarode.intf", "ivarode.route", "ivarode.pppauth", "ivarode.pppuser",
                                   "ivarode.run"};

// By its file: the init script's process bears the same name.
bool runs_daemon(pid_t pid)
{
    char link[64];
    char path[PATH_MAX];
    snprintf(link, sizeof(link), "/proc/%d/exe", pid);
    const ssize_t length = readlink(link, path, sizeof(path) - 1);
    path[length > 0 ? length : 0] = '\0';
    char *mark = strstr(path, " (deleted)");
    if (mark != nullptr) {
        *mark = '\0';
    }
    const char *slash = strrchr(path, '/');
    return slash != nullptr && strcmp(slash, "/ivarode") == 0;
}

answer ask(const process &daemon)
{
    if (daemon.age_s < youngest_s) {
        return answer::unsure;
    }
    bus broker;
    for (const char *object : objects) {
        if (!broker.has(object)) {
            return answer::unsure;
        }
    }
    const int status = broker.ask("ivarode.run", "run", nullptr);
    if (status != UBUS_STATUS_TIMEOUT) {
        return status == UBUS_STATUS_OK ? answer::given : answer::unsure;
    }
    // The daemon may wait for these two.
    bus again;
    return again.ask("service", "list", nullptr) == UBUS_STATUS_OK ? answer::none : answer::unsure;
}

} // namespace

answer ask_daemon(pid_t *found)
{
    process daemon;
    *found = 0;
    if (!find_process("ivarode", &daemon) || !runs_daemon(daemon.pid)) {
        return answer::unsure;
    }
    *found = daemon.pid;
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return answer::unsure;
    }
    const libsys::unique_fd from(ends[0]);
    libsys::unique_fd to(ends[1]);
    // A child, because a broker that stops in the middle holds its client for good.
    const pid_t child = fork();
    if (child == 0) {
        _exit(static_cast<int>(ask(daemon)));
    }
    to.reset();
    pollfd end = {from.get(), POLLIN, 0};
    libsys::retry_eintr([&] { return poll(&end, 1, child > 0 ? longest_question_ms : 0); });
    int status = 0;
    if (child < 0) {
        return answer::unsure;
    }
    kill(child, SIGKILL); // without effect on one that has ended
    libsys::retry_eintr([&] { return waitpid(child, &status, 0); });
    return WIFEXITED(status) ? static_cast<answer>(WEXITSTATUS(status)) : answer::unsure;
}

} // namespace ctl
