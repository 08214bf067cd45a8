#include "event_loop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <sys/epoll.h>

namespace lab {

namespace {

constexpr long long longest_wait_ms = 60'000;

} // namespace

EventLoop::EventLoop() : epoll_(epoll_create1(EPOLL_CLOEXEC)) {}

bool EventLoop::control(int operation, int fd, uint32_t events)
{
    epoll_event event{};
    event.events = events;
    event.data.u64 = uint64_t{watches_[fd].generation} << 32 | static_cast<uint32_t>(fd);
    return epoll_ctl(epoll_.get(), operation, fd, &event) == 0;
}

bool EventLoop::add(int fd, uint32_t events, Handler handler)
{
    watches_[fd] = Watch{++generation_, std::make_shared<Handler>(std::move(handler))};
    if (control(EPOLL_CTL_ADD, fd, events)) {
        return true;
    }
    watches_.erase(fd);
    return false;
}

bool EventLoop::change(int fd, uint32_t events)
{
    return watches_.count(fd) != 0 && control(EPOLL_CTL_MOD, fd, events);
}

void EventLoop::remove(int fd)
{
    if (watches_.erase(fd) != 0) {
        epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
    }
}

void EventLoop::after(std::chrono::milliseconds delay, std::function<void()> handler)
{
    timers_.emplace(Clock::now() + delay, std::move(handler));
}

void EventLoop::run_timers()
{
    while (!stopping_ && !timers_.empty() && timers_.begin()->first <= Clock::now()) {
        const std::function<void()> handler = std::move(timers_.begin()->second);
        timers_.erase(timers_.begin());
        handler();
    }
}

int EventLoop::timeout() const
{
    if (timers_.empty()) {
        return -1;
    }
    const auto left =
        std::chrono::ceil<std::chrono::milliseconds>(timers_.begin()->first - Clock::now()).count();
    return static_cast<int>(std::clamp<long long>(left, 0, longest_wait_ms));
}

void EventLoop::call(uint64_t key, uint32_t events)
{
    const auto found = watches_.find(static_cast<int>(key & UINT32_MAX));
    // An earlier handler of this round may have removed the descriptor, and another may have its number now.
    if (found != watches_.end() && found->second.generation == key >> 32) {
        const auto handler = found->second.handler; // keeps it alive while it removes itself
        (*handler)(events);
    }
}

bool EventLoop::run()
{
    std::array<epoll_event, 16> events{};
    while (!stopping_) {
        const int ready = epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), timeout());
        if (ready < 0 && errno != EINTR) {
            return false;
        }
        for (int i = 0; i < ready && !stopping_; ++i) {
            const auto &event = events[static_cast<size_t>(i)];
            call(event.data.u64, event.events);
        }
        run_timers();
    }
    return true;
}

} // namespace lab
