#include "loop.h"

#include <csignal>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <vector>

namespace lab {

Loop::Loop()
{
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGCHLD);
    check(sigprocmask(SIG_BLOCK, &set, nullptr), "blocking SIGCHLD");
    signals_ = Fd(check(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK), "signalfd"));
    watch(signals_.get(), POLLIN, [this](short) {
        signalfd_siginfo info;
        while (read(signals_.get(), &info, sizeof(info)) == static_cast<ssize_t>(sizeof(info))) {
        }
        reap();
    });
}

void Loop::watch(int fd, short events, FdHandler handler)
{
    watches_[fd] = Watch{events, std::move(handler), ++generation_};
}

void Loop::change(int fd, short events)
{
    if (auto it = watches_.find(fd); it != watches_.end()) {
        it->second.events = events;
    }
}

void Loop::forget(int fd)
{
    watches_.erase(fd);
}

void Loop::on_child(pid_t pid, ChildHandler handler)
{
    children_[pid] = std::move(handler);
}

Loop::TimerId Loop::after(std::chrono::milliseconds delay, std::function<void()> handler)
{
    TimerId id = next_timer_++;
    timers_.emplace(Clock::now() + delay, Timer{id, std::move(handler)});
    return id;
}

void Loop::cancel(TimerId id)
{
    for (auto it = timers_.begin(); it != timers_.end(); ++it) {
        if (it->second.id == id) {
            timers_.erase(it);
            return;
        }
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

void Loop::run_timers()
{
    while (!timers_.empty() && timers_.begin()->first <= Clock::now()) {
        std::function<void()> handler = std::move(timers_.begin()->second.handler);
        timers_.erase(timers_.begin());
        handler();
    }
}

int Loop::poll_timeout() const
{
    if (timers_.empty()) {
        return -1;
    }
    auto left = std::chrono::ceil<std::chrono::milliseconds>(timers_.begin()->first - Clock::now()).count();
    return left < 0 ? 0 : static_cast<int>(std::min<long long>(left, 60000));
}

void Loop::run()
{
    reap(); // a child may have ended before the loop began to listen
    while (running_) {
        std::vector<pollfd> fds;
        std::vector<unsigned> generations;
        for (const auto &[fd, item] : watches_) {
            fds.push_back(pollfd{fd, item.events, 0});
            generations.push_back(item.generation);
        }
        if (poll(fds.data(), fds.size(), poll_timeout()) < 0 && errno != EINTR) {
            fail("poll");
        }
        for (size_t i = 0; i < fds.size() && running_; i++) {
            if (fds[i].revents == 0) {
                continue;
            }
            // an earlier handler may have closed this descriptor and another taken its number
            auto it = watches_.find(fds[i].fd);
            if (it != watches_.end() && it->second.generation == generations[i]) {
                FdHandler handler = it->second.handler;
                handler(fds[i].revents);
            }
        }
        run_timers();
    }
}

} // namespace lab
