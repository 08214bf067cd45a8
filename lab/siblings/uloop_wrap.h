// Event-loop registrations with an owner: cancelled by scope, calling a function object. None may be moved
// while registered, so none can be moved at all. A callback may destroy the object it belongs to.
#pragma once

#include "bus_headers.h"

#include <functional>
#include <utility>

namespace lab {

class Timer {
public:
    explicit Timer(std::function<void()> callback) : action(std::move(callback))
    {
        node.self = this;
        node.timeout.cb = [](uloop_timeout *timeout) {
            const auto copy = reinterpret_cast<Node *>(timeout)->self->action;
            copy();
        };
    }
    Timer(const Timer &) = delete;
    Timer &operator=(const Timer &) = delete;
    ~Timer() { cancel(); }

    void set(int milliseconds) { uloop_timeout_set(&node.timeout, milliseconds); }
    void cancel() { uloop_timeout_cancel(&node.timeout); }
    bool pending() const { return node.timeout.pending; }

private:
    struct Node {
        uloop_timeout timeout;
        Timer *self;
    };

    Node node{};
    std::function<void()> action;
};

// A child process. The callback gets the raw wait status.
class Child {
public:
    explicit Child(std::function<void(int status)> callback) : action(std::move(callback))
    {
        node.self = this;
        node.process.cb = [](uloop_process *process, int status) {
            const auto copy = reinterpret_cast<Node *>(process)->self->action;
            copy(status);
        };
    }
    Child(const Child &) = delete;
    Child &operator=(const Child &) = delete;
    ~Child() { uloop_process_delete(&node.process); }

    void watch(pid_t process)
    {
        node.process.pid = process;
        uloop_process_add(&node.process);
    }
    bool running() const { return node.process.pending; }
    pid_t pid() const { return node.process.pid; }

private:
    struct Node {
        uloop_process process;
        Child *self;
    };

    Node node{};
    std::function<void(int)> action;
};

} // namespace lab
