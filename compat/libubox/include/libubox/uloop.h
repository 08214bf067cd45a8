/*
 * Event loop of a process: descriptors (epoll), timers (CLOCK_MONOTONIC, milliseconds) and child processes.
 *
 * One loop per process, not thread-safe. The structs belong to the caller, start zeroed and stay at their
 * address while registered. Results are 0, or -1 with nothing changed.
 */
#pragma once

#include "list.h"

#include <signal.h>
#include <stdbool.h>
#include <stdint.h>
#include <sys/time.h>
#include <sys/types.h>

struct uloop_fd;
struct uloop_timeout;
struct uloop_process;

typedef void (*uloop_fd_handler)(struct uloop_fd *u, unsigned int events);
typedef void (*uloop_timeout_handler)(struct uloop_timeout *t);
typedef void (*uloop_process_handler)(struct uloop_process *c, int ret);

#define ULOOP_READ (1 << 0)
#define ULOOP_WRITE (1 << 1)
#define ULOOP_EDGE_TRIGGER (1 << 2)
#define ULOOP_BLOCKING (1 << 3)
#define ULOOP_EVENT_MASK (ULOOP_READ | ULOOP_WRITE)
#define ULOOP_EVENT_BUFFERED (1 << 4)
#define ULOOP_EDGE_DEFER (1 << 5)
#define ULOOP_ERROR_CB (1 << 6)

struct uloop_fd {
    uloop_fd_handler cb;
    int fd;
    bool eof;
    bool error;
    bool registered;
    uint8_t flags;
};

struct uloop_timeout {
    struct list_head list;
    bool pending;
    uloop_timeout_handler cb;
    struct timeval time;
};

struct uloop_process {
    struct list_head list;
    bool pending;
    uloop_process_handler cb;
    pid_t pid;
};

extern bool uloop_cancelled;
extern bool uloop_handle_sigchld;
extern uloop_fd_handler uloop_fd_set_cb;

/* Also installs handlers for SIGINT, SIGTERM, SIGCHLD and ignores SIGPIPE, each only where nobody did before.
 */
int uloop_init(void);
void uloop_done(void);

/* 0 after uloop_end or the timeout (ms; below 0: none), or the number of the signal that ended the loop. */
int uloop_run_timeout(int timeout);
bool uloop_cancelling(void);

int uloop_fd_add(struct uloop_fd *sock, unsigned int flags);
int uloop_fd_delete(struct uloop_fd *sock);

int uloop_get_next_timeout(void);
int uloop_timeout_add(struct uloop_timeout *timeout);
int uloop_timeout_set(struct uloop_timeout *timeout, int msecs);
int uloop_timeout_cancel(struct uloop_timeout *timeout);
int uloop_timeout_remaining(struct uloop_timeout *timeout)
    __attribute__((deprecated("use uloop_timeout_remaining64")));
int64_t uloop_timeout_remaining64(struct uloop_timeout *timeout);

int uloop_process_add(struct uloop_process *p);
int uloop_process_delete(struct uloop_process *p);

static inline int uloop_run(void)
{
    return uloop_run_timeout(-1);
}

static inline void uloop_end(void)
{
    uloop_cancelled = true;
}
