// Start, end and turn of the event loop, and the signals that wake it.
#include "uloop_internal.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

bool uloop_cancelled = false;
bool uloop_handle_sigchld = true;

namespace {

int waker_write_fd = -1;
uloop_fd waker = {};
int run_depth = 0;
volatile int run_status = 0;

struct handled_signal {
    int number;
    struct sigaction previous;
    bool installed;
};
handled_signal handled[] = {{SIGINT, {}, false}, {SIGTERM, {}, false}, {SIGCHLD, {}, false}};

void wake()
{
    if (waker_write_fd < 0) {
        return;
    }
    const int saved_errno = errno;
    // A full pipe wakes the loop just as well.
    [[maybe_unused]] const ssize_t written = write(waker_write_fd, "w", 1);
    errno = saved_errno;
}

void on_end_signal(int number)
{
    run_status = number;
    uloop_cancelled = true;
    wake();
}

void on_child_signal(int)
{
    uloop_parts::children_changed = true;
    wake();
}

void drain_waker(uloop_fd *fd, unsigned int)
{
    char sink[64];
    while (read(fd->fd, sink, sizeof(sink)) > 0 || errno == EINTR) {
    }
}

bool waker_open()
{
    int ends[2];

    if (waker_write_fd >= 0) {
        return true;
    }
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) < 0) {
        return false;
    }
    waker = {};
    waker.fd = ends[0];
    waker.cb = drain_waker;
    if (uloop_fd_add(&waker, ULOOP_READ) < 0) {
        close(ends[0]);
        close(ends[1]);
        return false;
    }
    waker_write_fd = ends[1];
    return true;
}

void waker_close()
{
    if (waker_write_fd < 0) {
        return;
    }
    const int write_fd = waker_write_fd;
    waker_write_fd = -1;
    uloop_fd_delete(&waker);
    close(waker.fd);
    close(write_fd);
}

void install(handled_signal &signal, void (*handler)(int))
{
    struct sigaction current = {};

    if (sigaction(signal.number, nullptr, &current) < 0 || current.sa_handler != SIG_DFL) {
        return;
    }
    signal.previous = current;
    current.sa_handler = handler;
    current.sa_flags = 0;
    signal.installed = sigaction(signal.number, &current, nullptr) == 0;
}

void signals_install()
{
    for (handled_signal &signal : handled) {
        if (signal.number != SIGCHLD) {
            install(signal, on_end_signal);
        } else if (uloop_handle_sigchld) {
            install(signal, on_child_signal);
        }
    }
    // Stays ignored after the loop is done: a peer that goes away must never kill a process of the bus.
    struct sigaction pipe_action = {};
    if (sigaction(SIGPIPE, nullptr, &pipe_action) == 0 && pipe_action.sa_handler == SIG_DFL) {
        pipe_action.sa_handler = SIG_IGN;
        sigaction(SIGPIPE, &pipe_action, nullptr);
    }
}

void signals_restore()
{
    for (handled_signal &signal : handled) {
        struct sigaction current = {};
        if (!signal.installed) {
            continue;
        }
        signal.installed = false;
        if (sigaction(signal.number, nullptr, &current) == 0 &&
            (current.sa_handler == on_end_signal || current.sa_handler == on_child_signal)) {
            sigaction(signal.number, &signal.previous, nullptr);
        }
    }
}

} // namespace

int uloop_init(void)
{
    if (!uloop_parts::fds_open()) {
        return -1;
    }
    if (!waker_open()) {
        uloop_done();
        return -1;
    }
    signals_install();
    return 0;
}

void uloop_done(void)
{
    signals_restore();
    waker_close();
    uloop_parts::fds_close();
    uloop_parts::timeouts_clear();
    uloop_parts::children_forget();
}

bool uloop_cancelling(void)
{
    return run_depth > 0 && uloop_cancelled;
}

int uloop_run_timeout(int timeout)
{
    run_status = 0;
    uloop_cancelled = false;
    run_depth++;
    do {
        uloop_parts::timeouts_run();
        if (uloop_parts::children_changed) {
            uloop_parts::children_reap();
        }
        if (uloop_cancelled) {
            break;
        }
        int wait_time = uloop_get_next_timeout();
        if (timeout >= 0 && (wait_time < 0 || timeout < wait_time)) {
            wait_time = timeout;
        }
        uloop_parts::fds_run(wait_time);
    } while (!uloop_cancelled && timeout < 0);
    run_depth--;
    return run_status;
}
