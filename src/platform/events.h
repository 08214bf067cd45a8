// Kernel events, delivered from the event loop. 0 success, non-zero failure.
#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct nl_link_event {
    uint32_t port; // switch port
    uint32_t link; // 0 down, else up
};

struct nl_addr_event {
    uint32_t ifindex;
    uint32_t ipaddr; // host byte order
};

// Opens the event channel under a client name.
int nl_init(const char *client);
// Registers for events of a type.
static const int nl_event_link = 1; // link changes of switch ports
int nl_rx_event_reg(int type, int (*cb)(const struct nl_link_event *event));

// Prepares the watch of the ports' links.
int nl_duplex_init(void);

// Opens the routing message channel, and registers for messages of a type.
static const int nl_rtmsg_new_address = 20; // RTM_NEWADDR
int nl_rtmsg_init(void);
int nl_rtmsg_handler_reg(int type, int (*cb)(const struct nl_addr_event *event));

#ifdef __cplusplus
}
#endif
