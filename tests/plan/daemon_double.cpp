// Programs that are daemons as little as may be: what ivarode-plan does with one that never ends, or falls.
//
//   BEHAVIOUR   turns: loops without a call; repeats: calls for ever; stands: waits for ever; falls: is
//   killed by its own fault after a call.

#include "platform/events.h"

#include <csignal>
#include <poll.h>

namespace {

[[maybe_unused]] void turns()
{
    for (volatile bool on = true; on;) {
    }
}

[[maybe_unused]] void repeats()
{
    for (;;) {
        nl_duplex_init();
    }
}

[[maybe_unused]] void stands()
{
    for (;;) {
        poll(nullptr, 0, -1);
    }
}

[[maybe_unused]] void falls()
{
    raise(SIGSEGV);
}

} // namespace

int main()
{
    nl_duplex_init();
    BEHAVIOUR();
    return 0;
}
