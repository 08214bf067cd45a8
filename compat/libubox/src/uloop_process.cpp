// Child processes of the event loop.
#include "uloop_internal.h"

#include <cerrno>
#include <sys/wait.h>

namespace {

list_head processes = LIST_HEAD_INIT(processes); // by pid

void unlink(uloop_process *process)
{
    list_del_init(&process->list);
    process->pending = false;
}

uloop_process *find(pid_t pid)
{
    uloop_process *process;
    list_for_each_entry(process, &processes, list)
    {
        if (process->pid >= pid) {
            return process->pid == pid ? process : nullptr;
        }
    }
    return nullptr;
}

} // namespace

namespace uloop_parts {

volatile bool children_changed = false;

void children_reap()
{
    // Cleared first: a child that ends meanwhile sets it again.
    children_changed = false;
    for (;;) {
        int status;
        const pid_t pid = waitpid(-1, &status, WNOHANG);
        if (pid < 0 && errno == EINTR) {
            continue;
        }
        if (pid <= 0) {
            return;
        }
        if (uloop_process *process = find(pid)) {
            unlink(process);
            process->cb(process, status);
        }
    }
}

void children_forget()
{
    while (!list_empty(&processes)) {
        unlink(list_first_entry(&processes, uloop_process, list));
    }
}

} // namespace uloop_parts

int uloop_process_add(uloop_process *p)
{
    if (p->pending) {
        return -1;
    }
    uloop_process *after;
    list_for_each_entry(after, &processes, list)
    {
        if (after->pid > p->pid) {
            break;
        }
    }
    list_add_tail(&p->list, &after->list);
    p->pending = true;
    return 0;
}

int uloop_process_delete(uloop_process *p)
{
    if (!p->pending) {
        return -1;
    }
    unlink(p);
    return 0;
}
