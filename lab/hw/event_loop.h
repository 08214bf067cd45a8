// A level-triggered epoll loop of descriptors and timers. One thread; handlers may add and remove anything,
// their own descriptor included.
//
// Owns: nothing but handlers. Descriptors belong to the caller and are removed before they are closed.
// Errors: add() and change() are false where the kernel refuses a descriptor; run() is false when waiting
// fails.
#pragma once

#include "unique_fd.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <unordered_map>

namespace lab {

using Clock = std::chrono::steady_clock;

class EventLoop {
public:
    using Handler = std::function<void(uint32_t events)>;

    EventLoop();

    // events as for epoll_ctl(2); 0 keeps a descriptor for its errors alone.
    bool add(int fd, uint32_t events, Handler handler);
    bool change(int fd, uint32_t events);
    void remove(int fd);

    // Once, after the delay.
    void after(std::chrono::milliseconds delay, std::function<void()> handler);

    bool run();
    void stop() { stopping_ = true; }

private:
    struct Watch {
        uint32_t generation;
        std::shared_ptr<Handler> handler;
    };

    bool control(int operation, int fd, uint32_t events);
    void call(uint64_t key, uint32_t events);
    void run_timers();
    int timeout() const;

    UniqueFd epoll_;
    std::unordered_map<int, Watch> watches_;
    std::multimap<Clock::time_point, std::function<void()>> timers_;
    uint32_t generation_ = 0;
    bool stopping_ = false;
};

} // namespace lab
