// WANs: the one path from settings to a running protocol and a row, behind the configuration and the bus
// methods "add" and "config"; and a static WAN's way out.
#pragma once

#include "netintf/proto.h"

// What a WAN is given, each text null where it is not.
struct wan_settings {
    const char *proto; // for the row; null: the record's protocol by its own name
    const char *ipaddr;
    const char *netmask;
    const char *gateway;
    const char *service; // this and the next two: PPPoE
    const char *username;
    const char *password;
};

// In what the three callers differ. Others rely on each of these differences.
struct wan_manner {
    enum {
        rule_kept,
        rule_replaced,
        all_replaced
    } old;                       // what goes of an old static WAN: its policy rule
                                 // behind the new address; gateway and rule before
    bool pppoe_if_enabled;       // a disabled PPPoE WAN is stopped, not started
    bool reports;                // a client that cannot be started, and the name of a row that is refused
    const char *unknown_address; // what the row holds for an address that is not given
};
inline constexpr wan_manner wan_by_uci = {wan_manner::rule_replaced, false, true, address_any};
inline constexpr wan_manner wan_by_add = {wan_manner::rule_kept, false, true, address_any};
inline constexpr wan_manner wan_by_config = {wan_manner::all_replaced, true, false, nullptr};

// Starts the record's protocol and inserts the WAN information row under name, which may be longer than the
// record's. A static WAN gets its policy rule only while its port has link and it is enabled. 0, or the
// failing step's result.
int netintf_wan_start(netintf_entry *entry, const char *name, const wan_settings &settings, uint32_t link,
                      const wan_manner &manner);

// A static WAN's default route and policy rule, from its record; a refused rule is reported.
void netintf_wan_gateway_add(const netintf_entry *entry);
void netintf_wan_rule_add(const netintf_entry *entry);
