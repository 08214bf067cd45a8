#include "events.h"

#include "process.h"
#include "trace.h"

#include <libubus.h>
#include <utility>

namespace seam {
namespace {

template <class Event> void deliver(int (*handler)(const Event *), const Event &event)
{
    trace_line(handler == nullptr ? "no handler" : "returned " + std::to_string(handler(&event)));
}

} // namespace

void link_changes(uint32_t port, uint32_t link)
{
    deliver(process.on_link, nl_link_event{port, link});
}

void address_comes(uint32_t interface, uint32_t address)
{
    deliver(process.on_address, nl_addr_event{interface, address});
}

void timer_rings()
{
    if (process.timer == nullptr) {
        trace_line("no timer");
        return;
    }
    uloop_timeout *timer = std::exchange(process.timer, nullptr);
    timer->cb(timer);
}

} // namespace seam
