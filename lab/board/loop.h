#pragma once
// A small event loop: descriptors, timers and ended children. One thread; handlers may add and remove
// anything.

#include "fd.h"

#include <chrono>
#include <functional>
#include <map>
#include <sys/types.h>

namespace lab {

using Clock = std::chrono::steady_clock;

class Loop {
public:
    using FdHandler = std::function<void(short events)>;
    using ChildHandler = std::function<void(int wait_status)>;
    using TimerId = unsigned;

    // Blocks SIGCHLD in this process; children must be started with the signal mask reset (see spawn).
    Loop();

    // events as for poll(2); 0 keeps the descriptor known without asking for anything but errors.
    void watch(int fd, short events, FdHandler handler);
    void change(int fd, short events);
    void forget(int fd);

    void on_child(pid_t pid, ChildHandler handler);

    TimerId after(std::chrono::milliseconds delay, std::function<void()> handler);
    void cancel(TimerId id);

    void run();
    void stop() { running_ = false; }

private:
    struct Watch {
        short events;
        FdHandler handler;
        unsigned generation;
    };
    struct Timer {
        TimerId id;
        std::function<void()> handler;
    };

    void reap();
    void run_timers();
    int poll_timeout() const;

    Fd signals_;
    std::map<int, Watch> watches_;
    std::map<pid_t, ChildHandler> children_;
    std::multimap<Clock::time_point, Timer> timers_;
    TimerId next_timer_ = 1;
    unsigned generation_ = 0;
    bool running_ = true;
};

} // namespace lab
