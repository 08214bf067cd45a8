// The service beside the daemon: restarts it when it hangs, and takes back what nobody has confirmed in time.

#include "apply/pending.h"
#include "apply/service.h"
#include "gather.h"
#include "guard/hang.h"
#include "guard/question.h"
#include "libsys/file.h"
#include "report.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <syslog.h>

namespace ctl {

namespace {

constexpr unsigned look_every_s = 1;

bool is_overdue()
{
    const change pending = pending_change();
    return pending == change::goes_back || (pending == change::waits && seconds_left() <= 0);
}

void take_back_overdue()
{
    libsys::unique_fd lock;
    if (is_overdue() && lock_changes(lock) && is_overdue()) {
        syslog(LOG_WARNING, "the configuration was not confirmed in time and is taken back");
        take_back();
    }
}

} // namespace

int gather_guard(const words & /*given*/, json_object * /*facts*/)
{
    alarm(0);
    openlog("ivarodectl", LOG_PID, LOG_DAEMON);
    libsys::make_folders(run_folder);
    const libsys::unique_fd alive(open(guard_lock, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    if (!alive || flock(alive.get(), LOCK_EX | LOCK_NB) != 0) {
        complain("%s: %s", guard_lock, errno == EWOULDBLOCK ? "another one runs" : strerror(errno));
        return failed;
    }
    watchdog judge(last_hang_s(-watchdog::between_ends_s));
    int64_t next = seconds_since_boot();
    for (;;) {
        take_back_overdue();
        const int64_t now = seconds_since_boot();
        if (now >= next) {
            next = now + ask_every_s;
            pid_t process = 0;
            const answer heard = ask_daemon(&process);
            if (judge.take(seconds_since_boot(), heard, process)) {
                end_hanging(process, seconds_since_boot());
            }
        }
        sleep(look_every_s);
    }
}

} // namespace ctl
