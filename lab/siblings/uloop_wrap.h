// Event-loop registrations with an owner: cancelled by scope, calling a function object. None may be moved
// while registered, so none can be moved at all. A callback may destroy the object it belongs to.
#pragma once

#include "bus_headers.h"

#include <functional>
#include <utility>

namespace lab {

class Timer {
public:
    explicit Timer(std::function<void()> callback) : action_(std::move(callback))
    {
        node_.self = this;
        node_.timeout.cb = [](uloop_timeout *timeout) {
            const auto copy = reinterpret_cast<Node *>(timeout)->self->action_;
            copy();
        };
    }
    Timer(const Timer &) = delete;
    Timer &operator=(const Timer &) = delete;
    ~Timer() { cancel(); }

    void set(int milliseconds) { uloop_timeout_set(&node_.timeout, milliseconds); }
    void cancel() { uloop_timeout_cancel(&node_.timeout); }
    bool pending() const { return node_.timeout.pending; }

private:
    struct Node {
        uloop_timeout timeout;
        Timer *self;
    };

    Node node_{};
    std::function<void()> action_;
};

// A child process. The callback gets the raw wait status.
class Child {
public:
    explicit Child(std::function<void(int status)> callback) : action_(std::move(callback))
    {
        node_.self = this;
        node_.process.cb = [](uloop_process *process, int status) {
            const auto copy = reinterpret_cast<Node *>(process)->self->action_;
            copy(status);
        };
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    ~Child() { uloop_process_delete(&node_.process); }

    void watch(pid_t process)
    {
        node_.process.pid = process;
        uloop_process_add(&node_.process);
    }
    bool running() const { return node_.process.pending; }
    pid_t pid() const { return node_.process.pid; }

private:
    struct Node {
        uloop_process process;
        Child *self;
    };

    Node node_{};
    std::function<void(int)> action_;
};

} // namespace lab
