// When a daemon that does not answer is to be ended: after three silences in a row, of the same process, and
// not twice in five minutes. It knows no clock.
#pragma once

#include <cstdint>
#include <sys/types.h>

namespace ctl {

constexpr int64_t ask_every_s = 15;

enum class answer {
    given,
    none,  // it runs and has its objects on the bus; broker and supervisor answer, and it does not
    unsure // it is not there, or starts, or somebody else does not answer
};

class watchdog {
public:
    static constexpr unsigned silences_to_end = 3;
    static constexpr int64_t between_ends_s = 300;

    // last_end_s: when a daemon was ended last; not before the machine's start where that is unknown.
    explicit watchdog(int64_t last_end_s = -between_ends_s) : last_end_s_(last_end_s) {}

    // True when the process is to be ended now, which counts as done.
    bool take(int64_t now_s, answer heard, pid_t process)
    {
        if (heard != answer::none || process != process_) {
            silences_ = 0;
        }
        process_ = process;
        silences_ += heard == answer::none ? 1 : 0;
        if (silences_ < silences_to_end || now_s - last_end_s_ < between_ends_s) {
            return false;
        }
        silences_ = 0;
        last_end_s_ = now_s;
        return true;
    }

private:
    int64_t last_end_s_;
    unsigned silences_ = 0;
    pid_t process_ = 0;
};

} // namespace ctl
