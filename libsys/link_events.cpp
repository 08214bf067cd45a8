// Link changes of the switch's front ports. The switch raises no event that could be listened to, so the PHYs
// are asked five times a second from the event loop.

#include "exports.h"
#include "internal.h"
#include "phy.h"
#include "start.h"

#include <sys/socket.h>

namespace libsys {

namespace {

constexpr int poll_interval_ms = 200;

using link_callback = int (*)(const nl_link_event *);

bool channel_open = false;
link_callback registered = nullptr;
bool port_up[phy_count]; // as last delivered

void deliver(unsigned port, bool up)
{
    port_up[port] = up;
    nl_link_event event = {port, up ? 1U : 0U};
    registered(&event);
}

// A port whose PHY cannot be read keeps its state; a loss that was over before the poll is announced all the
// same.
void poll_ports(uloop_timeout *timer)
{
    for (unsigned port = 0; port < phy_count; ++port) {
        link_reading link;
        if (watch_link(port, &link) != 0) {
            continue;
        }
        if (port_up[port] && link.lost) {
            deliver(port, false);
        }
        if (!port_up[port] && link.up) {
            deliver(port, true);
        }
    }
    end_start();
    uloop_timeout_set(timer, poll_interval_ms);
}

uloop_timeout timer;

} // namespace

} // namespace libsys

using namespace libsys;

int nl_init(const char *client)
{
    if (client == nullptr || !client[0]) {
        return fail(EINVAL, __func__, "%s", shown(client));
    }
    channel_open = true;
    return 0;
}

int nl_rx_event_reg(int type, int (*cb)(const struct nl_link_event *event))
{
    if (type != nl_event_link || cb == nullptr || !channel_open) {
        return fail(channel_open ? EINVAL : ENOTCONN, __func__, "%d, %s", type,
                    cb != nullptr ? "callback" : "(null)");
    }
    registered = cb;
    timer.cb = poll_ports;
    return uloop_timeout_set(&timer, poll_interval_ms) == 0 ? 0 : fail(EIO, __func__, "%d, timer", type);
}

// Nothing has to be prepared: every port counts as down until the first poll, and the first read of a PHY
// opens what it needs. What is checked is that it could.
int nl_duplex_init(void)
{
    unique_fd probe(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    return probe ? 0 : fail(errno, __func__, "%s", "");
}
