// The board's event loop: descriptors, timers and ended children.
//
// Errors: everything throws that the kernel refuses; run() returns after stop() only.
#pragma once

#include "../hw/event_loop.h"
#include "check.h"

#include <functional>
#include <map>
#include <sys/epoll.h>
#include <sys/types.h>

namespace lab {

class Loop {
public:
    using ChildHandler = std::function<void(int wait_status)>;

    // Blocks SIGCHLD in this process; children must be started with the signal mask reset (see spawn).
    Loop();

    // events as for epoll_ctl(2); 0 keeps a descriptor for its errors alone.
    void watch(int fd, uint32_t events, EventLoop::Handler handler);
    void change(int fd, uint32_t events) { events_.change(fd, events); }
    void forget(int fd) { events_.remove(fd); }

    void on_child(pid_t pid, ChildHandler handler) { children_[pid] = std::move(handler); }

    void after(std::chrono::milliseconds delay, std::function<void()> handler)
    {
        events_.after(delay, std::move(handler));
    }

    void run();
    void stop() { events_.stop(); }

private:
    void reap();

    EventLoop events_;
    UniqueFd signals_;
    std::map<pid_t, ChildHandler> children_;
};

} // namespace lab
