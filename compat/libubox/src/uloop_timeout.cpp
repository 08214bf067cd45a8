// Timers of the event loop: one list, sorted by expiry in milliseconds, equal ones in order of insertion.
#include "uloop_internal.h"

#include <climits>
#include <ctime>

namespace {

list_head timeouts = LIST_HEAD_INIT(timeouts);

timeval now()
{
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return {ts.tv_sec, ts.tv_nsec / 1000};
}

int64_t ms_between(const timeval &later, const timeval &earlier)
{
    return static_cast<int64_t>(later.tv_sec - earlier.tv_sec) * 1000 +
           (later.tv_usec - earlier.tv_usec) / 1000;
}

int clamp_to_int(int64_t ms)
{
    if (ms > INT_MAX) {
        return INT_MAX;
    }
    return ms < INT_MIN ? INT_MIN : static_cast<int>(ms);
}

void unlink(uloop_timeout *timeout)
{
    list_del_init(&timeout->list);
    timeout->pending = false;
}

} // namespace

namespace uloop_parts {

void timeouts_run()
{
    if (list_empty(&timeouts)) {
        return;
    }
    const timeval pass = now();
    while (!list_empty(&timeouts)) {
        uloop_timeout *first = list_first_entry(&timeouts, uloop_timeout, list);
        if (ms_between(first->time, pass) > 0) {
            return;
        }
        unlink(first);
        if (first->cb != nullptr) {
            first->cb(first);
        }
    }
}

void timeouts_clear()
{
    while (!list_empty(&timeouts)) {
        unlink(list_first_entry(&timeouts, uloop_timeout, list));
    }
}

} // namespace uloop_parts

int uloop_timeout_add(uloop_timeout *timeout)
{
    if (timeout->pending) {
        return -1;
    }
    // From the back: new timers mostly expire last.
    uloop_timeout *before;
    list_for_each_entry_reverse(before, &timeouts, list)
    {
        if (ms_between(before->time, timeout->time) <= 0) {
            break;
        }
    }
    list_add(&timeout->list, &before->list);
    timeout->pending = true;
    return 0;
}

int uloop_timeout_set(uloop_timeout *timeout, int msecs)
{
    if (timeout->pending) {
        unlink(timeout);
    }
    timeval expiry = now();
    expiry.tv_sec += msecs / 1000;
    expiry.tv_usec += static_cast<suseconds_t>(msecs % 1000) * 1000;
    if (expiry.tv_usec >= 1000000) {
        expiry.tv_sec++;
        expiry.tv_usec -= 1000000;
    } else if (expiry.tv_usec < 0) {
        expiry.tv_sec--;
        expiry.tv_usec += 1000000;
    }
    timeout->time = expiry;
    return uloop_timeout_add(timeout);
}

int uloop_timeout_cancel(uloop_timeout *timeout)
{
    if (!timeout->pending) {
        return -1;
    }
    unlink(timeout);
    return 0;
}

int64_t uloop_timeout_remaining64(uloop_timeout *timeout)
{
    return timeout->pending ? ms_between(timeout->time, now()) : -1;
}

int uloop_timeout_remaining(uloop_timeout *timeout)
{
    return clamp_to_int(uloop_timeout_remaining64(timeout));
}

int uloop_get_next_timeout(void)
{
    if (list_empty(&timeouts)) {
        return -1;
    }
    const uloop_timeout *first = list_first_entry(&timeouts, uloop_timeout, list);
    const int64_t ms = ms_between(first->time, now());
    return ms < 0 ? 0 : clamp_to_int(ms);
}
