// short-sleep.so: put in front of the daemon by rounds that start it often. A sleep lasts a tenth of what is
// asked for: the pause in which a real board's links settle, which the emulated ones do not need. Everything
// else, the times between samples and events among it, is as on a router.
#include <ctime>

extern "C" unsigned sleep(unsigned seconds)
{
    constexpr unsigned tenths_per_second = 10;
    constexpr long tenth = 100'000'000; // nanoseconds
    const timespec wait = {static_cast<time_t>(seconds / tenths_per_second),
                           static_cast<long>(seconds % tenths_per_second) * tenth};
    timespec left{};
    if (nanosleep(&wait, &left) == 0) {
        return 0;
    }
    // what is left, in seconds of the caller's
    return static_cast<unsigned>(left.tv_sec * tenths_per_second + left.tv_nsec / tenth);
}
