#include "event_loop.h"

#include <array>
#include <cerrno>
#include <sys/epoll.h>

namespace lab {

namespace {

bool control(int epoll, int operation, int fd, uint32_t events)
{
    epoll_event event{};
    event.events = events;
    event.data.fd = fd;
    return epoll_ctl(epoll, operation, fd, &event) == 0;
}

} // namespace

EventLoop::EventLoop() : epoll(epoll_create1(EPOLL_CLOEXEC)) {}

bool EventLoop::add(int fd, uint32_t events, Handler handler)
{
    if (!control(epoll.get(), EPOLL_CTL_ADD, fd, events)) {
        return false;
    }
    handlers[fd] = std::make_shared<Handler>(std::move(handler));
    return true;
}

bool EventLoop::change(int fd, uint32_t events)
{
    return control(epoll.get(), EPOLL_CTL_MOD, fd, events);
}

void EventLoop::remove(int fd)
{
    control(epoll.get(), EPOLL_CTL_DEL, fd, 0);
    handlers.erase(fd);
}

bool EventLoop::run()
{
    std::array<epoll_event, 16> events{};
    while (!stopping) {
        const int ready = epoll_wait(epoll.get(), events.data(), static_cast<int>(events.size()), -1);
        if (ready < 0 && errno != EINTR) {
            return false;
        }
        for (int i = 0; i < ready && !stopping; i++) {
            const auto found = handlers.find(events[static_cast<size_t>(i)].data.fd);
            if (found == handlers.end()) {
                continue; // removed by a handler before it in this round
            }
            const auto handler = found->second; // keeps it alive while it removes itself
            (*handler)(events[static_cast<size_t>(i)].events);
        }
    }
    return true;
}

} // namespace lab
