// Starting a WAN, for the configuration and the bus methods "add" and "config": from its settings to a
// running protocol and a row in the WAN information; and a static WAN's default route.
#pragma once

#include "netintf/proto.h"

// The settings of a WAN; each text may be null.
struct wan_settings {
    const char *proto; // as the row shows it; null: the name of the record's protocol
    const char *ipaddr;
    const char *netmask;
    const char *gateway;
    const char *service; // this and the next two: PPPoE
    const char *username;
    const char *password;
};

// When the policy rule of an earlier static WAN is removed: never, or after or before the new addresses are
// set. Before, its gateway is removed too.
enum class old_rule { stays, goes_after, goes_before };

// The differences between the three callers. Others rely on each of them.
struct wan_manner {
    old_rule rule;
    bool stops_disabled_pppoe;   // instead of starting it
    bool names_failures;         // reports a client that fails to start, and names the WAN of a refused row
    const char *unknown_address; // in the row, for an address that is not given
};
inline constexpr wan_manner wan_by_uci = {old_rule::goes_after, false, true, address_any};
inline constexpr wan_manner wan_by_add = {old_rule::stays, false, true, address_any};
inline constexpr wan_manner wan_by_config = {old_rule::goes_before, true, false, nullptr};

// Starts the record's protocol and inserts the WAN information row under name, which may be longer than the
// record's. A static WAN gets its policy rule only while its port has link and it is enabled. 0, or the
// failing step's result.
int netintf_wan_start(netintf_entry *entry, const char *name, const wan_settings &settings, uint32_t link,
                      const wan_manner &manner);

// A static WAN's default route and policy rule, from its record; a refused rule is reported.
void netintf_wan_gateway_add(const netintf_entry *entry);
void netintf_wan_rule_add(const netintf_entry *entry);
