#include "interpose.h"

#include <cerrno>
#include <cstdarg>
#include <map>
#include <sys/syscall.h>
#include <sys/types.h>
#include <unistd.h>

namespace {

struct plan {
    int error = 0;
    int times = 0;
    int skip = 0;
    int calls = 0;
};

std::map<std::string, plan> *plans = nullptr;
std::function<int(int, unsigned long, void *)> *ioctl_answer = nullptr;
int (*asked)(const char *call) = nullptr;

// What is asked for a call: 0, or interpose::cut_short; -2 when it has failed.
constexpr int refused = -2;
int verdict_on(const char *call)
{
    int verdict = asked ? asked(call) : 0;
    if (verdict > 0) {
        errno = verdict;
        return refused;
    }
    return verdict;
}

bool fails_as_planned(const char *call)
{
    if (!plans) {
        return false;
    }
    auto found = plans->find(call);
    if (found == plans->end()) {
        return false;
    }
    plan &wanted = found->second;
    if (wanted.calls++ < wanted.skip || wanted.times == 0) {
        return false;
    }
    wanted.times--;
    errno = wanted.error;
    return true;
}

bool fails(const char *call)
{
    return verdict_on(call) == refused || fails_as_planned(call);
}

} // namespace

void interpose::ask(int (*judge)(const char *call))
{
    asked = judge;
}

void interpose::fail(const std::string &call, int error, int times, int skip)
{
    if (!plans) {
        plans = new std::map<std::string, plan>;
    }
    (*plans)[call] = {error, times, skip, 0};
}

int interpose::calls(const std::string &call)
{
    return plans ? (*plans)[call].calls : 0;
}

void interpose::answer_ioctl(std::function<int(int, unsigned long, void *)> answer)
{
    if (!ioctl_answer) {
        ioctl_answer = new std::function<int(int, unsigned long, void *)>;
    }
    *ioctl_answer = std::move(answer);
}

extern "C" {

int rename(const char *from, const char *to) noexcept
{
    return fails("rename") ? -1 : static_cast<int>(syscall(SYS_renameat2, -100, from, -100, to, 0));
}

int fsync(int fd)
{
    return fails("fsync") ? -1 : static_cast<int>(syscall(SYS_fsync, fd));
}

int flock(int fd, int operation) noexcept
{
    return fails("flock") ? -1 : static_cast<int>(syscall(SYS_flock, fd, operation));
}

int fchmod(int fd, mode_t mode) noexcept
{
    return fails("fchmod") ? -1 : static_cast<int>(syscall(SYS_fchmod, fd, mode));
}

ssize_t write(int fd, const void *data, size_t size)
{
    int verdict = verdict_on("write");
    if (verdict == refused || fails_as_planned("write")) {
        return -1;
    }
    return syscall(SYS_write, fd, data, verdict == interpose::cut_short ? (size + 1) / 2 : size);
}

int ioctl(int fd, unsigned long request, ...) noexcept
{
    va_list args;
    va_start(args, request);
    void *argument = va_arg(args, void *);
    va_end(args);
    if (verdict_on("ioctl") == refused) {
        return -1;
    }
    if (ioctl_answer) {
        int result = (*ioctl_answer)(fd, request, argument);
        if (result >= 0) {
            return result;
        }
        errno = -result;
        return -1;
    }
    return static_cast<int>(syscall(SYS_ioctl, fd, request, argument));
}

} // extern "C"
