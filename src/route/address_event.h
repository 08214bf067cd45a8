// Static routes whose gateway a new address makes reachable.
#pragma once

#include "platform/events.h"
#include "route/table.h"

// The first route, enabled or not, whose gateway lies in the subnet of an address, or null. The route's own
// destination netmask is the subnet's mask.
route_cfg_entry *route_cfg_entry_find_by_gateway(const char *address);

// Installs that route again if it is enabled. 0, or rv_invalid when there is none.
int route_cfg_entry_gateway_update(const char *address);

// A device got an address. Returns 0.
int route_addr_event_handler(const struct nl_addr_event *event);
