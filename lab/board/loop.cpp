#include "loop.h"

#include <csignal>
#include <sys/signalfd.h>
#include <sys/wait.h>

namespace lab {

Loop::Loop()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    check(sigprocmask(SIG_BLOCK, &set, nullptr), "blocking SIGCHLD");
    signals_ = UniqueFd(check(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd"));
    watch(signals_.get(), EPOLLIN, [this](uint32_t) {
        signalfd_siginfo info;
        while (read(signals_.get(), &info, sizeof(info)) == static_cast<ssize_t>(sizeof(info))) {
        }
        reap();
    });
}

void Loop::watch(int fd, uint32_t events, EventLoop::Handler handler)
{
    if (!events_.add(fd, events, std::move(handler))) {
        fail("watching a descriptor");
    }
}

// As the first process of its namespace the board also inherits orphans: they are collected here too.
void Loop::reap()
{
    int status = 0;
    pid_t pid = 0;
    while ((pid = waitpid(-1, &status, WNOHANG)) > 0) {
        auto it = children_.find(pid);
        if (it == children_.end()) {
            continue;
        }
        ChildHandler handler = std::move(it->second);
        children_.erase(it);
        handler(status);
    }
}

void Loop::run()
{
    reap(); // a child may have ended before the loop began to listen
    if (!events_.run()) {
        fail("waiting for events");
    }
}

} // namespace lab
