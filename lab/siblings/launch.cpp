#include "launch.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

namespace lab {

namespace {

// The event loop's dispositions and an ignored SIGPIPE would otherwise be inherited.
void reset_signals()
{
    for (const int number : {SIGPIPE, SIGINT, SIGTERM, SIGCHLD, SIGHUP}) {
        signal(number, SIG_DFL);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
}

bool redirect(int output)
{
    const int empty = open("/dev/null", O_RDONLY | O_CLOEXEC);
    return empty >= 0 && dup2(empty, STDIN_FILENO) >= 0 && dup2(output, STDOUT_FILENO) >= 0 &&
           dup2(output, STDERR_FILENO) >= 0;
}

// Users and groups that do not exist change nothing, as on the router.
bool become(const InstanceConfig &config)
{
    const passwd *user = config.user.empty() ? nullptr : getpwnam(config.user.c_str());
    const group *own = config.group.empty() ? nullptr : getgrnam(config.group.c_str());
    if (user != nullptr || own != nullptr) {
        const gid_t gid = own != nullptr ? own->gr_gid : user->pw_gid;
        if (setgroups(1, &gid) < 0 || setgid(gid) < 0) {
            return false;
        }
    }
    return user == nullptr || setuid(user->pw_uid) == 0;
}

struct Limit {
    const char *name;
    decltype(RLIMIT_CORE) resource;
};
constexpr std::array<Limit, 14> limits = {{{"as", RLIMIT_AS},
                                           {"core", RLIMIT_CORE},
                                           {"cpu", RLIMIT_CPU},
                                           {"data", RLIMIT_DATA},
                                           {"fsize", RLIMIT_FSIZE},
                                           {"memlock", RLIMIT_MEMLOCK},
                                           {"msgqueue", RLIMIT_MSGQUEUE},
                                           {"nice", RLIMIT_NICE},
                                           {"nofile", RLIMIT_NOFILE},
                                           {"nproc", RLIMIT_NPROC},
                                           {"rss", RLIMIT_RSS},
                                           {"rtprio", RLIMIT_RTPRIO},
                                           {"sigpending", RLIMIT_SIGPENDING},
                                           {"stack", RLIMIT_STACK}}};

rlim_t amount(const std::string &word)
{
    return word == "unlimited" ? RLIM_INFINITY : static_cast<rlim_t>(strtoul(word.c_str(), nullptr, 0));
}

// Those that are unknown or out of bounds change nothing, as on the router.
void limit(const Pairs &wanted)
{
    for (const auto &[name, value] : wanted) {
        for (const Limit &known : limits) {
            if (name == known.name) {
                const size_t blank = value.find(' ');
                const rlimit both = {amount(value.substr(0, blank)),
                                     amount(blank == std::string::npos ? value : value.substr(blank + 1))};
                setrlimit(known.resource, &both);
            }
        }
    }
}

std::vector<std::string> words_of(const InstanceConfig &config, const std::string &jail_helper)
{
    std::vector<std::string> words;
    if (config.jail && access(jail_helper.c_str(), X_OK) == 0) {
        words.push_back(jail_helper);
        if (!config.capabilities.empty()) {
            words.insert(words.end(), {"--capabilities", config.capabilities});
        }
        if (config.no_new_privs) {
            words.emplace_back("--no-new-privs");
        }
        if (!config.seccomp.empty()) {
            words.insert(words.end(), {"--seccomp", config.seccomp});
        }
        for (const auto &variable : config.env) {
            words.insert(words.end(), {"--import", variable.first});
        }
        words.emplace_back("--");
    }
    words.insert(words.end(), config.command.begin(), config.command.end());
    return words;
}

[[noreturn]] void run_child(const InstanceConfig &config, char *const *arguments, int output, pid_t parent)
{
    reset_signals();
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (getppid() != parent || !redirect(output)) {
        _exit(127);
    }
    for (const auto &[name, value] : config.env) {
        setenv(name.c_str(), value.c_str(), 1);
    }
    limit(config.limits);
    if ((config.nice != 0 && setpriority(PRIO_PROCESS, 0, config.nice) < 0) || !become(config)) {
        dprintf(STDERR_FILENO, "cannot take the wanted priority or user: %s\n", strerror(errno));
        _exit(127);
    }
    execvp(arguments[0], arguments);
    dprintf(STDERR_FILENO, "cannot execute %s: %s\n", arguments[0], strerror(errno));
    _exit(127);
}

} // namespace

pid_t launch(const InstanceConfig &config, const std::string &jail_helper, int output)
{
    std::vector<std::string> words = words_of(config, jail_helper);
    std::vector<char *> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string &word : words) {
        arguments.push_back(word.data());
    }
    arguments.push_back(nullptr);
    // A signal sent to the child at once must wait until the child answers it as its command would.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &before);
    const pid_t parent = getpid();
    const pid_t pid = fork();
    if (pid == 0) {
        run_child(config, arguments.data(), output, parent);
    }
    const int error = errno;
    sigprocmask(SIG_SETMASK, &before, nullptr);
    errno = error;
    return pid;
}

} // namespace lab
