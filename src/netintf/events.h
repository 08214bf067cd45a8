// Kernel events: link changes of switch ports.
#pragma once

#include "netintf/registry.h"
#include "platform/events.h"

// Opens the event channel and registers the link handler. 0 or rv_board.
int netevt_nl_init();

// A port's link changed: pauses or resumes the interfaces on it. 0, or rv_fail after a report.
int netevt_nl_link_event(const struct nl_link_event *event);

// Forgets a WAN's addresses, in the kernel, the record and the WAN information row. 0, or the failing
// platform call's result. No event uses it yet.
int netevt_wan_addr_reset(netintf_entry *entry);

// Accepts a text of at most two blank-separated words: 0, or rv_fail when a third begins. The words are not
// kept. No event uses it yet.
int netevt_proto_param_get(void *unused, const char *text);
