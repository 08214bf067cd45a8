// Descriptors of the event loop, on epoll.
#include "uloop_internal.h"

#include <cerrno>
#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

uloop_fd_handler uloop_fd_set_cb = nullptr;

namespace {

constexpr int max_events = 10;

struct ready_fd {
    uloop_fd *fd;
    unsigned int events;
};

// One entry for each callback on the stack, innermost first.
struct active_callback {
    active_callback *outer;
    uloop_fd *fd;
    unsigned int events;
};

int epoll_fd = -1;
ready_fd ready[max_events];
int ready_count = 0;
int ready_next = 0;
active_callback *active = nullptr;

void forget_undelivered(const uloop_fd *fd)
{
    for (int i = ready_next; i < ready_count; i++) {
        if (ready[i].fd == fd) {
            ready[i].fd = nullptr;
        }
    }
    for (active_callback *entry = active; entry != nullptr; entry = entry->outer) {
        if (entry->fd == fd) {
            entry->fd = nullptr;
        }
    }
}

void remove_from_epoll(uloop_fd *fd)
{
    if (uloop_fd_set_cb != nullptr) {
        uloop_fd_set_cb(fd, 0);
    }
    fd->registered = false;
    fd->flags = 0;
    epoll_ctl(epoll_fd, EPOLL_CTL_DEL, fd->fd, nullptr);
}

void fetch(int timeout)
{
    epoll_event events[max_events];
    const int count = epoll_wait(epoll_fd, events, max_events, timeout);

    ready_next = 0;
    ready_count = 0;
    for (int i = 0; i < count; i++) {
        auto *fd = static_cast<uloop_fd *>(events[i].data.ptr);
        const uint32_t what = events[i].events;
        unsigned int seen = 0;

        if (what & (EPOLLERR | EPOLLHUP)) {
            fd->error = true;
            // Level-triggered errors cannot be switched off, so without a handler for them the loop would
            // spin.
            if (!(fd->flags & ULOOP_ERROR_CB)) {
                remove_from_epoll(fd);
            }
        }
        if (what & EPOLLRDHUP) {
            fd->eof = true;
        }
        if (what & EPOLLIN) {
            seen |= ULOOP_READ;
        }
        if (what & EPOLLOUT) {
            seen |= ULOOP_WRITE;
        }
        if (seen || fd->eof || fd->error) {
            ready[ready_count++] = {fd, seen};
        }
    }
}

// True when an outer callback of this descriptor will see the events when it is done.
bool left_to_outer_callback(const uloop_fd *fd, unsigned int events)
{
    if (!(fd->flags & ULOOP_EDGE_TRIGGER)) {
        return false;
    }
    for (active_callback *entry = active; entry != nullptr; entry = entry->outer) {
        if (entry->fd == fd) {
            entry->events |= events | ULOOP_EVENT_BUFFERED;
            return true;
        }
    }
    return false;
}

void dispatch(uloop_fd *fd, unsigned int events)
{
    if (fd == nullptr || fd->cb == nullptr || left_to_outer_callback(fd, events)) {
        return;
    }
    active_callback self = {active, fd, 0};
    active = &self;
    do {
        self.events = 0;
        fd->cb(fd, events & ULOOP_EVENT_MASK);
        events = self.events;
    } while (self.fd != nullptr && ((events & ULOOP_EVENT_BUFFERED) != 0));
    active = self.outer;
}

} // namespace

namespace uloop_parts {

bool fds_open()
{
    if (epoll_fd < 0) {
        epoll_fd = epoll_create1(EPOLL_CLOEXEC);
    }
    return epoll_fd >= 0;
}

void fds_close()
{
    if (epoll_fd >= 0) {
        close(epoll_fd);
    }
    epoll_fd = -1;
    ready_count = 0;
    ready_next = 0;
}

void fds_run(int timeout)
{
    if (ready_next == ready_count) {
        fetch(timeout);
    }
    while (ready_next < ready_count) {
        const ready_fd item = ready[ready_next++];
        if (item.fd != nullptr) {
            dispatch(item.fd, item.events);
            return;
        }
    }
}

} // namespace uloop_parts

int uloop_fd_add(uloop_fd *sock, unsigned int flags)
{
    if (!(flags & ULOOP_EVENT_MASK)) {
        return uloop_fd_delete(sock);
    }
    if (!sock->registered && !(flags & ULOOP_BLOCKING)) {
        const int mode = fcntl(sock->fd, F_GETFL, 0);
        if (mode >= 0) {
            fcntl(sock->fd, F_SETFL, mode | O_NONBLOCK);
        }
    }
    epoll_event event = {};
    if (flags & ULOOP_READ) {
        event.events |= EPOLLIN | EPOLLRDHUP;
    }
    if (flags & ULOOP_WRITE) {
        event.events |= EPOLLOUT;
    }
    if (flags & ULOOP_EDGE_TRIGGER) {
        event.events |= EPOLLET;
    }
    event.data.ptr = sock;
    const int result =
        epoll_ctl(epoll_fd, sock->registered ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, sock->fd, &event);
    if (result < 0) {
        return result;
    }
    if (uloop_fd_set_cb != nullptr) {
        uloop_fd_set_cb(sock, flags);
    }
    sock->flags = static_cast<uint8_t>(flags);
    sock->registered = true;
    sock->eof = false;
    sock->error = false;
    return 0;
}

int uloop_fd_delete(uloop_fd *sock)
{
    // Also for one that is no longer registered: after a hang-up its last event may still be waiting here.
    forget_undelivered(sock);
    if (!sock->registered) {
        return 0;
    }
    remove_from_epoll(sock);
    return 0;
}
