#include "hosts.h"

#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

namespace lab {
namespace {

UniqueFd open_space(const std::string &process, const char *what, int flags = O_RDONLY)
{
    std::string path = "/proc/" + process + "/" + what;
    return UniqueFd(check(open(path.c_str(), flags | O_CLOEXEC), path));
}

void place(int fd, int target)
{
    if (fd < 0) {
        fd = open("/dev/null", O_RDWR);
    }
    if (fd == target) {
        fcntl(fd, F_SETFD, 0);
    } else {
        dup2(fd, target);
    }
}

[[noreturn]] void become(const Host &host, const Command &command)
{
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (command.own_group) {
        setsid();
    }
    // numbers above 2, so that placing one does not overwrite another
    int in = command.in < 0 ? -1 : fcntl(command.in, F_DUPFD_CLOEXEC, 3);
    int out = command.out < 0 ? -1 : fcntl(command.out, F_DUPFD_CLOEXEC, 3);
    int err = command.err < 0 ? -1 : fcntl(command.err, F_DUPFD_CLOEXEC, 3);
    try {
        host.enter();
    } catch (const std::exception &error) {
        place(err, 2);
        dprintf(2, "lab-agent: %s\n", error.what());
        _exit(126);
    }
    place(in, 0);
    place(out, 1);
    place(err, 2);

    const std::vector<std::string> common{"HOME=/root", "TERM=dumb", "LC_ALL=C",
                                          std::string("PATH=") + search_path};
    std::vector<char *> env;
    for (const auto *list : {&common, &host.environment, &command.environment}) {
        for (const std::string &text : *list) {
            env.push_back(const_cast<char *>(text.c_str()));
        }
    }
    env.push_back(nullptr);
    std::vector<char *> argv;
    argv.reserve(command.words.size() + 1);
    for (const std::string &text : command.words) {
        argv.push_back(const_cast<char *>(text.c_str()));
    }
    argv.push_back(nullptr);
    for (int signal = 1; signal < 32; signal++) {
        ::signal(signal, SIG_DFL);
    }
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    setenv("PATH", search_path, 1);
    execvpe(argv[0], argv.data(), env.data());
    if (errno == ENOENT) {
        dprintf(2, "lab-agent: %s has no command %s\n", host.name().c_str(), argv[0]);
        _exit(127);
    }
    dprintf(2, "lab-agent: %s: %s\n", argv[0], std::strerror(errno));
    _exit(126);
}

} // namespace

Host Host::here(const std::string &name)
{
    Host host;
    host.name_ = name;
    host.net_ = open_space("self", "ns/net");
    return host;
}

Host Host::create(const std::string &name, const std::function<void()> &prepare)
{
    std::array<int, 2> pair{};
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()), "socketpair");
    UniqueFd mine(pair[0]), theirs(pair[1]);
    pid_t pid = check(fork(), "fork");
    if (pid == 0) {
        mine.reset();
        std::string report = "+";
        try {
            check(unshare(CLONE_NEWNET | CLONE_NEWNS | CLONE_NEWUTS), "name spaces of " + name);
            check(sethostname(name.c_str(), name.size()), "host name");
            prepare();
        } catch (const std::exception &error) {
            report = error.what();
        }
        if (write(theirs.get(), report.data(), report.size()) > 0) {
            char dummy = 0;
            (void)!read(theirs.get(), &dummy, 1); // stays until its spaces have been opened
        }
        _exit(0);
    }
    theirs.reset();
    std::array<char, 512> report{};
    ssize_t n = read(mine.get(), report.data(), report.size());
    if (n < 1 || report[0] != '+') {
        waitpid(pid, nullptr, 0);
        throw std::runtime_error(n < 1 ? "host " + name + " could not be made"
                                       : std::string(report.data(), static_cast<size_t>(n)));
    }
    Host host;
    host.name_ = name;
    std::string process = std::to_string(pid);
    host.net_ = open_space(process, "ns/net");
    host.mount_ = open_space(process, "ns/mnt");
    host.uts_ = open_space(process, "ns/uts");
    host.root_ = open_space(process, "root", O_PATH | O_DIRECTORY);
    mine.reset();
    waitpid(pid, nullptr, 0);
    return host;
}

void Host::enter() const
{
    if (!mount_) {
        return;
    }
    check(setns(net_.get(), CLONE_NEWNET), "network of " + name_);
    check(setns(uts_.get(), CLONE_NEWUTS), "host name of " + name_);
    check(setns(mount_.get(), CLONE_NEWNS), "mounts of " + name_);
    // Entering a mount space puts the process at its topmost root, which is not the board's.
    check(fchdir(root_.get()), "root of " + name_);
    check(chroot("."), "root of " + name_);
    check(chdir("/"), "root of " + name_);
}

pid_t spawn(const Host &host, const Command &command)
{
    pid_t pid = check(fork(), "fork");
    if (pid == 0) {
        become(host, command);
    }
    return pid;
}

Outcome run_now(const Host &host, const std::vector<std::string> &words, const std::string &input)
{
    std::array<int, 2> in{}, out{};
    check(pipe2(in.data(), O_CLOEXEC), "pipe");
    UniqueFd in_read(in[0]), in_write(in[1]);
    check(pipe2(out.data(), O_CLOEXEC), "pipe");
    UniqueFd out_read(out[0]), out_write(out[1]);
    pid_t pid = spawn(host, Command{words, {}, in_read.get(), out_write.get(), out_write.get(), false});
    in_read.reset();
    out_write.reset();
    if (!input.empty()) {
        (void)!write(in_write.get(), input.data(), input.size()); // a few hundred bytes: they fit the pipe
    }
    in_write.reset();
    Outcome outcome;
    std::array<char, 4096> buffer{};
    for (ssize_t n = 0; (n = read(out_read.get(), buffer.data(), buffer.size())) > 0;) {
        outcome.output.append(buffer.data(), static_cast<size_t>(n));
    }
    check(waitpid(pid, &outcome.wait_status, 0), "waitpid");
    return outcome;
}

void must_run(const Host &host, const std::vector<std::string> &words, const std::string &input)
{
    Outcome outcome = run_now(host, words, input);
    if (!outcome.ok()) {
        std::string line;
        for (const std::string &word : words) {
            line += line.empty() ? "" : " ";
            line += word;
        }
        throw std::runtime_error(host.name() + ": " + line + ": " + outcome.output + input);
    }
}

} // namespace lab
